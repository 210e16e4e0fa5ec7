// Finds the clusters of a new FAT file system that cannot be read, and marks them.
#pragma once

#include <array>
#include <functional>

#include "disk/disk_device.h"
#include "disk/transfer_buffer.h"
#include "fat/fat_volume.h"

namespace tallowin {

// Reads the data area in large pieces, two under way. A piece that fails is read again in
// chunks of 64 KiB, and a chunk that fails cluster by cluster. Sectors behind the last whole
// cluster belong to none and mark nothing.
class FatSurfaceScan {
 public:
  // The percent of the area that is done; false stops.
  using Progress = std::function<bool(u32 percent)>;

  // The FAT cache of `volume` must be set up; both are borrowed.
  FatSurfaceScan(FatVolume& volume, Progress progress);

  // Gets the buffers; false when there is not so much memory.
  [[nodiscard]] bool prepare();
  // False when it was stopped. Marks are left in the FAT cache, for the caller to flush.
  bool run();
  u32 badClusters() const { return badClusters_; }

 private:
  struct Piece {
    TransferBuffer buffer{0};
    DiskTransfer transfer;
  };

  bool begin(Piece& piece);
  bool narrow(const Piece& piece);
  void testClusters(u64 firstLba, u64 count, u8* buffer);
  bool report(u64 doneLba) const;

  FatVolume& volume_;
  DiskDevice& disk_;
  Progress progress_;
  u64 firstLba_;
  u64 endLba_;  // of the partition, one past its last sector
  u64 nextLba_;
  u32 pieceSectors_;
  u32 chunkSectors_;
  u32 nextCluster_ = 2;  // all below are tested
  u32 badClusters_ = 0;
  std::array<Piece, 2> pieces_;
};

}  // namespace tallowin
