// sfdisk as the maker and the judge of partition tables.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "base/types.h"
#include "disk/memory_disk.h"

namespace tallowin {

// One partition as sfdisk sees it. Units: sectors.
struct SfdiskRow {
  u32 number = 0;
  u64 start = 0;
  u64 size = 0;
  u32 type = 0;
  bool bootable = false;

  friend bool operator==(const SfdiskRow&, const SfdiskRow&) = default;
};
std::ostream& operator<<(std::ostream& out, const SfdiskRow& row);

// Makes a table on an image file from a script ("label: dos" and the lines behind it). The
// output when that fails.
std::string makeTable(const std::string& imagePath, const std::string& script);
// A disk in memory with a table from a script.
MemoryDisk diskFromScript(u64 sectors, const std::string& script);

struct SfdiskTable {
  std::string problems;  // what `sfdisk --verify` complains about, or why it could not read
  u32 diskSignature = 0;
  std::vector<SfdiskRow> rows;
};
SfdiskTable readTable(const std::string& imagePath);
// Sectors of other sizes than 512 bytes need a loop device, and so root.
SfdiskTable readTable(MemoryDisk& disk);

// One entry of a GPT. GUIDs as text without braces; units: sectors.
struct GptRow {
  u32 number = 0;
  u64 start = 0;
  u64 size = 0;
  std::string type;
  std::string uuid;
  std::string name;
  u64 attributes = 0;

  friend bool operator==(const GptRow&, const GptRow&) = default;
};
std::ostream& operator<<(std::ostream& out, const GptRow& row);

// The entries by number; fails the test when there is no GPT that can be read.
std::vector<GptRow> readGpt(const std::string& imagePath);
// What sgdisk and sfdisk complain about; empty for a sound GPT.
std::string gptProblems(const std::string& imagePath);

}  // namespace tallowin
