// A VMDK from the input, behind a byte that says whether it is read-only and the work done on it.
#include "files/vmdk_record.h"
#include "image_work.h"

using namespace tallowin;

namespace {

// No sector of the file belongs to two grains. Opening does not read all tables, so it cannot
// know; the content of such an image is anything.
bool grainsAreApart(MemoryImageFile& file) {
  VmdkHeader header;
  if (file.readAt(0, {reinterpret_cast<u8*>(&header), sizeof header}) != Error::none) return false;
  const u64 fileSectors = file.sizeBytes() / 512;
  const u64 entries = header.entriesPerTable;
  if (header.grainSize == 0 || header.grainSize > fileSectors || entries == 0 || entries > 4096)
    return false;
  const auto entryAt = [&](u64 sector, u64 index) {
    VmdkEntry entry;
    static_cast<void>(file.readAt(sector * 512 + index * sizeof entry,
                                  {reinterpret_cast<u8*>(&entry), sizeof entry}));
    return u32{entry};
  };
  const u64 grains = header.capacity / header.grainSize + 1;
  std::vector<u64> starts;
  for (u64 index = 0; index <= grains / entries && index < 4096; ++index) {
    const u32 table = entryAt(header.directoryOffset, index);
    for (u64 i = 0; table != kVmdkNotAllocated && i < entries; ++i)
      if (const u32 grain = entryAt(table, i); grain > kVmdkZeroGrain) starts.push_back(grain);
  }
  std::ranges::sort(starts);
  for (std::size_t i = 1; i < starts.size(); ++i)
    if (starts[i] - starts[i - 1] < header.grainSize) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  constexpr std::size_t kHead = 1 + ImageWork::kInputBytes;
  if (size < kHead || size > 64 * kKiB) return 0;
  const auto bytes = std::make_shared<std::vector<u8>>(data + kHead, data + size);
  MemoryImageFile file(bytes);
  ImageWork(openVmdk, bytes, data[0] == 1, grainsAreApart(file))
      .run({data + 1, ImageWork::kInputBytes});
  return 0;
}
