#include "ptable/embr/embr_image.h"

#include <gtest/gtest.h>

#include "disk/memory_disk.h"

namespace tallowin {
namespace {

constexpr Geometry kGeometry{1023, 254, 63};

MemoryDisk emptyDisk() { return MemoryDisk(100'000); }

EmbrImage createdOn(MemoryDisk& disk) {
  EmbrImage image;
  EXPECT_EQ(EmbrImage::read(disk, image), Error::notThisFormat);
  image.create(kGeometry, false);
  return image;
}

MptEntryRecord numbered(u32 n) {
  MptEntryRecord entry{};
  entry.firstLba = 1000 * n;
  entry.lastLba = 1000 * n + 999;
  entry.id = static_cast<u8>(n);
  entry.type = 0x83;
  return entry;
}

TEST(Embr, NoCountOrLengthIsBelieved) {
  struct Damage {
    const char* what;
    std::size_t at;  // from the header
    u8 value;
  };
  const Damage damages[] = {
      {"signature", 0, 'X'},
      {"version", 4, 0x20},
      {"no area", 6, 0},
      {"area beyond the track", 6, 200},
      {"end before the area", 5, 1},
      {"end beyond the track", 5, 64},
      {"MPT version", 21, 0x80},
      {"entries beyond the area", 22, 255},
      {"MBFT signature", 28 + 28, 'X'},
      {"MBFT items beyond the area", 28 + 28 + 5, 200},
  };
  for (const Damage& damage : damages) {
    MemoryDisk disk = emptyDisk();
    EmbrImage image = createdOn(disk);
    ASSERT_EQ(image.insert(0, numbered(1)), Error::none);
    ASSERT_EQ(image.write(disk), Error::none);
    std::vector<u8> sector = disk.sector(1);
    sector[damage.at] = damage.value;
    disk.setSector(1, sector);
    EXPECT_EQ(EmbrImage::read(disk, image), Error::notThisFormat) << damage.what;
  }
  MemoryDisk disk = emptyDisk();
  EmbrImage image = createdOn(disk);
  ASSERT_EQ(image.write(disk), Error::none);
  std::vector<u8> sector = disk.sector(1);
  sector[13] = 0;
  disk.setSector(1, sector);
  EXPECT_EQ(EmbrImage::read(disk, image), Error::none);
}

}  // namespace
}  // namespace tallowin
