#include "ops/used_extents.h"

#include <algorithm>

#include "probe/identify.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

Content contentOf(Drive& drive, const PartitionEntry& entry) {
  Content content;
  static_cast<void>(identify(drive.disk(), entry.startSector, content));
  return content;
}

// A swap area says itself how far it reaches.
bool isSwap(const PartitionEntry& entry, const Content& content) {
  return content.code == ContentCode::linuxSwap && content.sectorCount != 0 &&
         content.sectorCount <= entry.sectorCount();
}

Failure readUsed(const FileSystemKinds& kinds, Drive& drive, const PartitionEntry& entry,
                 BootArea withBootArea, UsedExtents& found) {
  const Content content = contentOf(drive, entry);
  if (isSwap(entry, content)) {
    found.typeFound = static_cast<u32>(content.code);
    return found.list.add(entry.startSector, content.sectorCount);
  }
  const SectorRange range = rangeOf(drive, entry);
  const FileSystemKind* kind = kinds.byContent(content.code, range, entry.type);
  if (kind == nullptr || kind->usedExtents == nullptr) {
    found.isWhole = true;
    return found.list.add(entry.startSector, entry.sectorCount());
  }
  found.typeFound = static_cast<u32>(content.code);
  UsedExtentsWish wish;
  wish.includeLastSector = withBootArea == BootArea::yes;
  ExtentList list;
  if (const Failure failed = kind->usedExtents(range, entry.type, wish, list)) return failed;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const ExtentList::Extent extent = list.at(i);
    if (extent.startSector < range.firstSector || extent.endSector() > range.endSector())
      return Error::fileSystemUnreadable;
    if (const Failure failed = found.list.add(extent.startSector, extent.sectors, extent.kind))
      return failed;
  }
  return {};
}

}  // namespace

Failure findUsedExtents(const FileSystemKinds& kinds, Drive& drive, const PartitionEntry& entry,
                        MovedSectorsWish wish, BootArea withBootArea, UsedExtents& found) {
  found = {};
  const u64 gap = withBootArea == BootArea::yes ? drive.volumeGap(entry) : 0;
  // The EBR itself is a part of the table.
  if (gap > 1)
    if (const Failure failed = found.list.add(entry.startSector - gap + 1, gap - 1)) return failed;
  const bool isContainer = types::isExtended(entry.type);
  if (isContainer) found.typeFound = types::kExtended;
  if (!isContainer && wish == MovedSectorsWish::used)
    return readUsed(kinds, drive, entry, withBootArea, found);
  found.isWhole = true;
  return found.list.add(entry.startSector, entry.sectorCount());
}

std::string whyNotUsedOnly(const FileSystemKinds& kinds, Drive& drive,
                           const PartitionEntry& entry) {
  if (types::isExtended(entry.type)) return "An extended partition is moved as a whole.";
  const Content content = contentOf(drive, entry);
  if (content.code == ContentCode::none)
    return "No file system was recognised in it, so that all of its sectors are moved.";
  const bool isOfTheseTypes = types::isFat(entry.type) ||
                              types::unhide(entry.type) == types::kLinux ||
                              content.code == ContentCode::ntfs;
  const FileSystemKind* kind = kinds.byContent(content.code, rangeOf(drive, entry), entry.type);
  if (isOfTheseTypes && kind != nullptr && kind->usedExtents != nullptr) return {};
  return "This version cannot tell which sectors of this file system are in use,\n"
         "so that all of them are moved.";
}

}  // namespace tallowin
