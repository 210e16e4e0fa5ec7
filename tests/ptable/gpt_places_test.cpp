// Where the copies of a GPT lie: arrays that another program moved, a disk that was shortened, and
// a table that is too long.
#include <gtest/gtest.h>

#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_scheme.h"
#include "ptable/table_bench.h"
#include "support/oracle.h"

namespace tallowin {
namespace {

constexpr u64 kBytes = 64 * kMiB;
constexpr u64 kSectors = kBytes / 512;
constexpr u64 kMovedArray = 64;

void fill(MemoryDisk& disk, u64 first, u64 last, u8 byte) {
  for (u64 lba = first; lba <= last; ++lba)
    disk.setSector(lba, std::vector<u8>(disk.sectorSize(), byte));
}

// A board's loader between the header and the array.
void fillLoader(MemoryDisk& disk) { fill(disk, 2, kMovedArray - 1, 0x5A); }
bool hasLoader(MemoryDisk& disk) {
  for (u64 lba = 2; lba < kMovedArray; ++lba)
    if (disk.sector(lba) != std::vector<u8>(disk.sectorSize(), 0x5A)) return false;
  return true;
}

MemoryDisk movedArray() {
  MemoryDisk disk = diskFromCommands(
      kBytes, 512,
      {words("sgdisk -j 64 -n 1:2048:4095 -c 1:first -n 2:8192:16383 -t 2:8200 IMAGE")});
  fillLoader(disk);
  return disk;
}

// The first sectors of a disk, of which the rest is gone.
MemoryDisk shortened(MemoryDisk& disk, u64 sectors) {
  MemoryDisk shorter(sectors);
  for (u64 lba = 0; lba < 2100; ++lba) shorter.setSector(lba, disk.sector(lba));
  return shorter;
}

Failure add(Drive& drive, u64 start, u64 end) {
  NewEntry entry{.startSector = start, .endSector = end, .type = 0x83};
  entry.uniqueGuid.bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  return drive.add(entry);
}

Failure removeFirst(Drive& drive) { return drive.remove(*drive.findByKernelNumber(1)); }
Failure rename(Drive& drive) {
  return drive.changeProperties(*drive.findByKernelNumber(2), {.name = "other"});
}
Failure repair(Drive& drive) { return drive.repairGpt(); }

TEST(GptPlaces, AnArrayElsewhereStaysThereAndWhatLiesBeforeItToo) {
  MemoryDisk disk = movedArray();
  const std::vector<TableChange> changes = {
      {"add", [](Drive& d) { return add(d, 20480, 30000); }, gptPicture, {}},
      {"remove", removeFirst, gptPicture, {}},
      {"rename", rename, gptPicture, {}}};
  for (const TableChange& change : changes) {
    TableBench bench(disk.copy());
    ASSERT_TRUE(bench.drive().isGpt());
    EXPECT_STREQ(gptHealthWord(*bench.drive().gptHealth()), "sound");
    EXPECT_EQ(gptRowsOf(bench.drive()), gptRowsBySfdisk(bench.disk()));
    ASSERT_EQ(change.run(bench.drive()), Error::none) << change.what;
    EXPECT_EQ(gptProblems(bench.disk()), "") << change.what;
    EXPECT_EQ(gptRowsOf(bench.reopen()), gptRowsBySfdisk(bench.disk())) << change.what;
    EXPECT_TRUE(hasLoader(bench.disk())) << change.what;
    expectFaultsAreTold(disk, change);
    expectCutsLeaveOldOrNew(disk, change, [](MemoryDisk& after) { EXPECT_TRUE(hasLoader(after)); });
  }
}

TEST(GptPlaces, ARepairFindsThePlaceOfTheArrayOrRefuses) {
  struct Damage {
    const char* what;
    std::function<void(MemoryDisk&)> make;
    Failure expected = Error::none;
  };
  const Damage damages[] = {
      {"header", [](MemoryDisk& d) { flipByte(d, 1, 60); }},
      {"array", [](MemoryDisk& d) { flipByte(d, kMovedArray, 5); }},
      {"header and array",
       [](MemoryDisk& d) {
         flipByte(d, 1, 60);
         flipByte(d, kMovedArray, 130);
       }},
      {"backup", [](MemoryDisk& d) { flipByte(d, kSectors - 1, 60); }},
      {"header, and the array overwritten",
       [](MemoryDisk& d) {
         fill(d, 1, 1, 0);
         fill(d, kMovedArray, kMovedArray + 31, 0x77);
       },
       Error::sectorsInUse},
  };
  for (const Damage& damage : damages) {
    MemoryDisk whole = movedArray();
    const std::string before = gptPicture(whole);
    MemoryDisk disk = whole.copy();
    damage.make(disk);
    EXPECT_EQ(gptPicture(disk), before) << damage.what;
    if (damage.expected != Error::none) {
      expectRefused(disk.copy(), repair, damage.expected, damage.what);
      expectRefused(disk.copy(), rename, damage.expected, damage.what);
      continue;
    }
    TableBench bench(disk.copy());
    ASSERT_EQ(repair(bench.drive()), Error::none) << damage.what;
    EXPECT_TRUE(bench.disk().sameContent(whole)) << damage.what;
    expectCutsLeaveOldOrNew(disk, {damage.what, repair, gptPicture, {}},
                            [](MemoryDisk& after) { EXPECT_TRUE(hasLoader(after)); });
  }
}

TEST(GptPlaces, AShortenedDiskIsRepairedBeforeAnythingElseIsChanged) {
  MemoryDisk whole = diskFromCommands(
      kBytes, 512, {words("sgdisk -n 1:2048:4095 -n 2:8192:16383 -n 3:100000:110000 IMAGE")});
  MemoryDisk behindAll = shortened(whole, 115000);
  TableBench bench(behindAll.copy());
  EXPECT_STREQ(gptHealthWord(*bench.drive().gptHealth()), "shortened-disk");
  expectRefused(behindAll.copy(), rename, Error::gptTableCheck, "rename");
  expectRefused(
      behindAll.copy(), [](Drive& d) { return add(d, 20480, 30000); }, Error::gptTableCheck, "add");
  ASSERT_EQ(repair(bench.drive()), Error::none);
  EXPECT_EQ(gptProblems(bench.disk()), "");
  EXPECT_EQ(rename(bench.reopen()), Error::none);
  // A partition behind the end is in the way of the repair, and can be removed.
  MemoryDisk cut = shortened(whole, 105000);
  expectRefused(cut.copy(), repair, Error::backupOverlaps, "repair");
  expectRefused(cut.copy(), removeFirst, Error::backupOverlaps, "another one stays in the way");
  TableBench removed(cut.copy());
  ASSERT_EQ(removed.drive().remove(*removed.drive().findByKernelNumber(3)), Error::none);
  EXPECT_EQ(gptProblems(removed.disk()), "");
  EXPECT_EQ(gptRowsOf(removed.reopen()).size(), 2U);
}

TEST(GptPlaces, ATableOfTooManyEntriesIsNotCalledDamaged) {
  const auto makeOf = [](const std::string& entries) {
    return diskFromCommands(kBytes, 512, {{"sfdisk", "-q", "IMAGE"}},
                            "label: gpt\ntable-length: " + entries + "\nstart=2048, size=100\n");
  };
  TableBench most(makeOf("248"));
  EXPECT_TRUE(most.drive().isGpt());
  TableBench large(makeOf("256"));
  EXPECT_FALSE(large.drive().isGpt());
  EXPECT_NE(large.drive().changeRefusal().find("more entries"), std::string::npos);
  EXPECT_EQ(large.drive().partitionCount(), 1U) << "nobody takes it for empty";
  MemoryDisk damaged = makeOf("256");
  flipByte(damaged, 1, 60);
  flipByte(damaged, kSectors - 1, 60);
  EXPECT_NE(TableBench(damaged.copy()).drive().changeRefusal().find("damaged"), std::string::npos);
}

}  // namespace
}  // namespace tallowin
