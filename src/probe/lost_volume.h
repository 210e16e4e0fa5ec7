// A volume whose partition is lost, told from a header that it left on the disk.
#pragma once

#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/types.h"
#include "disk/disk_device.h"

namespace tallowin {

enum class Confidence : u8 {
  sure,      // the header says where it lies, or other parts of the volume lie where it says
  likely,    // the header is in order, but parts of the volume are not there
  doubtful,  // the header belongs to another place, or most of the volume is gone
};

struct LostVolume {
  std::string kind = {};  // "FAT32", "ext4", "LUKS2"
  u16 type = 0;           // of a partition that holds it, in its CHS form
  u64 startSector = 0;
  u64 sectorCount = 0;     // 0: its header does not say
  std::string label = {};  // UTF-8; of FAT and NTFS it is not looked for
  Confidence confidence = Confidence::sure;
  // Its header says how many sectors of the disk lie before it, and so many do.
  bool namesItsPlace = false;
  // Seconds since 1970 of what was stored last in it; a day may be wrong, for a FAT has local time.
  // 0: not known.
  u64 usedAt = 0;
};

// Where volumes are looked for. Boot sectors say how many sectors lie before them: on the top level
// those of the disk, in an extended partition these or just those between the EBR and the volume.
struct VolumePlace {
  bool isInsideExtended = false;
  u64 volumeGap = 0;
};

// Recognises volumes by their headers. The magic numbers of all forms are compared with each
// sector; only what has one costs more reads, of other parts of the volume.
class VolumeRecogniser {
 public:
  // The disk is borrowed.
  VolumeRecogniser(DiskDevice& disk, const VolumePlace& place);

  // Whether the sector may hold a header. `sector` has all of its bytes.
  bool hasMagic(const u8* sector) const {
    for (const Hint& hint : hints_) {
      u64 word = 0;
      std::memcpy(&word, sector + hint.offset, sizeof word);
      if ((word & hint.mask) == hint.value) return true;
    }
    return false;
  }
  // The volume of which sector `lba` holds the header, which it may begin before; the one that is
  // most certain. All of it lies on the disk.
  std::optional<LostVolume> examine(u64 lba, const u8* sector);
  // The volume that begins at sector `start`.
  std::optional<LostVolume> volumeAt(u64 start);

 private:
  // Eight bytes of a sector that some forms have in common.
  struct Hint {
    std::size_t offset = 0;
    u64 mask = 0;
    u64 value = 0;
  };

  DiskDevice& disk_;
  VolumePlace place_;
  u64 sectorCount_;
  std::vector<Hint> hints_;
};

}  // namespace tallowin
