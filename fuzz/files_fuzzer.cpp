// Files of a FAT volume that the input has damaged: they are listed, read and changed. Nothing
// beside the volume is written, and all of it ends.
#include <algorithm>

#include "disk/memory_disk.h"
#include "fat/fat_file_system.h"
#include "fat/fat_format.h"
#include "fuzz_input.h"

using namespace tallowin;

namespace {

struct Sample {
  u8 type;
  u32 sectors;
};
constexpr Sample kSamples[] = {{0x01, 600}, {0x04, 4200}, {0x0B, 1199}};
constexpr u64 kBefore = 16;  // sectors in front of the volume, and behind it
constexpr u8 kNeighbour = 0x5A;
constexpr u32 kMostEntries = 200;  // that are looked at
constexpr u32 kMostOperations = 24;

Failure put(FileSystem& files, const std::string& path, std::size_t bytes) {
  File file;
  if (const Failure failed =
          files.open(path, {.access = FileAccess::write, .create = true, .truncate = true}, file))
    return failed;
  const std::vector<u8> content(bytes, 'c');
  u64 done = 0;
  return file.write(content, done);
}

MemoryDisk filled(const Sample& sample) {
  MemoryDisk disk(sample.sectors + 2 * kBefore);
  const std::vector<u8> neighbour(kBefore * 512, kNeighbour);
  require(!disk.writeSectors(0, neighbour.data(), kBefore));
  require(!disk.writeSectors(kBefore + sample.sectors, neighbour.data(), kBefore));
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
MemoryDisk copyOf(std::size_t sample) {
  static const MemoryDisk disks[] = {filled(kSamples[0]), filled(kSamples[1]), filled(kSamples[2])};
  return disks[sample].copy();
}

void damage(MemoryDisk& disk, u64 sectors, Input& input) {
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

// Everything that can be reached; a directory that contains itself is deep, not endless.
void look(FileSystem& files, const std::string& directory, u32& left) {
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
    if (files.open(path, {}, file)) continue;
    std::vector<u8> bytes(std::min<u64>(entry.sizeBytes, 4000));
    u64 done = 0;
    require(file.read(bytes, done) || done == bytes.size());
  }
}

std::string pathFrom(Input& input) {
  static constexpr const char* kPaths[] = {"/a",
                                           "/dir",
                                           "/dir/a long name of a file",
                                           "/dir/deep",
                                           "/new",
                                           "/last",
                                           "/dir/deep/b.txt",
                                           "/dir/new long name"};
  const u32 which = input.number(1) % (std::size(kPaths) + 1);
  if (which < std::size(kPaths)) return kPaths[which];
  const auto bytes = input.take(input.number(1) % 64);
  return {bytes.begin(), bytes.end()};
}

void change(FileSystem& files, Input& input) {
  const u32 what = input.number(1) % 9;
  const std::string path = pathFrom(input);
  Failure ended;
  if (what == 0) ended = put(files, path, input.number(2));
  if (what == 1) ended = files.deleteFile(path);
  if (what == 2) ended = files.makeDirectory(path);
  if (what == 3) ended = files.removeDirectory(path);
  if (what == 4) ended = files.move(path, pathFrom(input));
  if (what == 5) ended = files.setLabel(path);
  if (what == 6) ended = files.sync();
  if (what >= 7) {
    File file;
    if (files.open(path, {.access = FileAccess::readWrite}, file)) return;
    ended = file.setSize(input.number(3) % 40000);
    const u64 size = input.number(2);
    u64 done = 0;
    if (!file.seek(static_cast<i64>(input.number(3) % 50000)))
      ended = file.write(std::vector<u8>(size, 'w'), done);
    require(ended || done == size);
  }
  // What was damaged may be refused, with any answer.
  static_cast<void>(ended);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size < 2 || size > 4 * kKiB) return 0;
  Input input({data, size});
  const std::size_t which = input.number(1) % std::size(kSamples);
  const Sample& sample = kSamples[which];
  MemoryDisk disk = copyOf(which);
  damage(disk, sample.sectors, input);
  const SectorRange range{disk, kBefore, sample.sectors};
  std::unique_ptr<FileSystem> files;
  if (openFatFiles(range, sample.type, {.writable = true}, files)) return 0;
  u32 left = kMostEntries;
  look(*files, "/", left);
  for (u32 count = 0; count < kMostOperations && !input.isEmpty(); ++count) change(*files, input);
  SpaceInfo space;
  require(files->space(space) || space.freeUnits <= space.totalUnits + sample.sectors);
  left = kMostEntries;
  look(*files, "/", left);
  static_cast<void>(files->sync());
  for (const u64 lba : {u64{0}, kBefore + sample.sectors})
    for (u64 i = 0; i < kBefore; ++i)
      require(disk.sector(lba + i) == std::vector<u8>(512, kNeighbour));
  return 0;
}
