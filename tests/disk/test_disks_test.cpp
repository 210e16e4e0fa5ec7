#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "disk/faulty_disk.h"
#include "disk/memory_disk.h"
#include "disk/overlay_disk.h"
#include "disk/recording_disk.h"
#include "disk/write_cache.h"

namespace tallowin {
namespace {

std::vector<u8> sectors(u64 count, u8 value) { return std::vector<u8>(count * 512, value); }

TEST(FaultyDisk, FailsWhereItIsTold) {
  MemoryDisk memory(1000);
  FaultyDisk disk(memory);
  auto bytes = sectors(2, 0x11);
  disk.failWrite(1, false, FaultyDisk::After::halfWritten);
  EXPECT_EQ(disk.writeSectors(0, bytes.data(), 2), Error::none);
  EXPECT_NE(disk.writeSectors(10, bytes.data(), 2), Error::none);
  EXPECT_EQ(memory.sector(10), sectors(1, 0x11));
  EXPECT_EQ(memory.sector(11), sectors(1, 0));
  EXPECT_EQ(disk.writeSectors(10, bytes.data(), 2), Error::none);
  FaultyDisk slow(memory);
  slow.failWrite(1, false, FaultyDisk::After::halfWritten);
  DiskTransfer transfer{
      .direction = DiskTransfer::Direction::write, .lba = 30, .buffer = bytes.data(), .count = 2};
  slow.begin(transfer);
  EXPECT_EQ(memory.sector(30), sectors(1, 0)) << "the latest moment counts";
  EXPECT_EQ(slow.finish(transfer), Error::none);
  EXPECT_EQ(slow.clearSectors(30, 2), Error::write);
  EXPECT_EQ(memory.sector(30), sectors(1, 0));
  EXPECT_NE(memory.sector(31), sectors(1, 0));
  EXPECT_EQ(slow.clearSectors(30, 2), Error::none);
  EXPECT_EQ(slow.writes(), 3U);
}

TEST(RecordingDisk, WhatItLoggedIsPlayedBackWholeAndTorn) {
  MemoryDisk before(100);
  before.setSector(50, sectors(1, 5));
  before.setSector(51, sectors(1, 5));
  MemoryDisk memory = before.copy();
  RecordingDisk disk(memory);
  auto a = sectors(1, 0xA);
  auto b = sectors(2, 0xB);
  ASSERT_EQ(disk.writeSectors(1, a.data(), 1), Error::none);
  ASSERT_EQ(disk.flush(), Error::none);
  ASSERT_EQ(disk.writeSectors(2, b.data(), 2), Error::none);
  DiskTransfer transfer{
      .direction = DiskTransfer::Direction::write, .lba = 4, .buffer = a.data(), .count = 1};
  disk.begin(transfer);
  ASSERT_EQ(disk.finish(transfer), Error::none);
  ASSERT_EQ(disk.clearSectors(50, 2), Error::none);

  const std::vector<WriteLog::Step>& steps = disk.log().steps();
  ASSERT_EQ(steps.size(), 5U);
  EXPECT_TRUE(steps[1].isFlush);
  MemoryDisk all = before.copy();
  for (const WriteLog::Step& step : steps) play(step, all);
  EXPECT_TRUE(all.sameContent(memory));
  MemoryDisk torn = before.copy();
  for (const WriteLog::Step& step : steps) play(step, torn, Arrival::half);
  EXPECT_EQ(torn.sector(1)[255], 0xA);
  EXPECT_EQ(torn.sector(1)[256], 0);
  EXPECT_EQ(torn.sector(2), sectors(1, 0xB));
  EXPECT_EQ(torn.sector(3), sectors(1, 0));
  EXPECT_EQ(torn.sector(50), sectors(1, 0));
  EXPECT_EQ(torn.sector(51), sectors(1, 5));
}

class OverlayTest : public ::testing::Test {
 protected:
  OverlayTest() {
    for (u64 lba = 0; lba < 1000; ++lba) memory_.setSector(lba, sectors(1, static_cast<u8>(lba)));
  }
  MemoryDisk memory_{1000};
};

TEST_F(OverlayTest, NothingReachesTheDiskBelow) {
  MemoryDisk before = memory_.copy();
  RecordingDisk recording(memory_);
  OverlayDisk overlay(recording);
  const auto bytes = sectors(3, 0xEE);
  ASSERT_EQ(overlay.writeSectors(10, bytes.data(), 3), Error::none);
  ASSERT_EQ(overlay.writeSectors(13, bytes.data(), 1), Error::none);
  ASSERT_EQ(overlay.writeZeros(500, 100), Error::none);
  ASSERT_EQ(overlay.flush(), Error::none);
  EXPECT_EQ(overlay.tellKernel({}), KernelTable::upToDate);
  EXPECT_TRUE(DiskChangeLock(overlay).held());
  EXPECT_EQ(recording.log().size(), 0U);
  EXPECT_TRUE(memory_.sameContent(before));
  EXPECT_EQ(overlay.flushes(), 1U);
  EXPECT_EQ(overlay.writtenRanges(), (std::vector<OverlayDisk::SectorRange>{{10, 4}, {500, 100}}));
  EXPECT_EQ(overlay.writtenBytes(), 104U * 512);
  EXPECT_NE(overlay.writeSectors(998, bytes.data(), 3), Error::none);
}

// Against a plain disk that takes the same writes: every overlap of runs, zeros and old sectors.
class OverlayInMemoryAndFile : public OverlayTest, public testing::WithParamInterface<u64> {};

TEST_P(OverlayInMemoryAndFile, ReadsAreThoseOfADiskThatTookTheWrites) {
  std::optional<SpillFile> spill;
  ASSERT_EQ(SpillFile::create(testing::TempDir(), spill), Error::none);
  OverlayDisk overlay(memory_, GetParam(), std::move(spill));
  MemoryDisk expected = memory_.copy();
  std::mt19937 random(1);
  std::vector<bool> written(1000);
  for (int step = 0; step < 1000; ++step) {
    const u64 first = random() % 1000;
    const u64 count = std::min<u64>(1 + random() % 40, 1000 - first);
    auto bytes = sectors(count, static_cast<u8>(random() % 3));
    if (random() % 4 == 0) {
      ASSERT_EQ(overlay.clearSectors(first, count), Error::none);
      ASSERT_EQ(expected.clearSectors(first, count), Error::none);
    } else {
      ASSERT_EQ(overlay.writeSectors(first, bytes.data(), count), Error::none);
      ASSERT_EQ(expected.writeSectors(first, bytes.data(), count), Error::none);
    }
    std::fill_n(written.begin() + static_cast<std::ptrdiff_t>(first), count, true);
    const u64 from = random() % 900;
    auto got = sectors(100, 0x55);
    auto wanted = sectors(100, 0x66);
    ASSERT_EQ(overlay.readSectors(from, got.data(), 100), Error::none);
    ASSERT_EQ(expected.readSectors(from, wanted.data(), 100), Error::none);
    ASSERT_EQ(got, wanted) << "step " << step;
    const auto count64 = static_cast<u64>(std::count(written.begin(), written.end(), true));
    ASSERT_EQ(overlay.writtenBytes(), count64 * 512);
    ASSERT_LE(overlay.storedBytes(), std::min(count64 * 512, GetParam()));
  }
}

INSTANTIATE_TEST_SUITE_P(, OverlayInMemoryAndFile, testing::Values(0, 20 * 512, kGiB));

TEST(OverlayDisk, ZerosOfAHugeDiskTakeNoRoomAndAFullOneRefuses) {
  MemoryDisk memory(u64{2} << 40 >> 9);
  OverlayDisk overlay(memory, 1 * kMiB);
  std::vector<u8> zeros(4 * kMiB);
  for (u64 piece = 0; piece < 1000; ++piece)
    ASSERT_EQ(overlay.writeSectors(piece * 8192, zeros.data(), 8192), Error::none);
  ASSERT_EQ(overlay.clearSectors(8192 * 1000, 4'000'000'000), Error::none);
  EXPECT_EQ(overlay.storedBytes(), 0U);
  EXPECT_EQ(overlay.writtenRanges().size(), 1U);
  const auto bytes = sectors(1024, 1);
  for (u64 i = 0; i < 2; ++i)
    ASSERT_EQ(overlay.writeSectors(i * 5000, bytes.data(), 1024), Error::none);
  EXPECT_FALSE(overlay.isFull());
  EXPECT_NE(overlay.writeSectors(100'000, bytes.data(), 1024), Error::none);
  EXPECT_TRUE(overlay.isFull());
  EXPECT_EQ(overlay.writeSectors(0, bytes.data(), 1024), Error::none)
      << "what is there can be changed";
}

// What is held back reads as it was written, arrives with the flush, and is not what the sectors
// around it were when they were read.
TEST(WriteCache, HoldsSmallWritesUntilTheFlush) {
  MemoryDisk plain(1000);
  MemoryDisk memory(1000);
  RecordingDisk recorded(memory);
  WriteCache cache(recorded, 2 * WriteCache::kBlockBytes);
  std::mt19937 random(11);
  for (u32 step = 0; step < 2000; ++step) {
    const u64 count = 1 + random() % (step % 10 == 0 ? 200 : 20);
    const u64 lba = random() % (1000 - count);
    auto bytes = sectors(count, static_cast<u8>(random()));
    ASSERT_FALSE(plain.writeSectors(lba, bytes.data(), count));
    ASSERT_FALSE(cache.writeSectors(lba, bytes.data(), count));
    std::vector<u8> read(count * 512);
    const u64 from = random() % (1000 - count);
    ASSERT_FALSE(cache.readSectors(from, read.data(), count));
    for (u64 i = 0; i < count; ++i)
      ASSERT_TRUE(std::equal(read.begin() + static_cast<i64>(i * 512),
                             read.begin() + static_cast<i64>(i * 512 + 512),
                             plain.sector(from + i).begin()));
  }
  ASSERT_FALSE(cache.flush());
  EXPECT_TRUE(memory.sameContent(plain));

  auto own = sectors(1, 7);
  const std::size_t steps = recorded.log().steps().size();
  ASSERT_FALSE(cache.writeSectors(500, own.data(), 1));
  EXPECT_EQ(recorded.log().steps().size(), steps) << "held back";
  memory.setSector(499, sectors(1, 0xEE));
  memory.setSector(501, sectors(1, 0xEE));
  ASSERT_FALSE(cache.flush());
  EXPECT_EQ(memory.sector(499), sectors(1, 0xEE));
  EXPECT_EQ(memory.sector(500), own);
  EXPECT_EQ(memory.sector(501), sectors(1, 0xEE));
}

TEST(WriteCache, OneBadSectorCostsNoOther) {
  MemoryDisk memory(1000);
  FaultyDisk faulty(memory);
  WriteCache cache(faulty);
  auto bytes = sectors(8, 3);
  ASSERT_FALSE(cache.writeSectors(40, bytes.data(), 8));
  faulty.failAccessTo({43, 43});
  const Failure failed = cache.flush();
  EXPECT_EQ(failed, Error::write);
  EXPECT_EQ(failed.lba, 43U);
  EXPECT_EQ(cache.lostSectors(), std::vector<u64>{43});
  for (const u64 sector : {40, 41, 42, 44, 45, 46, 47})
    EXPECT_EQ(memory.sector(sector), sectors(1, 3)) << sector;
}

}  // namespace
}  // namespace tallowin
