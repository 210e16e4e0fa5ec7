// A journal outlives every cut, and what it keeps of a disk can be put back.
#include <gtest/gtest.h>

#include <algorithm>

#include "move/journal_file.h"
#include "move/power.h"
#include "move/undo_log.h"

namespace tallowin {
namespace {

std::vector<u8> stateOf(u32 number) {
  return std::vector<u8>(1 + number % 700, static_cast<u8>(number));
}

TEST(JournalFile, HasTheOldOrTheNewStateAfterACutAtEveryStep) {
  std::mt19937 random(1);
  for (u64 steps = 0;; ++steps) {
    Power power{steps};
    CutBytes bytes;
    u32 last = 0;
    std::unique_ptr<JournalFile> journal;
    const std::vector<u8> attachment(5000, 7);
    bool isMade = !JournalFile::create(std::make_unique<CutStorage>(bytes, power), "what it is",
                                       attachment, stateOf(0), journal);
    while (isMade && last < 6 && !journal->setState(stateOf(last + 1))) ++last;
    const bool isWhole = isMade && last == 6;
    bytes.cut(random);
    Power again;
    std::unique_ptr<JournalFile> opened;
    const Failure failed = JournalFile::open(std::make_unique<CutStorage>(bytes, again), opened);
    if (!isMade) {
      // What was not made may be there by chance, and is whole then.
      EXPECT_TRUE(!failed || failed == Error::notThisFormat || failed == Error::corrupt);
      continue;
    }
    ASSERT_EQ(failed, Error::none) << steps;
    EXPECT_EQ(opened->description(), "what it is");
    EXPECT_TRUE(std::ranges::equal(opened->attachment(), attachment));
    const std::vector<u8> state(opened->state().begin(), opened->state().end());
    EXPECT_TRUE(state == stateOf(last) || state == stateOf(last + 1)) << steps;
    // The next one takes the place of the older slot.
    ASSERT_EQ(opened->setState(stateOf(99)), Error::none);
    if (isWhole) break;
  }
}

TEST(JournalFile, WhatIsNoJournalIsToldFromADamagedOne) {
  Power power;
  CutBytes bytes;
  std::unique_ptr<JournalFile> journal;
  const auto open = [&] {
    return JournalFile::open(std::make_unique<CutStorage>(bytes, power), journal);
  };
  EXPECT_EQ(open(), Error::notThisFormat);
  ASSERT_EQ(JournalFile::create(std::make_unique<CutStorage>(bytes, power), "text", {}, stateOf(1),
                                journal),
            Error::none);
  ASSERT_EQ(open(), Error::none);
  bytes.seen[3 * 4096] ^= 1;
  EXPECT_EQ(open(), Error::corrupt);
  bytes.seen[0] = 'X';
  EXPECT_EQ(open(), Error::notThisFormat);
}

constexpr u64 kSectors = 1200;
constexpr u64 kVolume = 100;  // its first sector; it takes all behind it

std::vector<u8> contentsOf(MemoryDisk& disk) {
  std::vector<u8> all(kSectors * 512);
  EXPECT_EQ(disk.readSectors(0, all.data(), kSectors), Error::none);
  return all;
}

// Random changes of a disk until the power goes; then what was in use has to come back.
void cutAndUndo(u64 seed, u64 steps) {
  std::mt19937 random(static_cast<u32>(seed));
  MemoryDisk disk(kSectors);
  std::vector<u8> before(kSectors * 512);
  std::ranges::generate(before, [&] { return static_cast<u8>(random()); });
  ASSERT_EQ(disk.writeSectors(0, before.data(), kSectors), Error::none);
  ExtentList inUse;
  for (u64 at = kVolume + random() % 50; at < kSectors - 100; at += 60 + random() % 100)
    ASSERT_EQ(inUse.add(at, 1 + random() % 50), Error::none);

  Power power;
  CutBytes bytes;
  std::unique_ptr<JournalFile> journal;
  ASSERT_EQ(
      JournalFile::create(std::make_unique<CutStorage>(bytes, power), "", {}, stateOf(1), journal),
      Error::none);
  power.stepsLeft = steps;
  CutDisk cut(disk, power);
  UndoLogDisk logged(cut, *journal, 4096);
  logged.keepOnly(kVolume, kSectors - kVolume, inUse);
  for (u32 i = 0; i < 60; ++i) {
    const u64 count = 1 + random() % 40;
    const u64 lba = random() % (kSectors - count);
    const std::vector<u8> bytesOut(count * 512, static_cast<u8>(i));
    if (random() % 3 == 0 && logged.keepAhead(lba, count * 2 < kSectors - lba ? count * 2 : count))
      break;
    if (logged.writeSectors(lba, bytesOut.data(), count)) break;
    if (random() % 8 == 0 && logged.flush()) break;
  }
  cut.cut(random);
  bytes.cut(random);

  Power again;
  ASSERT_EQ(JournalFile::open(std::make_unique<CutStorage>(bytes, again), journal), Error::none);
  ASSERT_EQ(playUndoLog(*journal, 4096, disk), Error::none);
  const std::vector<u8> after = contentsOf(disk);
  const auto same = [&](u64 first, u64 count) {
    return std::equal(before.begin() + static_cast<std::ptrdiff_t>(first * 512),
                      before.begin() + static_cast<std::ptrdiff_t>((first + count) * 512),
                      after.begin() + static_cast<std::ptrdiff_t>(first * 512));
  };
  EXPECT_TRUE(same(0, kVolume)) << "what lies outside of the volume, steps " << steps;
  for (std::size_t i = 0; i < inUse.size(); ++i)
    ASSERT_TRUE(same(inUse.at(i).startSector, inUse.at(i).sectors)) << seed << ", " << steps;
}

TEST(UndoLog, PutsBackEverythingInUseAfterACutAtAnyMoment) {
  for (u64 seed = 1; seed <= 200; ++seed) cutAndUndo(seed, 1 + seed * 37 % 180);
}

TEST(UndoLog, KeepsASectorOnceAndPassesOverFreeOnes) {
  MemoryDisk disk(kSectors);
  Power power;
  CutBytes bytes;
  std::unique_ptr<JournalFile> journal;
  ASSERT_EQ(
      JournalFile::create(std::make_unique<CutStorage>(bytes, power), "", {}, stateOf(1), journal),
      Error::none);
  UndoLogDisk logged(disk, *journal, 0);
  ExtentList inUse;
  ASSERT_EQ(inUse.add(kVolume + 10, 10), Error::none);
  logged.keepOnly(kVolume, kSectors - kVolume, inUse);
  const u64 empty = bytes.seen.size();
  const std::vector<u8> sectors(100 * 512, 1);
  ASSERT_EQ(logged.writeSectors(kVolume + 20, sectors.data(), 100), Error::none);
  EXPECT_EQ(bytes.seen.size(), empty);
  ASSERT_EQ(logged.writeSectors(kVolume, sectors.data(), 100), Error::none);
  const u64 full = bytes.seen.size();
  EXPECT_GE(full, empty + 10 * 512);
  ASSERT_EQ(logged.writeSectors(kVolume, sectors.data(), 100), Error::none);
  EXPECT_EQ(bytes.seen.size(), full);
}

}  // namespace
}  // namespace tallowin
