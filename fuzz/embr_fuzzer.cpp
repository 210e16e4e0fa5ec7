// An EMBR from the input: the first track of a disk, on which entries are then inserted and
// removed as the last bytes of the input say.
#include <algorithm>
#include <cstdlib>

#include "disk/memory_disk.h"
#include "ptable/embr/embr_image.h"

using namespace tallowin;

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  constexpr std::size_t kSteps = 8;
  if (size < kSteps || size > 32 * kKiB) return 0;
  MemoryDisk disk(4096);
  const std::span<const u8> track(data, size - kSteps);
  for (std::size_t at = 0; at < track.size(); at += 512)
    disk.setSector(at / 512, track.subspan(at, std::min<std::size_t>(512, track.size() - at)));

  EmbrImage image;
  if (EmbrImage::read(disk, image) != Error::none) return 0;
  const std::vector<u8> tables(image.bootManagerTables().begin(), image.bootManagerTables().end());
  for (std::size_t i = size - kSteps; i < size; ++i) {
    const u32 count = image.entryCount();
    if ((data[i] & 1) != 0) {
      const Failure result = image.insert(data[i] % (count + 1), MptEntryRecord{});
      require(image.entryCount() == count + (result == Error::none ? 1 : 0));
    } else {
      image.remove(data[i]);
    }
    require(std::ranges::equal(image.bootManagerTables(), tables));
    require(image.endSector() <= EmbrImage::kMaxSectors);
  }
  require(image.write(disk) == Error::none);
  EmbrImage again;
  require(EmbrImage::read(disk, again) == Error::none);
  require(again.entryCount() == image.entryCount());
  require(std::ranges::equal(again.bootManagerTables(), tables));
  return 0;
}
