// A FAT volume from the input, in one of two ways. Either its boot sector and FATs: the volume is
// opened and its entries are read and changed. Or a request to format, whose volume is opened.
#include <algorithm>
#include <cstdlib>
#include <map>

#include "disk/memory_disk.h"
#include "fat/fat_format.h"

using namespace tallowin;

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

// Numbers from the input; zeros behind its end.
class Input {
 public:
  explicit Input(std::span<const u8> bytes) : bytes_(bytes) {}

  bool isEmpty() const { return bytes_.empty(); }
  u32 number(std::size_t bytes) {
    u32 value = 0;
    for (const u8 byte : take(bytes)) value = value << 8 | byte;
    return value;
  }
  std::span<const u8> take(std::size_t count) {
    const auto taken = bytes_.first(std::min(count, bytes_.size()));
    bytes_ = bytes_.subspan(taken.size());
    return taken;
  }

 private:
  std::span<const u8> bytes_;
};

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

MemoryDisk formatted(const Sample& sample) {
  MemoryDisk disk(sample.sectors);
  FatFormatRequest request;
  request.device = &disk;
  request.lengthSectors = sample.sectors;
  request.typeId = sample.typeId;
  require(formatFat(request) == Error::none);
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

std::unique_ptr<FatVolume> open(DiskDevice& disk, const FatPlacement& placement, u32 window,
                                u32 saved) {
  auto volume = FatVolume::open(disk, placement);
  if (!volume->isValid() || !volume->setupFatCache(window, saved)) return nullptr;
  return volume;
}

// In every copy of the FAT is what was set.
void requireEntries(DiskDevice& disk, const FatPlacement& placement,
                    const std::map<u32, u32>& expected) {
  auto volume = open(disk, placement, 1, 0);
  require(volume != nullptr);
  for (u32 copy = 0; copy < volume->numberOfFats();
       copy += std::max(1U, volume->numberOfFats() - 1)) {
    volume->setFatStartOverride(volume->startSector() + volume->reservedSectors() +
                                u64{copy} * volume->sectorsPerFat());
    require(volume->resetFatCache(1, 0));
    for (const auto& [cluster, value] : expected) require(volume->getFat(cluster) == value);
    require(!volume->hasError());
  }
}

void changeEntries(Input& input) {
  const std::size_t index = input.number(1) % std::size(kSamples);
  const Sample& sample = kSamples[index];
  const bool change = input.number(1) % 2 == 0;  // of a sound boot sector, or a new one
  const u32 window = 1 + input.number(1) % 24;
  const u32 saved = input.number(1) % 4;
  MemoryDisk disk = change ? copyOf(index) : MemoryDisk(sample.sectors);
  FatPlacement placement;
  placement.lengthSectors = sample.sectors;
  placement.typeId = sample.typeId;
  place(disk, 0, input.take(90), change);
  if (!change) {
    std::vector<u8> boot = disk.sector(0);
    std::copy(std::begin(kBootSignature), std::end(kBootSignature),
              boot.begin() + kBootSignatureOffset);
    disk.setSector(0, boot);
  }
  auto volume = open(disk, placement, window, saved);
  if (volume == nullptr) return;
  place(disk, volume->fatStartLba(), input.take(input.number(1)), false);

  MemoryDisk before = disk.copy();
  const u32 mask = volume->kind() == FatKind::fat12   ? 0xFFF
                   : volume->kind() == FatKind::fat16 ? 0xFFFF
                                                      : 0x0FFFFFFF;
  std::map<u32, u32> expected;
  while (!input.isEmpty()) {
    const u32 what = input.number(1);
    const u32 cluster = what % 2 == 0 ? input.number(4) : input.number(2) % 3000;
    if (what / 2 % 4 == 0) {
      require(volume->flushFat());
    } else if (what / 2 % 4 == 1) {
      const u32 value = volume->getFat(cluster);
      const auto known = expected.find(cluster);
      require(volume->hasError() || known == expected.end() || known->second == value);
    } else {
      const u32 value = what / 2 % 4 == 2 ? volume->badMark() : input.number(4);
      volume->setFat(cluster, value);
      if (!volume->hasError()) expected[cluster] = value & mask;
    }
    volume->clearError();
  }
  const u64 fatStart = volume->fatStartLba();
  const u64 fatEnd = fatStart + u64{volume->numberOfFats()} * volume->sectorsPerFat();
  require(volume->flushFat());
  volume.reset();
  requireEntries(disk, placement, expected);
  // Nothing beside the FATs was touched.
  for (MemoryDisk* both : {&disk, &before})
    require(both->writeZeros(fatStart, fatEnd - fatStart) == Error::none);
  require(disk.sameContent(before));
}

// --- Formatting

constexpr u32 kNeighbour = 16;
constexpr u32 kLongest = 1 << 17;
constexpr u32 kLongestScannedBytes = kMiB;

void format(Input& input) {
  const u32 options = input.number(1);
  const u32 sectorSize = options % 8 >= 4 ? 4096 : 512;
  FatFormatRequest request;
  request.options = options % 4;
  request.startSector = kNeighbour;
  request.lengthSectors =
      input.number(3) %
      ((options & kFatScanSurface) != 0 ? kLongestScannedBytes / sectorSize : kLongest);
  const std::vector<u8> neighbour(std::size_t{kNeighbour} * sectorSize, 0x5A);
  const u64 behind = kNeighbour + request.lengthSectors;
  MemoryDisk disk(behind + kNeighbour, sectorSize);
  require(disk.writeSectors(0, neighbour.data(), kNeighbour) == Error::none);
  require(disk.writeSectors(behind, neighbour.data(), kNeighbour) == Error::none);
  request.device = &disk;
  request.typeId = static_cast<u16>(input.number(1));
  request.sectorsPerCluster = (options & 8) != 0 ? input.number(4) : input.number(1);
  request.driveNumber = input.number(2);
  request.hiddenSectors = input.number(4);
  request.geometry.maxHead = static_cast<u8>(input.number(1));
  request.geometry.sectorsPerTrack = static_cast<u8>(input.number(1));
  const auto label = input.take(16);
  request.label.assign(label.begin(), label.end());
  MemoryDisk before = disk.copy();

  const Failure error = formatFat(request);
  require(sectors(disk, 0, kNeighbour) == neighbour);
  require(sectors(disk, behind, kNeighbour) == neighbour);
  require(request.badClusters == 0);
  if (error != Error::none) {
    require(error == Error::invalidSizeForType && disk.sameContent(before));
    return;
  }
  FatPlacement placement;
  placement.startSector = request.startSector;
  placement.lengthSectors = request.lengthSectors;
  auto volume = open(disk, placement, 24, 32);
  require(volume != nullptr);
  const u32 clusters = volume->clusterCount();
  require(clusters != 0);
  if (!volume->isFat32())
    require(clusters < (volume->kind() == FatKind::fat12 ? 4085U : 65525U) &&
            (clusters >= 4085) == (volume->kind() == FatKind::fat16));
  require((request.options & kFatAlignForNtfs) == 0 ||
          volume->firstDataSector() * sectorSize % 4096 == 0);
  require(volume->clusterToLba(volume->highestCluster()) + volume->sectorsPerCluster() <= behind);
  require((volume->getFat(0) & 0xFF) == volume->bpb().media);
  require(volume->getFat(1) == volume->endMark());
  require(volume->getFat(2) == (volume->isFat32() ? volume->endMark() : 0));
  if (clusters > 1) require(volume->getFat(volume->highestCluster()) == 0);
  require(!volume->hasError());
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
