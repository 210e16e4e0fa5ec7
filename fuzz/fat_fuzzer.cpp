// A FAT volume from the input, in one of two ways. Either its boot sector and FATs: the volume is
// opened and its entries are read and changed. Or a request to format, whose volume is opened.
#include <algorithm>
#include <map>

#include "disk/memory_disk.h"
#include "fat/fat_format.h"
#include "fat/fat_table.h"
#include "fat/fat_volume.h"
#include "fuzz_input.h"

using namespace tallowin;

namespace {

std::vector<u8> sectors(DiskDevice& disk, u64 lba, u64 count) {
  std::vector<u8> bytes(count * disk.sectorSize());
  require(disk.readSectors(lba, bytes.data(), count) == Error::none);
  return bytes;
}

// --- Entries of a volume

struct Sample {
  u8 typeId;
  u32 sectors;
};
constexpr Sample kSamples[] = {{0x01, 600}, {0x04, 4200}, {0x0B, 1199}};

Failure format(const SectorRange& range, const FormatWish& wish) {
  SilentJob job;
  FormatReport report;
  return formatFat(range, wish, job, report);
}

MemoryDisk formatted(const Sample& sample) {
  MemoryDisk disk(sample.sectors);
  FormatWish wish;
  wish.type = sample.typeId;
  require(!format({disk, 0, sample.sectors}, wish));
  return disk;
}

// Each sample is formatted once; the inputs work on copies.
MemoryDisk copyOf(std::size_t sample) {
  static const MemoryDisk disks[] = {formatted(kSamples[0]), formatted(kSamples[1]),
                                     formatted(kSamples[2])};
  return disks[sample].copy();
}

void place(MemoryDisk& disk, u64 lba, std::span<const u8> bytes, bool change) {
  std::vector<u8> sector = disk.sector(lba);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    sector[i] = static_cast<u8>(change ? sector[i] ^ bytes[i] : bytes[i]);
  disk.setSector(lba, sector);
}

// In every copy of the FAT is what was set.
void requireEntries(const FatVolume& volume, const std::map<u32, u32>& expected) {
  const FatLayout& layout = volume.layout;
  FatTable table(volume.range, layout);
  for (u32 copy = 0; copy < layout.numberOfFats; copy += std::max(1U, layout.numberOfFats - 1)) {
    const u64 start = volume.range.firstSector + layout.reservedSectors;
    require(!table.setUp({.windowSectors = 1,
                          .savedWindows = 0,
                          .elsewhereLba = start + u64{copy} * layout.sectorsPerFat}));
    for (const auto& [cluster, value] : expected) {
      u32 found = 0;
      require(!table.get(cluster, found) && found == value);
    }
  }
}

void changeEntries(Input& input) {
  const std::size_t index = input.number(1) % std::size(kSamples);
  const Sample& sample = kSamples[index];
  const bool change = input.number(1) % 2 == 0;  // of a sound boot sector, or a new one
  const u32 window = 1 + input.number(1) % 24;
  const u32 saved = input.number(1) % 4;
  MemoryDisk disk = change ? copyOf(index) : MemoryDisk(sample.sectors);
  place(disk, 0, input.take(90), change);
  if (!change) {
    std::vector<u8> boot = disk.sector(0);
    std::copy(std::begin(kBootSignature), std::end(kBootSignature),
              boot.begin() + kBootSignatureOffset);
    disk.setSector(0, boot);
  }
  const SectorRange range{disk, 0, sample.sectors};
  std::optional<FatVolume> volume;
  if (openFat(range, sample.typeId, volume)) return;
  const FatLayout& layout = volume->layout;
  const u64 fatStart = layout.reservedSectors;
  place(disk, fatStart, input.take(input.number(1)), false);
  FatTable table(range, layout);
  if (table.setUp({.windowSectors = window, .savedWindows = saved})) return;

  MemoryDisk before = disk.copy();
  const u32 mask = layout.kind == FatKind::fat12   ? 0xFFF
                   : layout.kind == FatKind::fat16 ? 0xFFFF
                                                   : 0x0FFFFFFF;
  std::map<u32, u32> expected;
  while (!input.isEmpty()) {
    const u32 what = input.number(1);
    const u32 cluster = what % 2 == 0 ? input.number(4) : input.number(2) % 3000;
    if (what / 2 % 4 == 0) {
      require(!table.flush());
    } else if (what / 2 % 4 == 1) {
      u32 value = 0;
      const auto known = expected.find(cluster);
      require(table.get(cluster, value) || known == expected.end() || known->second == value);
    } else {
      const u32 value = what / 2 % 4 == 2 ? layout.badMark() : input.number(4);
      if (!table.set(cluster, value)) expected[cluster] = value & mask;
    }
  }
  require(!table.flush());
  requireEntries(*volume, expected);
  // Nothing beside the FATs was touched.
  for (MemoryDisk* both : {&disk, &before})
    require(!both->writeZeros(fatStart, u64{layout.numberOfFats} * layout.sectorsPerFat));
  require(disk.sameContent(before));
}

// --- Formatting

constexpr u32 kNeighbour = 16;
constexpr u32 kLongest = 1 << 17;
constexpr u32 kLongestScannedBytes = kMiB;

void format(Input& input) {
  const u32 options = input.number(1);
  const u32 sectorSize = options % 8 >= 4 ? 4096 : 512;
  FormatWish wish;
  wish.surfaceScan = options % 2 != 0;
  wish.alignForNtfs = options / 2 % 2 != 0;
  const u64 length =
      input.number(3) % (wish.surfaceScan ? kLongestScannedBytes / sectorSize : kLongest);
  const std::vector<u8> neighbour(std::size_t{kNeighbour} * sectorSize, 0x5A);
  const u64 behind = kNeighbour + length;
  MemoryDisk disk(behind + kNeighbour, sectorSize);
  require(!disk.writeSectors(0, neighbour.data(), kNeighbour));
  require(!disk.writeSectors(behind, neighbour.data(), kNeighbour));
  wish.type = static_cast<u16>(input.number(1));
  wish.clusterBytes = (options & 8) != 0 ? input.number(4) : input.number(1) * sectorSize;
  if ((options & 16) != 0) wish.driveNumber = static_cast<u8>(input.number(1));
  wish.hiddenSectors = input.number(4);
  wish.geometry.maxHead = static_cast<u8>(input.number(1));
  wish.geometry.sectorsPerTrack = static_cast<u8>(input.number(1));
  const auto label = input.take(16);
  wish.label.assign(label.begin(), label.end());
  MemoryDisk before = disk.copy();

  const SectorRange range{disk, kNeighbour, length};
  SilentJob job;
  FormatReport report;
  const Failure failed = formatFat(range, wish, job, report);
  require(sectors(disk, 0, kNeighbour) == neighbour);
  require(sectors(disk, behind, kNeighbour) == neighbour);
  require(report.badClusters == 0);
  if (failed) {
    require(failed == Error::invalidSizeForType && !report.touched && disk.sameContent(before));
    return;
  }
  std::optional<FatVolume> volume;
  require(!openFat(range, 0, volume));
  const FatLayout& layout = volume->layout;
  const u32 clusters = layout.clusterCount();
  require(clusters != 0);
  if (!layout.isFat32())
    require(clusters < (layout.kind == FatKind::fat12 ? 4085U : 65525U) &&
            (clusters >= 4085) == (layout.kind == FatKind::fat16));
  require(!wish.alignForNtfs || layout.firstDataSector() * sectorSize % 4096 == 0);
  require(layout.clusterToSector(layout.highestCluster()) + layout.sectorsPerCluster <= length);
  FatTable table(range, layout);
  require(!table.setUp());
  const auto entry = [&](u32 cluster) {
    u32 value = 0;
    require(!table.get(cluster, value));
    return value;
  };
  require((entry(0) & 0xFF) == volume->boot.bpb().media);
  require(entry(1) == layout.endMark());
  require(entry(2) == (layout.isFat32() ? layout.endMark() : 0));
  if (clusters > 1) require(entry(layout.highestCluster()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size < 2 || size > 4 * kKiB) return 0;
  Input input({data, size});
  if (input.number(1) % 2 == 0)
    changeEntries(input);
  else
    format(input);
  return 0;
}
