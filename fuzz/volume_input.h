// What fuzz targets of file systems share: small FAT volumes with files between two neighbours,
// damage from the input, and a look at everything that can be reached.
#pragma once

#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "disk/memory_disk.h"
#include "fat/fat_file_system.h"
#include "fat/fat_format.h"
#include "fuzz_input.h"

namespace tallowin {

struct FatSample {
  u8 type;
  u32 sectors;
};
inline constexpr FatSample kFatSamples[] = {{0x01, 600}, {0x04, 4200}, {0x0B, 1199}};
inline constexpr u64 kBefore = 16;  // sectors in front of the volume, and behind it

inline std::vector<u8> neighbour() { return std::vector<u8>(kBefore * 512, 0x5A); }

inline Failure put(FileSystem& files, const std::string& path, std::size_t bytes) {
  File file;
  if (const Failure failed =
          files.open(path, {.access = FileAccess::write, .create = true, .truncate = true}, file))
    return failed;
  u64 done = 0;
  return file.write(std::vector<u8>(bytes, 'c'), done);
}

inline MemoryDisk filledFat(const FatSample& sample) {
  MemoryDisk disk(sample.sectors + 2 * kBefore);
  for (const u64 lba : {u64{0}, kBefore + sample.sectors})
    require(!disk.writeSectors(lba, neighbour().data(), kBefore));
  const SectorRange range{disk, kBefore, sample.sectors};
  SilentJob job;
  FormatReport report;
  FormatWish wish;
  wish.type = sample.type;
  require(!formatFat(range, wish, job, report));
  std::unique_ptr<FileSystem> files;
  require(!openFatFiles(range, sample.type, {.writable = true}, files));
  require(!files->makeDirectory("/dir") && !files->makeDirectory("/dir/deep"));
  for (const char* path : {"/a", "/dir/a long name of a file", "/dir/deep/b.txt", "/last"})
    require(!put(*files, path, 3000));
  require(!files->sync());
  return disk;
}

// Each sample is made once; the inputs work on copies.
inline MemoryDisk copyOfFat(std::size_t sample) {
  static const MemoryDisk disks[] = {filledFat(kFatSamples[0]), filledFat(kFatSamples[1]),
                                     filledFat(kFatSamples[2])};
  return disks[sample].copy();
}

// In the first so many sectors of the volume.
inline void damage(MemoryDisk& disk, u64 sectors, Input& input) {
  for (u32 count = input.number(1) % 16; count != 0; --count) {
    const u64 lba = kBefore + input.number(2) % sectors;
    std::vector<u8> sector = disk.sector(lba);
    const std::size_t at = input.number(2) % sector.size();
    const auto bytes =
        input.take(std::min<std::size_t>(1 + input.number(1) % 40, sector.size() - at));
    std::ranges::copy(bytes, sector.begin() + static_cast<std::ptrdiff_t>(at));
    disk.setSector(lba, sector);
  }
}

inline void requireNeighbours(MemoryDisk& disk, u64 sectors) {
  std::vector<u8> found(kBefore * 512);
  for (const u64 lba : {u64{0}, kBefore + sectors})
    require(!disk.readSectors(lba, found.data(), kBefore) && found == neighbour());
}

// At most `left` entries; a directory that contains itself is deep, not endless.
inline void look(FileSystem& files, const std::string& directory, u32& left) {
  std::vector<FileInfo> entries;
  if (files.list(directory, entries)) return;
  for (const FileInfo& entry : entries) {
    if (left == 0) return;
    --left;
    const std::string path = directory + entry.name;
    if (entry.isDirectory()) {
      look(files, path + "/", left);
      continue;
    }
    File file;
    FileInfo opened;
    if (files.open(path, {}, file)) continue;
    // Of two that are called the same it may be the other one.
    require(!file.info(opened));
    std::vector<u8> bytes(std::min<u64>(opened.sizeBytes, 9000));
    u64 done = 0;
    require(file.read(bytes, done) || done == bytes.size());
  }
}

}  // namespace tallowin
