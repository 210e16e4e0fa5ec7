// File-system identification of random bytes.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "disk/memory_disk.h"
#include "probe/identify.h"
#include "ptable/sector_size.h"

extern "C" int LLVMFuzzerTestOneInput(const tallowin::u8* data, std::size_t size) {
  using namespace tallowin;
  constexpr std::size_t kPageBytes = 4096;
  constexpr u64 kReiserSector = 128;
  constexpr u64 kDiscSector = 16;
  if (size < 2 || size > 64 * kKiB) return 0;
  const u32 sectorSize = (data[0] & 1) != 0 ? 4096 : 512;
  const u64 start = (data[0] & 2) != 0 ? 64 : 0;
  MemoryDisk disk((data[0] & 4) != 0 ? start + 4 : 1024, sectorSize);
  std::span<const u8> bytes(data + 1, size - 1);
  // The first page, then one sector each where superblocks lie further inside.
  std::vector<u8> page(kPageBytes);
  const std::size_t inPage = std::min(page.size(), bytes.size());
  std::copy_n(bytes.begin(), inPage, page.begin());
  for (std::size_t at = 0; at < page.size(); at += sectorSize)
    disk.setSector(start + at / sectorSize, std::span(page).subspan(at, sectorSize));
  bytes = bytes.subspan(inPage);
  const std::size_t half = std::min<std::size_t>(bytes.size() / 2, sectorSize);
  disk.setSector(start + kReiserSector, bytes.first(half));
  if (half != 0) disk.setSector(start + kDiscSector, bytes.subspan(half, half));

  Content content;
  const Failure error = identify(disk, start, content);
  const bool isKnown = content.code != ContentCode::none;
  if ((error == Error::none) != isKnown) std::abort();
  if (error == Error::notAFileSystem && start != 0) std::abort();
  static_cast<void>(typeOfContent(disk, start));
  if (sectorSize == 512) static_cast<void>(detectSectorSize(disk));
  return 0;
}
