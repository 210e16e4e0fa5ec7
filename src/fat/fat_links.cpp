#include "fat/fat_links.h"

#include <algorithm>
#include <new>

#include "fat/fat_table.h"

namespace tallowin {
namespace {

constexpr u32 kReadWindowSectors = 512;
constexpr u32 kPieceBytes = 1 * kMiB;

}  // namespace

Failure FatLinks::read(const FatVolume& volume) {
  badMark_ = volume.layout.badMark();
  FatTable table(volume.range, volume.layout);
  if (const Failure failed = table.setUp({.windowSectors = kReadWindowSectors, .savedWindows = 1}))
    return failed;
  try {
    values_.assign(std::size_t{volume.layout.highestCluster()} + 1, 0);
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
  for (u32 cluster = 2; cluster < values_.size(); ++cluster)
    if (const Failure failed = table.get(cluster, values_[cluster])) return failed;
  return {};
}

std::vector<u32> FatLinks::heads() const {
  std::vector<bool> isLed(values_.size());
  for (u32 cluster = 2; cluster < values_.size(); ++cluster) isLed[next(cluster)] = true;
  std::vector<u32> heads;
  for (u32 cluster = 2; cluster < values_.size(); ++cluster)
    if (isInUse(cluster) && !isLed[cluster]) heads.push_back(cluster);
  return heads;
}

FatWriter::FatWriter(const SectorRange& range, const FatLayout& layout)
    : range_(range), layout_(layout) {
  // The entries of a FAT12 straddle sectors, so that it is held whole.
  const u64 all = u64{layout.sectorsPerFat} * layout.bytesPerSector;
  const bool isWhole = layout.kind == FatKind::fat12;
  piece_.resize(isWhole ? all : std::min<u64>(all, kPieceBytes));
  entriesInPiece_ = isWhole ? piece_.size() * 2 / 3 : piece_.size() / (layout.isFat32() ? 4 : 2);
}

Failure FatWriter::put(u32 value) {
  if (entry_ == entriesInPiece_)
    if (const Failure failed = writePiece()) return failed;
  switch (layout_.kind) {
    case FatKind::fat12: {
      Le16& pair = *recordAt<Le16>(std::span(piece_), entry_ + entry_ / 2);
      const u32 old = pair;
      pair = static_cast<u16>(entry_ % 2 != 0 ? (old & 0x000F) | (value & 0xFFF) << 4
                                              : (old & 0xF000) | (value & 0xFFF));
      break;
    }
    case FatKind::fat16:
      *recordAt<Le16>(std::span(piece_), entry_ * 2) = static_cast<u16>(value);
      break;
    case FatKind::fat32:
      *recordAt<Le32>(std::span(piece_), entry_ * 4) = value;
      break;
  }
  ++entry_;
  return {};
}

Failure FatWriter::writePiece() {
  const u32 sectors = static_cast<u32>(
      std::min<u64>(piece_.size() / layout_.bytesPerSector, layout_.sectorsPerFat - firstSector_));
  for (u32 copy = 0; copy < layout_.numberOfFats; ++copy) {
    const u64 lba = range_.firstSector + layout_.reservedSectors +
                    u64{copy} * layout_.sectorsPerFat + firstSector_;
    if (const Failure failed = range_.disk.writeSectors(lba, piece_.data(), sectors)) return failed;
  }
  firstSector_ += sectors;
  std::ranges::fill(piece_, u8{0});
  entry_ = 0;
  return {};
}

Failure FatWriter::finish() {
  while (firstSector_ < layout_.sectorsPerFat)
    if (const Failure failed = writePiece()) return failed;
  return {};
}

}  // namespace tallowin
