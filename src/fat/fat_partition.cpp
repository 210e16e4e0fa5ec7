#include "fat/fat_volume.h"
#include "probe/type_catalogue.h"
#include "ptable/drive.h"

namespace tallowin {

std::unique_ptr<FatVolume> FatVolume::open(Drive& drive, const PartitionEntry& entry) {
  FatPlacement placement;
  placement.startSector = entry.startSector;
  placement.lengthSectors = entry.sectorCount();
  const u16 type = types::unhide(entry.type);
  placement.typeId = type <= 0xFF ? static_cast<u8>(type) : u8{0};
  placement.geometry = drive.geometry();
  if (entry.isVolume()) placement.hiddenValue = static_cast<u32>(drive.volumeGap(entry));
  return open(drive.disk(), placement);
}

}  // namespace tallowin
