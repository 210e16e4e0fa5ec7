#include "ptable/old_signatures.h"

#include <algorithm>
#include <string_view>

#include "base/bytes.h"
#include "ptable/sector_swap.h"

namespace tallowin {
namespace {

struct Mark {
  u64 offset;  // bytes from the start of the disk
  std::string_view text;
};

constexpr u64 kSuperblock = 1024;
constexpr u64 kVolumeDescriptors = 32 * kKiB;
constexpr u64 kFarSuperblock = 64 * kKiB;

// File systems as they publish their formats; swap is marked at the end of a page of any size.
constexpr Mark kMarks[] = {
    {kSuperblock, "H+"},
    {kSuperblock, "HX"},
    {kSuperblock, "BD"},
    {kSuperblock, "\x10\x20\xF5\xF2"},  // F2FS
    {kSuperblock + 6, "\x34\x34"},      // NILFS2
    {kSuperblock + 56, "\x53\xEF"},     // ext2 and its successors
    {4 * kKiB, "\xFC\x4E\x2B\xA9"},     // md, version 1.2
    {4 * kKiB - 10, "SWAPSPACE2"},
    {4 * kKiB - 10, "SWAP-SPACE"},
    {8 * kKiB - 10, "SWAPSPACE2"},
    {16 * kKiB - 10, "SWAPSPACE2"},
    {32 * kKiB - 10, "SWAPSPACE2"},
    {64 * kKiB - 10, "SWAPSPACE2"},
    {8 * kKiB + 52, "ReIsEr"},
    {kVolumeDescriptors, "JFS1"},
    {kVolumeDescriptors + 1, "CD001"},
    {kVolumeDescriptors + 1, "BEA01"},
    {kVolumeDescriptors + 2 * kKiB + 1, "NSR0"},
    {kVolumeDescriptors + 4 * kKiB + 1, "NSR0"},
    {kFarSuperblock + 52, "ReIsEr"},
    {kFarSuperblock + 64, "_BHRfS_M"},
    // The label of a volume manager, in any of the first sectors.
    {512, "LABELONE"},
    {1024, "LABELONE"},
    {1536, "LABELONE"},
};

// The marks of one sector are cleared in `sector`; whether there were any.
bool clearMarks(u64 lba, std::span<u8> sector) {
  bool found = false;
  for (const Mark& mark : kMarks) {
    if (mark.offset / sector.size() != lba ||
        !textAt(sector, mark.offset % sector.size(), mark.text))
      continue;
    std::fill_n(sector.begin() + static_cast<std::ptrdiff_t>(mark.offset % sector.size()),
                mark.text.size(), u8{0});
    found = true;
  }
  return found;
}

}  // namespace

std::vector<u64> oldSignatureSectors(u32 sectorSizeBytes) {
  std::vector<u64> lbas;
  for (const Mark& mark : kMarks) lbas.push_back(mark.offset / sectorSizeBytes);
  std::ranges::sort(lbas);
  lbas.erase(std::unique(lbas.begin(), lbas.end()), lbas.end());
  std::erase(lbas, u64{0});  // holds the table
  return lbas;
}

Failure clearOldSignatures(DiskDevice& disk) {
  const u64 end = disk.sectorCount().value_or(0);
  std::vector<u8> sector(disk.sectorSize());
  for (const u64 lba : oldSignatureSectors(disk.sectorSize())) {
    if (lba >= end) break;
    if (const Failure failed = disk.readSectors(lba, sector.data(), 1)) return failed;
    if (!clearMarks(lba, sector)) continue;
    if (const Failure failed = disk.writeSectors(lba, sector.data(), 1)) return failed;
  }
  return {};
}

Failure removeWholeDiskVolume(DiskDevice& disk) {
  TableSectorImage boot(disk, 0);
  if (const Failure failed = boot.load()) return failed;
  std::ranges::fill(boot.bytes(), u8{0});
  if (const Failure failed = boot.store()) return failed;
  if (const Failure failed = clearOldSignatures(disk)) return failed.as(Error::writeFailedNewTable);
  return disk.flush().as(Error::writeFailedNewTable);
}

}  // namespace tallowin
