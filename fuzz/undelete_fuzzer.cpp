// The search for lost partitions, on sectors from the input: what is found lies where it was looked
// for, and the disk is only read.
#include <algorithm>

#include "base/host.h"
#include "disk/memory_disk.h"
#include "fuzz_input.h"
#include "ptable/lost_partitions.h"

using namespace tallowin;

namespace {

constexpr u64 kSectors = 4096;

// Each piece of the input is put somewhere, or XORed to what is there.
void place(MemoryDisk& disk, Input& input) {
  while (!input.isEmpty()) {
    const u64 lba = input.number(2) % kSectors;
    const std::size_t at = input.number(2) % disk.sectorSize();
    const std::size_t count = input.number(2) % (disk.sectorSize() - at + 1);
    std::vector<u8> sector = disk.sector(lba);
    const auto bytes = input.take(count);
    for (std::size_t i = 0; i < bytes.size(); ++i) sector[at + i] ^= bytes[i];
    disk.setSector(lba, sector);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size < 2 || size > 16 * kKiB) return 0;
  Input input({data, size});
  const u32 options = input.number(1);
  const auto disk = std::make_shared<MemoryDisk>(kSectors, (options & 1) != 0 ? 4096 : 512);
  place(*disk, input);
  const MemoryDisk before = disk->copy();
  Host host("/nonexistent");
  std::unique_ptr<Drive> drive;
  if (Drive::open(disk, host, {}, drive)) return 0;
  const LostSearch search{1 + (options >> 2) % 64, kSectors - 1 - (options >> 3) % 8,
                          (options & 2) != 0};
  SilentJob job;
  LostReport report;
  require(!findLostPartitions(*drive, search, job, report));
  require(!report.isStopped && report.unreadableSectors == 0);
  require(std::ranges::is_sorted(report.found, {}, &LostPartition::startSector));
  for (const LostPartition& one : report.found) {
    require(search.firstSector <= one.startSector && one.startSector <= one.endSector &&
            one.endSector <= search.lastSector);
    require(!one.ebrSector ||
            (search.firstSector <= *one.ebrSector && *one.ebrSector < one.startSector));
    for (const LostPartition& other : report.found)
      require(&one == &other || one.confidence == Confidence::doubtful ||
              other.confidence == Confidence::doubtful || !one.meets(other));
  }
  require(disk->sameContent(before));
  return 0;
}
