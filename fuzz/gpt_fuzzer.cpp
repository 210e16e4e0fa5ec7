// A GUID partition table from the input: the primary at the start of the disk, and what is left
// of the input at its end. Checksums are made right for some inputs, so that they get past the
// first check.
#include <algorithm>
#include <cstdlib>

#include "base/crc32.h"
#include "disk/memory_disk.h"
#include "ptable/gpt/gpt_image.h"

using namespace tallowin;

namespace {

constexpr u64 kSectors = 4096;

void placeAt(MemoryDisk& disk, u64 lba, std::span<const u8> bytes) {
  for (std::size_t at = 0; at < bytes.size(); at += 512)
    disk.setSector(lba++, bytes.subspan(at, std::min<std::size_t>(512, bytes.size() - at)));
}

void sealHeader(MemoryDisk& disk) {
  std::vector<u8> sector = disk.sector(1);
  auto& header = *recordAt<GptHeaderRecord>(std::span(sector));
  if (header.headerSize < kGptHeaderSize || header.headerSize > 512) return;
  const u64 bytes = std::min<u64>(u64{header.entryCount} * header.entrySize, 32 * kKiB);
  std::vector<u8> entries((bytes + 511) / 512 * 512);
  if (header.entryLba < kSectors && entries.size() / 512 <= kSectors - header.entryLba &&
      disk.readSectors(header.entryLba, entries.data(), entries.size() / 512) == Error::none)
    header.entryCrc = crc32(std::span(entries).first(bytes));
  header.headerCrc = 0;
  header.headerCrc = crc32(std::span(sector).first(header.headerSize));
  disk.setSector(1, sector);
}

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size < 2 || size > 40 * kKiB) return 0;
  MemoryDisk disk(kSectors);
  const bool seal = (data[0] & 1) != 0;
  const std::span<const u8> input(data + 1, size - 1);
  const std::size_t front = std::min<std::size_t>(input.size(), std::size_t{34} * 512);
  placeAt(disk, 0, input.first(front));
  if (input.size() > front)
    placeAt(disk, kSectors - 33,
            input.subspan(front).first(
                std::min<std::size_t>(input.size() - front, std::size_t{33} * 512)));
  if (seal) sealHeader(disk);

  GptImage image;
  if (GptImage::read(disk, image) != Error::none) return 0;
  u64 used = 0;
  for (u32 i = 0; i < image.entryCount(); ++i) {
    if (image.entry(i).isUsed()) used += gptName(image.entry(i)).size() + 1;
  }
  static_cast<void>(image.backupState(disk));
  require(image.header().firstUsableLba < image.header().lastUsableLba);
  if (image.write(disk) != Error::none) return 0;
  // What was written is sound, and reads back the same.
  GptImage again;
  require(GptImage::read(disk, again) == Error::none);
  require(again.source() == GptCopy::primary && again.entryCount() == image.entryCount());
  require(again.backupState(disk) == GptBackupState::sound ||
          again.backupState(disk) == GptBackupState::misplaced);
  return used > 100'000 ? 1 : 0;
}
