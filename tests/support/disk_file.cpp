#include "support/disk_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <vector>

namespace tallowin {
namespace {

constexpr u64 kPieceBytes = 1 * kMiB;

}  // namespace

MemoryDisk loadDisk(const std::string& path, u32 sectorSizeBytes) {
  const u64 bytes = std::filesystem::file_size(path);
  MemoryDisk disk(bytes / sectorSizeBytes, sectorSizeBytes);
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::vector<u8> piece(kPieceBytes);
  for (off_t at = ::lseek(file, 0, SEEK_DATA); at >= 0; at = ::lseek(file, at, SEEK_DATA)) {
    const u64 lba = static_cast<u64>(at) / sectorSizeBytes;
    const ssize_t got =
        ::pread(file, piece.data(), piece.size(), static_cast<off_t>(lba * sectorSizeBytes));
    const u64 sectors = static_cast<u64>(std::max<ssize_t>(got, 0)) / sectorSizeBytes;
    if (sectors == 0 || disk.writeSectors(lba, piece.data(), sectors) != Error::none) break;
    at = static_cast<off_t>((lba + sectors) * sectorSizeBytes);
  }
  ::close(file);
  return disk;
}

void storeDisk(MemoryDisk& disk, const std::string& path) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const u32 sectorSize = disk.sectorSize();
  const auto write = [&](u64 byteOffset, std::span<const u8> bytes) {
    if (::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(byteOffset)) < 0) return;
  };
  disk.forEachData(write);
  if (::ftruncate(file, static_cast<off_t>(*disk.sectorCount() * sectorSize)) != 0)
    ::unlink(path.c_str());
  ::close(file);
}

}  // namespace tallowin
