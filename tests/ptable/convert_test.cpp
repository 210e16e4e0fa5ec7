// Conversions between the schemes: the partitions stay, each refusal has its code, and the old or
// the new table is on the disk whatever fails.
#include "ptable/convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>

#include "disk/mbr_record.h"
#include "disk/recording_disk.h"
#include "probe/type_catalogue.h"
#include "ptable/embr/embr_sync.h"
#include "ptable/gpt/gpt_types.h"
#include "ptable/table_backup.h"
#include "ptable/table_bench.h"
#include "support/disk_file.h"
#include "support/fault_loops.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u64 kSectors = 64 * kMiB / 512;
constexpr const char* kPrimaries =
    "label: dos\nlabel-id: 0x12345678\n1:start=2048,size=4096,type=83,bootable\n"
    "3:start=40960,size=8192,type=7\n";
constexpr const char* kVolumes =
    "label: dos\nlabel-id: 0x12345678\n1:start=2048,size=4096,type=83\n"
    "2:start=8192,size=20480,type=f\n3:start=30720,size=2048,type=7\n"
    "4:start=32768,size=2048,type=b\n5:start=10240,size=2048,type=83\n"
    "6:start=16384,size=2048,type=82\n";
constexpr const char* kGptOfThree =
    "label: gpt\n1:start=2048,size=4096\n7:start=40960,size=8192,name=second\n"
    "120:start=50000,size=1\n";
constexpr const char* kGptOfSix =
    "label: gpt\nstart=2048,size=64\nstart=4096,size=64\nstart=6144,size=64\nstart=8192,size=64\n"
    "start=10240,size=64\nstart=12288,size=64\n";

// Without numbers and active marks, which belong to the slots of the boot sector.
std::string picture(MemoryDisk& disk) {
  static const std::regex ofSlots("[0-9?]+: | \\*");
  TableBench bench(disk.copy());
  return bench.drive().schemeName() +
         ("\n" + std::regex_replace(usedRows(bench.drive()), ofSlots, ""));
}

Failure toGpt(Drive& drive) { return convertToGpt(drive, false); }
Failure toGptWithReserved(Drive& drive) { return convertToGpt(drive, true); }
Failure toEmbr(Drive& drive) { return convertToEmbr(drive, false); }
Failure toLimitedEmbr(Drive& drive) { return convertToEmbr(drive, true); }
Failure toMbr(Drive& drive) { return convertToMbr(drive, false); }

using Conversion = Failure (*)(Drive&);

MemoryDisk converted(MemoryDisk disk, Conversion run) {
  TableBench bench(std::move(disk));
  EXPECT_EQ(run(bench.drive()), Error::none);
  return bench.disk().copy();
}

// Start and end of all partitions without the containers of volumes.
std::set<std::pair<u64, u64>> extentsOn(MemoryDisk& disk) {
  TableBench bench(disk.copy());
  std::set<std::pair<u64, u64>> extents;
  for (const PartitionEntry* entry : entriesOf(bench.drive())) {
    const auto* top = dynamic_cast<const TableEntry*>(entry);
    if (!entry->isFree() && !(top && top->volumes))
      extents.insert({entry->startSector, entry->endSector});
  }
  return extents;
}

struct Case {
  const char* what;
  MemoryDisk disk;
  Conversion run;
  Scheme scheme;
  std::set<u64> writes;  // of the first sectors; behind them only the backup of a GPT
};

std::vector<Case> cases() {
  // Opened once, so that all volumes have their numbers on the disk.
  const auto dos = [](const char* script) {
    TableBench bench(diskFromScript(kSectors, script));
    return bench.disk().copy();
  };
  std::set<u64> gptSectors;
  for (u64 lba = 0; lba < 34; ++lba) gptSectors.insert(lba);
  std::vector<Case> all;
  all.push_back({"MBR to GPT", dos(kPrimaries), toGpt, Scheme::gpt, gptSectors});
  all.push_back({"MBR with volumes to GPT", dos(kVolumes), toGpt, Scheme::gpt, gptSectors});
  all.push_back({"MBR to EMBR", dos(kPrimaries), toEmbr, Scheme::embr, {0, 1}});
  all.push_back(
      {"MBR with volumes to limited EMBR", dos(kVolumes), toLimitedEmbr, Scheme::embr, {0, 1}});
  all.push_back({"empty MBR to EMBR", dos("label: dos\n"), toEmbr, Scheme::embr, {0, 1}});
  all.push_back({"GPT to MBR", dos(kGptOfThree), toMbr, Scheme::mbr, {0, 1, 2}});
  all.push_back({"GPT to EMBR", dos(kGptOfSix), toEmbr, Scheme::embr, {0, 1, 2}});
  all.push_back({"EMBR to MBR", converted(dos(kVolumes), toEmbr), toMbr, Scheme::mbr, {0, 1}});
  all.push_back({"EMBR with volumes to GPT", converted(dos(kVolumes), toEmbr), toGpt, Scheme::gpt,
                 gptSectors});
  all.push_back(
      {"EMBR of six to GPT", converted(dos(kGptOfSix), toEmbr), toGpt, Scheme::gpt, gptSectors});
  all.push_back({"limited EMBR to GPT", converted(dos(kPrimaries), toLimitedEmbr), toGpt,
                 Scheme::gpt, gptSectors});
  all.push_back({"GPT to limited EMBR", dos(kGptOfThree), toLimitedEmbr, Scheme::embr, {0, 1, 2}});
  return all;
}

TEST(Convert, PartitionsStayAndOnlyTheTablesAreWritten) {
  for (Case& c : cases()) {
    MemoryDisk disk = c.disk.copy();
    FakeHost host;
    auto recording = std::make_shared<RecordingDisk>(disk);
    const auto drive = TableBench::openOn(recording, host);
    ASSERT_EQ(c.run(*drive), Error::none) << c.what;
    ASSERT_EQ(drive->reread(), Error::none);
    EXPECT_EQ(drive->scheme(), c.scheme) << c.what;
    EXPECT_FALSE(drive->table().hasErrors()) << c.what;
    EXPECT_EQ(extentsOn(disk), extentsOn(c.disk)) << c.what;
    for (const WriteLog::Step& step : recording->log().steps()) {
      for (u64 lba = step.lba; lba < step.lba + step.count; ++lba)
        EXPECT_TRUE(c.writes.contains(lba) || lba >= kSectors - 33) << c.what << ": " << lba;
    }
    if (c.scheme == Scheme::gpt) {
      EXPECT_EQ(gptProblems(disk), "") << c.what;
      EXPECT_EQ(gptRowsOf(*drive), gptRowsBySfdisk(disk)) << c.what;
    }
    if (c.scheme == Scheme::mbr) {
      const SfdiskTable seen = readTable(disk);
      EXPECT_EQ(seen.problems, "") << c.what;
      EXPECT_EQ(seen.rows, rowsOf(*drive)) << c.what;
    }
    EXPECT_EQ(c.run(*drive), Error::none) << c.what << ": nothing to do the second time";
  }
}

// What another program reads of the disk: its kind of table, and the extents in it.
std::string pictureOfOthers(MemoryDisk& disk) {
  const TempFolder folder;
  storeDisk(disk, folder.file("disk.img"));
  const std::string dump = runProgram({"sfdisk", "-d", folder.file("disk.img")}).output;
  static const std::regex telling("label: [a-z]+|start= *[0-9]+, size= *[0-9]+");
  std::set<std::string> lines;
  for (auto line = std::sregex_iterator(dump.begin(), dump.end(), telling);
       line != std::sregex_iterator(); ++line)
    lines.insert(line->str());
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

// Others are asked once for each pair of schemes.
TEST(Convert, EachFailedTransferLeavesTheTableThatTheErrorNamesForOtherProgramsToo) {
  std::set<std::string> asked;
  for (Case& c : cases()) {
    TableBench bench(c.disk.copy());
    const bool asksOthers =
        asked.insert(bench.drive().schemeName() + std::to_string(static_cast<int>(c.scheme)))
            .second;
    const auto seen = [asksOthers](MemoryDisk& disk) {
      return picture(disk) + (asksOthers ? pictureOfOthers(disk) : "");
    };
    expectFaultsAreTold(c.disk, {c.what, c.run, seen, {}});
  }
}

// Entries of the boot sector that are no partition of the GPT would become some at the next start,
// and take the slots of others.
TEST(Convert, StrangeSlotsBesideAGptAreNamedAndOnlyDroppedForWhoInsists) {
  MemoryDisk disk = diskFromScript(kSectors, kGptOfThree);
  editSector<MbrRecord>(disk, 0, [](MbrRecord& mbr) {
    for (std::size_t i = 1; i < kMbrSlots; ++i) mbr.slots[i] = slot(0x83, 60000 + i * 100, 50);
  });
  for (const Scheme target : {Scheme::mbr, Scheme::embr}) {
    TableBench bench(disk.copy());
    const auto named = overwrittenByTable(bench.drive(), target);
    ASSERT_TRUE(named.has_value());
    EXPECT_NE(named->find("entry 2 of the boot sector"), std::string::npos) << *named;
  }
  for (const Conversion run : {toMbr, toEmbr, toLimitedEmbr})
    expectRefused(disk.copy(), run, Error::sectorsInUse, "strange slots");
  TableBench bench(disk.copy());
  ASSERT_EQ(convertToEmbr(bench.drive(), true, TrackContent::overwrite), Error::none);
  EXPECT_EQ(readTable(bench.disk()).rows.size(), 3U);
  EmbrSync sync;
  ASSERT_EQ(synchronizeEmbr(
                bench.reopen(), [] { return true; }, sync),
            Error::none);
  EXPECT_FALSE(sync.wrote);
  EXPECT_EQ(extentsOn(bench.disk()), extentsOn(disk));
}

// A board's loader between the header of a GPT and its entries outlives every conversion.
TEST(Convert, ALoaderBeforeAMovedArrayStays) {
  MemoryDisk disk = diskFromCommands(kSectors * 512, 512,
                                     {words("sgdisk -j 64 -n 1:2048:4095 -n 2:8192:16383 IMAGE")});
  for (u64 lba = 2; lba < 64; ++lba) disk.setSector(lba, std::vector<u8>(512, 0x5A));
  for (const Conversion run : {toMbr, toEmbr, toLimitedEmbr}) {
    TableBench bench(disk.copy());
    ASSERT_EQ(run(bench.drive()), Error::none);
    EXPECT_EQ(extentsOn(bench.disk()), extentsOn(disk));
    for (u64 lba = 2; lba < 64; ++lba) EXPECT_EQ(bench.disk().sector(lba), disk.sector(lba)) << lba;
  }
}

TEST(Convert, TypesFollowTheirMeaningBothWays) {
  struct Same {
    const char* byte;
    const char* guid;
  };
  const Same all[] = {{"83", "0FC63DAF-8483-4772-8E79-3D69D8477DE4"},
                      {"82", "0657FD6D-A4AB-43C4-84E5-0933C84B4F4F"},
                      {"8e", "E6D6D379-F507-44C2-A23C-238F2A3DF928"},
                      {"fd", "A19D880F-05FC-4D3B-A006-743F0F84911E"},
                      {"27", "DE94BBA4-06D1-4D40-A16A-BFD50179D6AC"},
                      {"ef", "C12A7328-F81F-11D2-BA4B-00A0C93EC93B"},
                      {"7", "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7"}};
  for (const Same& same : all) {
    TableBench bench(diskFromScript(
        kSectors, std::string("label: dos\n1:start=2048,size=4096,type=") + same.byte + "\n"));
    const auto before = readTable(bench.disk()).rows;
    ASSERT_EQ(toGpt(bench.drive()), Error::none);
    EXPECT_EQ(gptRowsOf(bench.reopen()).at(0).type, same.guid) << same.byte;
    MemoryDisk gpt = bench.disk().copy();
    ASSERT_EQ(toMbr(bench.drive()), Error::none);
    EXPECT_EQ(readTable(bench.disk()).rows, before) << same.byte;
    TableBench embr(std::move(gpt));
    ASSERT_EQ(toEmbr(embr.drive()), Error::none);
    EXPECT_EQ(readTable(embr.disk()).rows, before) << same.byte;
    EXPECT_EQ(rowsOf(embr.reopen()), before) << same.byte;
    // Made on a GPT it gets the same.
    TableBench made(diskFromScript(kSectors, "label: gpt\n"));
    const u16 type = static_cast<u16>(std::stoul(same.byte, nullptr, 16));
    ASSERT_EQ(made.drive().add({.startSector = 2048, .endSector = 4095, .type = type}),
              Error::none);
    EXPECT_EQ(gptRowsBySfdisk(made.disk()).at(0).type, same.guid) << same.byte;
  }
  // The slot of a hybrid keeps its own, and a GPT that has no disk signature gets one.
  TableBench hybrid(diskFromCommands(
      kSectors * 512, 512, {words("sgdisk -n 1:2048:4095 -n 2:8192:16383 -t 2:0700 -h 2 IMAGE")}));
  editSector<MbrRecord>(hybrid.disk(), 0, [](MbrRecord& mbr) {
    mbr.diskSignature = 0U;
    for (MbrSlotRecord& slot : mbr.slots)
      if (slot.startLba == 8192U) slot.type = 0x0C;
  });
  ASSERT_EQ(toMbr(hybrid.reopen()), Error::none);
  const SfdiskTable seen = readTable(hybrid.disk());
  EXPECT_NE(seen.diskSignature, 0U);
  ASSERT_EQ(seen.rows.size(), 2U);
  EXPECT_TRUE(std::ranges::any_of(
      seen.rows, [](const auto& row) { return row.start == 8192 && row.type == 0x0C; }));
}

class EarlierMbrTest : public ::testing::Test {
 protected:
  // A disk with volumes, boot code and an active mark, as a GPT, with its old table kept.
  EarlierMbrTest() : before_(diskFromScript(kSectors, std::string(kVolumes) + "\n")) {
    std::vector<u8> sector = before_.sector(0);
    for (std::size_t i = 0; i < kBootCodeBytes; ++i) sector[i] = static_cast<u8>(i | 1);
    recordAt<MbrRecord>(std::span(sector))->slots[0].bootIndicator = kBootActive;
    before_.setSector(0, sector);
    TableBench bench(before_.copy());
    EXPECT_EQ(keepOldTable(bench.drive(), folder_.path(), bench.host()), Error::none);
    EXPECT_EQ(toGptWithReserved(bench.drive()), Error::none);
    gpt_.emplace(bench.disk().copy());
  }
  Failure back(Drive& drive) {
    const auto earlier = findEarlierMbr(drive, folder_.path());
    return earlier ? convertToMbr(drive, false, TrackContent::keep, &*earlier)
                   : Failure(Error::noTable);
  }

  TempFolder folder_;
  MemoryDisk before_;
  std::optional<MemoryDisk> gpt_;
};

TEST_F(EarlierMbrTest, ComesBackWithBootCodeSignatureMarkTypesAndVolumes) {
  TableBench bench(gpt_->copy());
  ASSERT_EQ(gptRowsOf(bench.drive()).size(), 6U) << "with the reserved one";
  // The boot records of volumes lie in what is free space for a GPT.
  bench.disk().setSector(8192, std::vector<u8>(512, 0xCC));
  ASSERT_EQ(back(bench.drive()), Error::none);
  for (u64 lba = 0; lba < 20000; ++lba)
    ASSERT_EQ(bench.disk().sector(lba), before_.sector(lba)) << lba;
  EXPECT_EQ(readTable(bench.disk()).rows, readTable(before_).rows);
  EXPECT_NE(bench.disk().sector(kSectors - 1)[0], 'E');
}

TEST_F(EarlierMbrTest, OnlyWhileThePartitionsAreTheSame) {
  TableBench bench(gpt_->copy());
  PartitionEntry& first = *bench.drive().findByKernelNumber(1);
  ASSERT_EQ(bench.drive().changeProperties(first, {.typeGuid = kGptLinuxSwap}), Error::none);
  ASSERT_EQ(back(bench.reopen()), Error::none);
  auto rows = readTable(before_).rows;
  rows[0].type = 0x82;
  EXPECT_EQ(readTable(bench.disk()).rows, rows) << "a type that was changed since";
  TableBench fewer(gpt_->copy());
  ASSERT_EQ(fewer.drive().remove(*fewer.drive().findByKernelNumber(1)), Error::none);
  EXPECT_EQ(back(fewer.reopen()), Error::noTable);
}

TEST_F(EarlierMbrTest, FailuresAndPowerCutsLeaveTheOldTableOrTheNewOne) {
  TableBench bench(gpt_->copy());
  const auto earlier = findEarlierMbr(bench.drive(), folder_.path());
  ASSERT_TRUE(earlier.has_value());
  const auto run = [&](Drive& drive) {
    return convertToMbr(drive, false, TrackContent::keep, &*earlier);
  };
  const TableChange change = {"back", run, picture, {}};
  expectFaultsAreTold(*gpt_, change);
  expectCutsLeaveOldOrNew(*gpt_, change);
}

TEST(Convert, TheCopyOfTheOldTableBringsItBackByteForByte) {
  for (Case& c : cases()) {
    TableBench bench(c.disk.copy());
    TableBackup backup;
    ASSERT_EQ(takeTableBackup(bench.drive(), 0, backup), Error::none) << c.what;
    ASSERT_EQ(c.run(bench.drive()), Error::none) << c.what;
    bench.reopen();
    ASSERT_EQ(restoreTable(bench.drive(), backup), Error::none) << c.what;
    EXPECT_EQ(picture(bench.disk()), picture(c.disk)) << c.what;
    for (u64 lba = 0; lba < 63; ++lba)
      EXPECT_EQ(bench.disk().sector(lba), c.disk.sector(lba)) << c.what << ": " << lba;
    const auto hasBackup = [](MemoryDisk& disk) { return disk.sector(kSectors - 1)[0] == 'E'; };
    EXPECT_EQ(hasBackup(bench.disk()), hasBackup(c.disk)) << c.what;
  }
}

// Also after the next start, which brings an EMBR up to date with the boot sector.
TEST(Convert, APowerCutLeavesTheOldTableOrTheNewOne) {
  for (Case& c : cases()) {
    const auto extents = extentsOn(c.disk);
    const auto loseNothingAtTheNextStart = [&](MemoryDisk& disk) {
      TableBench bench(disk.copy());
      EmbrSync done;
      EXPECT_EQ(synchronizeEmbr(
                    bench.drive(), [] { return true; }, done),
                Error::none);
      EXPECT_EQ(extentsOn(bench.disk()), extents) << c.what;
      EXPECT_FALSE(done.wrote) << c.what;
    };
    expectCutsLeaveOldOrNew(c.disk, {c.what, c.run, picture, {}}, loseNothingAtTheNextStart);
  }
}

// There and back as often as one likes: what an old table leaves behind is no hindrance.
TEST(Convert, LeftoversOfOwnTablesDoNotBlockTheNextConversion) {
  TableBench small(diskFromScript(kSectors, kGptOfThree));
  TableBench large(MemoryDisk(64 * kMiB / 4096, 4096), alignedTo(256));
  for (const u64 start : {256, 1024})
    ASSERT_EQ(addAt(large.drive(), start, 512, 0x83, "p"), Error::none);
  for (TableBench* bench : {&small, &large}) {
    const auto extents = extentsOn(bench->disk());
    for (const Conversion run : {toEmbr, toMbr, toEmbr, toMbr, toGpt, toEmbr, toGpt, toMbr, toGpt,
                                 toLimitedEmbr, toMbr, toLimitedEmbr, toGpt}) {
      ASSERT_EQ(run(bench->drive()), Error::none) << bench->drive().schemeName();
      bench->reopen(bench == &large ? alignedTo(256) : DriveOpenOptions());
      EXPECT_FALSE(bench->drive().table().hasErrors());
      EXPECT_EQ(extentsOn(bench->disk()), extents) << bench->drive().schemeName();
    }
  }
  EXPECT_EQ(gptProblems(small.disk()), "");
}

TEST(Convert, EachRefusalHasItsCodeAndWritesNothing) {
  const auto dos = [](const std::string& script, u64 sectors = kSectors) {
    return diskFromScript(sectors, script);
  };
  const std::string full =
      "label: dos\n1:start=2048,size=" + std::to_string(kSectors - 2048) + ",type=83\n";
  expectRefused(dos(full), toGpt, Error::partitionBeyondTable, "no room for the backup");
  expectRefused(dos("label: dos\n1:start=33,size=2048,type=83\n"), toGpt,
                Error::partitionBeyondTable, "no room for the entries");
  expectRefused(dos("label: dos\n1:start=1,size=2048,type=83\n"), toEmbr, Error::outsideUsableArea,
                "no room for the header");
  expectRefused(dos("label: dos\n1:start=2048,size=110000,type=83\n"), toGptWithReserved,
                Error::noRoomForReserved, "no block for the reserved partition");
  expectRefused(dos("label: dos\n1:start=2048,size=4096,type=42\n"), toGpt, Error::dynamicDisk,
                "dynamic disk");
  expectRefused(dos("label: dos\n1:start=2048,size=4096,type=42\n"), toEmbr, Error::dynamicDisk,
                "dynamic disk");
  expectRefused(dos(kGptOfSix), toMbr, Error::tooManyPartitions, "six");
  expectRefused(dos(kGptOfSix), toLimitedEmbr, Error::tooManyPartitions, "six");
  const u64 huge = u64{3} << 31;
  const std::string beyond = "label: gpt\nstart=2048,size=5000000000\n";
  expectRefused(dos(beyond, huge), toMbr, Error::partitionBeyondTable, "beyond 2 TiB");
  expectRefused(dos(beyond, huge), toEmbr, Error::partitionBeyondTable, "beyond 2 TiB");
  MemoryDisk damaged = dos(kGptOfThree);
  damaged.setSector(kSectors - 1, std::vector<u8>(512));
  expectRefused(damaged.copy(), toMbr, Error::gptTableCheck, "no backup");
  // Whole to its last sector is no hindrance for the others.
  TableBench bench(dos(full));
  EXPECT_EQ(toEmbr(bench.drive()), Error::none);
  bench.reopen();
  EXPECT_EQ(toMbr(bench.drive()), Error::none);
  EXPECT_EQ(readTable(bench.disk()).rows, rowsOf(bench.reopen()));
}

TEST(Convert, BootLoadersInTheWayAreNamedAndKept) {
  MemoryDisk disk = diskFromScript(kSectors, kPrimaries);
  disk.setSector(1, std::vector<u8>(512, 0x5A));
  TableBench bench(disk.copy());
  for (const Scheme target : {Scheme::gpt, Scheme::embr}) {
    const auto named = overwrittenByTable(bench.drive(), target);
    ASSERT_TRUE(named.has_value());
    EXPECT_NE(named->find("in sector 1"), std::string::npos) << *named;
  }
  expectRefused(disk.copy(), toGpt, Error::sectorsInUse, "core image");
  expectRefused(disk.copy(), toEmbr, Error::sectorsInUse, "core image");
  EXPECT_EQ(convertToGpt(bench.drive(), false, TrackContent::overwrite), Error::none);
  // An EMBR takes one sector, and a boot manager in front of it stays.
  MemoryDisk manager = diskFromScript(kSectors, kPrimaries);
  std::vector<u8> sector(512, 0x11);
  std::ranges::copy(std::string_view("IBM "), sector.begin() + 2);
  manager.setSector(1, sector);
  manager.setSector(3, std::vector<u8>(512, 0x5A));
  TableBench managed(manager.copy());
  EXPECT_EQ(toEmbr(managed.drive()), Error::none);
  EXPECT_EQ(managed.disk().sector(1), manager.sector(1));
  EXPECT_EQ(managed.disk().sector(3), manager.sector(3));
  EXPECT_TRUE(managed.reopen().isEmbr());
  EXPECT_EQ(toMbr(managed.drive()), Error::none);
  EXPECT_EQ(managed.disk().sector(1), manager.sector(1));
  EXPECT_FALSE(managed.reopen().isEmbr());

  MemoryDisk biosBoot =
      diskFromScript(kSectors,
                     "label: gpt\nstart=2048,size=64\n"
                     "start=4096,size=64,type=21686148-6449-6E6F-744E-656564454649\n");
  TableBench gpt(biosBoot.copy());
  const auto named = overwrittenByTable(gpt.drive(), Scheme::mbr);
  ASSERT_TRUE(named.has_value());
  EXPECT_NE(named->find("BIOS Boot partition 2"), std::string::npos) << *named;
  expectRefused(biosBoot.copy(), toMbr, Error::sectorsInUse, "BIOS Boot");
}

// It is gone for other programs too, and the kept copy brings it back whole.
TEST(Convert, AVolumeWithoutATableIsRemovedOrGivesWayToOneWhenThatIsAllowed) {
  const std::vector<std::string> makers[] = {{"mkfs.fat", "-F32", "IMAGE"},
                                             {"mkfs.ext4", "-q", "-F", "IMAGE"},
                                             {"mkfs.xfs", "-q", "IMAGE"},
                                             {"mkfs.ntfs", "-q", "-F", "-f", "IMAGE"},
                                             {"mkswap", "IMAGE"}};
  for (const std::vector<std::string>& maker : makers) {
    SCOPED_TRACE(maker.front());
    if (!hasProgram(maker.front())) continue;
    TableBench bench(diskFromCommands(400 * kMiB, 512, {maker}));
    ASSERT_EQ(bench.drive().scheme(), Scheme::wholeDisk);
    for (const Conversion run : {toMbr, toGpt, toEmbr})
      EXPECT_EQ(run(bench.drive()), Error::noTable);
    MemoryDisk before = bench.disk().copy();
    TableBackup backup;
    ASSERT_EQ(takeTableBackup(bench.drive(), 0, backup), Error::none);
    for (const bool removes : {true, false}) {
      Drive& drive = bench.reopen();
      ASSERT_EQ(removes ? drive.remove(*drive.table().entries.front()) : convertToMbr(drive, true),
                Error::none);
      EXPECT_EQ(bench.reopen().partitionCount(), 0U);
      const TempFolder folder;
      storeDisk(bench.disk(), folder.file("disk.img"));
      const std::string seen =
          runProgram({"blkid", "-p", "-o", "export", folder.file("disk.img")}).output;
      EXPECT_EQ(seen.empty(), removes) << seen;
      EXPECT_EQ(seen.find("PTTYPE=dos") != std::string::npos, !removes) << seen;
      EXPECT_EQ(seen.find("\nTYPE="), std::string::npos) << seen;
      EXPECT_EQ(restoreTable(bench.drive(), backup), Error::none);
      EXPECT_TRUE(bench.disk().sameContent(before));
    }
  }
}

}  // namespace
}  // namespace tallowin
