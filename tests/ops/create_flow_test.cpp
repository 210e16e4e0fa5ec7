#include "ops/create_flow.h"

#include <gtest/gtest.h>

#include "disk/disk_wrapper.h"
#include "ops/flow_bench.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"

namespace tallowin {
namespace {

class CountingLocks : public DiskWrapper {
 public:
  using DiskWrapper::DiskWrapper;
  u32 acquired = 0;

 protected:
  bool acquireLock() override { return ++acquired != 0; }
};

// Enters the values and presses OK, once and no more.
std::function<void(CreateModel&)> tryOnce(const std::string& type, u32 sizeMiB,
                                          const std::function<void(CreateModel&)>& then) {
  return [=](CreateModel& model) {
    model.name = "KEPT";
    model.fileSystem = type;
    model.sizeMiB.value = sizeMiB;
    model.pass();
    model.ok();
    then(model);
    if (model.isOpen()) model.cancel();
  };
}

class CreateFlowTest : public FlowTest {
 protected:
  FlowResult create(Drive& drive, ScriptedFrontEnd& ui, std::size_t freeIndex = 0) {
    return createFlow(with(ui), drive, *freeBlocks(drive).at(freeIndex));
  }
  FlowResult create(Drive& drive, std::size_t freeIndex = 0) {
    return create(drive, ui_, freeIndex);
  }
  bool isZero(u64 lba) { return disk_.sector(lba) == std::vector<u8>(512, 0); }
  void fill(u64 first, u64 last) {
    for (u64 lba = first; lba <= last; ++lba) disk_.setSector(lba, std::vector<u8>(512, 0xFF));
  }
};

TEST_F(CreateFlowTest, APartitionIsWrittenItsStartClearedAndTheOldTableKept) {
  fill(2048, 2300);
  const auto drive = open(disk_);
  ui_.expect<CreateModel>(enter("131", 100));
  EXPECT_EQ(FlowEnd::done, create(*drive).end);
  EXPECT_EQ("1 83h 2048..206847\n", tableOf(*drive));
  EXPECT_EQ("1 83h 2048..206847\n", tableOf(*open(disk_)));
  for (u64 lba = 2048; lba <= 2300; ++lba) EXPECT_EQ(lba < 2056 || lba == 2176, isZero(lba)) << lba;
  EXPECT_EQ(1U, keptTables());
}

TEST_F(CreateFlowTest, WhoCancelsTheFormatGoesOnAndFatIsClearedAsFarAsItsBackupBootSector) {
  fill(2048, 2300);
  MemoryDisk before = disk_.copy();
  const auto drive = open(disk_);
  ui_.expect<CreateModel>(tryOnce("11", 100, [&](CreateModel& model) {
    EXPECT_TRUE(model.isOpen());
    EXPECT_EQ(model.name, "KEPT");
    EXPECT_TRUE(disk_.sameContent(before));
    EXPECT_EQ(0U, keptTables());
    model.format = false;
    model.ok();
  }));
  ui_.expect<FormatModel>([](FormatModel& model) { model.cancel(); });
  EXPECT_EQ(FlowEnd::done, create(*drive).end);
  EXPECT_EQ("1 0Bh 2048..206847\n", tableOf(*drive));
  EXPECT_TRUE(isZero(2054));
  EXPECT_FALSE(isZero(2055));
}

TEST_F(CreateFlowTest, ANewPartitionIsFormattedUnderTheLockThatItWasMadeUnder) {
  const auto locks = std::make_shared<CountingLocks>(disk_);
  const auto drive = open(locks);
  ui_.expect<CreateModel>(enter("6", 100));
  ui_.expect<FormatModel>([](FormatModel& model) { model.ok(); });
  ui_.expect<FormatSummaryModel>([](FormatSummaryModel& model) { model.ok(); });
  EXPECT_EQ(FlowEnd::done, create(*drive).end);
  EXPECT_TRUE(ui_.messages.empty()) << "no question about what is erased";
  EXPECT_EQ(1U, locks->acquired);
  EXPECT_EQ(1U, keptTables());
}

TEST_F(CreateFlowTest, AfterAFailedWriteTheDialogIsOpenForAnotherTry) {
  const auto faulty = std::make_shared<FaultyDisk>(disk_);
  const auto drive = open(faulty);
  faulty->failWrite(0, true);
  ui_.expect<CreateModel>(tryOnce("131", 100, [&](CreateModel& model) {
    EXPECT_TRUE(model.isOpen());
    faulty->failWrite(kAllOnes32);
    model.ok();
    EXPECT_FALSE(model.isOpen());
  }));
  ui_.expectMessage("The old table is still in place.");
  EXPECT_EQ(FlowEnd::done, create(*drive).end);
  EXPECT_EQ("1 83h 2048..206847\n", tableOf(*drive));
}

// It answers no more once its first sector was to be written.
class DyingDisk : public DiskWrapper {
 public:
  using DiskWrapper::DiskWrapper;
  Failure flush() override { return isDead_ ? Failure(Error::flush) : DiskWrapper::flush(); }

 protected:
  Failure transferOut(u64 lba, const void* buffer, u32 count) override {
    isDead_ |= lba == 0;
    return isDead_ ? Failure(Error::write) : DiskWrapper::transferOut(lba, buffer, count);
  }

 private:
  bool isDead_ = false;
};

TEST_F(CreateFlowTest, TheDialogClosesWhenThePartitionMayBeThere) {
  const auto drive = open(std::make_shared<DyingDisk>(disk_));
  ui_.expect<CreateModel>(
      tryOnce("131", 100, [&](CreateModel& model) { EXPECT_FALSE(model.isOpen()); }));
  ui_.expectMessage("The table as it was before is kept in\n" + folders_.backupFolder());
  ui_.expectMessage("It could not be found out whether");
  EXPECT_EQ(create(*drive).code.code, Error::writeFailedTableUnknown);
  EXPECT_EQ(keptTables(), 1U);
}

TEST_F(CreateFlowTest, VolumesFillAnExtendedPartition) {
  const auto drive = open(disk_);
  ui_.expect<CreateModel>(enter("5", 150));
  ASSERT_EQ(FlowEnd::done, create(*drive).end);
  ui_.expect<CreateModel>(enter("131", 50));
  ASSERT_EQ(FlowEnd::done, create(*drive, 1).end);
  ui_.expect<CreateModel>(enter("130", 1000));
  ASSERT_EQ(FlowEnd::done, create(*drive, 1).end);
  EXPECT_EQ(
      "1 05h 2048..309247\n"
      "5 83h 4096..106495\n"
      "6 82h 108544..309247\n",
      tableOf(*drive));
  ASSERT_TRUE(freeBlocks(*drive).size() == 1);
  ui_.expect<CreateModel>(enter("131", 1000));
  ASSERT_EQ(FlowEnd::done, create(*drive).end);
  EXPECT_EQ("2 83h 309248..409599\n", tableOf(*drive).substr(tableOf(*drive).find("2 83h")));
}

TEST_F(CreateFlowTest, WhatIsMissingIsToldAndTheDialogStaysOpen) {
  const auto drive = open(disk_);
  MemoryDisk before = disk_.copy();
  ui_.expect<CreateModel>([this](CreateModel& model) {
    const auto tryIt = [&](const std::string& name, const std::string& type, u32 size,
                           const std::string& told) {
      model.name = name;
      model.fileSystem = type;
      model.pass();
      model.sizeMiB.value = size;
      model.pass();
      ui_.expectMessage(told);
      model.ok();
      EXPECT_TRUE(model.isOpen()) << told;
    };
    const std::string missing = "You must enter a Name, File System, and Size to continue.";
    tryIt("", "131", 10, missing);
    tryIt("DATA", "ext", 10, missing);
    tryIt("DATA", "131", 0, missing);
    tryIt("DATA", "300", 10, "The file system value cannot be larger than 255.");
    for (const char* mark : {"0xED", "0xEE"}) tryIt("DATA", mark, 10, "is no file system.");
    model.cancel();
  });
  EXPECT_EQ(FlowEnd::refused, create(*drive).end);
  EXPECT_TRUE(before.sameContent(disk_));
  EXPECT_EQ(0U, keptTables());
}

TEST_F(CreateFlowTest, AFifthPrimaryNeedsAnEmbrButAVolumeDoesNot) {
  const auto drive = open(disk_);
  add(*drive, 0, 20480, 0x05, "EXT");
  for (int i = 0; i < 3; ++i) add(*drive, 0, 20480, 0x83, "L");
  const std::string before = tableOf(*drive);
  ui_.expect<CreateModel>(enter("131", 10));
  ui_.expectMessage("EMBR needed", MessageResult::no);
  EXPECT_FALSE(create(*drive).succeeded());
  EXPECT_TRUE(ui_.wasTold("/dev/sda")) << "the offer names the disk";
  EXPECT_STREQ(drive->schemeName(), "MBR");
  EXPECT_EQ(tableOf(*drive), before);

  ui_.expect<CreateModel>(enter("131", 5));
  EXPECT_EQ(FlowEnd::done, create(*drive, 1).end);
  ui_.expect<CreateModel>(enter("131", 10));
  ui_.expectMessage("EMBR needed", MessageResult::yes);
  EXPECT_EQ(FlowEnd::done, create(*drive).end);
  EXPECT_STREQ(open(disk_)->schemeName(), "EMBR");
  EXPECT_EQ(drive->table().usedSlots, 5U);
}

TEST_F(CreateFlowTest, ExtendedPartitionsAreRefusedWhereTheyCannotBe) {
  const auto drive = open(disk_);
  add(*drive, 0, 204800, 0x05, "EXT");
  ui_.expect<CreateModel>(enter("5", 10));
  ui_.expectMessage("You cannot use that file system in an extended partition.");
  EXPECT_EQ(FlowEnd::refused, create(*drive, 1).end);

  // A block that ends with the first alignment unit.
  MemoryDisk before(kSectors);
  before.setName("/dev/sda");
  const auto tight = open(before);
  ASSERT_TRUE(tight->setAlignment(AlignmentRules::kCylinderUnit));
  ASSERT_EQ(tight->reread(), Error::none);
  const u64 cylinder = alignmentUnit(tight->alignment());
  ASSERT_EQ(tight->add({.startSector = cylinder, .endSector = cylinder + 4095, .type = 0x83}),
            Error::none);
  ASSERT_EQ(tight->reread(), Error::none);
  MemoryDisk left = before.copy();
  ui_.expect<CreateModel>([](CreateModel& model) {
    model.name = "EXT";
    model.fileSystem = "5";
    model.pass();
    model.ok();
    model.cancel();
  });
  ui_.expectMessage("An extended partition cannot be created here.");
  EXPECT_EQ(FlowEnd::refused, create(*tight).end);
  EXPECT_TRUE(left.sameContent(before));
}

TEST_F(CreateFlowTest, NothingIsCreatedOverAPartitionThatLinuxUses) {
  const auto drive = open(disk_);
  mount(4096, 8192);
  ui_.expectMessage("The partition is mounted in Linux as /mnt/data.  Please umount it");
  EXPECT_EQ(FlowEnd::refused, create(*drive).end);
}

TEST_F(CreateFlowTest, WithoutACopyOfTheOldTableTheUserDecides) {
  home_.write("backup", "a file where the folder should be");
  const auto drive = open(disk_);
  ui_.expect<CreateModel>(enter("131", 10));
  ui_.expectMessage("could not be kept", MessageResult::cancel);
  EXPECT_EQ(FlowEnd::cancelled, create(*drive).end);
  EXPECT_EQ("", tableOf(*open(disk_)));
  ui_.expect<CreateModel>(enter("131", 10));
  ui_.expectMessage("could not be kept", MessageResult::goOn);
  EXPECT_EQ(FlowEnd::done, create(*drive).end);
}

TEST_F(CreateFlowTest, FailedTransfersAndPowerCutsLeaveTheOldTableOrTheNew) {
  add(*open(disk_), 0, 20480, 0x83, "OLD");
  const Flow flow = [this](Drive& drive, ScriptedFrontEnd& ui) {
    ui.answerOthers(MessageResult::cancel);
    ui.expect<CreateModel>(enter("131", 10));
    return create(drive, ui);
  };
  const std::string old = tableOf(*open(disk_));
  forEachFailedRequest(flow, [&](const FaultRun& run) {
    EXPECT_TRUE(!run.failedTransfer() || run.table == old) << run.table;
  });
  expectCutsLeaveOldOrNew(flow);
}

// Without a boot signature a disk looks blank to whoever looks at nothing else.
TEST_F(CreateFlowTest, WhatADiskWithoutATableHoldsIsNamedAndOnlyGivenUpByWhoInsists) {
  struct Case {
    u64 offset;
    std::string magic;
    const char* name;
  };
  const Case cases[] = {
      {0, std::string("LUKS\xBA\xBE", 6), "a LUKS container"},
      {512, "LABELONE", "an LVM physical volume"},
      {512, "EFI PART", "a GPT that its first sector does not tell of"},
      {(kSectors - 1) * 512, "EFI PART", "a GPT that its first sector does not tell of"},
      {65600, "_BHRfS_M", "a Btrfs file system"},
      {100, "x", "data of another program"},
  };
  for (const Case& held : cases) {
    SCOPED_TRACE(held.name);
    MemoryDisk disk(kSectors);
    std::vector<u8> sector(512);
    std::ranges::copy(held.magic, sector.begin() + static_cast<i64>(held.offset % 512));
    disk.setSector(held.offset / 512, sector);
    MemoryDisk before = disk.copy();
    for (const MessageResult answer : {MessageResult::no, MessageResult::yes}) {
      const auto drive = open(disk);
      ui_.expect<CreateModel>(enter("131", 50));
      ui_.expectMessage(held.name, answer);
      if (answer == MessageResult::no) ui_.expectMessage("Nothing was changed");
      const FlowResult result = createFlow(context_, *drive, *freeBlocks(*drive)[0]);
      EXPECT_EQ(answer == MessageResult::yes, result.succeeded());
      EXPECT_EQ(answer == MessageResult::no, disk.sameContent(before));
      EXPECT_EQ(Consent::insist,
                ui_.messages[ui_.messages.size() - (result.succeeded() ? 1 : 2)].consent);
    }
  }
}

// Nobody who mounts minds our lock.
TEST_F(CreateFlowTest, WhatIsMountedWhileTheUserInsistsIsLeftAlone) {
  std::vector<u8> sector(512);
  sector[100] = 'x';
  disk_.setSector(0, sector);
  const auto drive = open(disk_);
  ui_.expect<CreateModel>([&](CreateModel& model) {
    ui_.meanwhile([&] { mount(0, kSectors); });
    enter("131", 50)(model);
  });
  ui_.expectMessage("data of another program", MessageResult::yes);
  ui_.expectMessage("mounted");
  ui_.expectMessage("Create Failed.");
  EXPECT_FALSE(createFlow(context_, *drive, *freeBlocks(*drive)[0]).succeeded());
  EXPECT_EQ(disk_.sector(0), sector);
}

}  // namespace
}  // namespace tallowin
