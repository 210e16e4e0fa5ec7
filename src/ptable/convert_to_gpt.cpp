#include <algorithm>

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

// Builds the new table entry by entry.
class GptBuilder {
 public:
  GptBuilder(Drive& drive, GptImage& image) : drive_(drive), image_(image) {}

  Failure take(PartitionEntry& entry);
  // Only the first free block that is large enough is used; the others are passed over.
  Failure offerBlock(const TableEntry& block);
  std::optional<u64> reservedStart() const { return reservedStart_; }

 private:
  Failure put(PartitionEntry& entry);

  Drive& drive_;
  GptImage& image_;
  u32 count_ = 0;
  std::optional<u64> reservedStart_;
};

Failure GptBuilder::put(PartitionEntry& entry) {
  if (count_ >= image_.entryCount()) return Error::tooManyPartitions;
  if (entry.startSector < image_.header().firstUsableLba ||
      entry.endSector > image_.header().lastUsableLba)
    return Error::partitionBeyondTable;
  if (entry.typeGuid.isZero()) entry.typeGuid = kGptBasicData;
  if (entry.uniqueGuid.isZero())
    entry.uniqueGuid = newUniqueGuid(drive_.tableContext().host, image_);
  fillGptEntry(entry, image_.entry(count_++));
  return Error::none;
}

Failure GptBuilder::take(PartitionEntry& entry) {
  if (entry.type == types::kDynamicDisk) return Error::dynamicDisk;
  entry.attributes = 0;
  // Firmware finds an EFI System partition by nothing else.
  if (entry.type == types::kEfiSystem) entry.typeGuid = kGptEfiSystem;
  return put(entry);
}

Failure GptBuilder::offerBlock(const TableEntry& block) {
  if (reservedStart_) return Error::none;
  const u64 start = std::max<u64>(block.startSector, image_.header().firstUsableLba);
  const u64 end = std::min<u64>(block.endSector, image_.header().lastUsableLba);
  const u64 sectorSize = drive_.sectorSize();
  if (end < start || end - start + 1 < kReservedBytes / sectorSize) return Error::none;
  const bool isLarge = end - start + 1 >= kLargeReservedBytes / sectorSize;
  TableEntry reserved;
  reserved.startSector = start;
  reserved.endSector = start + (isLarge ? kLargeReservedBytes : kReservedBytes) / sectorSize - 1;
  reserved.typeGuid = kGptMsReserved;
  reserved.name = "Microsoft reserved partition";
  reservedStart_ = start;
  return put(reserved);
}

Failure build(Drive& drive, bool createReserved, GptBuilder& builder) {
  for (const auto& entry : drive.table().entries) {
    Failure error = Error::none;
    if (entry->isFree()) {
      if (createReserved) error = builder.offerBlock(*entry);
    } else if (entry->volumes) {
      for (const auto& volume : entry->volumes->entries)
        if (!volume->isFree() && error == Error::none) error = builder.take(*volume);
    } else {
      error = builder.take(*entry);
    }
    if (error != Error::none) return error;
  }
  return createReserved && !builder.reservedStart() ? Error::noRoomForReserved : Error::none;
}

}  // namespace

Failure convertToGpt(Drive& drive, bool createReserved, TrackContent content) {
  constexpr u64 kReservedHeadSectors = 8;
  if (drive.isGpt()) return Error::none;
  if (const Failure error = checkConvertible(drive, Scheme::gpt, content); error != Error::none)
    return error;
  GptImage image;
  const Guid diskGuid = randomGuid(drive.tableContext().host);
  if (GptImage::create(drive.lastLba(), drive.sectorSize(), diskGuid, image) != Error::none)
    return Error::tableNotBuilt;
  auto& mbr = *recordAt<MbrRecord>(image.mbr());
  installBootCode(BootCode::standard, mbr);
  if (drive.diskSignature() != 0) mbr.diskSignature = drive.diskSignature();
  GptBuilder builder(drive, image);
  if (const Failure error = build(drive, createReserved, builder); error != Error::none)
    return error;

  DiskDevice& disk = drive.disk();
  const u64 tableEnd = 2 + u64{kGptEntryCount} * kGptEntrySize / drive.sectorSize();
  std::vector<u8> old(tableEnd * drive.sectorSize());
  if (disk.readSectors(0, old.data(), tableEnd) != Error::none) return Error::read;
  const Failure written = drive.isEmbr() ? image.writeOverHeaderTable(disk) : image.write(disk);
  drive.setFlags(kDriveChanged, kDriveChanged);
  if (written != Error::none) return undoConversion(drive, old);
  if (!builder.reservedStart()) return Error::none;
  const std::vector<u8> zeros(kReservedHeadSectors * drive.sectorSize());
  const bool cleared = disk.writeSectors(*builder.reservedStart(), zeros.data(),
                                         kReservedHeadSectors) == Error::none &&
                       disk.flush() == Error::none;
  return cleared ? Error::none : Error::writeFailedNewTable;
}

}  // namespace tallowin
