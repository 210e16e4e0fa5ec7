#include "ops/file_systems.h"

#include <algorithm>

#include "base/text.h"
#include "fat/fat_kinds.h"
#include "fs/file_system.h"
#include "iso/iso_kind.h"
#include "probe/type_catalogue.h"

namespace tallowin {

FileSystemKinds registeredFileSystems() {
  FileSystemKinds kinds;
  registerFat(kinds);
  registerIso(kinds);
  return kinds;
}

SectorRange rangeOf(Drive& drive, const PartitionEntry& entry) {
  return {drive.disk(), entry.startSector, entry.sectorCount()};
}

const FileSystemKind* kindOf(const FileSystemKinds& kinds, const PartitionEntry& entry) {
  return kinds.byType(entry.type, entry.typeGuid);
}

const FileSystemKind* kindIn(const FileSystemKinds& kinds, Drive& drive,
                             const PartitionEntry& entry) {
  const FileSystemKind* kind = kinds.byContent(rangeOf(drive, entry), entry.type);
  return kind != nullptr ? kind : kindOf(kinds, entry);
}

bool mayHoldAnyKind(const FileSystemKinds& kinds, const PartitionEntry& entry) {
  const auto wantsType = [&](const FileSystemKind* kind) {
    return kind->format && kind->wantedTypeGuid == entry.typeGuid;
  };
  return entry.type == types::kGptEntry && !kindOf(kinds, entry) &&
         std::ranges::any_of(kinds.all(), wantsType);
}

std::string labelIn(const FileSystemKind& kind, const SectorRange& range, u16 type, u32 codePage) {
  std::unique_ptr<FileSystem> files;
  std::string label;
  const OpenWish wish{.codePage = codePage};
  if (!kind.open || kind.open(range, type, wish, files) || files->label(label)) return {};
  return printableFromUtf8(label);
}

LabelReader labelReaderOf(const FileSystemKinds& kinds, const Options& options) {
  return [&](DiskDevice& disk, const PartitionEntry& entry) -> std::string {
    if (entry.startSector > entry.endSector) return {};
    const SectorRange range{disk, entry.startSector, entry.sectorCount()};
    // What fills a disk may have no type: then it is looked at, and only then.
    const FileSystemKind* kind = entry.type == types::kUntoldContent
                                     ? kinds.byContent(range, entry.type)
                                     : kindOf(kinds, entry);
    return kind ? labelIn(*kind, range, entry.type, options.codePage()) : std::string();
  };
}

}  // namespace tallowin
