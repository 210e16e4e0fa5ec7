// The one write that turns an old table into a new one.
#pragma once

#include <span>
#include <vector>

#include "base/bytes.h"
#include "base/error.h"
#include "disk/disk_device.h"

namespace tallowin {

// One sector of a table, read before it is changed.
class TableSectorImage {
 public:
  TableSectorImage(DiskDevice& disk, u64 lba) : disk_(disk), lba_(lba) {}

  Failure load();
  u64 lba() const { return lba_; }
  std::span<u8> bytes() { return now_; }
  template <typename Record>
  Record& as() {
    return *recordAt<Record>(std::span<u8>(now_));
  }

  // Puts the changed sector on the medium: the disk's flush, one write, and a flush again. A
  // sector is written as a whole or not at all; should it tear in its middle, the slots still
  // lie in one half.
  // write: the old sector is on the medium again. writeFailedNewTable: the new one is, though
  // an error was reported. writeFailedTableUnknown: neither could be made sure of.
  Failure store();

 private:
  Failure put(std::span<const u8> bytes);
  bool isOnDisk(std::span<const u8> bytes);

  DiskDevice& disk_;
  u64 lba_;
  std::vector<u8> old_;
  std::vector<u8> now_;
};

}  // namespace tallowin
