// Partition tables of a kind that no tool of ours would make: valid but unusual, half converted,
// stale, damaged.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "disk/memory_disk.h"

namespace tallowin {

// Sectors, the end not included.
struct SectorRun {
  u64 start = 0;
  u64 end = 0;

  bool meets(const SectorRun& other) const { return start < other.end && other.start < end; }
  friend auto operator<=>(const SectorRun&, const SectorRun&) = default;
};
std::ostream& operator<<(std::ostream& out, const SectorRun& run);

struct Layout {
  std::string what;  // its kind and its seed, for messages
  MemoryDisk disk;
  // What no change may touch although no program lists it as a partition: a loader.
  std::vector<SectorRun> kept;
  bool hasGpt = false;  // ask sgdisk too
};

// The same for the same seed.
Layout makeLayout(unsigned seed);

}  // namespace tallowin
