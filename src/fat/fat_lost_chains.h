// Clusters that are in use and in no file, put in order so that they can become files.
#pragma once

#include <vector>

#include "fat/fat_cluster_map.h"
#include "fat/fat_file_system.h"

namespace tallowin {

struct FatLostChains {
  std::vector<FatLostChain> chains;  // in the order of their first clusters
  std::vector<u32> newEnds;  // clusters that lead where they must not, and have to end there
};

// `map` has everything marked that is in a file. Each lost cluster is in one chain. read.
Failure findLostChains(FatClusterMap& map, FatLostChains& lost);

}  // namespace tallowin
