#include "ops/slide_flow.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <fstream>

#include "base/bytes.h"
#include "disk/mbr_record.h"
#include "ops/flow_bench.h"
#include "ops/slide_model.h"
#include "ops/table_change.h"
#include "ptable/convert.h"
#include "support/disk_file.h"
#include "support/oracle.h"
#include "support/sfdisk.h"

namespace tallowin {
namespace {

std::function<void(SlideModel&)> slideTo(u64 start, bool dataOnly = true) {
  return [=](SlideModel& model) {
    model.exactStart = start;
    model.dataOnly = dataOnly && model.dataOnlyControl.enabled;
    model.ok();
  };
}

// What lies in a sector says which one it was.
void numberSectors(MemoryDisk& disk, u64 first, u64 count) {
  std::vector<u8> sector(disk.sectorSize());
  for (u64 i = 0; i < count; ++i) {
    for (std::size_t at = 0; at + 8 <= sector.size(); at += 8)
      *recordAt<Le64>(std::span(sector), at) = first + i;
    EXPECT_FALSE(disk.writeSectors(first + i, sector.data(), 1));
  }
}

u64 numberAt(MemoryDisk& disk, u64 lba) {
  const std::vector<u8> sector = disk.sector(lba);
  return *recordAt<Le64>(std::span<const u8>(sector), 64);
}

class SlideFlowTest : public FlowTest {
 protected:
  FlowResult slide(Drive& drive, ScriptedFrontEnd& ui, u64 start, u64 newStart) {
    PartitionEntry* entry = findByStart(drive, start);
    EXPECT_NE(nullptr, entry) << start;
    ui.expect<SlideModel>(slideTo(newStart));
    ui.expectMessage("There are certain events that can cause data loss", MessageResult::goOn);
    return slideFlow(with(ui), drive, *entry);
  }
};

// A table as sfdisk makes it, a partition of it, and where it goes.
struct Case {
  const char* name;
  const char* script;
  u32 number;
  i64 by;
};

class SlideTable : public SlideFlowTest, public ::testing::WithParamInterface<Case> {};

constexpr const char* kMbr =
    "label: dos\n"
    "start=20480, size=20480, type=83\n"
    "start=81920, size=204800, type=5\n"
    "start=300000, size=1000, type=83\n"
    "start=83968, size=20480, type=83\n"
    "start=124928, size=20480, type=83\n"
    "start=200704, size=20480, type=83\n";
constexpr const char* kGpt =
    "label: gpt\nfirst-lba: 34\n"
    "start=20480, size=20480, type=L, name=one\n"
    "start=81920, size=20480, type=L, name=two\n";

// Every other partition stays, the one goes with all that is in it.
TEST_P(SlideTable, OtherProgramsFindItAtItsNewPlace) {
  const Case& c = GetParam();
  MemoryDisk disk = diskFromScript(kSectors, c.script);
  SfdiskTable before = readTable(disk);
  ASSERT_EQ("", before.problems);
  auto& row = *std::ranges::find(before.rows, c.number, &SfdiskRow::number);
  const auto drive = open(disk);
  const bool isContainer = row.type == 5;
  if (!isContainer) numberSectors(disk, row.start, row.size);
  const u64 from = row.start;
  const u64 to = from + static_cast<u64>(c.by);
  const auto result = slide(*drive, ui_, from, to);
  EXPECT_EQ(FlowEnd::done, result.end) << codeOf(result.code);
  for (SfdiskRow& other : before.rows)
    if (isContainer && other.number >= 5) other.start += static_cast<u64>(c.by);
  row.start = to;
  const SfdiskTable after = readTable(disk);
  EXPECT_EQ("", after.problems);
  EXPECT_EQ(before.rows, after.rows);
  EXPECT_EQ(tableOf(*open(disk)), tableOf(*drive));
  if (isContainer) return;
  for (u64 i = 0; i < row.size; ++i) ASSERT_EQ(from + i, numberAt(disk, to + i)) << i;
}

INSTANTIATE_TEST_SUITE_P(
    All, SlideTable,
    ::testing::Values(Case{"PrimaryUpByOne", kMbr, 1, 1}, Case{"PrimaryDownByOne", kMbr, 1, -1},
                      Case{"PrimaryUpOverlapping", kMbr, 1, 15000},
                      Case{"PrimaryUp", kMbr, 1, 30720}, Case{"PrimaryDown", kMbr, 1, -18432},
                      Case{"Container", kMbr, 2, 5000}, Case{"ContainerDown", kMbr, 2, -40000},
                      Case{"FirstVolumeUp", kMbr, 5, 3000}, Case{"FirstVolumeFar", kMbr, 5, 18400},
                      Case{"SecondVolumeUp", kMbr, 6, 10000},
                      Case{"SecondVolumeDown", kMbr, 6, -10000},
                      Case{"SecondVolumeFar", kMbr, 6, 50000},
                      Case{"LastVolumeDown", kMbr, 7, -30000}, Case{"LastVolumeUp", kMbr, 7, 65000},
                      Case{"GptUp", kGpt, 1, 30000}, Case{"GptDown", kGpt, 2, -30000},
                      Case{"GptUpByOne", kGpt, 2, 1}),
    [](const auto& test) { return std::string(test.param.name); });

// A FAT volume by another program, with files that it can read back.
class SlideFatTest : public SlideFlowTest {
 protected:
  static constexpr u64 kStart = 20480;
  static constexpr u64 kVolume = 65536;

  void SetUp() override {
    for (const char* judge : {"mkfs.fat", "mcopy", "fsck.fat"})
      if (!hasProgram(judge)) GTEST_SKIP() << judge << " is not installed";
    disk_ = std::make_unique<MemoryDisk>(diskFromScript(
        kSectors, "label: dos\nstart=20480, size=65536, type=6\nstart=200000, size=9, type=83\n"));
    run("mkfs.fat -C -s 2 -h 20480 VOL 32768");
    std::string text;
    for (u32 i = 0; i < 60; ++i) text += std::string(50000, static_cast<char>('a' + i % 26));
    for (const char* name : {"one", "two", "three"}) {
      write(folder_.file(name), name + text);
      run(std::string("mcopy -i VOL ") + folder_.file(name) + " ::/" + name);
    }
    run("mdel -i VOL ::/two");
    MemoryDisk volume = loadDisk(folder_.file("vol"));
    copySectors(volume, 0, *disk_, kStart);
  }

  void run(std::string command) {
    if (const auto at = command.find("VOL"); at != std::string::npos)
      command.replace(at, 3, folder_.file("vol"));
    const ProgramResult result = runProgram(words(command));
    ASSERT_EQ(0, result.status) << command << "\n" << result.output;
  }
  static void write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
  }
  static std::string read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static void copySectors(MemoryDisk& from, u64 fromStart, MemoryDisk& to, u64 toStart) {
    std::vector<u8> bytes(kVolume * 512);
    ASSERT_FALSE(from.readSectors(fromStart, bytes.data(), kVolume));
    ASSERT_FALSE(to.writeSectors(toStart, bytes.data(), kVolume));
  }
  void expectFilesAt(u64 start, u64 hidden) {
    MemoryDisk volume(kVolume);
    copySectors(*disk_, start, volume, 0);
    storeDisk(volume, folder_.file("vol"));
    run("fsck.fat -n VOL");
    for (const char* name : {"one", "three"}) {
      run(std::string("mcopy -n -o -i VOL ::/") + name + " " + folder_.file("back"));
      EXPECT_TRUE(read(folder_.file("back")) == read(folder_.file(name))) << name;
    }
    const std::vector<u8> boot = disk_->sector(start);
    EXPECT_EQ(hidden, *recordAt<Le32>(std::span<const u8>(boot), 28));
  }

  TempFolder folder_;
  std::unique_ptr<MemoryDisk> disk_;
};

TEST_F(SlideFatTest, TheSectorsInUseAreEnough) {
  const auto drive = open(*disk_);
  u64 start = kStart;
  for (const u64 next : {u64{2048}, u64{2049}, u64{100000}, kStart}) {
    EXPECT_EQ(FlowEnd::done, slide(*drive, ui_, start, next).end);
    EXPECT_TRUE(ui_.wasTold("the sectors in use"));
    expectFilesAt(start = next, next);
    if (HasFatalFailure()) return;
  }
}

// Whenever the user presses Cancel, every sector is where it was, or where it was to be.
TEST_F(SlideFatTest, ACancelPutsEverythingBack) {
  const MemoryDisk before = disk_->copy();
  for (u64 poll = 0;; ++poll) {
    disk_ = std::make_unique<MemoryDisk>(before.copy());
    const auto drive = open(*disk_);
    ScriptedFrontEnd ui;
    ui.cancelAtPoll(poll);
    const FlowResult result = slide(*drive, ui, kStart, kStart + 1000);
    const bool isDone = result.end == FlowEnd::done;
    EXPECT_TRUE(isDone || result.end == FlowEnd::cancelled) << codeOf(result.code);
    expectFilesAt(isDone ? kStart + 1000 : kStart, isDone ? kStart + 1000 : kStart);
    ASSERT_NE(nullptr, findByStart(*drive, isDone ? kStart + 1000 : kStart));
    if (isDone || HasFailure()) return;
    ASSERT_LT(poll, 1000U);
  }
}

TEST_F(SlideFlowTest, OnAnEmbrItsSlotGoesWithTheEntry) {
  const auto drive = open(disk_);
  add(*drive, 0, 20480, 0x83, "ONE");
  add(*drive, 0, 20480, 0x83, "TWO");
  ASSERT_EQ(Error::none, convertToEmbr(*drive, false).code);
  ASSERT_EQ(Error::none, drive->reread().code);
  const u64 start = drive->findByListNumber(2)->startSector;
  numberSectors(disk_, start, 20480);
  ASSERT_EQ(FlowEnd::done, slide(*drive, ui_, start, start + 777).end);
  const auto again = open(disk_);
  ASSERT_EQ(Scheme::embr, again->scheme());
  EXPECT_NE(nullptr, findByStart(*again, start + 777));
  EXPECT_FALSE(again->table().hasErrors());
  const auto rows = readTable(disk_).rows;
  EXPECT_TRUE(std::ranges::any_of(
      rows, [&](const SfdiskRow& row) { return row.start == start + 777 && row.size == 20480; }));
  EXPECT_EQ(start, numberAt(disk_, start + 777));
}

TEST_F(SlideFlowTest, TheSlotOfAHybridGoesWithTheEntryOfItsGpt) {
  if (!hasProgram("sgdisk")) GTEST_SKIP() << "sgdisk is not installed";
  TempFolder folder;
  MemoryDisk made = diskFromScript(kSectors, kGpt);
  storeDisk(made, folder.file("disk"));
  ASSERT_EQ(0, runProgram({"sgdisk", "-h", "1:2", folder.file("disk")}).status);
  MemoryDisk disk = loadDisk(folder.file("disk"));
  const auto drive = open(disk);
  ASSERT_EQ(FlowEnd::done, slide(*drive, ui_, 20480, 30001).end);
  storeDisk(disk, folder.file("disk"));
  EXPECT_EQ("", gptProblems(folder.file("disk")));
  EXPECT_EQ(30001U, readGpt(folder.file("disk")).at(0).start);
  const std::vector<u8> mbr = disk.sector(0);
  const auto& slots = recordAt<MbrRecord>(std::span<const u8>(mbr))->slots;
  EXPECT_TRUE(std::ranges::any_of(slots, [](const MbrSlotRecord& slot) {
    return slot.startLba == 30001 && slot.sectorCount == 20480;
  }));
}

TEST_F(SlideFlowTest, SectorsOf4096BytesAreMovedToo) {
  MemoryDisk disk(40000, 4096);
  const auto drive = open(disk);
  add(*drive, 0, 3000, 0x83, "ONE");
  const u64 start =
      drive->table().entries.at(drive->table().entries.front()->isFree())->startSector;
  numberSectors(disk, start, 3000);
  ASSERT_EQ(FlowEnd::done, slide(*drive, ui_, start, 1001).end);
  for (u64 i = 0; i < 3000; ++i) ASSERT_EQ(start + i, numberAt(disk, 1001 + i));
  EXPECT_NE(nullptr, findByStart(*open(disk), 1001));
}

TEST_F(SlideFlowTest, WhatCannotBeIsRefusedBeforeAnythingIsWritten) {
  MemoryDisk disk = diskFromScript(kSectors, kMbr);
  disk.setName("/dev/sda");
  const MemoryDisk before = disk.copy();
  const auto drive = open(disk);
  for (const u64 place : {u64{81920}, u64{0}, u64{500000}, kAllOnes64}) {
    ScriptedFrontEnd ui;
    ui.expect<SlideModel>([&](SlideModel& model) {
      model.exactStart = place;
      model.ok();
      EXPECT_TRUE(model.isOpen()) << "the dialog stays";
      model.cancel();
    });
    ui.expectMessage("(Type:0, Error:11)");
    EXPECT_EQ(FlowEnd::refused, slideFlow(with(ui), *drive, *findByStart(*drive, 20480)).end);
  }
  mount(20480, 20480);
  ui_.expectMessage("mounted");
  EXPECT_EQ(FlowEnd::refused, slideFlow(context_, *drive, *findByStart(*drive, 20480)).end);
  EXPECT_TRUE(disk.sameContent(before));
}

// Between the look at the table and the lock: nothing is moved.
TEST_F(SlideFlowTest, ATableThatChangedMeanwhileIsLeftAlone) {
  MemoryDisk disk = diskFromScript(kSectors, kMbr);
  const auto drive = open(disk);
  ui_.expect<SlideModel>([&](SlideModel& model) {
    ui_.meanwhile([&] {
      const auto other = open(disk);
      EXPECT_EQ(Error::none, other->remove(*findByStart(*other, 300000)).code);
    });
    slideTo(30000)(model);
  });
  ui_.expectMessage("There are certain events", MessageResult::goOn);
  ui_.expectMessage("Another program has changed the partition table");
  EXPECT_EQ(Error::tableChangedMeanwhile,
            slideFlow(context_, *drive, *findByStart(*drive, 20480)).code.code);
  EXPECT_NE(nullptr, findByStart(*open(disk), 20480));
}

TEST_F(SlideFlowTest, TheFieldsShareTheFreeSpace) {
  SlideModel model({{}, false, 9, 20, "no"});
  EXPECT_FALSE(model.dataOnly || model.dataOnlyControl.enabled);
  const auto set = [&](NumberField& field, u32 value) {
    field.setValue(value);
    model.pass();
    return std::pair(model.freeBeforeMiB.value, model.freeAfterMiB.value);
  };
  EXPECT_EQ("29 MiB", model.beforeMaximum);
  EXPECT_EQ(std::pair(5U, 24U), set(model.freeBeforeMiB, 5));
  EXPECT_EQ(std::pair(29U, 0U), set(model.freeBeforeMiB, 500));
  EXPECT_EQ(std::pair(27U, 2U), set(model.freeAfterMiB, 2));
  EXPECT_TRUE(model.isPlaceChanged());
  set(model.freeBeforeMiB, 9);
  EXPECT_FALSE(model.isPlaceChanged());
}

}  // namespace
}  // namespace tallowin
