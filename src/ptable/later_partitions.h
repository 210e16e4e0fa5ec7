// Partitions in the sectors of another one: which of them the disk had last cannot be told from
// their places, but they must not be overlooked.
#pragma once

#include <functional>
#include <optional>
#include <span>

#include "probe/lost_volume.h"
#include "ptable/lost_chain.h"

namespace tallowin {

class LaterPartitions {
 public:
  // All are borrowed.
  LaterPartitions(Drive& drive, const LostSearch& search, VolumeRecogniser& recogniser,
                  const ChainSearch& chains);

  struct Place {
    u64 lba = 0;
    std::optional<LostVolume> volume;  // nothing: an EBR
    bool namesItsPlace = true;         // else it may as well be an image in a file
  };
  // The first one behind sector `from` of `found`. Looks at the sectors alone where
  // programs begin partitions: whole MiB, cylinders and the track behind; and takes nothing for one
  // that says that it lies elsewhere, for files hold images of volumes and of disks.
  // `ownPlaces` are passed over. `goesOn` is asked before each place, and ends the look by false.
  std::optional<Place> firstIn(const LostPartition& found, u64 from, std::span<const u64> ownPlaces,
                               const std::function<bool(u64 lba)>& goesOn);

 private:
  u64 nextPlace(u64 lba) const;
  std::optional<Place> placeAt(u64 lba, u64 index, const u8* sector);
  bool isEbrOfVolume(u64 lba, const u8* sector);

  DiskDevice& disk_;
  const LostSearch& search_;
  VolumeRecogniser& recogniser_;
  const ChainSearch& chains_;
  u64 mibSectors_;
  u64 headSectors_;
  u64 cylinderSectors_;
  u64 trackSectors_;
};

}  // namespace tallowin
