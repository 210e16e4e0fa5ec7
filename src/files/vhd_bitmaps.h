// Which sectors of a dynamic VHD's blocks were ever written.
#pragma once

#include <map>
#include <span>
#include <vector>

#include "base/error.h"
#include "files/image_file.h"

namespace tallowin {

// Each block has a bitmap before its data: a bit a sector, the first sector in the highest bit.
// Reading does not need them (an unwritten sector is zeros anyway), but other programs may ask.
// They are changed in memory and written by flush(), so a small write costs no second request.
class VhdBitmaps {
 public:
  struct alignas(512) Sector {  // may be written past the page cache
    u8 bytes[512] = {};
  };
  using Bitmap = std::vector<Sector>;

  VhdBitmaps(u32 blockCount, u32 blockSectors);

  u64 bitmapBytes() const { return bitmapSectors_ * sizeof(Sector); }
  static std::span<const u8> bytesOf(const Bitmap& bitmap);

  // A bitmap with a run of bits set, for a block that is being made.
  Bitmap withRun(u32 firstSector, u32 count) const;
  // Marks a run of a block whose bitmap lies at `fileOffset`. none, read, write.
  Failure mark(ImageFile& file, u32 block, u64 fileOffset, u32 firstSector, u32 count);
  // Writes what changed.
  Failure flush(ImageFile& file);

 private:
  struct Cached {
    u64 fileOffset = 0;
    bool changed = false;
    Bitmap bits;
  };
  static constexpr u64 kMaxCachedBytes = 4 * kMiB;

  Failure load(ImageFile& file, u32 block, u64 fileOffset, Cached*& cached);
  void setRun(Bitmap& bitmap, u32 firstSector, u32 count) const;

  u32 blockSectors_;
  u64 bitmapSectors_;
  std::vector<bool> full_;  // by block: every bit is known to be set
  std::map<u32, Cached> cached_;
};

}  // namespace tallowin
