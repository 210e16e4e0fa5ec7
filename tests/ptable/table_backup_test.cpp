// A kept table comes back, or nothing changes.
#include "ptable/table_backup.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "ptable/table_bench.h"
#include "support/fault_loops.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u64 kDiskSectors = 204800;

TableBackup backupOf(Drive& drive) {
  TableBackup backup;
  EXPECT_EQ(takeTableBackup(drive, 1'700'000'000, backup), Error::none);
  return backup;
}

// Removes volumes and makes others over their EBRs.
void changeMuch(Drive& drive) {
  for (const u32 number : {6U, 5U, 1U}) {
    ASSERT_EQ(drive.remove(*drive.findByKernelNumber(number)), Error::none);
    ASSERT_EQ(drive.reread(), Error::none);
  }
  ASSERT_EQ(addAt(drive, largestInnerFree(drive)->startSector, 1000, 0x07), Error::none);
}

TEST(TableBackup, HoldsMbrAndChainAndComesBackThroughAFile) {
  TableBench bench(diskFromScript(kDiskSectors, kThreeVolumes));
  MemoryDisk before = bench.disk().copy();
  const TableBackup backup = backupOf(bench.drive());
  // The MBR, the first track, and three EBRs with the sectors of their numbers.
  EXPECT_EQ(backup.sectors.size(), 69U);
  const TempFolder folder;
  ASSERT_EQ(writeTableBackup(backup, folder.file("kept.tbk")), Error::none);
  changeMuch(bench.drive());
  TableBackup read;
  ASSERT_EQ(readTableBackup(folder.file("kept.tbk"), read), Error::none);
  EXPECT_EQ(read.savedAt, 1'700'000'000U);
  EXPECT_EQ(read.diskName, "memory");
  ASSERT_EQ(restoreTable(bench.drive(), read), Error::none);
  EXPECT_EQ(readTable(bench.disk()).rows, readTable(before).rows);
  EXPECT_EQ(readTableBackup(folder.file("missing"), read), Error::noSuchFile);
}

// Of the longest table that is accepted, and of one whose entries lie elsewhere.
TEST(TableBackup, GptsOfAnySizeAndPlaceComeBackWhole) {
  MemoryDisk disks[] = {
      diskFromCommands(kDiskSectors * 512, 512, {{"sfdisk", "-q", "IMAGE"}},
                       "label: gpt\ntable-length: 248\nstart=2048, size=100\n"
                       "248: start=4096, size=1, name=last\n"),
      diskFromCommands(kDiskSectors * 512, 512,
                       {words("sgdisk -j 1000 -n 1:2048:4095 -n 2:8192:16383 IMAGE")})};
  for (MemoryDisk& before : disks) {
    TableBench bench(before.copy());
    ASSERT_TRUE(bench.drive().isGpt());
    const TableBackup backup = backupOf(bench.drive());
    const std::vector<u8> zeros(512);
    for (u64 lba = 0; lba < 2048; ++lba) bench.disk().setSector(lba, zeros);
    for (u64 back = 1; back < 100; ++back) bench.disk().setSector(kDiskSectors - back, zeros);
    ASSERT_EQ(restoreTable(bench.reopen(), backup), Error::none);
    EXPECT_TRUE(bench.disk().sameContent(before));
  }
}

TEST(TableBackup, FilesThatWereTamperedWithAreRefused) {
  TableBench bench(diskFromScript(kDiskSectors, kThreeVolumes));
  std::vector<u8> file = encodeTableBackup(backupOf(bench.drive()));
  TableBackup read;
  for (const std::size_t at :
       {std::size_t{12}, std::size_t{20}, std::size_t{36}, file.size() / 2, file.size() - 1}) {
    std::vector<u8> changed = file;
    changed[at] ^= 0x81;
    EXPECT_EQ(decodeTableBackup(changed, read), Error::corrupt) << at;
  }
  EXPECT_EQ(decodeTableBackup(std::span(file).first(file.size() - 600), read), Error::corrupt);
  file[0] = 'X';
  EXPECT_EQ(decodeTableBackup(file, read), Error::notThisFormat);
  EXPECT_EQ(decodeTableBackup({}, read), Error::notThisFormat);
}

TEST(TableBackup, BackupsThatDoNotFitTheDiskWriteNothing) {
  TableBench bench(diskFromScript(kDiskSectors, kThreeVolumes));
  const TableBackup good = backupOf(bench.drive());
  MemoryDisk before = bench.disk().copy();
  const auto refused = [&](auto change, RestoreOptions options = {}) {
    TableBackup backup = good;
    change(backup);
    const Failure error = restoreTable(bench.drive(), backup, options);
    EXPECT_TRUE(bench.disk().sameContent(before));
    return error;
  };
  EXPECT_EQ(refused([](TableBackup& b) { b.sectorSizeBytes = 4096; }, {true}),
            Error::backupOfOtherDisk);
  EXPECT_EQ(refused([](TableBackup& b) { b.diskSectors *= 2; }), Error::backupOfOtherDisk);
  EXPECT_EQ(refused([](TableBackup& b) { b.diskSignature = 1; }), Error::backupOfOtherDisk);
  // A sector that the table does not lead to; a first sector that is no table's.
  EXPECT_EQ(refused([](TableBackup& b) { b.sectors.back().lba = 150000; }), Error::corrupt);
  EXPECT_EQ(refused([](TableBackup& b) { b.sectors.erase(b.sectors.begin()); }), Error::corrupt);

  TableBench smaller{MemoryDisk(100000)};
  EXPECT_EQ(restoreTable(smaller.drive(), good, {true}), Error::corrupt);
  TableBench larger{MemoryDisk(kDiskSectors * 2)};
  EXPECT_EQ(restoreTable(larger.drive(), good, {true}), Error::none);
  EXPECT_EQ(readTable(larger.disk()).rows, readTable(bench.disk()).rows);
  TableBench gpt(diskFromScript(kDiskSectors, "label: gpt\n2048,2048\n"));
  EXPECT_EQ(restoreTable(gpt.drive(), good, {true}), Error::none);
  EXPECT_EQ(readTable(gpt.disk()).rows, readTable(bench.disk()).rows);
}

TEST(TableBackup, AnotherDiskIsToldByItsIdentityAndItsPartitionsAreSpared) {
  const std::string gptId = "label: gpt\nlabel-id: 11111111-2222-3333-4444-555555555555\n";
  const std::string otherGptId = "label: gpt\nlabel-id: 99999999-2222-3333-4444-555555555555\n";
  const std::string mbrId = "label: dos\nlabel-id: 0x12345678\n";
  const std::string otherMbrId = "label: dos\nlabel-id: 0x87654321\n";
  const std::string mbr = mbrId + "2048,2048\n20480,20480,5\n30720,2048\n";
  const std::string gpt = gptId + "2048,2048\n";
  // Over the last EBR of `mbr`, and over the end of a disk of kDiskSectors.
  const std::string overEbr = "2048,61440\n";
  const std::string overEnd = "4096,300000\n";
  constexpr u64 kLarger = 2 * kDiskSectors;
  struct Case {
    std::string kept;
    u64 sectors;
    std::string present;  // empty: a blank disk
    bool isOther;
    bool isSpared;  // a partition that the restore would write into
  };
  const Case cases[] = {
      {mbr, kDiskSectors, mbrId + overEbr, false, true},
      {mbr, kDiskSectors, otherMbrId, true, false},
      {mbr, kDiskSectors, otherMbrId + overEbr, true, true},
      {mbr, kDiskSectors, "", false, false},
      {mbr, kLarger, "", true, false},
      {mbr, kLarger, mbrId + "2048,2048\n", false, false},
      {mbr, kDiskSectors - 8, mbrId, true, false},
      {gpt, kDiskSectors, gptId, false, false},
      {gpt, kDiskSectors, otherGptId, true, false},
      {gpt, kLarger, gptId + "4096,2048\n", false, false},
      {gpt, kLarger, gptId + overEnd, false, true},
      {gpt, kLarger, otherGptId + overEnd, true, true},
      {gpt, kLarger, otherMbrId + overEnd, true, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.sectors) + " " + c.kept + c.present);
    TableBench from(diskFromScript(kDiskSectors, c.kept));
    const TableBackup backup = backupOf(from.drive());
    TableBench to(c.present.empty() ? MemoryDisk(c.sectors) : diskFromScript(c.sectors, c.present));
    EXPECT_EQ(isOfOtherDisk(to.drive(), backup), c.isOther);
    EXPECT_EQ(overwrittenByRestore(to.drive(), backup) != nullptr, c.isSpared);
    MemoryDisk before = to.disk().copy();
    if (c.isOther) {
      EXPECT_EQ(restoreTable(to.drive(), backup), Error::backupOfOtherDisk);
      EXPECT_TRUE(to.disk().sameContent(before));
    }
    EXPECT_EQ(restoreTable(to.drive(), backup, {.otherDisk = true}).code,
              c.isSpared ? Error::sectorsInUse : Error::none);
    EXPECT_EQ(to.disk().sameContent(before), c.isSpared);
  }
}

TEST(TableBackup, EachFailedTransferOfARestoreLeavesTheOldTable) {
  TableBench bench(diskFromScript(kDiskSectors, kThreeVolumes));
  const TableBackup backup = backupOf(bench.drive());
  changeMuch(bench.drive());
  MemoryDisk before = bench.disk().copy();
  forEachFault(before, kFailedRequests, [&](FaultRound& round) {
    const auto drive = TableBench::openOn(round.sharedDisk(), bench.host());
    round.begin();
    const Failure error = restoreTable(*drive, backup);
    if (!error) return;
    // A medium that takes nothing any more keeps what was written before.
    const bool mayKeep = round.fault().forever && round.fault().kind != Fault::Kind::read;
    EXPECT_TRUE(error == Error::read || error == Error::write || mayKeep) << codeOf(error);
    EXPECT_TRUE(mayKeep || round.medium().sameContent(before));
  });
  // After a power cut the backup can be restored again, whatever was written.
  std::unique_ptr<MemoryDisk> restored;
  const auto restore = [&](FaultRound& round) {
    ASSERT_EQ(restoreTable(*TableBench::openOn(round.sharedDisk(), bench.host()), backup),
              Error::none);
    restored = std::make_unique<MemoryDisk>(round.medium().copy());
  };
  forEachPowerCut(before, restore, [&](MemoryDisk& after) {
    TableBench again(after.copy());
    ASSERT_EQ(restoreTable(again.drive(), backup), Error::none);
    EXPECT_TRUE(again.disk().sameContent(*restored));
  });
}

TEST(TableBackup, OldTablesAreKeptByDateAndTheOldestGo) {
  TableBench bench(diskFromScript(kDiskSectors, kThreeVolumes));
  bench.disk().setName("/images/My disk.img");
  const TempFolder folder;
  folder.write("table-My_disk.img-notes.txt", "stays");
  std::string path;
  ASSERT_EQ(keepOldTable(bench.drive(), folder.path(), bench.host(), &path), Error::none);
  EXPECT_EQ(path, folder.file("table-My_disk.img-20231114-221320.tbk"));
  std::string second;
  ASSERT_EQ(keepOldTable(bench.drive(), folder.path(), bench.host(), &second), Error::none);
  EXPECT_NE(second, path);
  for (std::size_t i = 0; i < kKeptTables - 1; ++i) {
    bench.host().seconds += 100;
    ASSERT_EQ(keepOldTable(bench.drive(), folder.path(), bench.host()), Error::none);
  }
  TableBackup read;
  EXPECT_EQ(readTableBackup(path, read), Error::noSuchFile);
  EXPECT_EQ(readTableBackup(second, read), Error::none);
  EXPECT_EQ(folder.read("table-My_disk.img-notes.txt"), "stays");
  EXPECT_EQ(keepOldTable(bench.drive(), folder.file("missing"), bench.host()), Error::cannotCreate);
}

}  // namespace
}  // namespace tallowin
