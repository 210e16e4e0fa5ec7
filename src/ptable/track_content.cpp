#include "ptable/track_content.h"

#include <algorithm>
#include <vector>

#include "base/bytes.h"
#include "base/text.h"
#include "ptable/identify.h"

namespace tallowin {
namespace {

bool isOwnTable(std::span<const u8> sector) {
  return textAt(sector, 0, "EMBR") || textAt(sector, 0, "EFI PART");
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

bool isAllZero(std::span<const u8> bytes) {
  return std::ranges::all_of(bytes, [](u8 byte) { return byte == 0; });
}

std::optional<std::string> namedTrackContent(DiskDevice& disk, u64 first, u64 end) {
  const std::size_t sectorSize = disk.sectorSize();
  std::vector<u8> mbr(sectorSize);
  if (!disk.readSectors(0, mbr.data(), 1)) return "sectors that cannot be read";
  std::vector<u8> sector(sectorSize);
  for (u64 lba = first; lba < end; ++lba) {
    const auto number = static_cast<unsigned long long>(lba);
    if (!disk.readSectors(lba, sector.data(), 1))
      return format("something that cannot be read, in sector %llu", number);
    if (isOwnTable(sector) || isAllZero(sector)) continue;
    return format("%s, in sector %llu", whatBegins(mbr, sector), number);
  }
  return std::nullopt;
}

}  // namespace tallowin
