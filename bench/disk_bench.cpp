// Bulk transfers through LinuxDisk, against the same bytes by plain large direct reads and writes.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "disk/image_disk.h"
#include "disk/linux_disk.h"
#include "disk/transfer_buffer.h"
#include "stopwatch.h"
#include "support/loop_device.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u64 kBytes = 512 * kMiB;
constexpr u32 kPiece = 4 * kMiB;
constexpr u32 kPieceSectors = kPiece / 512;
constexpr u64 kPieces = kBytes / kPiece;
constexpr int kRounds = 5;

// The unavoidable I/O: one descriptor, large pieces, nothing else.
class PlainFile {
 public:
  explicit PlainFile(const std::string& path)
      : descriptor_(::open(path.c_str(), O_RDWR | O_DIRECT | O_CLOEXEC)) {}
  ~PlainFile() { ::close(descriptor_); }
  PlainFile(const PlainFile&) = delete;
  PlainFile& operator=(const PlainFile&) = delete;

  bool readAll(u8* buffer) const {
    for (u64 i = 0; i < kPieces; ++i) {
      if (::pread(descriptor_, buffer, kPiece, static_cast<off_t>(i * kPiece)) != kPiece)
        return false;
    }
    return true;
  }
  bool writeAll(const u8* buffer, u64 firstByte) const {
    for (u64 i = 0; i < kPieces; ++i) {
      const auto offset = static_cast<off_t>(firstByte + i * kPiece);
      if (::pwrite(descriptor_, buffer, kPiece, offset) != kPiece) return false;
    }
    return ::fsync(descriptor_) == 0;
  }

 private:
  int descriptor_;
};

bool readAll(DiskDevice& disk, u8* buffer, u32 sectors) {
  for (u64 lba = 0; lba < kBytes / 512; lba += sectors) {
    if (disk.readSectors(lba, buffer, sectors) != Error::none) return false;
  }
  return true;
}

bool writeAll(DiskDevice& disk, const u8* buffer, u64 firstLba, u32 sectors) {
  for (u64 lba = 0; lba < kBytes / 512; lba += sectors) {
    if (disk.writeSectors(firstLba + lba, buffer, sectors) != Error::none) return false;
  }
  return disk.flush() == Error::none;
}

// From the first half to the second, the next read under way while the last piece is written.
bool copyOverlapped(DiskDevice& disk, std::array<TransferBuffer, 2>& buffers) {
  std::array<DiskTransfer, 2> reads;
  const auto startRead = [&](u64 piece) {
    DiskTransfer& read = reads[piece % 2];
    read = {
        .lba = piece * kPieceSectors, .buffer = buffers[piece % 2].data(), .count = kPieceSectors};
    disk.begin(read);
  };
  startRead(0);
  for (u64 i = 0; i < kPieces; ++i) {
    if (disk.finish(reads[i % 2]) != Error::none) return false;
    if (i + 1 < kPieces) startRead(i + 1);
    DiskTransfer write{.direction = DiskTransfer::Direction::write,
                       .lba = kBytes / 512 + i * kPieceSectors,
                       .buffer = buffers[i % 2].data(),
                       .count = kPieceSectors};
    disk.begin(write);
    if (disk.finish(write) != Error::none) return false;
  }
  return disk.flush() == Error::none;
}

bool copyInTurn(DiskDevice& disk, u8* buffer, u32 sectors) {
  for (u64 lba = 0; lba < kBytes / 512; lba += sectors) {
    if (disk.readSectors(lba, buffer, sectors) != Error::none ||
        disk.writeSectors(kBytes / 512 + lba, buffer, sectors) != Error::none)
      return false;
  }
  return disk.flush() == Error::none;
}

int run() {
  if (!hasLoopDevices()) {
    std::printf("needs root: the benchmark makes a loop device\n");
    return 0;
  }
  const TempFolder folder;
  const LoopDevice loop(folder.sparse("disk.img", 2 * kBytes));
  Host host;
  const auto disk = LinuxDisk::open(host, {.path = loop.path()}, O_RDWR);
  if (disk == nullptr) return 1;
  std::array<TransferBuffer, 2> buffers{TransferBuffer(kPiece), TransferBuffer(kPiece)};
  u8* const buffer = buffers[0].data();
  for (std::size_t i = 0; i < kPiece; ++i) buffer[i] = static_cast<u8>(i * 7);
  const PlainFile plain(loop.path());
  const std::string imagePath = folder.sparse("raw.img", 2 * kBytes);
  const PlainFile plainImage(imagePath);
  const OpenedImage image = openImageFile(imagePath, DiskAccess::readWrite, kHardDiskKind, 512);
  if (image.disk == nullptr || !plainImage.writeAll(buffer, 0) ||
      !plainImage.writeAll(buffer, kBytes))
    return 1;
  if (!plain.writeAll(buffer, 0) || !plain.writeAll(buffer, kBytes)) return 1;
  constexpr double kMebibytes = kBytes / kMiB;
  constexpr u32 kSmallSectors = 64 * kKiB / 512;
  const bool done =
      compare("read", kMebibytes, kRounds,
              {{"plain direct reads of 4 MiB", [&] { return plain.readAll(buffer); }},
               {"LinuxDisk, 4 MiB", [&] { return readAll(*disk, buffer, kPieceSectors); }},
               {"LinuxDisk through the cache, 64 KiB",
                [&] {
                  disk->dropCaches();
                  return readAll(*disk, buffer, kSmallSectors);
                }}}) &&
      compare("write and flush", kMebibytes, kRounds,
              {{"plain direct writes of 4 MiB", [&] { return plain.writeAll(buffer, kBytes); }},
               {"LinuxDisk, 4 MiB",
                [&] { return writeAll(*disk, buffer, kBytes / 512, kPieceSectors); }},
               {"LinuxDisk through the cache, 64 KiB",
                [&] { return writeAll(*disk, buffer, kBytes / 512, kSmallSectors); }}}) &&
      compare("copy to the other half", kMebibytes, kRounds,
              {{"plain: read all, then write all",
                [&] { return plain.readAll(buffer) && plain.writeAll(buffer, kBytes); }},
               {"LinuxDisk, overlapped", [&] { return copyOverlapped(*disk, buffers); }},
               {"LinuxDisk, in turn", [&] { return copyInTurn(*disk, buffer, kPieceSectors); }},
               {"LinuxDisk through the cache, 64 KiB", [&] {
                  disk->dropCaches();
                  return copyInTurn(*disk, buffer, kSmallSectors);
                }}});
  const bool imageDone =
      done &&
      compare(
          "raw image: read", kMebibytes, kRounds,
          {{"plain direct reads of 4 MiB", [&] { return plainImage.readAll(buffer); }},
           {"image disk, 4 MiB", [&] { return readAll(*image.disk, buffer, kPieceSectors); }}}) &&
      compare(
          "raw image: write and flush", kMebibytes, kRounds,
          {{"plain direct writes of 4 MiB", [&] { return plainImage.writeAll(buffer, kBytes); }},
           {"image disk, 4 MiB",
            [&] { return writeAll(*image.disk, buffer, kBytes / 512, kPieceSectors); }}});
  return imageDone ? 0 : 1;
}

}  // namespace
}  // namespace tallowin

int main() { return tallowin::run(); }
