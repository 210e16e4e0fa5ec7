#include "fat/fat_file_data.h"

#include <algorithm>

namespace tallowin {
namespace {

// So much at most goes through a buffer of whole sectors, in one request with what fills them.
constexpr u64 kBouncedBytes = 64 * kKiB;

}  // namespace

FatFileData::Extent FatFileData::extentAt(const FatChain& chain, u64 position, u64 bytes) const {
  const FatLayout& layout = volume_.layout;
  const ClusterRun run = chain.runAt(static_cast<u32>(position / layout.clusterBytes()));
  const u32 inCluster = static_cast<u32>(position % layout.clusterBytes());
  return {volume_.range.firstSector + layout.clusterToSector(run.first) +
              inCluster / layout.bytesPerSector,
          inCluster % layout.bytesPerSector,
          std::min(bytes, u64{run.count} * layout.clusterBytes() - inCluster)};
}

bool FatFileData::isWhole(const Extent& extent) const {
  return extent.offset == 0 && extent.bytes % volume_.layout.bytesPerSector == 0;
}

u64 FatFileData::sectorsOf(const Extent& extent) const {
  const u32 sectorBytes = volume_.layout.bytesPerSector;
  return (extent.offset + extent.bytes + sectorBytes - 1) / sectorBytes;
}

template <typename Byte, typename Move>
Failure FatFileData::forEachExtent(const FatChain& chain, u64 position, std::span<Byte> bytes,
                                   Move move) const {
  const u32 sectorBytes = volume_.layout.bytesPerSector;
  while (!bytes.empty()) {
    Extent extent = extentAt(chain, position, bytes.size());
    if (!isWhole(extent) && extent.offset + extent.bytes > kBouncedBytes) {
      // A large piece goes directly, but for its first or its last sector.
      const u64 wholeBytes = extent.bytes / sectorBytes * sectorBytes;
      extent.bytes = extent.offset != 0 ? sectorBytes - extent.offset : wholeBytes;
    }
    if (const Failure failed = move(extent, bytes.first(extent.bytes), position)) return failed;
    position += extent.bytes;
    bytes = bytes.subspan(extent.bytes);
  }
  return {};
}

Failure FatFileData::read(const FatChain& chain, u64 position, std::span<u8> bytes) const {
  DiskDevice& disk = volume_.range.disk;
  std::vector<u8> sectors;
  const auto move = [&](const Extent& extent, std::span<u8> piece, u64) -> Failure {
    if (isWhole(extent)) return disk.readSectors(extent.lba, piece.data(), sectorsOf(extent));
    sectors.resize(sectorsOf(extent) * volume_.layout.bytesPerSector);
    if (const Failure failed = disk.readSectors(extent.lba, sectors.data(), sectorsOf(extent)))
      return failed;
    std::copy_n(sectors.begin() + extent.offset, piece.size(), piece.begin());
    return {};
  };
  return forEachExtent(chain, position, bytes, move);
}

Failure FatFileData::write(const FatChain& chain, u64 position, std::span<const u8> bytes,
                           u64 sizeBytes) const {
  const u32 sectorBytes = volume_.layout.bytesPerSector;
  DiskDevice& disk = volume_.range.disk;
  std::vector<u8> sectors;
  // What the file holds of a sector that is not written whole stays.
  const auto keep = [&](u64 lba, std::size_t at, u64 filePosition) -> Failure {
    const std::span<u8> sector(sectors.data() + at, sectorBytes);
    const u64 held = sizeBytes - std::min(sizeBytes, filePosition);
    if (held == 0) return {};
    if (const Failure failed = disk.readSectors(lba, sector.data(), 1)) return failed;
    if (held < sectorBytes) std::ranges::fill(sector.subspan(held), u8{0});
    return {};
  };
  const auto move = [&](const Extent& extent, std::span<const u8> piece, u64 at) -> Failure {
    const u64 count = sectorsOf(extent);
    if (isWhole(extent)) return disk.writeSectors(extent.lba, piece.data(), count);
    sectors.assign(count * sectorBytes, u8{0});
    const u64 start = at - extent.offset;
    if (extent.offset != 0)
      if (const Failure failed = keep(extent.lba, 0, start)) return failed;
    const bool endsInside = (extent.offset + extent.bytes) % sectorBytes != 0;
    const u64 last = (count - 1) * sectorBytes;
    if (endsInside && (count > 1 || extent.offset == 0))
      if (const Failure failed = keep(extent.lba + count - 1, last, start + last)) return failed;
    std::ranges::copy(piece, sectors.begin() + extent.offset);
    return disk.writeSectors(extent.lba, sectors.data(), count);
  };
  return forEachExtent(chain, position, bytes, move);
}

}  // namespace tallowin
