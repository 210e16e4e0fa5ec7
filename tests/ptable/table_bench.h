// A drive on a disk in memory, and its table as readable text.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "disk/mbr_record.h"
#include "disk/memory_disk.h"
#include "ptable/drive.h"
#include "support/fake_host.h"
#include "support/sfdisk.h"

namespace tallowin {

class TableBench {
 public:
  explicit TableBench(MemoryDisk disk, const DriveOpenOptions& options = {});
  // On any device over the bench's disk or another one.
  static std::unique_ptr<Drive> openOn(std::shared_ptr<DiskDevice> disk, Host& host,
                                       const DriveOpenOptions& options = {});

  MemoryDisk& disk() { return *disk_; }
  Drive& drive() { return *drive_; }
  FakeHost& host() { return host_; }
  Drive& reopen(const DriveOpenOptions& options = {});

 private:
  FakeHost host_;
  std::shared_ptr<MemoryDisk> disk_;
  std::unique_ptr<Drive> drive_;
};

// One line a row: "1: 2048..4095 0Ch *", "free 63..100", inner rows indented, "!" for an error.
std::string pictureOf(const Drive& drive);
// The same without free blocks.
std::string usedRows(const Drive& drive);
// The used rows as sfdisk lists them, in the order of their numbers.
std::vector<SfdiskRow> rowsOf(const Drive& drive);
MbrRecord mbrOf(DiskDevice& disk);
DriveOpenOptions alignedTo(i64 sectors);
// The largest free block of the top level, or of the first extended partition.
TableEntry* largestFree(Drive& drive);
VolumeEntry* largestInnerFree(Drive& drive);
// A partition of this extent; a volume where the sector lies in a free block of a container.
NewEntry newEntryAt(Drive& drive, u64 startSector, u64 sectors, u16 type,
                    const std::string& name = "");
// Adds it and reads the table again.
Failure addAt(Drive& drive, u64 startSector, u64 sectors, u16 type, const std::string& name = "");
// The change is refused with this code, and no sector is written.
void expectRefused(MemoryDisk disk, const std::function<Failure(Drive& drive)>& run,
                   Failure expected, const char* what, const DriveOpenOptions& options = {});

}  // namespace tallowin
