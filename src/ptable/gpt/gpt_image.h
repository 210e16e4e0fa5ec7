// A whole GUID Partition Table in memory: protective MBR, header and entry array.
#pragma once

#include <set>
#include <vector>

#include "base/error.h"
#include "disk/disk_device.h"
#include "ptable/gpt/gpt_health.h"
#include "ptable/gpt/gpt_record.h"

namespace tallowin {

class SectorSource;

// Changes are made in the image, which is then written back whole. Sector numbers are LBAs of
// the device that the image was made for.
class GptImage {
 public:
  // Holds MBR, header and entry array; a larger table is refused, not read partially.
  static constexpr std::size_t kMaxBytes = 32 * kKiB;

  // Reads sector 0 and the primary table, or the backup when the primary's signature or
  // checksums are wrong; a backup becomes a primary in memory, with its entry array where the
  // damaged one had it, as far as that can be found out. gptSignature, gptTableCheck, gptRevision,
  // entriesDoNotFit, tableReadFailed, diskSizeUnknown. What `track`, the first sectors of the disk,
  // already holds is not read again.
  static Failure read(DiskDevice& disk, GptImage& image, std::span<const u8> track = {});
  // An empty table with its protective MBR. bufferTooSmall: the sectors are too large.
  static Failure create(u64 lastLba, u32 sectorSizeBytes, const Guid& diskGuid, GptImage& image);

  // Writes both copies, so that the old or the new table is on the disk at any moment. The entry
  // arrays stay where the headers on the disk say; what lies between a header and its array is not
  // touched. Nothing was written: sectorSizeDiffers, and what checkPlaces answers.
  // tableWriteFailed, backupWriteFailed.
  Failure write(DiskDevice& disk);
  // What lies behind sector 0 counts as another table as long as it is valid, and goes first
  // from then on: the new MBR and the backup are on the disk before it is overwritten.
  Failure writeOverHeaderTable(DiskDevice& disk);

  // Whether there is room for both copies. backupOverlaps: a partition lies where the backup
  // belongs. sectorsInUse: the primary is damaged, and another program uses each place that its
  // entry array may have had.
  Failure checkPlaces() const;

  // Adds the sectors of both copies as they lie on the disk, and those at its end where a repair
  // puts the backup.
  void addTableSectors(DiskDevice& disk, std::set<u64>& lbas) const;

  // Where the entries came from at read().
  GptCopy source() const { return source_; }
  GptBackupState backupState(DiskDevice& disk) const;
  // Same entries, disk GUID and usable area, whatever stands in the MBR.
  bool holdsSameTable(const GptImage& other) const;
  // Moves the backup to the last sector of a disk of `lastLba`, and the usable area's end with
  // it; backupOverlaps when a used entry would lie behind that.
  Failure moveBackupTo(u64 lastLba);

  std::span<u8> mbr() { return std::span(bytes_).first(sectorSize_); }
  std::span<const u8> mbr() const { return std::span(bytes_).first(sectorSize_); }
  GptHeaderRecord& header() { return *recordAt<GptHeaderRecord>(std::span(bytes_), sectorSize_); }
  const GptHeaderRecord& header() const {
    return *recordAt<GptHeaderRecord>(std::span<const u8>(bytes_), sectorSize_);
  }
  u32 entryCount() const { return header().entryCount; }
  u64 entrySectors() const;  // of one entry array
  // `index` below entryCount().
  GptEntryRecord& entry(u32 index) {
    return *recordAt<GptEntryRecord>(std::span(bytes_), at(index));
  }
  const GptEntryRecord& entry(u32 index) const {
    return *recordAt<GptEntryRecord>(std::span<const u8>(bytes_), at(index));
  }

  // The rules for the header of a primary table by itself. `headerSector` holds at least 512
  // bytes. gptSignature, gptTableCheck, gptRevision.
  static Failure checkHeader(std::span<const u8> headerSector, u32 sectorSizeBytes);

 private:
  std::size_t at(u32 index) const;
  std::span<const u8> entryArray() const;
  // Recomputes both checksums.
  void seal();
  void becomePrimary();

  static Failure readCopy(SectorSource& source, u64 headerLba, GptImage& image);
  bool isArrayAt(SectorSource& source, u64 lba) const;
  void placePrimaryArray(SectorSource& source);
  Failure put(DiskDevice& disk, u64 lba, u64 firstOfImage, u64 count) const;
  Failure writePrimaryTable(DiskDevice& disk, u64 firstSector) const;
  enum class MbrOrder { withTable, afterTable, beforeTable };
  Failure writePrimary(DiskDevice& disk, MbrOrder order) const;
  bool isInUse(u64 first, u64 last) const;
  u64 backupArrayPlace(DiskDevice& disk) const;
  bool backupStandsOn(DiskDevice& disk) const;
  Failure writeBackup(DiskDevice& disk) const;

  u32 sectorSize_ = 0;
  GptCopy source_ = GptCopy::primary;
  bool isPrimaryPlaced_ = true;
  std::vector<u8> bytes_;
};

// Destroys the signature of a backup header on the last sector; nothing to do without one.
Failure invalidateGptBackup(DiskDevice& disk);

// The name as it lies in an entry; characters beyond the first 36 are cut.
std::string gptName(const GptEntryRecord& entry);  // UTF-8
void setGptName(GptEntryRecord& entry, std::string_view utf8);

}  // namespace tallowin
