// A directory of an ISO 9660 volume.
#pragma once

#include <string>
#include <vector>

#include "fs/file_time.h"
#include "iso/iso_volume.h"

namespace tallowin {

struct IsoEntry {
  std::u16string name;
  u32 index = 0;  // of its record in the directory
  u8 flags = 0;   // IsoFlag bits
  IsoExtent extent;
  u64 sizeBytes = 0;  // of all its records
  FileTime recordedAt = 0;

  bool isDirectory() const { return (flags & kIsoDirectory) != 0; }
};

// All entries but those for the directory itself and for its parent, also when they lie outside of
// the volume. A file of several records, which lie one behind the other, is one entry. corrupt: a
// record that does not fit its sector or a name that does not fit its record; an extent that does
// not go on where the one before it ends; more than a directory can be believed to be. read.
Failure readIsoDirectory(const IsoVolume& volume, const IsoExtent& extent,
                         std::vector<IsoEntry>& entries);

}  // namespace tallowin
