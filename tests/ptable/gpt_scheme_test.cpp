// GPTs of other programs in the model, and every change of one: judged by sgdisk and sfdisk,
// with each transfer failing in turn, and with the power cut.
#include "ptable/gpt/gpt_scheme.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "disk/mbr_record.h"
#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_types.h"
#include "ptable/table_bench.h"
#include "support/loop_device.h"
#include "support/oracle.h"

namespace tallowin {
namespace {

constexpr u64 kBytes = 64 * kMiB;
constexpr u64 kSectors = kBytes / 512;

using Commands = std::vector<std::vector<std::string>>;

MemoryDisk sfdiskDisk(const std::string& rows, u32 sectorSizeBytes = 512) {
  return diskFromCommands(
      kBytes, sectorSizeBytes, {{"sfdisk", "-q", "IMAGE"}},
      "label: gpt\nfirst-lba: " + std::string(sectorSizeBytes == 512 ? "34" : "6") + "\n" + rows);
}

constexpr u32 kFarEntry = 100;  // beyond what half of a write brings

// Three partitions, with a name beyond ASCII and attributes at both ends of the field.
MemoryDisk threePartitions(u32 sectorSizeBytes = 512) {
  return sfdiskDisk(
      "1: start=2048, size=2048, name=\"Grüße \U0001F4BE\", attrs=\"RequiredPartition GUID:63\"\n"
      "7: start=8192, size=800, type=U, attrs=\"LegacyBIOSBootable GUID:60\"\n"
      "100: start=4096, size=4096, type=S, name=old\n",
      sectorSizeBytes);
}

MemoryDisk hybridDisk() {
  return diskFromCommands(
      kBytes, 512, {{"sgdisk", "-n", "1:2048:4095", "-n", "2:8192:16383", "-h", "2", "IMAGE"}});
}

MemoryDisk flipped(MemoryDisk disk, u64 lba, std::size_t at) {
  flipByte(disk, lba, at);
  return disk;
}

void copySectors(MemoryDisk& from, MemoryDisk& to, u64 first, u64 last) {
  for (u64 lba = first; lba <= last; ++lba) to.setSector(lba, from.sector(lba));
}

// The same disk with more sectors at its end, as an image file or a volume grows.
MemoryDisk grown(MemoryDisk& disk, u64 bySectors) {
  MemoryDisk larger(*disk.sectorCount() + bySectors, disk.sectorSize());
  copySectors(disk, larger, 0, 63);
  const u64 last = *disk.sectorCount() - 1;
  copySectors(disk, larger, last - 63, last);
  return larger;
}

// The backup lacks an entry, as when a program did not write it.
MemoryDisk withStaleBackup(MemoryDisk disk) {
  TableBench bench(disk.copy());
  EXPECT_EQ(bench.drive().remove(*bench.drive().findByKernelNumber(7)), Error::none);
  const u64 last = *disk.sectorCount() - 1;
  copySectors(bench.disk(), disk, last - 16384 / disk.sectorSize(), last);
  return disk;
}

std::string healthOf(MemoryDisk& disk) {
  TableBench bench(disk.copy());
  return bench.drive().gptHealth() ? gptHealthWord(*bench.drive().gptHealth()) : "none";
}

TEST(GptScheme, TheModelAgreesWithSfdiskOnTablesOfEveryMaker) {
  std::string many = "label: gpt\n";
  for (int i = 0; i < 128; ++i)
    many += "start=" + std::to_string(2048 + i * 64) + ", size=" + std::to_string(1 + i % 64) +
            ", name=\"part " + std::to_string(i) + "\"\n";
  const auto byParted = words(
      "parted -s IMAGE mklabel gpt mkpart one ext4 256s 1023s mkpart two fat32 1024s 4095s "
      "set 2 boot on set 1 legacy_boot on");
  auto bySgdisk = words(
      "sgdisk -a 8 -n 128:1024:2047 -A 128:set:0 -A 128:set:1 -A 128:set:2 -A 128:set:48 "
      "-A 128:set:62 -n 3:4096:4096 -t 3:EF02 IMAGE -c");
  bySgdisk.emplace_back("128:Łódź \U0001F4BE \"quoted\"");
  struct Maker {
    const char* what;
    Commands commands;
    std::string script;
    u32 slots;
  };
  const Maker makers[] = {
      {"parted", {byParted}, "", 128},
      {"sgdisk", {bySgdisk}, "", 128},
      {"both ends",
       {words("sgdisk -a 1 -n 1:34:34 -n 2:64:65 -t 2:12345678-9ABC-DEF0-1234-56789ABCDEF0 "
              "-n 3:4096:0 -S 32 IMAGE")},
       "",
       32},
      {"sfdisk, all entries", {{"sfdisk", "-q", "IMAGE"}}, many, 128},
      {"sfdisk, 200 entries",
       {{"sfdisk", "-q", "IMAGE"}},
       "label: gpt\ntable-length: 200\nstart=2048, size=100\n200: start=4096, size=1, "
       "name=\"the last one\"\n",
       200},
  };
  for (const u32 sectorSize : {512U, 4096U}) {
    if (sectorSize != 512 && !hasLoopDevices()) GTEST_SKIP() << "needs root";
    for (const Maker& maker : makers) {
      // The whole table must fit into 32 KiB.
      if (sectorSize != 512 && maker.slots != 128) continue;
      TableBench bench(diskFromCommands(kBytes, sectorSize, maker.commands, maker.script));
      const std::string what = std::string(maker.what) + ", " + std::to_string(sectorSize);
      ASSERT_TRUE(bench.drive().isGpt()) << what;
      EXPECT_EQ(gptRowsOf(bench.drive()), gptRowsBySfdisk(bench.disk())) << what;
      EXPECT_EQ(bench.drive().table().slots, maker.slots) << what;
      EXPECT_STREQ(gptHealthWord(*bench.drive().gptHealth()), "sound") << what;
      EXPECT_FALSE(bench.drive().table().hasErrors()) << what;
    }
  }
}

TEST(GptScheme, EntriesOfAHybridMbrAreLinkedToTheirSlots) {
  TableBench bench(hybridDisk());
  const PartitionEntry* alone = bench.drive().findByKernelNumber(1);
  const PartitionEntry* linked = bench.drive().findByKernelNumber(2);
  ASSERT_TRUE(alone != nullptr && linked != nullptr);
  EXPECT_EQ(alone->mbrSlot, kNoMbrSlot);
  EXPECT_EQ(linked->mbrType, 0x83);
  ASSERT_LT(linked->mbrSlot, kMbrSlots);
  const auto slotOf = [&](MemoryDisk& disk) { return mbrOf(disk).slots[linked->mbrSlot]; };
  EXPECT_EQ(slotOf(bench.disk()).startLba, 8192U);
  // The slot follows what happens to the entry; the kernel of another system reads nothing else.
  const EntryProperties active{.active = true};
  ASSERT_EQ(bench.drive().changeProperties(*linked, active), Error::none);
  EXPECT_EQ(slotOf(bench.disk()).bootIndicator, kBootActive);
  EXPECT_EQ(bench.drive().changeProperties(*alone, active), Error::unsupportedForm);
  ASSERT_EQ(bench.drive().changeProperties(*bench.drive().findByKernelNumber(2), {.type = 0x07}),
            Error::none);
  EXPECT_EQ(slotOf(bench.disk()).type, 0x07);
  ASSERT_EQ(bench.drive().remove(*linked), Error::none);
  EXPECT_EQ(slotOf(bench.disk()).type, types::kFree);
  EXPECT_EQ(gptProblems(bench.disk()), "");
}

TEST(GptScheme, EachDamageIsNamedAndRepaired) {
  struct Damage {
    const char* word;
    std::function<MemoryDisk(MemoryDisk disk, u64 last)> make;
  };
  const Damage damages[] = {
      {"damaged-primary", [](MemoryDisk d, u64) { return flipped(std::move(d), 1, 60); }},
      {"damaged-primary", [](MemoryDisk d, u64) { return flipped(std::move(d), 2, 5); }},
      {"missing-backup", [](MemoryDisk d, u64 last) { return flipped(std::move(d), last, 0); }},
      {"missing-backup",
       [](MemoryDisk d, u64 last) {
         const u64 array = last - 16384 / d.sectorSize();
         return flipped(std::move(d), array, 7);
       }},
      {"misplaced-backup", [](MemoryDisk d, u64) { return grown(d, 5000); }},
      {"different-backup", [](MemoryDisk d, u64) { return withStaleBackup(std::move(d)); }},
  };
  for (const u32 sectorSize : {512U, 4096U}) {
    if (sectorSize != 512 && !hasLoopDevices()) GTEST_SKIP() << "needs root";
    const MemoryDisk whole = threePartitions(sectorSize);
    for (const Damage& damage : damages) {
      MemoryDisk undamaged = whole.copy();
      const std::string before = gptPicture(undamaged);
      MemoryDisk disk = damage.make(std::move(undamaged), kBytes / sectorSize - 1);
      const std::string what = std::string(damage.word) + ", " + std::to_string(sectorSize);
      EXPECT_EQ(healthOf(disk), damage.word) << what;
      EXPECT_EQ(gptPicture(disk), before) << what;
      TableBench bench(disk.copy());
      ASSERT_EQ(bench.drive().repairGpt(), Error::none) << what;
      EXPECT_EQ(healthOf(bench.disk()), "sound") << what;
      EXPECT_EQ(gptPicture(bench.disk()), before) << what;
      EXPECT_EQ(gptProblems(bench.disk()), "") << what;
      EXPECT_EQ(bench.reopen().lastUsableSector(),
                bench.drive().lastLba() - (16384 / sectorSize + 1))
          << what;
      const TableChange repair = {what, [](Drive& d) { return d.repairGpt(); }, gptPicture, {}};
      if (sectorSize == 512) expectCutsLeaveOldOrNew(disk, repair);
    }
  }
}

// A header may name a place for the backup that lies in a partition.
TEST(GptScheme, ABackupIsNeverWrittenOverAPartition) {
  MemoryDisk disk = sfdiskDisk("start=2048, size=1000\nstart=60000, size=1000\n");
  GptImage image;
  ASSERT_EQ(GptImage::read(disk, image), Error::none);
  ASSERT_EQ(image.moveBackupTo(kSectors - 1), Error::none);
  image.entry(1).lastLba = kSectors - 10;
  ASSERT_EQ(image.write(disk), Error::backupOverlaps);
  ASSERT_EQ(GptImage::read(disk, image), Error::none);
  EXPECT_EQ(u64{image.entry(1).lastLba}, 60999U);
}

// A disk that grew by less than a backup: old and new places overlap.
TEST(GptScheme, TheBackupMovesByOneSectorToo) {
  MemoryDisk full = sfdiskDisk("start=2048, size=" + std::to_string(kSectors - 33 - 2048) + "\n");
  for (const u64 by : {1U, 20U, 33U}) {
    TableBench bench(grown(full, by));
    ASSERT_EQ(healthOf(bench.disk()), "misplaced-backup");
    EXPECT_EQ(bench.drive().repairGpt(), Error::none);
    EXPECT_EQ(healthOf(bench.disk()), "sound");
    EXPECT_EQ(gptProblems(bench.disk()), "");
    MemoryDisk before = grown(full, by);
    expectCutsLeaveOldOrNew(before,
                            {"repair", [](Drive& d) { return d.repairGpt(); }, gptPicture, {}});
  }
}

Failure create(Drive& drive, u64 start, u64 end) {
  NewEntry entry{.startSector = start, .endSector = end, .type = 0x83, .name = "new"};
  // Fixed, so that two runs make the same table.
  entry.uniqueGuid.bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  return drive.add(entry);
}

std::vector<TableChange> changes() {
  const auto far = [](Drive& d) -> PartitionEntry& { return *d.findByKernelNumber(kFarEntry); };
  return {
      {"add", [](Drive& d) { return create(d, 20480, 30000); }, gptPicture, {}},
      {"add to the last sector",
       [](Drive& d) { return create(d, 20480, d.lastUsableSector()); },
       gptPicture,
       {}},
      {"remove", [=](Drive& d) { return d.remove(far(d)); }, gptPicture, {}},
      {"type",
       [=](Drive& d) { return d.changeProperties(far(d), {.type = types::kEfiSystem}); },
       gptPicture,
       {}},
      {"properties",
       [=](Drive& d) {
         return d.changeProperties(far(d), {.name = "名前 \U0001F4BE",
                                            .typeGuid = kGptMsReserved,
                                            .attributes = u64{1} << 63 | 5});
       },
       gptPicture,
       {}},
  };
}

TEST(GptScheme, EachChangeIsSoundForOtherProgramsAndReadsBack) {
  for (const u32 sectorSize : {512U, 4096U}) {
    if (sectorSize != 512 && !hasLoopDevices()) GTEST_SKIP() << "needs root";
    const MemoryDisk whole = threePartitions(sectorSize);
    for (const TableChange& change : changes()) {
      if (sectorSize != 512 && change.what.starts_with("add")) continue;  // 16384 sectors
      TableBench bench(whole.copy());
      const std::size_t rowsBefore = gptRowsOf(bench.drive()).size();
      ASSERT_EQ(change.run(bench.drive()), Error::none) << change.what;
      EXPECT_EQ(gptProblems(bench.disk()), "") << change.what;
      const std::vector<GptRow> rows = gptRowsOf(bench.reopen());
      EXPECT_EQ(rows, gptRowsBySfdisk(bench.disk())) << change.what;
      const std::size_t more = change.what.starts_with("add") ? 1 : 0;
      const std::size_t less = change.what == "remove" ? 1 : 0;
      EXPECT_EQ(rows.size(), rowsBefore + more - less) << change.what;
      EXPECT_EQ(healthOf(bench.disk()), "sound") << change.what;
    }
  }
}

TEST(GptScheme, EachFailedTransferLeavesTheTableThatTheErrorNames) {
  MemoryDisk whole = threePartitions();
  for (const TableChange& change : changes()) expectFaultsAreTold(whole, change);
}

// The repair itself, and changes of a table of which only one copy can be read.
TEST(GptScheme, EachFailedTransferOnADamagedTableIsToldToo) {
  MemoryDisk noBackup = flipped(threePartitions(), kSectors - 1, 0);
  MemoryDisk noPrimary = flipped(threePartitions(), 1, 60);
  for (MemoryDisk* disk : {&noBackup, &noPrimary}) {
    expectFaultsAreTold(*disk, changes()[2]);
    expectCutsLeaveOldOrNew(*disk, changes()[2]);
  }
}

TEST(GptScheme, APowerCutLeavesTheOldTableOrTheNewOne) {
  MemoryDisk whole = threePartitions();
  for (const TableChange& change : changes()) {
    std::function<void(MemoryDisk&)> judge;
    const std::vector<GptRow> before = gptRowsBySfdisk(whole);
    if (change.what == "remove") {
      judge = [&](MemoryDisk& disk) {
        const std::vector<GptRow> rows = gptRowsBySfdisk(disk);
        EXPECT_TRUE(rows.size() == before.size() || rows.size() + 1 == before.size());
        TableBench bench(disk.copy());
        EXPECT_EQ(rows, gptRowsOf(bench.drive()));
      };
    }
    expectCutsLeaveOldOrNew(whole, change, judge);
  }
}

// A valid backup with other entries must not become the table when the write of the primary tears.
TEST(GptScheme, ABackupThatDiffersNeverBecomesTheTable) {
  MemoryDisk disk = withStaleBackup(threePartitions());
  ASSERT_EQ(healthOf(disk), "different-backup");
  for (const TableChange& change : changes()) {
    if (change.what.starts_with("add")) continue;  // its entry comes with half of a write
    expectCutsLeaveOldOrNew(disk, change);
    expectFaultsAreTold(disk, change);
  }
}

TEST(GptScheme, WhatDoesNotFitIsRefusedAndChangesNothing) {
  struct Refusal {
    const char* what;
    u64 start;
    u64 end;
    Failure error;
  };
  const MemoryDisk whole = threePartitions();
  for (const Refusal& r :
       {Refusal{"into the backup", 20480, kSectors - 33, Error::outsideUsableArea},
        Refusal{"into the entry array", 33, 40, Error::outsideUsableArea},
        Refusal{"over the last partition", 8900, 30000, Error::outsideUsableArea}})
    expectRefused(
        whole.copy(), [&](Drive& d) { return create(d, r.start, r.end); }, r.error, r.what);
  expectRefused(
      sfdiskDisk("table-length: 1\nstart=2048, size=100\n"),
      [](Drive& d) { return create(d, 20480, 30000); }, Error::noFreeEntry, "a table of one entry");
  TableBench bench(threePartitions());
  TableBench other(bench.disk().copy());
  ASSERT_EQ(other.drive().remove(*other.drive().findByKernelNumber(1)), Error::none);
  copySectors(other.disk(), bench.disk(), 0, 40);
  EXPECT_EQ(create(bench.drive(), 20480, 30000), Error::tableChangedMeanwhile);
  EXPECT_EQ(bench.drive().remove(*bench.drive().findByKernelNumber(kFarEntry)),
            Error::tableChangedMeanwhile);
}

}  // namespace
}  // namespace tallowin
