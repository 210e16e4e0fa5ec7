// A drive on a disk in memory, its table as readable text, tables by the tools that make and judge
// them, and the two loops in which requests fail and the power is cut.
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
#include "support/table_rows.h"

namespace tallowin {

// For a disk of 100 MiB: a partition, and three volumes that begin 2048 sectors behind their EBRs.
inline constexpr const char* kThreeVolumes =
    "label: dos\nlabel-id: 0x12345678\n1:start=2048,size=4096,type=83\n"
    "2:start=20480,size=102400,type=f\n5:start=22528,size=8192,type=83\n"
    "6:start=61440,size=8192,type=b\n7:start=81920,size=8192,type=82\n";

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
// Of the boot sector or of an EBR; without CHS addresses.
MbrSlotRecord slot(u8 type, u64 startSector, u64 sectors, u8 bootIndicator = 0);
// Turns one byte of a sector over.
void flipByte(MemoryDisk& disk, u64 lba, std::size_t at);
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

std::vector<GptRow> gptRowsOf(const Drive& drive);
// The scheme and the entries, as lines.
std::string gptPicture(MemoryDisk& disk);
// As sfdisk reads them; fails the test when it cannot.
std::vector<GptRow> gptRowsBySfdisk(MemoryDisk& disk);
// What sgdisk and sfdisk complain about; empty for a sound GPT.
std::string gptProblems(MemoryDisk& disk);

// Runs commands on an image of `bytes`; "IMAGE" in them is its path, or that of a loop device
// with the sector size. sfdisk is fed with `input`.
MemoryDisk diskFromCommands(u64 bytes, u32 sectorSizeBytes,
                            const std::vector<std::vector<std::string>>& commands,
                            const std::string& input = {});

struct TableChange {
  std::string what;
  std::function<Failure(Drive& drive)> run;
  // What two disks with the same table have in common.
  std::function<std::string(MemoryDisk& disk)> picture;
  DriveOpenOptions options;
};

// Every request fails in turn (see forEachFault): the disk has the table that the error names.
void expectFaultsAreTold(MemoryDisk& before, const TableChange& change);
// The power is cut in every way (see forEachPowerCut): the old table is on the disk, or the new
// one. `judge` sees every disk.
void expectCutsLeaveOldOrNew(MemoryDisk& before, const TableChange& change,
                             const std::function<void(MemoryDisk& disk)>& judge = {});

}  // namespace tallowin
