// The search for lost partitions, against plain reads of the same sectors.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <random>

#include "disk/linux_disk.h"
#include "disk/transfer_buffer.h"
#include "ptable/lost_partitions.h"
#include "stopwatch.h"
#include "support/loop_device.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u32 kPiece = 4 * kMiB;
constexpr u64 kBytes = 2 * kGiB;
constexpr u64 kLargeBytes = 64 * kGiB;
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

// A volume that fills the disk: it is passed over but for the places where others would begin.
bool lookedInto(Drive& drive) {
  SilentJob job;
  LostReport report;
  return !findLostPartitions(drive, {1, drive.lastLba(), false}, job, report) &&
         report.found.size() == 1 && report.found[0].confidence == Confidence::sure;
}

// The same sectors, one after the other.
bool readPlaces(int descriptor) {
  std::array<u8, 512> sector;
  for (u64 at = 2 * kMiB; at < kLargeBytes; at += kMiB)
    if (::pread(descriptor, sector.data(), sector.size(), static_cast<off_t>(at)) !=
        static_cast<ssize_t>(sector.size()))
      return false;
  constexpr u64 kCylinder = 255 * 63;
  for (u64 lba = kCylinder; lba < kLargeBytes / 512; lba += kCylinder)
    for (const u64 place : {lba, lba + 63})
      if (::pread(descriptor, sector.data(), sector.size(), static_cast<off_t>(place * 512)) !=
          static_cast<ssize_t>(sector.size()))
        return false;
  return true;
}

bool compareInside(const TempFolder& folder) {
  const std::string path = folder.sparse("large", kLargeBytes);
  if (runProgram({"mkfs.ext4", "-q", "-F", "-E", "offset=1048576,lazy_itable_init=1", path,
                  std::to_string(kLargeBytes / kMiB - 1) + "M"})
          .status != 0)
    return false;
  const LoopDevice loop(path);
  Host host;
  std::shared_ptr<DiskDevice> disk = LinuxDisk::open(host, {.path = loop.path()}, O_RDWR);
  std::unique_ptr<Drive> drive;
  if (!disk || Drive::open(disk, host, {}, drive)) return false;
  const int plain = ::open(loop.path().c_str(), O_RDONLY | O_CLOEXEC);
  const auto forget = [plain] { ::posix_fadvise(plain, 0, 0, POSIX_FADV_DONTNEED); };
  const bool ok = compare("search in a volume of 64 GiB, loop device",
                          static_cast<double>(kLargeBytes) / kMiB, kRounds,
                          {{"reads of the sectors that it looks at",
                            [&] {
                              forget();
                              return readPlaces(plain);
                            }},
                           {"findLostPartitions", [&] {
                              forget();
                              return lookedInto(*drive);
                            }}});
  ::close(plain);
  return ok;
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
  return ok && compareInside(folder) ? 0 : 1;
}

}  // namespace
}  // namespace tallowin

int main() { return tallowin::run(); }
