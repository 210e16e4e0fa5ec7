// A disc that the input has made or damaged: what it says of its files is listed and read, by paths
// from the input too. Nothing is written, and all of it ends.
#include <algorithm>

#include "iso/iso_file_system.h"
#include "iso/iso_record.h"
#include "volume_input.h"

using namespace tallowin;

namespace {

constexpr u32 kSectors = 40;  // of 2048 bytes
constexpr u32 kRoot = 20;
constexpr u32 kMostEntries = 300;  // that are looked at

void setNumber(IsoBoth32& field, u32 value) {
  field.value = value;
  field.bigEndian = value;
}

std::size_t addRecord(std::span<u8> sector, std::size_t at, const std::string& name, u32 extent,
                      u32 bytes, u8 flags) {
  const std::size_t length = (sizeof(IsoDirectoryRecord) + name.size() + 1) / 2 * 2;
  auto& record = *recordAt<IsoDirectoryRecord>(sector, at);
  record.length = static_cast<u8>(length);
  setNumber(record.extent, extent);
  setNumber(record.dataLength, bytes);
  record.flags = flags;
  record.nameLength = static_cast<u8>(name.size());
  std::ranges::copy(name, sector.begin() + static_cast<std::ptrdiff_t>(at + sizeof(record)));
  return at + length;
}

std::vector<u8> sample() {
  std::vector<u8> disc(kSectors * kIsoSectorBytes);
  const auto sector = [&](u32 number) {
    return std::span(disc).subspan(std::size_t{number} * kIsoSectorBytes, kIsoSectorBytes);
  };
  auto& primary = *recordAt<IsoVolumeDescriptor>(sector(16));
  primary.type = kIsoPrimary;
  std::copy_n("CD001", 5, primary.identifier);
  setNumber(primary.volumeSectors, kSectors);
  setNumber(primary.root.extent, kRoot);
  setNumber(primary.root.dataLength, kIsoSectorBytes);
  recordAt<IsoVolumeDescriptor>(sector(17))->type = kIsoLastDescriptor;
  std::copy_n("CD001", 5, recordAt<IsoVolumeDescriptor>(sector(17))->identifier);
  std::size_t at = addRecord(sector(kRoot), 0, std::string(1, '\0'), kRoot, 2048, kIsoDirectory);
  at = addRecord(sector(kRoot), at, "FILE.TXT;1", 30, 5000, 0);
  at = addRecord(sector(kRoot), at, "BIG.;1", 30, 4096, kIsoGoesOn);
  at = addRecord(sector(kRoot), at, "BIG.;1", 32, 100, 0);
  addRecord(sector(kRoot), at, "DIR", kRoot + 1, 2048, kIsoDirectory);
  at = addRecord(sector(kRoot + 1), 0, std::string(1, '\0'), kRoot + 1, 2048, kIsoDirectory);
  addRecord(sector(kRoot + 1), at, "DEEP", 35, 10, kIsoHidden);
  return disc;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size < 2 || size > 4 * kKiB) return 0;
  Input input({data, size});
  static const std::vector<u8> kSample = sample();
  std::vector<u8> disc = kSample;
  const u32 sectorBytes = input.number(1) % 2 == 0 ? 512 : 2048;
  for (u32 count = input.number(1) % 16; count != 0; --count) {
    const std::size_t at =
        (16 + input.number(1) % 8) * kIsoSectorBytes + input.number(2) % kIsoSectorBytes;
    const auto bytes =
        input.take(std::min<std::size_t>(1 + input.number(1) % 40, disc.size() - at));
    std::ranges::copy(bytes, disc.begin() + static_cast<std::ptrdiff_t>(at));
  }
  MemoryDisk disk(disc.size() / sectorBytes, sectorBytes);
  require(!disk.writeSectors(0, disc.data(), disc.size() / sectorBytes));
  const MemoryDisk before = disk.copy();
  std::unique_ptr<FileSystem> files;
  if (openIsoFiles({disk, 0, disc.size() / sectorBytes}, 0, {}, files)) return 0;
  u32 left = kMostEntries;
  look(*files, "/", left);
  while (!input.isEmpty()) {
    const auto bytes = input.take(1 + input.number(1) % 64);
    FileInfo info;
    static_cast<void>(files->info(std::string(bytes.begin(), bytes.end()), info));
  }
  std::string label;
  require(!files->label(label));
  require(before.sameContent(disk));
  return 0;
}
