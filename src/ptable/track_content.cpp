#include "ptable/track_content.h"

#include <algorithm>
#include <vector>

#include "base/bytes.h"
#include "base/text.h"
#include "disk/mbr_record.h"
#include "probe/disk_content.h"
#include "probe/identify.h"
#include "ptable/embr/embr_record.h"
#include "ptable/gpt/gpt_record.h"

namespace tallowin {
namespace {

// The sectors of an EMBR that begins here, also of one that a conversion made invalid by clearing
// the start of its signature; 0 when none does.
u64 embrSectors(std::span<const u8> sector) {
  const auto* header = recordAt<EmbrHeaderRecord>(sector);
  if (header == nullptr || !textAt(sector, 18, "MPT")) return 0;
  if (!textAt(sector, 0, "EMBR") && sector[0] != 0) return 0;
  return std::max<u64>(header->areaSectors, 1);
}

// Entries of a GPT that is no more: conversions leave all but the first of their sectors.
bool holdsGptEntries(std::span<const u8> sector, u64 diskSectors) {
  for (std::size_t at = 0; at + sizeof(GptEntryRecord) <= sector.size(); at += kGptEntrySize) {
    const auto& entry = *recordAt<GptEntryRecord>(sector, at);
    if (isAllZero(sector.subspan(at, kGptEntrySize))) continue;
    const bool isEntry = entry.isUsed() && !entry.uniqueGuid.isZero() && entry.firstLba > 2 &&
                         entry.firstLba <= entry.lastLba && entry.lastLba < diskSectors;
    if (!isEntry) return false;
  }
  return true;
}

const char* whatBegins(std::span<const u8> mbr, std::span<const u8> sector) {
  switch (bootLoaderMark(mbr)) {
    case BootLoaderMark::grub:
      return "the core image of the boot loader GRUB";
    case BootLoaderMark::marked:
      return "the core image of a boot loader";
    case BootLoaderMark::none:
      break;
  }
  return textAt(sector, 2, "IBM ") ? "a boot manager" : "data of another program";
}

}  // namespace

std::optional<std::string> namedTrackContent(DiskDevice& disk, u64 first, u64 end) {
  const std::size_t sectorSize = disk.sectorSize();
  std::vector<u8> mbr(sectorSize);
  if (disk.readSectors(0, mbr.data(), 1) != Error::none) return "sectors that cannot be read";
  std::vector<u8> sector(sectorSize);
  const u64 diskSectors = disk.sectorCount().value_or(0);
  for (u64 lba = first; lba < end; ++lba) {
    const auto number = static_cast<unsigned long long>(lba);
    if (disk.readSectors(lba, sector.data(), 1) != Error::none)
      return format("something that cannot be read, in sector %llu", number);
    if (const u64 sectors = embrSectors(sector); sectors != 0) {
      lba += sectors - 1;
      continue;
    }
    if (textAt(sector, 0, "EFI PART") || holdsGptEntries(sector, diskSectors)) continue;
    return format("%s, in sector %llu", whatBegins(mbr, sector), number);
  }
  return std::nullopt;
}

std::optional<std::string> namedLoaderContent(DiskDevice& disk, u64 startSector, u64 endSector) {
  constexpr u64 kTrackSectors = 63;
  std::vector<u8> sector(disk.sectorSize());
  if (disk.readSectors(0, sector.data(), 1)) return "sectors that cannot be read";
  const bool hasLoader = bootLoaderMark(sector) != BootLoaderMark::none;
  const u64 limit = hasLoader ? kMiB / disk.sectorSize() : kTrackSectors;
  return namedTrackContent(disk, startSector, std::min(endSector + 1, limit));
}

std::optional<std::string> namedContainerContent(DiskDevice& disk, const TableEntry& container) {
  std::vector<u8> sector(disk.sectorSize());
  if (disk.readSectors(container.startSector, sector.data(), 1))
    return "sectors that cannot be read";
  if (!recordAt<EbrRecord>(std::span<const u8>(sector))->signature.isValid())
    return namedContent({disk, container.startSector, container.sectorCount()});
  // A boot sector begins with code, an EBR with none.
  Content content;
  if (sector[0] == 0 || identify(disk, container.startSector, content)) return std::nullopt;
  return "a file system";
}

}  // namespace tallowin
