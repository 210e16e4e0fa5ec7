// GPTs by the tools that made and judge them, and the two loops in which writes fail.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "disk/memory_disk.h"
#include "ptable/drive.h"
#include "support/sfdisk.h"

namespace tallowin {

std::vector<GptRow> gptRowsOf(const Drive& drive);
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
