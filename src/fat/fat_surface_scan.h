// Finds the clusters of a new FAT file system that cannot be read, and marks them.
#pragma once

#include <array>

#include "base/job.h"
#include "disk/transfer_buffer.h"
#include "fat/fat_table.h"

namespace tallowin {

// Reads the data area in large pieces, two under way. A piece that fails is read again in
// chunks of 64 KiB, and a chunk that fails cluster by cluster. Sectors behind the last whole
// cluster belong to none and mark nothing.
class FatSurfaceScan {
 public:
  // `table` must be set up; it and the job are borrowed.
  FatSurfaceScan(const SectorRange& range, FatTable& table, Job& job);

  // Gets the buffers: outOfMemory.
  Failure prepare();
  // The whole phase surfaceScan of the job. cancelled: it was stopped. Marks are left in the
  // table, for the caller to flush; else errors of FatTable::set.
  Failure run();
  u64 badClusters() const { return badClusters_; }

 private:
  struct Piece {
    TransferBuffer buffer{0};
    DiskTransfer transfer;
  };

  bool begin(Piece& piece);
  Failure narrow(const Piece& piece);
  Failure testClusters(u64 firstLba, u64 count, u8* buffer);
  Failure advance(u64 sectors);

  SectorRange range_;
  FatTable& table_;
  Job& job_;
  DiskDevice& disk_;
  u64 firstLba_;
  u64 nextLba_;
  u32 pieceSectors_;
  u32 chunkSectors_;
  u32 nextCluster_ = 2;  // all below are tested
  u64 badClusters_ = 0;
  std::array<Piece, 2> pieces_;
};

}  // namespace tallowin
