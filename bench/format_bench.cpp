// Formatting large FAT32 volumes, against writing just the same sectors and against another
// program; and the search for bad clusters against plain reads of the same area.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "disk/disk_wrapper.h"
#include "disk/image_disk.h"
#include "disk/linux_disk.h"
#include "disk/transfer_buffer.h"
#include "fat/fat_format.h"
#include "fat/fat_surface_scan.h"
#include "fat/fat_volume.h"
#include "stopwatch.h"
#include "support/loop_device.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u32 kPiece = 4 * kMiB;
constexpr u16 kFat32Type = 0x0C;
constexpr u32 kWantedClusterSectors = 8;
constexpr int kFormatRounds = 5;
constexpr int kScanRounds = 3;
constexpr u64 kScannedBytes = 2 * kGiB;

// One descriptor and large pieces, nothing else.
class PlainFile {
 public:
  PlainFile(const std::string& path, int flags)
      : descriptor_(::open(path.c_str(), flags | O_CLOEXEC)), buffer_(kPiece) {}
  ~PlainFile() { ::close(descriptor_); }
  PlainFile(const PlainFile&) = delete;
  PlainFile& operator=(const PlainFile&) = delete;

  bool write(u64 bytes) {
    for (u64 at = 0; at < bytes; at += kPiece) {
      const u64 count = std::min<u64>(kPiece, bytes - at);
      if (::pwrite(descriptor_, buffer_.data(), count, static_cast<off_t>(at)) !=
          static_cast<ssize_t>(count))
        return false;
    }
    return ::fsync(descriptor_) == 0;
  }
  bool read(u64 first, u64 end) {
    for (u64 at = first; at < end; at += kPiece) {
      const u64 count = std::min<u64>(kPiece, end - at);
      if (::pread(descriptor_, buffer_.data(), count, static_cast<off_t>(at)) !=
          static_cast<ssize_t>(count))
        return false;
    }
    return true;
  }
  void fillWith(u8 value) { std::fill_n(buffer_.data(), kPiece, value); }

 private:
  int descriptor_;
  TransferBuffer buffer_;
};

SectorRange wholeOf(DiskDevice& disk, u64 bytes) { return {disk, 0, bytes / 512}; }

bool format(DiskDevice& disk, u64 bytes) {
  FormatWish wish;
  wish.clusterBytes = kWantedClusterSectors * 512;
  wish.type = kFat32Type;
  wish.label = "BENCH";
  wish.geometry = {1023, 254, 63};
  SilentJob job;
  FormatReport report;
  return !formatFat(wholeOf(disk, bytes), wish, job, report);
}

FatLayout layoutOf(DiskDevice& disk, u64 bytes) {
  std::optional<FatVolume> volume;
  return openFat(wholeOf(disk, bytes), kFat32Type, volume) ? FatLayout() : volume->layout;
}

// `disk` and `path` are the same. False when something failed.
bool compareFormats(const std::string& title, DiskDevice& disk, const std::string& path,
                    u64 bytes) {
  if (!format(disk, bytes)) return false;
  const FatLayout layout = layoutOf(disk, bytes);
  const u32 clusterSectors = layout.sectorsPerCluster;
  const u64 metadata = (layout.firstDataSector() + clusterSectors) * 512;
  const double mebibytes = static_cast<double>(metadata) / kMiB;
  PlainFile plain(path, O_RDWR);
  const Contender ours{"formatFat", [&] { return format(disk, bytes); }};
  std::printf("%u sectors a cluster, %.1f MiB of metadata\n", clusterSectors, mebibytes);
  return compare(
             (title + ", against the same sectors").c_str(), mebibytes, kFormatRounds,
             {{"plain writes of 4 MiB and fsync", [&] { return plain.write(metadata); }}, ours}) &&
         compare((title + ", against another program").c_str(), mebibytes, kFormatRounds,
                 {{"mkfs.fat and sync",
                   [&] {
                     return runProgram({"mkfs.fat", "-I", "-F", "32", "-s",
                                        std::to_string(clusterSectors), "-n", "BENCH", path})
                                    .status == 0 &&
                            runProgram({"sync", path}).status == 0;
                   }},
                  ours});
}

bool compareScan(LinuxDisk& disk, const std::string& path) {
  {
    PlainFile content(path, O_RDWR | O_DIRECT);
    content.fillWith(0xA5);
    if (!content.write(kScannedBytes)) return false;
  }
  if (!format(disk, kScannedBytes)) return false;
  const FatLayout layout = layoutOf(disk, kScannedBytes);
  const SectorRange range = wholeOf(disk, kScannedBytes);
  FatTable table(range, layout);
  if (table.setUp()) return false;
  // Direct reads begin on a page.
  const u64 firstByte = layout.firstDataSector() * 512 / 4096 * 4096;
  PlainFile plain(path, O_RDONLY | O_DIRECT);
  return compare(
      "search for bad clusters, loop device", static_cast<double>(kScannedBytes - firstByte) / kMiB,
      kScanRounds,
      {{"plain direct reads of 4 MiB", [&] { return plain.read(firstByte, kScannedBytes); }},
       {"FatSurfaceScan", [&] {
          SilentJob job;
          FatSurfaceScan scan(range, table, job);
          return !scan.prepare() && !scan.run() && scan.badClusters() == 0;
        }}});
}

bool onImageFile(u64 gibibytes) {
  const TempFolder folder;
  const u64 bytes = gibibytes * kGiB;
  const std::string path = folder.sparse("image", bytes);
  const OpenedImage image = openImageFile(path, DiskAccess::readWrite, kHardDiskKind, 512);
  return image.error == Error::none &&
         compareFormats(std::to_string(gibibytes) + " GiB, image file", *image.disk, path, bytes);
}

template <typename Work>
bool onLoopDevice(u64 bytes, Work work) {
  const TempFolder folder;
  const LoopDevice loop(folder.sparse("image", bytes));
  Host host;
  const auto disk = LinuxDisk::open(host, {.path = loop.path()}, O_RDWR);
  return disk != nullptr && work(*disk, loop.path());
}

int run() {
  if (!hasProgram("mkfs.fat")) {
    std::printf("needs dosfstools\n");
    return 0;
  }
  if (!onImageFile(8) || !onImageFile(256)) return 1;
  if (!hasLoopDevices()) {
    std::printf("the rest needs root: it makes loop devices\n");
    return 0;
  }
  for (const u64 gibibytes : {u64{8}, u64{256}}) {
    const u64 bytes = gibibytes * kGiB;
    if (!onLoopDevice(bytes, [&](LinuxDisk& disk, const std::string& path) {
          const std::string title = std::to_string(gibibytes) + " GiB, loop device";
          DiskWrapper withoutFastZeros(disk);
          return compareFormats(title, disk, path, bytes) &&
                 compareFormats(title + " without fast zeros", withoutFastZeros, path, bytes);
        }))
      return 1;
  }
  return onLoopDevice(kScannedBytes, compareScan) ? 0 : 1;
}

}  // namespace
}  // namespace tallowin

int main() { return tallowin::run(); }
