// FAT volumes that change their size, against plain I/O of what has to be read and written: both
// FATs and the moved clusters read, the moved clusters and both new FATs written.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "disk/image_disk.h"
#include "disk/transfer_buffer.h"
#include "fs/file_system.h"
#include "ops/file_systems.h"
#include "stopwatch.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u32 kPiece = 4 * kMiB;
constexpr u16 kFat32Type = 0x0C;
constexpr u16 kFat16Type = 0x06;
constexpr u16 kFat12Type = 0x01;

// What the first step moves.
class MovedBytes : public SilentJob {
 public:
  void step(u32 number, u64 total) override {
    if (number == 1) bytes = total / 2;
  }
  u64 bytes = 0;
};

struct Volume {
  u16 type;
  u64 sectors;
  u32 clusterBytes;
  u64 fileBytes;  // in files of a MiB, every second of which is deleted again
};

bool plain(DiskDevice& disk, u64 reads, u64 writes) {
  TransferBuffer buffer(kPiece);
  for (u64 at = 0; at < reads; at += kPiece)
    if (disk.readSectors(at / 512, buffer.data(), kPiece / 512)) return false;
  // Behind everything that is needed again.
  const u64 behind = *disk.sectorCount() - (writes + kPiece) / kPiece * kPiece / 512;
  for (u64 at = 0; at < writes; at += kPiece)
    if (disk.writeSectors(behind + at / 512, buffer.data(), kPiece / 512)) return false;
  return !disk.flush();
}

bool fill(const FileSystemKinds& kinds, const SectorRange& range, const Volume& volume) {
  const FileSystemKind* kind = kinds.byContent(range, volume.type);
  std::unique_ptr<FileSystem> files;
  if (!kind || kind->open(range, volume.type, {.writable = true}, files)) return false;
  if (files->makeDirectory("/files")) return false;
  const std::vector<u8> content(std::min<u64>(kMiB, volume.fileBytes / 8), 0x5A);
  const u64 count = 2 * volume.fileBytes / content.size();
  for (u64 i = 0; i < count; ++i) {
    File file;
    u64 done = 0;
    const std::string path = "/files/file " + std::to_string(i);
    if (files->open(path, {.access = FileAccess::write, .create = true}, file) ||
        file.write(content, done) || file.close())
      return false;
  }
  for (u64 i = 0; i < count; i += 2)
    if (files->deleteFile("/files/file " + std::to_string(i))) return false;
  return !files->sync();
}

bool measure(const char* title, const Volume& volume, const ResizeWish& wish) {
  const TempFolder folder;
  const FileSystemKinds kinds = registeredFileSystems();
  const u64 sectors = std::max(volume.sectors, wish.sectors) + 4 * kGiB / 512;
  const OpenedImage image = openImageFile(folder.sparse("image", sectors * 512),
                                          DiskAccess::readWrite, kHardDiskKind, 512);
  if (image.error) return false;
  const SectorRange range{*image.disk, 0, volume.sectors};
  const FileSystemKind* kind = kinds.byType(volume.type);
  FormatWish format;
  format.type = volume.type;
  format.clusterBytes = volume.clusterBytes;
  format.geometry = {1023, 254, 63};
  SilentJob silent;
  FormatReport formatted;
  if (kind->format(range, format, silent, formatted) || !fill(kinds, range, volume)) return false;
  image.disk->dropCaches();

  FileSystemFacts before;
  MovedBytes job;
  ResizeReport report;
  double seconds = 0;
  {
    const auto begun = std::chrono::steady_clock::now();
    if (kind->facts(range, volume.type, CountClusters::no, before)) return false;
    const Failure failed = kind->resize(range, volume.type, wish, job, report);
    if (failed || image.disk->flush()) {
      std::printf("%s: error %u %s\n", title, codeOf(failed), report.faultText.c_str());
      return false;
    }
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
  }
  const u64 clusters = wish.sectors * 512 / report.clusterBytes;
  const u64 oldFats = 2 * 4 * before.clusters;
  const u64 newFats = 2 * 4 * clusters;
  image.disk->dropCaches();
  const auto begun = std::chrono::steady_clock::now();
  if (!plain(*image.disk, oldFats + job.bytes, newFats + job.bytes)) return false;
  const double unavoidable =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
  std::printf("%-44s %7.3f s, plain I/O %7.3f s   %.2f   (%.0f MiB moved)\n", title, seconds,
              unavoidable, seconds / unavoidable, static_cast<double>(job.bytes) / kMiB);
  return true;
}

ResizeWish wishOf(u64 sectors, u32 clusterBytes, u16 forced = 0) {
  ResizeWish wish;
  wish.sectors = sectors;
  wish.clusterBytes = clusterBytes;
  wish.forcedType = forced;
  wish.geometry = {1023, 254, 63};
  return wish;
}

int run() {
  constexpr u64 kFourGib = 4 * kGiB / 512;
  constexpr u64 kSmall = 2300 * kMiB / 512;
  const bool isDone =
      measure("FAT32 shrinks from 4 GiB to 2.3", {kFat32Type, kFourGib, 4096, 1300 * kMiB},
              wishOf(kSmall, 4096)) &&
      measure("FAT32 grows from 2.3 GiB to 4", {kFat32Type, kSmall, 4096, 1000 * kMiB},
              wishOf(kFourGib, 4096)) &&
      measure("FAT12 grows from 8 to 15 MiB", {kFat12Type, 16384, 4096, 3 * kMiB},
              wishOf(30720, 4096)) &&
      measure("FAT32 grows from 100 to 290 MiB", {kFat32Type, 204800, 1024, 30 * kMiB},
              wishOf(593920, 1024)) &&
      measure("FAT16 becomes FAT32, 500 MiB", {kFat16Type, 1024000, 16384, 150 * kMiB},
              wishOf(1024000, 4096, 0x0B)) &&
      measure("FAT32 of 1 GiB, clusters of 4 to 16 KiB", {kFat32Type, 2097152, 4096, 300 * kMiB},
              wishOf(2097152, 16384));
  return isDone ? 0 : 1;
}

}  // namespace
}  // namespace tallowin

int main() { return tallowin::run(); }
