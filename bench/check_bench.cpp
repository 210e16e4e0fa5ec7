// The check of a FAT32 with 20,000 files in a million clusters, against another program and against
// reading just the FATs and the directories; warm, and with nothing of the image in memory.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>

#include "disk/image_disk.h"
#include "fat/fat_check.h"
#include "fat/fat_directory_walk.h"
#include "fat/fat_file_system.h"
#include "fat/fat_format.h"
#include "stopwatch.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u64 kBytes = 4400 * kMiB;
constexpr u16 kFat32Type = 0x0C;
constexpr u32 kFolders = 200;
constexpr u32 kFilesInFolder = 100;
constexpr u32 kMostFileBytes = 32 * kKiB;
constexpr std::size_t kPiece = 4 * kMiB;
constexpr int kRounds = 9;

struct Extent {
  u64 offset;
  u64 bytes;
};

bool fill(DiskDevice& disk) {
  const SectorRange range{disk, 0, kBytes / 512};
  FormatWish wish;
  wish.type = kFat32Type;
  wish.clusterBytes = 4 * kKiB;
  SilentJob job;
  FormatReport report;
  std::unique_ptr<FileSystem> files;
  if (formatFat(range, wish, job, report) ||
      openFatFiles(range, kFat32Type, {.writable = true}, files))
    return false;
  std::mt19937 random(1);
  const std::vector<u8> content(kMostFileBytes, 'c');
  for (u32 folder = 0; folder < kFolders; ++folder) {
    const std::string path = "/Folder number " + std::to_string(folder);
    if (files->makeDirectory(path)) return false;
    for (u32 i = 0; i < kFilesInFolder; ++i) {
      File file;
      u64 done = 0;
      if (files->open(path + "/A file with a name " + std::to_string(i),
                      {.access = FileAccess::write, .create = true}, file) ||
          file.write(std::span(content).first(random() % kMostFileBytes), done))
        return false;
    }
  }
  return !files->sync() && !disk.flush();
}

// Of the FATs and the directories, in the order of the disk.
std::vector<Extent> metadata(const FatVolume& volume) {
  const FatLayout& layout = volume.layout;
  std::vector<Extent> extents = {
      {u64{layout.reservedSectors} * 512, u64{layout.numberOfFats} * layout.sectorsPerFat * 512}};
  SilentJob job;
  FatClusterMap map(volume);
  bool same = false;
  if (map.read(0, FatClusterMap::kNoCopy, job, same)) return {};
  const auto add = [&](u32 first) {
    for (u32 at = first; at != 0;) {
      const u32 run = map.runFrom(at, kAllOnes32);
      extents.push_back({layout.clusterToSector(at) * 512, u64{run} * layout.clusterBytes()});
      if (map.next(at + run - 1, at)) return;
    }
  };
  add(volume.rootCluster());
  FatDirectoryWalk walk(volume, map, job);
  if (walk.run([&](const FatDirectoryWalk::Found& found) {
        if (!found.isDirectory()) return FatDirectoryWalk::Next::goOn;
        add(found.firstCluster);
        return FatDirectoryWalk::Next::enter;
      }))
    return {};
  std::ranges::sort(extents, {}, &Extent::offset);
  return extents;
}

class Image {
 public:
  explicit Image(const std::string& path)
      : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)), buffer_(kPiece) {}
  ~Image() { ::close(descriptor_); }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  bool forget() {
    return ::fsync(descriptor_) == 0 &&
           ::posix_fadvise(descriptor_, 0, 0, POSIX_FADV_DONTNEED) == 0;
  }
  bool read(const std::vector<Extent>& extents) {
    for (const Extent& extent : extents)
      for (u64 at = 0; at < extent.bytes; at += kPiece) {
        const std::size_t count = std::min<u64>(kPiece, extent.bytes - at);
        if (::pread(descriptor_, buffer_.data(), count, static_cast<off_t>(extent.offset + at)) !=
            static_cast<ssize_t>(count))
          return false;
      }
    return true;
  }

 private:
  int descriptor_;
  std::vector<u8> buffer_;
};

u64 peakKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;)
    if (word == "VmHWM:") {
      u64 kib = 0;
      status >> kib;
      return kib;
    }
  return 0;
}

bool isClean(const SectorRange& range) {
  std::optional<FatVolume> volume;
  if (openFat(range, kFat32Type, volume)) return false;
  SilentJob job;
  FatClusterMap map(*volume);
  FatCheckReport report;
  return !checkFat(*volume, map, job, report) && report.fault == FatFault::none &&
         report.entriesWalked == kFolders * (kFilesInFolder + 1);
}

int run() {
  if (!hasProgram("fsck.fat")) {
    std::printf("needs dosfstools\n");
    return 0;
  }
  const TempFolder folder;
  const std::string path = folder.sparse("image", kBytes);
  const OpenedImage image = openImageFile(path, DiskAccess::readWrite, kHardDiskKind, 512);
  if (image.error != Error::none || !fill(*image.disk)) return 1;
  const SectorRange range{*image.disk, 0, kBytes / 512};
  std::optional<FatVolume> volume;
  if (openFat(range, kFat32Type, volume)) return 1;
  const std::vector<Extent> extents = metadata(*volume);
  u64 bytes = 0;
  for (const Extent& extent : extents) bytes += extent.bytes;
  std::printf("%u clusters, %zu extents of metadata\n", volume->layout.clusterCount(),
              extents.size());

  ::malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << 5;  // forgets the peak
  const u64 before = peakKiB();
  if (!isClean(range)) return 1;
  std::printf("memory of the check: %llu KiB, and a byte a cluster is %u KiB\n",
              static_cast<unsigned long long>(peakKiB() - before),
              volume->layout.clusterCount() / 1024);

  Image plain(path);
  const auto isCheckedByOthers = [&] { return runProgram({"fsck.fat", "-n", path}).status == 0; };
  const auto contenders = [&](bool cold) -> std::vector<Contender> {
    const auto prepared = [&plain, cold](const std::function<bool()>& work) {
      return [&plain, cold, work] { return (!cold || plain.forget()) && work(); };
    };
    return {{"fsck.fat -n", prepared(isCheckedByOthers)},
            {"plain reads of FATs and directories", prepared([&] { return plain.read(extents); })},
            {"checkFat", prepared([&] { return isClean(range); })}};
  };
  const double mebibytes = static_cast<double>(bytes) / kMiB;
  return compare("warm", mebibytes, kRounds, contenders(false)) &&
                 compare("cold", mebibytes, kRounds, contenders(true))
             ? 0
             : 1;
}

}  // namespace
}  // namespace tallowin

int main() { return tallowin::run(); }
