#include "wipe/entropy.h"

#include <algorithm>
#include <ctime>
#include <vector>

namespace tallowin {
namespace {

constexpr u32 kMostSectors = 64;  // that are looked at
constexpr u64 kSectorMask = (u64{1} << 22) - 1;
constexpr std::size_t kEveryByte = 5;

template <typename Value>
void add(RandomPool& pool, const Value& value) {
  pool.addEntropy({reinterpret_cast<const u8*>(&value), sizeof(value)});
}

}  // namespace

void gatherEntropy(Host& host, DiskDevice& disk, u32 bits, RandomPool& pool) {
  add(pool, std::clock());
  add(pool, host.secondsSinceEpoch());
  std::array<u8, 64> machine{};
  host.randomBytes(machine);
  pool.addEntropy(machine);
  const u64 sectors = disk.sectorCount().value_or(0);
  std::vector<u8> sector(disk.sectorSize());
  u64 x = host.monotonicNanoseconds();
  u64 gathered = machine.size();
  for (u32 tries = 0; sectors != 0 && tries < kMostSectors && gathered < bits / 8; ++tries) {
    x = x * 599 + host.monotonicNanoseconds();
    add(pool, x);
    u64 lba = x & kSectorMask;
    while (lba >= sectors) lba /= 3;
    if (disk.readSectors(lba, sector.data(), 1)) continue;
    if (std::all_of(sector.begin(), sector.begin() + 4, [](u8 byte) { return byte == 0; }))
      continue;
    for (std::size_t i = 0; i < sector.size(); i += kEveryByte, ++gathered) add(pool, sector[i]);
  }
  add(pool, std::clock());
}

}  // namespace tallowin
