#include <algorithm>
#include <utility>

#include "disk/mbr_record.h"
#include "probe/type_catalogue.h"
#include "ptable/convert.h"
#include "ptable/convert_common.h"
#include "ptable/gpt/gpt_scheme.h"
#include "ptable/gpt/gpt_types.h"
#include "ptable/mbr/boot_code.h"

namespace tallowin {
namespace {

constexpr u64 kReservedBytes = 16 * kMiB;
constexpr u64 kLargeReservedBytes = 128 * kMiB;

u64 tableSectors(u32 sectorSize) {
  return 1 + u64{kGptEntryCount} * kGptEntrySize / sectorSize;  // header and entry array
}

// Builds the new table entry by entry.
class GptBuilder {
 public:
  GptBuilder(Drive& drive, GptImage& image) : drive_(drive), image_(image) {}

  Failure take(const PartitionEntry& entry) {
    if (entry.type == types::kDynamicDisk) return Error::dynamicDisk;
    return put(entry.startSector, entry.endSector, gptTypeFor(entry.type),
               isPlaceholderName(entry) ? std::string() : entry.name);
  }
  Failure takeReserved(const SectorRegion& place) {
    return put(place.first, place.last, kGptMsReserved, "Microsoft reserved partition");
  }

 private:
  Failure put(u64 first, u64 last, const Guid& type, const std::string& name) {
    if (count_ >= image_.entryCount()) return Error::tooManyPartitions;
    if (first < image_.header().firstUsableLba || last > image_.header().lastUsableLba)
      return Error::partitionBeyondTable;
    GptEntryRecord& record = image_.entry(count_++);
    record.typeGuid = type;
    record.uniqueGuid = newUniqueGuid(drive_.tableContext().host, image_);
    record.firstLba = first;
    record.lastLba = last;
    setGptName(record, name);
    return {};
  }

  Drive& drive_;
  GptImage& image_;
  u32 count_ = 0;
};

// In the order of the disk, with the volumes in place of what holds them.
Failure build(Drive& drive, const std::optional<SectorRegion>& reserved, GptBuilder& builder) {
  const SectorRegion* waiting = reserved ? &*reserved : nullptr;
  const auto take = [&](const PartitionEntry& entry) -> Failure {
    if (waiting != nullptr && waiting->first < entry.startSector)
      if (const Failure failed = builder.takeReserved(*std::exchange(waiting, nullptr)))
        return failed;
    return builder.take(entry);
  };
  for (const auto& entry : drive.table().entries) {
    if (entry->isFree()) continue;
    if (!entry->volumes) {
      if (const Failure failed = take(*entry)) return failed;
      continue;
    }
    for (const auto& volume : entry->volumes->entries) {
      if (volume->isFree()) continue;
      if (const Failure failed = take(*volume)) return failed;
    }
  }
  return waiting != nullptr ? builder.takeReserved(*waiting) : Failure();
}

Failure clearReserved(DiskDevice& disk, const SectorRegion& reserved) {
  constexpr u64 kHeadSectors = 8;
  const std::vector<u8> zeros(kHeadSectors * disk.sectorSize());
  Failure failed = disk.writeSectors(reserved.first, zeros.data(), kHeadSectors);
  if (!failed) failed = disk.flush();
  return failed.as(Error::writeFailedNewTable);
}

}  // namespace

std::optional<SectorRegion> reservedPlace(const Drive& drive) {
  const u64 table = tableSectors(drive.sectorSize());
  if (drive.lastLba() < table) return std::nullopt;
  for (const auto& block : drive.table().entries) {
    if (!block->isFree()) continue;
    const u64 first = std::max(block->startSector, table + 1);
    const u64 last = std::min(block->endSector, drive.lastLba() - table);
    const u64 bytes = last < first ? 0 : (last - first + 1) * drive.sectorSize();
    if (bytes < kReservedBytes) continue;
    const u64 taken = bytes >= kLargeReservedBytes ? kLargeReservedBytes : kReservedBytes;
    return SectorRegion{first, first + taken / drive.sectorSize() - 1};
  }
  return std::nullopt;
}

Failure convertToGpt(Drive& drive, bool createReserved, TrackContent content) {
  if (drive.isGpt()) return Error::none;
  if (const Failure failed = checkConvertible(drive, Scheme::gpt, content)) return failed;
  GptImage image;
  const Guid diskGuid = randomGuid(drive.tableContext().host);
  if (const Failure failed = GptImage::create(drive.lastLba(), drive.sectorSize(), diskGuid, image))
    return failed.as(Error::tableNotBuilt);
  auto& mbr = *recordAt<MbrRecord>(image.mbr());
  installBootCode(BootCode::standard, mbr);
  if (drive.diskSignature() != 0) mbr.diskSignature = drive.diskSignature();
  const auto reserved = createReserved ? reservedPlace(drive) : std::nullopt;
  GptBuilder builder(drive, image);
  if (const Failure failed = build(drive, reserved, builder)) return failed;
  if (createReserved && !reserved) return Error::noRoomForReserved;

  DiskDevice& disk = drive.disk();
  const u64 sectors = tableSectors(drive.sectorSize());
  std::array<SavedSectors, 2> old;
  if (const Failure failed = saveSectors(disk, 0, sectors + 1, old[0])) return failed;
  if (const Failure failed = saveSectors(disk, drive.lastLba() + 1 - sectors, sectors, old[1]))
    return failed;
  const Failure written = drive.isEmbr() ? image.writeOverHeaderTable(disk) : image.write(disk);
  drive.setFlags(kDriveChanged, kDriveChanged);
  if (written) return undoConversion(drive, old, written);
  return reserved ? clearReserved(disk, *reserved) : Failure();
}

}  // namespace tallowin
