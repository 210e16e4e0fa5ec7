#include "ptable/embr_image.h"

#include <gtest/gtest.h>

#include <random>

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

// Puts boot manager items of random content behind the entries of an image without entries.
std::vector<u8> addItems(MemoryDisk& disk, std::mt19937& random, u32 mbftItems, u32 mdtItems) {
  std::vector<u8> tables = {'M', 'B', 'F', 'T', 2, static_cast<u8>(mbftItems)};
  const auto addItem = [&](std::size_t fixed) {
    const std::size_t more = random() % 9;
    for (std::size_t i = 0; i + 1 < fixed; ++i) tables.push_back(static_cast<u8>(random()));
    tables.push_back(static_cast<u8>(more));
    for (std::size_t i = 0; i < more; ++i) tables.push_back(static_cast<u8>(random()));
  };
  for (u32 i = 0; i < mbftItems; ++i) addItem(kMbftItemFixedBytes);
  if (mdtItems != 0) {
    const std::vector<u8> header = {'M', 'D', 'T', 1, static_cast<u8>(mdtItems)};
    tables.insert(tables.end(), header.begin(), header.end());
    for (int i = 0; i < 11; ++i) tables.push_back(static_cast<u8>(random()));
    for (u32 i = 0; i < mdtItems; ++i) addItem(kMdtItemFixedBytes);
  }
  std::vector<u8> sector = disk.sector(1);
  std::copy(tables.begin(), tables.end(), sector.begin() + sizeof(EmbrHeaderRecord));
  disk.setSector(1, sector);
  return tables;
}

TEST(Embr, EntriesComeBackAndTheBootManagersTablesStayByteForByte) {
  std::mt19937 random(17);
  for (int round = 0; round < 20; ++round) {
    MemoryDisk disk = emptyDisk();
    EmbrImage created = createdOn(disk);
    ASSERT_EQ(created.write(disk), Error::none);
    const std::vector<u8> tables =
        addItems(disk, random, static_cast<u32>(random() % 6), static_cast<u32>(random() % 4));

    EmbrImage image;
    ASSERT_EQ(EmbrImage::read(disk, image), Error::none);
    std::vector<u8> expectedIds;
    for (u32 step = 1; step < 120; ++step) {
      const u32 position = static_cast<u32>(random() % (expectedIds.size() + 1));
      if (!expectedIds.empty() && random() % 3 == 0 && position < expectedIds.size()) {
        image.remove(position);
        expectedIds.erase(expectedIds.begin() + position);
      } else {
        ASSERT_EQ(image.insert(position, numbered(step)), Error::none);
        expectedIds.insert(expectedIds.begin() + position, static_cast<u8>(step));
      }
    }
    ASSERT_EQ(image.write(disk), Error::none);

    EmbrImage again;
    ASSERT_EQ(EmbrImage::read(disk, again), Error::none);
    ASSERT_EQ(again.entryCount(), expectedIds.size());
    for (u32 i = 0; i < again.entryCount(); ++i) EXPECT_EQ(again.entry(i).id, expectedIds[i]);
    EXPECT_TRUE(std::ranges::equal(again.bootManagerTables(), tables));
  }
}

TEST(Embr, TheAreaGrowsSectorBySectorUpToTheFirstTrack) {
  MemoryDisk disk = emptyDisk();
  EmbrImage image = createdOn(disk);
  EXPECT_EQ(image.endSector(), 2U);
  for (u32 n = 0; n < kMaxMptEntries; ++n)
    ASSERT_EQ(image.insert(n, numbered(n + 1)), Error::none) << n;
  EXPECT_EQ(image.insert(0, numbered(1)), Error::noFreeEntry);
  EXPECT_EQ(image.endSector(), 1 + (28 + 255 * 28 + 6 + 511) / 512U);

  EmbrImage narrow = createdOn(disk);
  narrow.create({1023, 254, 3}, false);
  u32 count = 0;
  while (narrow.insert(count, numbered(count + 1)) == Error::none) ++count;
  EXPECT_EQ(narrow.endSector(), 3U);
  EXPECT_EQ(count, (1024 - 28 - 6) / 28U);
  EXPECT_EQ(narrow.entryCount(), count);
}

TEST(Embr, ASectorOfAnotherOwnerIsKept) {
  MemoryDisk disk = emptyDisk();
  std::vector<u8> owned(512, 0x11);
  std::copy_n("IBM ", 4, owned.begin() + 2);
  disk.setSector(1, owned);
  EmbrImage image = createdOn(disk);
  EXPECT_EQ(image.headerSector(), 2U);
  ASSERT_EQ(image.insert(0, numbered(1)), Error::none);
  ASSERT_EQ(image.write(disk), Error::none);
  EXPECT_EQ(disk.sector(1), owned);
  ASSERT_EQ(EmbrImage::read(disk, image), Error::none);
  EXPECT_EQ(image.entry(0).id, 1);
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
