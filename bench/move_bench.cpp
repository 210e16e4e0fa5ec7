// Slides and copies of partitions' sectors, against the unavoidable I/O (direct, overlapped) and
// against other programs.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "disk/image_disk.h"
#include "disk/linux_disk.h"
#include "disk/transfer_buffer.h"
#include "move/journal_file.h"
#include "move/sector_mover.h"
#include "stopwatch.h"
#include "support/loop_device.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u64 kSlideBytes = 512 * kMiB;
constexpr u64 kCopyBytes = 1 * kGiB;
constexpr u64 kStart = 2048;  // sectors
constexpr u64 kDistance = 2048;
constexpr u32 kPiece = 4 * kMiB;
constexpr int kRounds = 5;

bool fill(DiskDevice& disk, u64 first, u64 bytes) {
  TransferBuffer buffer(kPiece);
  for (u64 i = 0; i < kPiece; ++i) buffer.data()[i] = static_cast<u8>(i * 31 + i / 4096);
  for (u64 at = 0; at < bytes; at += kPiece)
    if (disk.writeSectors(first + at / 512, buffer.data(), kPiece / 512)) return false;
  return !disk.flush();
}

// A read of one piece under way while the one before it is written; the pieces go up.
bool overlapped(DiskDevice& disk, u64 from, u64 to, u64 bytes) {
  TransferBuffer buffers[2] = {TransferBuffer(kPiece), TransferBuffer(kPiece)};
  DiskTransfer reads[2];
  const auto begin = [&](u64 at) {
    const u64 index = at / kPiece % 2;
    reads[index] = {DiskTransfer::Direction::read, from + at / 512, buffers[index].data(),
                    kPiece / 512};
    disk.begin(reads[index]);
  };
  begin(0);
  for (u64 at = 0; at < bytes; at += kPiece) {
    if (disk.finish(reads[at / kPiece % 2])) return false;
    if (at + kPiece < bytes) begin(at + kPiece);
    if (disk.writeSectors(to + at / 512, buffers[at / kPiece % 2].data(), kPiece / 512))
      return false;
  }
  return !disk.flush();
}

bool slide(DiskDevice& disk, u64 from, u64 to, u64 bytes, MoveJournal* journal = nullptr) {
  SilentJob job;
  SectorMover mover({disk, from, bytes / 512}, disk, to, job);
  if (journal) mover.keepJournal(*journal);
  return !mover.run();
}

bool slideWithJournal(DiskDevice& disk, u64 from, u64 to, u64 bytes, const std::string& path) {
  ::unlink(path.c_str());
  std::unique_ptr<JournalStorage> storage;
  std::unique_ptr<JournalFile> file;
  if (JournalStorageFile::create(path, storage) ||
      JournalFile::create(std::move(storage), "bench", {}, MoveJournal::initialState(), file))
    return false;
  MoveJournal journal(*file);
  return !journal.read() && slide(disk, from, to, bytes, &journal);
}

bool onDisk(const std::string& title, DiskDevice& disk, const std::string& path,
            const std::string& journal) {
  if (!fill(disk, kStart, 2 * kSlideBytes)) return false;
  const double slid = static_cast<double>(kSlideBytes) / kMiB;
  bool isUp = false;
  // There and back, so that each round has the same data to move.
  const auto fromTo = [&](auto move) {
    isUp = !isUp;
    return isUp ? move(kStart, kStart + kDistance) : move(kStart + kDistance, kStart);
  };
  const std::string table =
      "label: dos\nstart=2048,size=" + std::to_string(kSlideBytes / 512) + "\n";
  if (!compare((title + ", slide of 512 MiB by 1 MiB").c_str(), slid, kRounds,
               {{"overlapped direct I/O",
                 [&] { return overlapped(disk, kStart + kSlideBytes / 512, kStart, kSlideBytes); }},
                {"SectorMover",
                 [&] {
                   return fromTo(
                       [&](u64 from, u64 to) { return slide(disk, from, to, kSlideBytes); });
                 }},
                {"SectorMover with a journal", [&] {
                   return fromTo([&](u64 from, u64 to) {
                     return slideWithJournal(disk, from, to, kSlideBytes, journal);
                   });
                 }}}))
    return false;
  if (!hasProgram("sfdisk")) return true;
  bool isSfdiskUp = false;
  if (runProgram({"sfdisk", "-q", "--no-reread", path}, table).status != 0) return false;
  return compare(
      (title + ", against another program").c_str(), slid, 3,
      {{"sfdisk --move-data",
        [&] {
          isSfdiskUp = !isSfdiskUp;
          const std::string start = isSfdiskUp ? "4096" : "2048";
          return runProgram({"sfdisk", "-q", "--no-reread", "--no-tell-kernel", "--move-data", path,
                             "-N", "1"},
                            start + ",\n")
                         .status == 0 &&
                 runProgram({"sync", path}).status == 0;
        }},
       {"SectorMover", [&] {
          return fromTo([&](u64 from, u64 to) { return slide(disk, from, to, kSlideBytes); });
        }}});
}

bool copies(DiskDevice& disk, const std::string& path) {
  const u64 target = kStart + kCopyBytes / 512 + 100000 / 8 * 8;
  if (!fill(disk, kStart, kCopyBytes)) return false;
  return compare(
      "raw copy of 1 GiB, image file", static_cast<double>(kCopyBytes) / kMiB, 3,
      {{"overlapped direct I/O", [&] { return overlapped(disk, kStart, target, kCopyBytes); }},
       {"SectorMover", [&] { return slide(disk, kStart, target, kCopyBytes); }},
       {"dd bs=1M conv=fsync", [&] {
          return runProgram({"dd", "if=" + path, "of=" + path, "bs=1M", "skip=1",
                             "seek=" + std::to_string(target / 2048), "count=1024",
                             "conv=notrunc,fsync", "status=none"})
                     .status == 0;
        }}});
}

int run() {
  const TempFolder folder;
  const std::string journal = folder.path() + "/journal";
  const std::string image = folder.sparse("image", 3 * kGiB);
  {
    const OpenedImage opened = openImageFile(image, DiskAccess::readWrite, kHardDiskKind, 512);
    if (opened.error || !onDisk("image file", *opened.disk, image, journal) ||
        !copies(*opened.disk, image))
      return 1;
  }
  if (!hasLoopDevices()) return 0;
  const LoopDevice loop(image);
  Host host;
  const auto disk = LinuxDisk::open(host, {.path = loop.path()}, O_RDWR);
  return disk && onDisk("loop device", *disk, loop.path(), journal) ? 0 : 1;
}

}  // namespace
}  // namespace tallowin

int main() { return tallowin::run(); }
