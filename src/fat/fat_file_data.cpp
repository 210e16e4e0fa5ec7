#include "fat/fat_file_data.h"

#include <algorithm>

namespace tallowin {

FatFileData::Extent FatFileData::extentAt(const FatChain& chain, u64 position, u64 bytes) const {
  const FatLayout& layout = volume_.layout;
  const ClusterRun run = chain.runAt(static_cast<u32>(position / layout.clusterBytes()));
  const u32 inCluster = static_cast<u32>(position % layout.clusterBytes());
  return {volume_.range.firstSector + layout.clusterToSector(run.first) +
              inCluster / layout.bytesPerSector,
          inCluster % layout.bytesPerSector,
          std::min(bytes, u64{run.count} * layout.clusterBytes() - inCluster)};
}

Failure FatFileData::read(const FatChain& chain, u64 position, std::span<u8> bytes) const {
  const u32 sectorBytes = volume_.layout.bytesPerSector;
  DiskDevice& disk = volume_.range.disk;
  while (!bytes.empty()) {
    const Extent extent = extentAt(chain, position, bytes.size());
    u64 done = extent.bytes / sectorBytes * sectorBytes;
    if (extent.offset == 0 && done != 0) {
      if (const Failure failed = disk.readSectors(extent.lba, bytes.data(), done / sectorBytes))
        return failed;
    } else {
      std::vector<u8> sector(sectorBytes);
      if (const Failure failed = disk.readSectors(extent.lba, sector.data(), 1)) return failed;
      done = std::min<u64>(extent.bytes, sectorBytes - extent.offset);
      std::copy_n(sector.begin() + extent.offset, done, bytes.begin());
    }
    position += done;
    bytes = bytes.subspan(done);
  }
  return {};
}

Failure FatFileData::write(const FatChain& chain, u64 position, std::span<const u8> bytes,
                           u64 sizeBytes) const {
  const u32 sectorBytes = volume_.layout.bytesPerSector;
  DiskDevice& disk = volume_.range.disk;
  while (!bytes.empty()) {
    const Extent extent = extentAt(chain, position, bytes.size());
    u64 done = extent.bytes / sectorBytes * sectorBytes;
    if (extent.offset == 0 && done != 0) {
      if (const Failure failed = disk.writeSectors(extent.lba, bytes.data(), done / sectorBytes))
        return failed;
    } else {
      std::vector<u8> sector(sectorBytes);
      const u64 sectorStart = position - extent.offset;
      const u64 held = sizeBytes - std::min(sizeBytes, sectorStart);
      if (held != 0) {
        if (const Failure failed = disk.readSectors(extent.lba, sector.data(), 1)) return failed;
        std::fill(sector.begin() + static_cast<std::ptrdiff_t>(std::min<u64>(held, sectorBytes)),
                  sector.end(), u8{0});
      }
      done = std::min<u64>(extent.bytes, sectorBytes - extent.offset);
      std::copy_n(bytes.begin(), done, sector.begin() + extent.offset);
      if (const Failure failed = disk.writeSectors(extent.lba, sector.data(), 1)) return failed;
    }
    position += done;
    bytes = bytes.subspan(done);
  }
  return {};
}

}  // namespace tallowin
