// A FAT volume that the input has damaged is checked and mended. The check writes nothing; what is
// mended is sound then, or is told; nothing beside the volume is written, and all of it ends.
#include <algorithm>

#include "fat/fat_repair.h"
#include "volume_input.h"

using namespace tallowin;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size < 2 || size > 4 * kKiB) return 0;
  Input input({data, size});
  const std::size_t which = input.number(1) % std::size(kFatSamples);
  const FatSample& sample = kFatSamples[which];
  MemoryDisk disk = copyOfFat(which);
  // Where the boot area, the FATs and the first directories lie.
  damage(disk, 120, input);
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
  // A full volume has no room for what was lost, and nothing of that is written then.
  for (const Mend& mend : wish.mends)
    require(mend.whyNot == Error::none || failed == mend.whyNot || failed == Error::corrupt);
  require(!failed || failed == Error::volumeFull || failed == Error::directoryFull ||
          failed == Error::corrupt);
  require(report.touched || before.sameContent(disk));
  require(failed || wish.mends.empty() || report.after.fault == 0 || report.after.fault == 20 ||
          report.after.fault == 22 || found.fault == 19);
  requireNeighbours(disk, sample.sectors);
  return 0;
}
