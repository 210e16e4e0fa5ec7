// A FAT volume that the input has damaged is checked and mended. The check writes nothing; what is
// mended is sound then, or is told; nothing beside the volume is written, and all of it ends.
#include <algorithm>

#include "disk/memory_disk.h"
#include "fat/fat_file_system.h"
#include "fat/fat_format.h"
#include "fat/fat_repair.h"
#include "fuzz_input.h"

using namespace tallowin;

namespace {

struct Sample {
  u8 type;
  u32 sectors;
};
constexpr Sample kSamples[] = {{0x01, 600}, {0x04, 4200}, {0x0B, 1199}};
constexpr u64 kBefore = 16;  // sectors in front of the volume, and behind it
constexpr u8 kNeighbour = 0x5A;

MemoryDisk filled(const Sample& sample) {
  MemoryDisk disk(sample.sectors + 2 * kBefore);
  const std::vector<u8> neighbour(kBefore * 512, kNeighbour);
  require(!disk.writeSectors(0, neighbour.data(), kBefore));
  require(!disk.writeSectors(kBefore + sample.sectors, neighbour.data(), kBefore));
  const SectorRange range{disk, kBefore, sample.sectors};
  SilentJob job;
  FormatReport report;
  FormatWish wish;
  wish.type = sample.type;
  require(!formatFat(range, wish, job, report));
  std::unique_ptr<FileSystem> files;
  require(!openFatFiles(range, sample.type, {.writable = true}, files));
  require(!files->makeDirectory("/dir") && !files->makeDirectory("/dir/deep"));
  for (const char* path : {"/a", "/dir/a long name of a file", "/dir/deep/b.txt"}) {
    File file;
    u64 done = 0;
    require(!files->open(path, {.access = FileAccess::write, .create = true}, file) &&
            !file.write(std::vector<u8>(3000, 'c'), done));
  }
  require(!files->sync());
  return disk;
}

MemoryDisk copyOf(std::size_t sample) {
  static const MemoryDisk disks[] = {filled(kSamples[0]), filled(kSamples[1]), filled(kSamples[2])};
  return disks[sample].copy();
}

// Mostly where the boot area, the FATs and the first directories lie.
void damage(MemoryDisk& disk, u64 sectors, Input& input) {
  for (u32 count = input.number(1) % 16; count != 0; --count) {
    const u64 lba = kBefore + input.number(2) % std::min<u64>(sectors, 120);
    std::vector<u8> sector = disk.sector(lba);
    const std::size_t at = input.number(2) % sector.size();
    const auto bytes =
        input.take(std::min<std::size_t>(1 + input.number(1) % 40, sector.size() - at));
    std::ranges::copy(bytes, sector.begin() + static_cast<std::ptrdiff_t>(at));
    disk.setSector(lba, sector);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size < 2 || size > 4 * kKiB) return 0;
  Input input({data, size});
  const std::size_t which = input.number(1) % std::size(kSamples);
  const Sample& sample = kSamples[which];
  MemoryDisk disk = copyOf(which);
  damage(disk, sample.sectors, input);
  const SectorRange range{disk, kBefore, sample.sectors};
  const MemoryDisk before = disk.copy();
  SilentJob job;
  CheckReport found;
  require(!checkFatVolume(range, sample.type, job, found));
  require(before.sameContent(disk));

  RepairWish wish{found.mends, 1700000000};
  const Mend::Kind other =
      which % 2 == 0 ? Mend::Kind::freeLostClusters : Mend::Kind::keepLostClusters;
  std::erase_if(wish.mends, [&](const Mend& mend) { return mend.kind == other; });
  RepairReport report;
  const Failure failed = repairFatVolume(range, sample.type, wish, job, report);
  // A full volume has no room for what was lost.
  require(!failed || failed == Error::volumeFull || failed == Error::directoryFull ||
          failed == Error::corrupt);
  require(report.touched || before.sameContent(disk));
  require(failed || wish.mends.empty() || report.after.fault == 0 || report.after.fault == 20 ||
          report.after.fault == 22 || found.fault == 19);
  for (const u64 lba : {u64{0}, kBefore + sample.sectors})
    for (u64 i = 0; i < kBefore; ++i)
      require(disk.sector(lba + i) == std::vector<u8>(512, kNeighbour));
  return 0;
}
