// Files of a FAT volume that the input has damaged: they are listed, read and changed. Nothing
// beside the volume is written, and all of it ends.
#include <algorithm>

#include "volume_input.h"

using namespace tallowin;

namespace {

constexpr u32 kMostEntries = 200;  // that are looked at
constexpr u32 kMostOperations = 24;

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
  const std::size_t which = input.number(1) % std::size(kFatSamples);
  const FatSample& sample = kFatSamples[which];
  MemoryDisk disk = copyOfFat(which);
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
  requireNeighbours(disk, sample.sectors);
  return 0;
}
