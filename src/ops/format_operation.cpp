#include "ops/format_operation.h"

#include <algorithm>

#include "probe/gpt_type_guids.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u8 kFirstBiosDisk = 0x80;

struct FloppySize {
  u64 sectors;
  Geometry geometry;
};
// Of 512 bytes a sector. A drive has no other geometry for these.
constexpr FloppySize kFloppies[] = {{720, {39, 1, 9}},
                                    {1440, {79, 1, 9}},
                                    {2400, {79, 1, 15}},
                                    {2880, {79, 1, 18}},
                                    {5760, {79, 1, 36}}};

const FloppySize* floppyOf(const FormatTarget& target) {
  const u64 sectors = target.extent.endSector + 1 - target.extent.startSector;
  const auto* found = std::ranges::find(kFloppies, sectors, &FloppySize::sectors);
  return target.isWholeDisk && found != std::end(kFloppies) ? found : nullptr;
}

}  // namespace

FormatTarget formatTargetOf(const Drive& drive, const PartitionEntry& entry, u16 type) {
  return {.extent = {entry.startSector, entry.endSector},
          .type = type,
          .volumeGap = entry.isVolume() ? drive.volumeGap(entry) : 0,
          .isWholeDisk = drive.scheme() == Scheme::wholeDisk};
}

FormatTarget wholeDiskTarget(const Drive& drive, const FileSystemKind& kind) {
  const u64 sectors = drive.lastLba() + 1;
  return {.extent = {0, drive.lastLba()},
          .type = kind.wantedType ? kind.wantedType(sectors) : u16{0},
          .volumeGap = 0,
          .isWholeDisk = true};
}

u16 typeForKind(const Drive& drive, const PartitionEntry& entry, const FileSystemKind& kind) {
  const bool fits = std::ranges::find(kind.types, types::unhide(entry.type)) != kind.types.end();
  if (fits || !kind.wantedType) return entry.type;
  const u16 type = drive.typeForEnd(kind.wantedType(entry.sectorCount()), entry.endSector);
  return types::isHidden(entry.type) ? types::hide(type) : type;
}

EntryProperties propertiesForKind(const Drive& drive, const PartitionEntry& entry, u16 type,
                                  const FileSystemKind& kind) {
  EntryProperties wanted;
  const bool hasSlot = entry.mbrSlot != kNoMbrSlot;
  if (drive.scheme() == Scheme::wholeDisk) return wanted;
  if (!drive.isGpt()) {
    if (type != entry.type) wanted.type = type;
    return wanted;
  }
  if (hasSlot && type != entry.mbrType) wanted.type = type;
  const bool fits = entry.typeGuid == kind.wantedTypeGuid || entry.typeGuid == kGptEfiSystem ||
                    std::ranges::find(kind.typeGuids, entry.typeGuid) != kind.typeGuids.end();
  if (!fits && !kind.wantedTypeGuid.isZero()) wanted.typeGuid = kind.wantedTypeGuid;
  return wanted;
}

FormatWish formatWishFor(Drive& drive, const FormatTarget& target, const Options& options,
                         u64 secondsSinceEpoch) {
  FormatWish wish;
  wish.type = target.type;
  wish.geometry = drive.geometry();
  wish.secondsSinceEpoch = secondsSinceEpoch;
  wish.codePage = options.codePage();
  if (const FloppySize* floppy = floppyOf(target)) {
    wish.geometry = floppy->geometry;
    return wish;
  }
  wish.driveNumber = options.useHd0InBpb ? kFirstBiosDisk : drive.biosNumber();
  if (target.isWholeDisk) return wish;
  wish.hiddenSectors = target.volumeGap != 0
                           ? target.volumeGap
                           : target.extent.startSector + drive.disk().traits().startOffset;
  return wish;
}

Failure formatVolume(Drive& drive, const FormatTarget& target, const FileSystemKind& kind,
                     const FormatWish& wish, Job& job, FormatReport& report) {
  report = {};
  if (!kind.format) return Error::unsupportedFileSystem;
  const SectorRange range{drive.disk(), target.extent.startSector,
                          target.extent.endSector + 1 - target.extent.startSector};
  const Failure failed = kind.format(range, wish, job, report);
  drive.disk().dropCachesOf(range.firstSector, range.sectorCount);
  return failed;
}

}  // namespace tallowin
