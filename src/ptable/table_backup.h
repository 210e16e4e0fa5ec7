// A copy of the sectors that make up a disk's partition table, kept in a file.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/host.h"
#include "ptable/drive.h"

namespace tallowin {

struct TableSector {
  u64 lba = 0;
  std::vector<u8> bytes;  // one sector
};

// The MBR sector, the sectors behind it up to the first partition, both copies of a GPT, every EBR,
// and the sector behind an EBR where that belongs to the table. Of a disk without a table the
// sectors by which programs know its file system.
struct TableBackup {
  u32 sectorSizeBytes = 512;
  u64 diskSectors = 0;
  u32 diskSignature = 0;
  u64 savedAt = 0;                   // seconds since 1970, UTC
  std::string diskName;              // model and serial number, or the file's path; for people
  std::vector<TableSector> sectors;  // ascending LBA, the MBR first
};

struct RestoreOptions {
  bool otherDisk = false;  // go on although isOfOtherDisk
};

// Model and serial number, or the file's path: by this a disk's copies are found.
std::string tableOwnerName(DiskDevice& disk);

// Collects the table of `drive` as it lies on the disk. read.
Failure takeTableBackup(Drive& drive, u64 secondsSinceEpoch, TableBackup& backup);

// The file format is described in table_backup_record.h.
std::vector<u8> encodeTableBackup(const TableBackup& backup);
// notThisFormat; corrupt: checksum, lengths or sector list are wrong.
Failure decodeTableBackup(std::span<const u8> file, TableBackup& backup);

// The file is complete and on the medium, or not there: cannotCreate. An existing regular file is
// replaced, whatever it holds.
Failure writeTableBackup(const TableBackup& backup, const std::string& path);
// Whether the file begins as a kept table does, be it whole or damaged.
bool isTableBackup(const std::string& path);
// noSuchFile, or as decodeTableBackup.
Failure readTableBackup(const std::string& path, TableBackup& backup);

// Whether the disk is smaller than that of the backup, or another one: by its disk GUID, else by
// its disk signature, else, where one of the two has none, by its size.
bool isOfOtherDisk(Drive& drive, const TableBackup& backup);
// The first partition or volume of the disk that a restore would write into; null when there is
// none: what lies there is in no kept table, so that nothing would bring it back. An entry in error
// does not count, whose sectors mean nothing.
const PartitionEntry* overwrittenByRestore(Drive& drive, const TableBackup& backup);

// Writes the table back, whatever scheme the disk has by now, the MBR last, after everything was
// checked.
// backupOfOtherDisk: isOfOtherDisk and the options do not accept it, or the sector size differs;
// sectorsInUse: overwrittenByRestore; corrupt: the sectors are no consistent table, or lie outside
// the disk.
// read, write: as for Drive::commit. The entries on hand are stale afterwards.
Failure restoreTable(Drive& drive, const TableBackup& backup, const RestoreOptions& options = {});

// The table in a backup as a drive that can only be looked at; the backup must outlive it.
// Errors as for Drive::open.
Failure openTableBackup(const TableBackup& backup, Drive& like, std::unique_ptr<Drive>& drive);

// A dated copy in `folder` before a change of the table: table-NAME-YYYYMMDD-HHMMSS.tbk, NAME
// from the disk's model and serial number or its file name. Never overwrites an older copy;
// of one disk the newest kKeptTables stay. `path` receives the file's path.
inline constexpr std::size_t kKeptTables = 50;
Failure keepOldTable(Drive& drive, const std::string& folder, Host& clock,
                     std::string* path = nullptr);
// The copies of this disk's tables in `folder`, the newest first.
std::vector<std::string> keptTablesOf(Drive& drive, const std::string& folder);

}  // namespace tallowin
