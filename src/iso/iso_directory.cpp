#include "iso/iso_directory.h"

#include <algorithm>
#include <ctime>

namespace tallowin {
namespace {

constexpr u32 kMostDirectoryBytes = 64 * kMiB;
constexpr u32 kPieceBytes = 256 * kKiB;

// By the clock of the place where the disc is read.
FileTime timeOf(const u8 (&recorded)[7]) {
  std::tm local = {};
  local.tm_year = recorded[0];
  local.tm_mon = recorded[1] - 1;
  local.tm_mday = recorded[2];
  local.tm_hour = recorded[3];
  local.tm_min = recorded[4];
  local.tm_sec = recorded[5];
  local.tm_isdst = -1;
  if (local.tm_mon < 0 || local.tm_mon > 11 || local.tm_mday == 0) return 0;
  const std::time_t seconds = std::mktime(&local);
  return seconds < 0 ? 0 : fileTimeOfUnixSeconds(static_cast<u64>(seconds));
}

class DirectoryParser {
 public:
  DirectoryParser(const IsoVolume& volume, std::vector<IsoEntry>& entries)
      : volume_(volume), entries_(entries) {}

  Failure take(std::span<const u8> sector) {
    for (std::size_t at = 0; at < sector.size() && sector[at] != 0;) {
      const auto* record = recordAt<IsoDirectoryRecord>(sector, at);
      if (record == nullptr || record->length > sector.size() - at ||
          sizeof(IsoDirectoryRecord) + record->nameLength > record->length)
        return Error::corrupt;
      if (const Failure failed =
              add(*record, sector.subspan(at + sizeof(IsoDirectoryRecord), record->nameLength)))
        return failed;
      at += record->length;
    }
    return {};
  }
  Failure end() const { return goesOn_ ? Failure(Error::corrupt) : Failure(); }

 private:
  static bool isItselfOrParent(std::span<const u8> name) { return name.size() == 1 && name[0] < 2; }

  Failure add(const IsoDirectoryRecord& record, std::span<const u8> name) {
    const u32 index = index_++;
    if (isItselfOrParent(name)) return {};
    IsoEntry entry{
        .name = isoNameOf(name, volume_.isJoliet),
        .index = index,
        .flags = record.flags,
        .extent = {record.extent.value + record.extendedSectors, record.dataLength.value},
        .sizeBytes = record.dataLength.value,
        .recordedAt = timeOf(record.recordedAt)};
    // What is empty lies nowhere.
    if (entry.extent.bytes == 0) entry.extent.sector = 0;
    // What lies outside is told when it is opened, so that a disc that was cut off shows the rest.
    if (record.extendedSectors > kAllOnes32 - record.extent.value) entry.extent.sector = kAllOnes32;
    if (!goesOn_) {
      entries_.push_back(std::move(entry));
    } else if (const Failure failed = goOn(entry)) {
      return failed;
    }
    goesOn_ = (record.flags & kIsoGoesOn) != 0;
    return {};
  }

  Failure goOn(const IsoEntry& part) {
    IsoEntry& whole = entries_.back();
    const u64 end = u64{whole.extent.sector} + whole.sizeBytes / kIsoSectorBytes;
    const bool fits = part.name == whole.name && whole.sizeBytes % kIsoSectorBytes == 0 &&
                      (part.extent.bytes == 0 || part.extent.sector == end);
    if (!fits || part.isDirectory() || whole.isDirectory()) return Error::corrupt;
    whole.sizeBytes += part.sizeBytes;
    return {};
  }

  const IsoVolume& volume_;
  std::vector<IsoEntry>& entries_;
  u32 index_ = 0;
  bool goesOn_ = false;  // the next record belongs to the same file
};

}  // namespace

Failure readIsoDirectory(const IsoVolume& volume, const IsoExtent& extent,
                         std::vector<IsoEntry>& entries) {
  entries.clear();
  if (!volume.isInside(extent) || extent.bytes > kMostDirectoryBytes) return Error::corrupt;
  DirectoryParser parser(volume, entries);
  const u32 sectors = (extent.bytes + kIsoSectorBytes - 1) / kIsoSectorBytes;
  std::vector<u8> piece;
  for (u32 done = 0; done < sectors;) {
    const u32 count = std::min(kPieceBytes / kIsoSectorBytes, sectors - done);
    piece.resize(std::size_t{count} * kIsoSectorBytes);
    if (const Failure failed = volume.readSectors(extent.sector + done, piece)) return failed;
    for (u32 i = 0; i < count; ++i)
      if (const Failure failed = parser.take(std::span<const u8>(piece).subspan(
              std::size_t{i} * kIsoSectorBytes, kIsoSectorBytes)))
        return failed;
    done += count;
  }
  return parser.end();
}

}  // namespace tallowin
