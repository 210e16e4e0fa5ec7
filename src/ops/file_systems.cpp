#include "ops/file_systems.h"

#include <algorithm>

#include "fat/fat_kinds.h"
#include "probe/type_catalogue.h"

namespace tallowin {

FileSystemKinds registeredFileSystems() {
  FileSystemKinds kinds;
  registerFat(kinds);
  return kinds;
}

SectorRange rangeOf(Drive& drive, const PartitionEntry& entry) {
  return {drive.disk(), entry.startSector, entry.sectorCount()};
}

const FileSystemKind* kindOf(const FileSystemKinds& kinds, const PartitionEntry& entry) {
  return kinds.byType(entry.type, entry.typeGuid);
}

bool mayHoldAnyKind(const FileSystemKinds& kinds, const PartitionEntry& entry) {
  const auto wantsType = [&](const FileSystemKind* kind) {
    return kind->format && kind->wantedTypeGuid == entry.typeGuid;
  };
  return entry.type == types::kGptEntry && !kindOf(kinds, entry) &&
         std::ranges::any_of(kinds.all(), wantsType);
}

LabelReader labelReaderOf(const FileSystemKinds& kinds) {
  return [&kinds](DiskDevice& disk, const PartitionEntry& entry) -> std::string {
    const FileSystemKind* kind = kindOf(kinds, entry);
    if (!kind || !kind->label || entry.startSector > entry.endSector) return {};
    return kind->label({disk, entry.startSector, entry.sectorCount()}, entry.type);
  };
}

}  // namespace tallowin
