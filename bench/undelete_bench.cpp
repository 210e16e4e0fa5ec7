// The search for lost partitions, against plain reads of the same sectors.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <random>

#include "disk/linux_disk.h"
#include "disk/transfer_buffer.h"
#include "ptable/lost_partitions.h"
#include "stopwatch.h"
#include "support/loop_device.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u32 kPiece = 4 * kMiB;
constexpr u64 kBytes = 2 * kGiB;
constexpr int kRounds = 5;

// Random bytes: nothing is found, and now and then something looks like a header.
bool fill(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  std::mt19937_64 random(1);
  std::vector<u64> words(kPiece / sizeof(u64));
  bool ok = descriptor >= 0;
  for (u64 at = 0; ok && at < kBytes; at += kPiece) {
    // The first sector stays empty, as on a disk without a table.
    for (std::size_t i = at == 0 ? 64 : 0; i < words.size(); ++i) words[i] = random();
    ok = ::pwrite(descriptor, words.data(), kPiece, static_cast<off_t>(at)) ==
         static_cast<ssize_t>(kPiece);
  }
  return ok && ::fsync(descriptor) == 0 && ::close(descriptor) == 0;
}

bool readPlain(int descriptor, const TransferBuffer& buffer) {
  for (u64 at = 0; at < kBytes; at += kPiece)
    if (::pread(descriptor, buffer.data(), kPiece, static_cast<off_t>(at)) !=
        static_cast<ssize_t>(kPiece))
      return false;
  return true;
}

int run() {
  if (!hasLoopDevices()) {
    std::printf("needs root: it makes loop devices\n");
    return 0;
  }
  const TempFolder folder;
  const std::string path = folder.sparse("image", kBytes);
  if (!fill(path)) return 1;
  const LoopDevice loop(path);
  Host host;
  std::shared_ptr<DiskDevice> disk = LinuxDisk::open(host, {.path = loop.path()}, O_RDWR);
  std::unique_ptr<Drive> drive;
  if (!disk || Drive::open(disk, host, {}, drive)) return 1;
  const int plain = ::open(loop.path().c_str(), O_RDONLY | O_DIRECT | O_CLOEXEC);
  const TransferBuffer buffer(kPiece);
  const bool ok =
      compare("search in random data, loop device", static_cast<double>(kBytes) / kMiB, kRounds,
              {{"plain direct reads of 4 MiB", [&] { return readPlain(plain, buffer); }},
               {"findLostPartitions", [&] {
                  SilentJob job;
                  LostReport report;
                  return !findLostPartitions(*drive, {1, drive->lastLba(), false}, job, report) &&
                         report.found.empty();
                }}});
  ::close(plain);
  return ok ? 0 : 1;
}

}  // namespace
}  // namespace tallowin

int main() { return tallowin::run(); }
