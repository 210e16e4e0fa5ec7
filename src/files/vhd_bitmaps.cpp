#include "files/vhd_bitmaps.h"

#include <algorithm>

namespace tallowin {
namespace {

constexpr u64 kBitsInSector = 512 * 8;

std::span<u8> writable(VhdBitmaps::Bitmap& bitmap) {
  return {bitmap.data()->bytes, bitmap.size() * sizeof(VhdBitmaps::Sector)};
}

}  // namespace

VhdBitmaps::VhdBitmaps(u32 blockCount, u32 blockSectors)
    : blockSectors_(blockSectors),
      bitmapSectors_((blockSectors + kBitsInSector - 1) / kBitsInSector),
      full_(blockCount) {}

std::span<const u8> VhdBitmaps::bytesOf(const Bitmap& bitmap) {
  return {bitmap.data()->bytes, bitmap.size() * sizeof(Sector)};
}

void VhdBitmaps::setRun(Bitmap& bitmap, u32 firstSector, u32 count) const {
  const std::span<u8> bytes = writable(bitmap);
  u32 at = firstSector;
  const u32 end = firstSector + count;
  while (at < end) {
    if (at % 8 == 0 && end - at >= 8) {
      const u32 wholeBytes = (end - at) / 8;
      std::fill_n(bytes.begin() + at / 8, wholeBytes, u8{0xFF});
      at += wholeBytes * 8;
    } else {
      bytes[at / 8] = static_cast<u8>(bytes[at / 8] | 0x80 >> at % 8);
      ++at;
    }
  }
}

VhdBitmaps::Bitmap VhdBitmaps::withRun(u32 firstSector, u32 count) const {
  Bitmap bitmap(bitmapSectors_);
  setRun(bitmap, firstSector, count);
  return bitmap;
}

Failure VhdBitmaps::load(ImageFile& file, u32 block, u64 fileOffset, Cached*& cached) {
  if (const auto found = cached_.find(block); found != cached_.end()) {
    cached = &found->second;
    return Error::none;
  }
  if ((cached_.size() + 1) * bitmapBytes() > kMaxCachedBytes) {
    if (const Failure error = flush(file); error != Error::none) return error;
    cached_.clear();
  }
  Cached fresh{fileOffset, false, Bitmap(bitmapSectors_)};
  if (const Failure error = file.readAt(fileOffset, writable(fresh.bits)); error != Error::none)
    return error;
  cached = &cached_.emplace(block, std::move(fresh)).first->second;
  return Error::none;
}

Failure VhdBitmaps::mark(ImageFile& file, u32 block, u64 fileOffset, u32 firstSector, u32 count) {
  if (full_[block]) return Error::none;
  Cached* cached = nullptr;
  if (const Failure error = load(file, block, fileOffset, cached); error != Error::none)
    return error;
  // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): load() has set it.
  const Bitmap before = cached->bits;
  setRun(cached->bits, firstSector, count);
  const std::span<const u8> now = bytesOf(cached->bits);
  cached->changed |= !std::equal(now.begin(), now.end(), bytesOf(before).begin());
  full_[block] = std::all_of(now.begin(), now.begin() + blockSectors_ / 8,
                             [](u8 byte) { return byte == 0xFF; }) &&
                 blockSectors_ % 8 == 0;
  return Error::none;
}

Failure VhdBitmaps::flush(ImageFile& file) {
  for (auto& [block, cached] : cached_) {
    if (!cached.changed) continue;
    if (const Failure error = file.writeAt(cached.fileOffset, bytesOf(cached.bits));
        error != Error::none)
      return error;
    cached.changed = false;
  }
  return Error::none;
}

}  // namespace tallowin
