// The files of a FAT32 volume: one large file against raw sequential I/O of the same bytes, many
// small ones against another program, and the proof of what they hold against plain reads.
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "disk/image_disk.h"
#include "disk/linux_disk.h"
#include "disk/transfer_buffer.h"
#include "fs/content_proof.h"
#include "ops/copy_files.h"
#include "ops/file_systems.h"
#include "stopwatch.h"
#include "support/loop_device.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u64 kVolumeBytes = 4 * kGiB;
constexpr u64 kLargeBytes = 1 * kGiB;
constexpr u32 kPiece = 4 * kMiB;
constexpr int kRounds = 5;
// Another program takes minutes for them.
constexpr int kSmallFiles = 20'000;
constexpr int kFilesInFolder = 500;
constexpr std::size_t kSmallBytes = 3000;
constexpr u16 kType = 0x0C;

const FileSystemKinds kKinds = registeredFileSystems();

bool format(DiskDevice& disk) {
  FormatWish wish;
  wish.type = kType;
  wish.geometry = {1023, 254, 63};
  wish.alignForNtfs = true;  // so that both contenders write whole pages of the host
  SilentJob job;
  FormatReport report;
  return !kKinds.byWord("fat32")->format({disk, 0, kVolumeBytes / 512}, wish, job, report);
}

std::unique_ptr<FileSystem> open(DiskDevice& disk, bool writable) {
  std::unique_ptr<FileSystem> files;
  const Failure failed = kKinds.byWord("fat32")->open({disk, 0, kVolumeBytes / 512}, kType,
                                                      {.writable = writable}, files);
  return failed ? nullptr : std::move(files);
}

bool writeLarge(DiskDevice& disk, const TransferBuffer& buffer) {
  const auto files = open(disk, true);
  File file;
  if (!files ||
      files->open("/large", {.access = FileAccess::write, .create = true, .truncate = true}, file))
    return false;
  for (u64 at = 0; at < kLargeBytes; at += kPiece)
    if (u64 done = 0; file.write(buffer.span(), done)) return false;
  return !file.close() && !files->sync();
}

bool readLarge(DiskDevice& disk, const TransferBuffer& buffer) {
  const auto files = open(disk, false);
  File file;
  if (!files || files->open("/large", {}, file)) return false;
  u64 sum = 0;
  for (u64 done = 1; done != 0; sum += done)
    if (file.read(buffer.span(), done)) return false;
  return sum == kLargeBytes;
}

// The same bytes at one go, past the file system.
bool writeRaw(DiskDevice& disk, const TransferBuffer& buffer) {
  for (u64 at = 0; at < kLargeBytes; at += kPiece)
    if (disk.writeSectors((kVolumeBytes / 2 + at) / 512, buffer.data(), kPiece / 512)) return false;
  return !disk.flush();
}

bool readRaw(DiskDevice& disk, const TransferBuffer& buffer) {
  for (u64 at = 0; at < kLargeBytes; at += kPiece)
    if (disk.readSectors((kVolumeBytes / 2 + at) / 512, buffer.data(), kPiece / 512)) return false;
  return true;
}

bool compareLarge(const std::string& title, DiskDevice& disk) {
  TransferBuffer buffer(kPiece);
  std::ranges::fill(buffer.span(), u8{0xA5});
  constexpr double kMebibytes = static_cast<double>(kLargeBytes) / kMiB;
  // Every place has its blocks on the host before the first round counts.
  for (u64 at = 0; at < kVolumeBytes; at += kPiece)
    if (disk.writeSectors(at / 512, buffer.data(), kPiece / 512)) return false;
  if (disk.flush() || !format(disk) || !writeLarge(disk, buffer)) return false;
  return compare((title + ", writing one large file").c_str(), kMebibytes, kRounds,
                 {{"the same bytes at one go", [&] { return writeRaw(disk, buffer); }},
                  {"through the driver", [&] { return writeLarge(disk, buffer); }}}) &&
         compare((title + ", reading one large file").c_str(), kMebibytes, kRounds,
                 {{"the same bytes at one go", [&] { return readRaw(disk, buffer); }},
                  {"through the driver", [&] { return readLarge(disk, buffer); }}});
}

void makeTree(const std::string& top) {
  const std::string content(kSmallBytes, 'x');
  for (int i = 0; i < kSmallFiles; ++i) {
    const std::string folder = top + "/folder " + std::to_string(i / kFilesInFolder);
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/a small file, number " + std::to_string(i) + ".txt") << content << i;
  }
}

bool put(DiskDevice& disk, const std::string& tree) {
  const auto files = open(disk, true);
  SilentJob job;
  CopyReport report;
  return files && !copyIn(*files, {.from = tree, .to = "/"}, job, report) && !files->sync() &&
         report.files == kSmallFiles;
}

bool prove(DiskDevice& disk) {
  const auto files = open(disk, false);
  SilentJob job;
  ContentProof proof;
  return files && !proveContent(*files, "/", job, proof) && proof.files.size() > kSmallFiles;
}

bool compareSmall(const std::string& title, DiskDevice& disk, const std::string& path) {
  const TempFolder folder;
  const std::string tree = folder.file("tree");
  makeTree(tree);
  constexpr double kMebibytes = static_cast<double>(kSmallFiles) * kSmallBytes / kMiB;
  // Each copy into a fresh volume; making one takes a few milliseconds.
  return compare((title + ", putting in 20,000 small files").c_str(), kMebibytes, 1,
                 {{"mcopy -s and sync",
                   [&] {
                     return format(disk) &&
                            runProgram({"mcopy", "-s", "-Q", "-i", path, tree, "::/"}).status ==
                                0 &&
                            runProgram({"sync", path}).status == 0;
                   }},
                  {"copyIn", [&] { return format(disk) && put(disk, tree); }}}) &&
         compare((title + ", proving them").c_str(), kMebibytes, kRounds,
                 {{"as many bytes at one go",
                   [&] {
                     TransferBuffer buffer(kPiece);
                     for (u64 at = 0; at < u64{kSmallFiles} * 4096; at += kPiece)
                       if (disk.readSectors(at / 512, buffer.data(), kPiece / 512)) return false;
                     return true;
                   }},
                  {"proveContent", [&] { return prove(disk); }}});
}

int run() {
  if (!hasProgram("mcopy")) {
    std::printf("needs mtools\n");
    return 0;
  }
  {
    const TempFolder folder;
    const std::string path = folder.sparse("image", kVolumeBytes);
    const OpenedImage image = openImageFile(path, DiskAccess::readWrite, kHardDiskKind, 512);
    if (image.error || !compareLarge("image file", *image.disk) ||
        !compareSmall("image file", *image.disk, path))
      return 1;
  }
  if (!hasLoopDevices()) {
    std::printf("the rest needs root: it makes loop devices\n");
    return 0;
  }
  const TempFolder folder;
  const LoopDevice loop(folder.sparse("image", kVolumeBytes));
  Host host;
  const auto disk = LinuxDisk::open(host, {.path = loop.path()}, O_RDWR);
  return disk && compareLarge("loop device", *disk) &&
                 compareSmall("loop device", *disk, loop.path())
             ? 0
             : 1;
}

}  // namespace
}  // namespace tallowin

int main() { return tallowin::run(); }
