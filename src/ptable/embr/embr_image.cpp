#include "ptable/embr/embr_image.h"

#include <algorithm>

namespace tallowin {
namespace {

bool isVersionKnown(u8 version) { return (version & kEmbrVersionMask) == 0; }

bool hasOtherFirstSector(std::span<const u8> sector) { return textAt(sector, 2, "IBM "); }

}  // namespace

std::size_t EmbrImage::entryAt(u32 position) const {
  return headerAt() + sizeof(EmbrHeaderRecord) + std::size_t{position} * sizeof(MptEntryRecord);
}

std::size_t EmbrImage::areaEnd() const {
  return headerAt() + std::size_t{header().areaSectors} * kEmbrSectorBytes;
}

u32 EmbrImage::trackSectors() const {
  return std::min<u32>(header().sectorsPerTrack, static_cast<u32>(bytes_.size() / sectorSize_));
}

std::span<const u8> EmbrImage::sector(u32 lba) const {
  return std::span<const u8>(bytes_).subspan(std::size_t{lba} * sectorSize_, sectorSize_);
}

std::size_t EmbrImage::skipItems(std::size_t at, u32 count, std::size_t fixedBytes) const {
  const std::size_t end = areaEnd();
  for (u32 item = 0; item < count; ++item) {
    if (at > end || fixedBytes > end - at) return 0;
    const std::size_t length = fixedBytes + bytes_[at + fixedBytes - 1];
    if (length > end - at) return 0;
    at += length;
  }
  return at;
}

std::size_t EmbrImage::locateEnd() const {
  const std::span<const u8> area = std::span<const u8>(bytes_).first(areaEnd());
  std::size_t at = entryAt(entryCount());
  const auto* mbft = recordAt<MbftHeaderRecord>(area, at);
  if (mbft == nullptr || !textAt(area, at, "MBFT") || !isVersionKnown(mbft->version)) return 0;
  at = skipItems(at + sizeof(MbftHeaderRecord), mbft->count, kMbftItemFixedBytes);
  if (at == 0 || !textAt(area, at, "MDT")) return at;
  const auto* mdt = recordAt<MdtHeaderRecord>(area, at);
  if (mdt == nullptr || !isVersionKnown(mdt->version)) return 0;
  return skipItems(at + sizeof(MdtHeaderRecord), mdt->count, kMdtItemFixedBytes);
}

bool EmbrImage::check() {
  headerSector_ = hasOtherFirstSector(sector(1)) ? 2 : 1;
  const std::size_t at = headerAt();
  if (recordAt<EmbrHeaderRecord>(image(), at) == nullptr) return false;
  EmbrHeaderRecord& record = header();
  if (!textAt(bytes_, at, "EMBR") || !textAt(bytes_, at + 18, "MPT")) return false;
  if (!isVersionKnown(record.version) || !isVersionKnown(record.mptVersion)) return false;
  record.bytesPerSector = u16{kEmbrSectorBytes};
  if (record.sectorsPerTrack == 0 || record.sectorsPerTrack > kMaxSectors)
    record.sectorsPerTrack = kMaxSectors;
  const bool placed = record.areaSectors != 0 && areaEnd() <= bytes_.size() &&
                      record.endSector >= headerSector_ + record.areaSectors &&
                      record.endSector <= trackSectors();
  if (!placed) return false;
  usedEnd_ = locateEnd();
  return usedEnd_ != 0;
}

Failure EmbrImage::read(DiskDevice& disk, EmbrImage& image) {
  const u64 disksSectors = disk.sectorCount().value_or(0);
  const u32 count =
      static_cast<u32>(std::min<u64>({kMaxBytes / disk.sectorSize(), kMaxSectors, disksSectors}));
  std::vector<u8> track(std::size_t{count} * disk.sectorSize());
  if (const Failure failed = disk.readSectors(0, track.data(), count))
    return failed.as(Error::tableReadFailed);
  return parse(track, disk.sectorSize(), image);
}

Failure EmbrImage::parse(std::span<const u8> track, u32 sectorSizeBytes, EmbrImage& image) {
  const std::size_t count =
      std::min<std::size_t>({kMaxBytes, track.size(), std::size_t{kMaxSectors} * sectorSizeBytes}) /
      sectorSizeBytes;
  // The header and one sector of doubt must be there.
  if (count < 3) return Error::notThisFormat;
  image.sectorSize_ = sectorSizeBytes;
  image.bytes_.assign(track.begin(),
                      track.begin() + static_cast<std::ptrdiff_t>(count * sectorSizeBytes));
  return image.check() ? Error::none : Error::notThisFormat;
}

bool EmbrImage::holdsSameTable(const EmbrImage& other) const {
  if (endSector() != other.endSector() || sectorSize_ != other.sectorSize_) return false;
  const auto behindMbr = [](const EmbrImage& image) {
    return std::span<const u8>(image.bytes_)
        .subspan(image.sectorSize_, std::size_t{image.endSector() - 1} * image.sectorSize_);
  };
  return std::ranges::equal(behindMbr(*this), behindMbr(other));
}

void EmbrImage::create(const Geometry& geometry, bool fresh) {
  if (fresh) std::ranges::fill(bytes_, u8{0});
  headerSector_ = hasOtherFirstSector(sector(1)) ? 2 : 1;
  std::fill_n(bytes_.begin() + static_cast<std::ptrdiff_t>(headerAt()), sectorSize_, u8{0});
  EmbrHeaderRecord& record = header();
  std::copy_n("EMBR", sizeof record.signature, record.signature);
  record.version = kEmbrVersion;
  record.endSector = static_cast<u8>(headerSector_ + 1);
  record.areaSectors = 1;
  record.bytesPerSector = u16{kEmbrSectorBytes};
  record.maxCylinder = geometry.maxCylinder;
  record.maxHead = geometry.maxHead;
  record.sectorsPerTrack = geometry.sectorsPerTrack == 0 || geometry.sectorsPerTrack > kMaxSectors
                               ? u8{kMaxSectors}
                               : geometry.sectorsPerTrack;
  std::copy_n("MPT", sizeof record.mptSignature, record.mptSignature);
  record.mptVersion = kMptVersion;
  auto& mbft = *recordAt<MbftHeaderRecord>(image(), entryAt(0));
  std::copy_n("MBFT", sizeof mbft.signature, mbft.signature);
  mbft.version = kMbftVersion;
  usedEnd_ = entryAt(0) + sizeof(MbftHeaderRecord);
}

bool EmbrImage::grow() {
  if (header().endSector >= trackSectors()) return false;
  const std::size_t end = areaEnd();
  if (kEmbrSectorBytes > bytes_.size() - end) return false;
  const auto at = [&](std::size_t offset) {
    return bytes_.begin() + static_cast<std::ptrdiff_t>(offset);
  };
  std::move_backward(at(end), bytes_.end() - kEmbrSectorBytes, bytes_.end());
  std::fill_n(at(end), kEmbrSectorBytes, u8{0});
  ++header().endSector;
  ++header().areaSectors;
  return true;
}

// What was left there before must not become a table of its own by standing behind the last item.
void EmbrImage::clearUnused() {
  std::fill(bytes_.begin() + static_cast<std::ptrdiff_t>(usedEnd_),
            bytes_.begin() + static_cast<std::ptrdiff_t>(areaEnd()), u8{0});
}

u8 EmbrImage::freeId(u32 wanted) const {
  constexpr u32 kHighestId = 255;
  const auto isTaken = [this](u32 id) {
    for (u32 i = 0; i < entryCount(); ++i)
      if (entry(i).id == id) return true;
    return id == 0;
  };
  u32 id = wanted & kHighestId;
  for (u32 tries = 0; tries <= kHighestId && isTaken(id); ++tries) id = (id + 1) & kHighestId;
  return static_cast<u8>(id);
}

Failure EmbrImage::insert(u32 position, const MptEntryRecord& entry) {
  if (entryCount() >= kMaxMptEntries || position > entryCount()) return Error::noFreeEntry;
  if (areaEnd() - usedEnd_ < sizeof entry && !grow()) return Error::noFreeEntry;
  const auto at = [&](std::size_t offset) {
    return bytes_.begin() + static_cast<std::ptrdiff_t>(offset);
  };
  const std::size_t place = entryAt(position);
  std::move_backward(at(place), at(usedEnd_), at(usedEnd_ + sizeof entry));
  *recordAt<MptEntryRecord>(image(), place) = entry;
  usedEnd_ += sizeof entry;
  ++header().mptCount;
  clearUnused();
  return Error::none;
}

void EmbrImage::remove(u32 position) {
  if (position >= entryCount()) return;
  const auto at = [&](std::size_t offset) {
    return bytes_.begin() + static_cast<std::ptrdiff_t>(offset);
  };
  std::move(at(entryAt(position + 1)), at(usedEnd_), at(entryAt(position)));
  usedEnd_ -= sizeof(MptEntryRecord);
  --header().mptCount;
  clearUnused();
}

void EmbrImage::setLimitsPrimaries(bool limit) {
  EmbrHeaderRecord& record = header();
  record.mptFlags =
      static_cast<u8>((record.mptFlags & ~kMptLimitPrimaries) | (limit ? kMptLimitPrimaries : 0));
}

std::span<const u8> EmbrImage::firstSectors(u32 count) const {
  return std::span<const u8>(bytes_).first(
      std::min(std::size_t{count} * sectorSize_, bytes_.size()));
}

std::span<const u8> EmbrImage::bootManagerTables() const {
  const std::size_t from = entryAt(entryCount());
  return std::span<const u8>(bytes_).subspan(from, usedEnd_ - from);
}

Failure EmbrImage::writeRun(DiskDevice& disk, u32 first, u32 end) {
  Failure failed = disk.writeSectors(first, sector(first).data(), end - first);
  if (!failed) failed = disk.flush();
  return failed.as(Error::tableWriteFailed);
}

Failure EmbrImage::write(DiskDevice& disk) {
  return writeRun(disk, 0, std::min(endSector(), trackSectors()));
}

Failure EmbrImage::writeAsNewTable(DiskDevice& disk) {
  const u32 end = std::min(endSector(), trackSectors());
  const u32 behindHeader = headerSector_ + 1;
  if (behindHeader < end) {
    if (const Failure failed = writeRun(disk, behindHeader, end)) return failed;
  }
  if (const Failure failed = writeRun(disk, 1, behindHeader)) return failed;
  return writeRun(disk, 0, 1);
}

Failure EmbrImage::writeBehindMbr(DiskDevice& disk) { return writeRun(disk, 1, endSector()); }

}  // namespace tallowin
