// The bytes of a file, through the chain of its clusters.
#pragma once

#include <span>

#include "fat/fat_chain.h"

namespace tallowin {

class FatFileData {
 public:
  explicit FatFileData(const FatVolume& volume) : volume_(volume) {}

  // `chain` was followed up to the end of [position, position + size).
  Failure read(const FatChain& chain, u64 position, std::span<u8> bytes) const;
  // What the file holds is [0, sizeBytes): behind it the rest of a sector becomes zeros.
  Failure write(const FatChain& chain, u64 position, std::span<const u8> bytes,
                u64 sizeBytes) const;

 private:
  // Sectors of the volume that lie in a row, and hold the file from a position on.
  struct Extent {
    u64 lba = 0;
    u32 offset = 0;  // in the first sector
    u64 bytes = 0;   // from the offset on, at most so many as were asked for
  };
  Extent extentAt(const FatChain& chain, u64 position, u64 bytes) const;
  // Calls move(extent, piece, position) for one extent after the other. What does not fill its
  // sectors is small, so that it can go through a buffer.
  template <typename Byte, typename Move>
  Failure forEachExtent(const FatChain& chain, u64 position, std::span<Byte> bytes,
                        Move move) const;
  bool isWhole(const Extent& extent) const;
  u64 sectorsOf(const Extent& extent) const;

  const FatVolume& volume_;
};

}  // namespace tallowin
