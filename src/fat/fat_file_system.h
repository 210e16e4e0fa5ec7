// The files of a FAT12, FAT16 or FAT32 volume.
#pragma once

#include <span>

#include "fs/file_system.h"
#include "probe/file_system_kind.h"

namespace tallowin {

// The `open` of the FAT kinds: see FileSystemKind. invalidVolume; unsupportedFileSystem: a version
// that is not known, or FATs that are not copies of one another in a way that is not.
//
// Changes are held back and written together: by sync, when many have gathered, around each move,
// and when space that was freed is needed again. They go to the disk in an order in which a power
// cut leaves at most lost clusters, and of a move two names for one file; of a file that was
// growing or shrinking clusters behind its end. Meanwhile the volume is marked as in use, where its
// kind has a mark. What was not synced when the object ends is lost, and the old state stands.
Failure openFatFiles(const SectorRange& range, u16 type, const OpenWish& wish,
                     std::unique_ptr<FileSystem>& files);

// Clusters that are in use and in no file, one chain of them.
struct FatLostChain {
  u32 firstCluster = 0;
  u32 clusters = 0;  // no more than a file may have
};

// Gives each of them a name, in a new directory of the root: `folder`. Errors of
// FileSystem::makeDirectory; what no name was given to is as before.
Failure keepLostChains(const SectorRange& range, u16 type, std::span<const FatLostChain> chains,
                       u64 secondsSinceEpoch, std::string& folder);

}  // namespace tallowin
