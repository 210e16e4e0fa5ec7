// A disk changes its kind of table, and everything that would be lost is asked for first.
#include "ops/convert_flow.h"

#include <gtest/gtest.h>

#include "disk/disk_handles.h"
#include "ops/flow_bench.h"
#include "support/sfdisk.h"

namespace tallowin {
namespace {

class ConvertFlowTest : public FlowTest {
 protected:
  void expectSure() {
    ui_.expectMessage("Are you sure you want to change the partitioning type?", MessageResult::yes);
  }
  void expectFailure(const std::string& why) { ui_.expectMessage(why); }
  FlowResult convert(Drive& drive, Scheme target) {
    return convertFlow(with(ui_), drive, target, keptTable_);
  }

  std::string keptTable_;
};

TEST_F(ConvertFlowTest, TheChoiceLeadsThroughAllSchemesAndBack) {
  disk_.setBiosNumber(kFirstBiosDisk + 1);
  const auto drive = open(disk_);
  add(*drive, 0, 20480, 0x83, "ONE");
  add(*drive, 0, 20480, 0x0B, "TWO");
  const auto extents = [&] {
    std::vector<std::pair<u64, u64>> found;
    for (const auto& entry : drive->table().entries)
      if (!entry->isFree() && found.size() < 2)  // behind them comes the reserved partition
        found.emplace_back(entry->startSector, entry->endSector);
    return found;
  };
  const auto before = extents();
  for (const char* scheme : {"GPT", "EMBR", "MBR"}) {
    ui_.expectChoice("Please select the partition style to use:",
                     std::string_view(scheme) == "MBR" ? 1U : 0U);
    expectSure();
    ui_.expectChoice("kept in\n" + folders_.backupFolder() + "/table-", 0);
    EXPECT_EQ(changeDiskTypeFlow(with(ui_), *drive).end, FlowEnd::done) << scheme;
    EXPECT_STREQ(drive->schemeName(), scheme);
    EXPECT_EQ(extents(), before) << scheme;
  }
}

TEST_F(ConvertFlowTest, NamesThatAnEmbrCutsAreToldOf) {
  MemoryDisk disk = diskFromScript(kSectors, "label: gpt\nsize=20480, name=\"fifteen letters\"\n");
  for (const char* name : {"fifteen letters", "a name of twenty-four"}) {
    const auto drive = open(disk);
    ASSERT_EQ(drive->changeProperties(*drive->findByKernelNumber(1), {.name = name}), Error::none);
    ASSERT_EQ(drive->reread(), Error::none);
    ui_.answerOthers(MessageResult::no);
    EXPECT_EQ(convert(*drive, Scheme::embr).end, FlowEnd::cancelled);
    const bool isTold = ui_.messages.back().text.find("cut to 15") != std::string::npos;
    EXPECT_EQ(isTold, name[0] == 'a') << ui_.messages.back().text;
  }
}

TEST_F(ConvertFlowTest, WhatComesAndWhatGoesIsToldBeforeAndTheOldMbrComesBack) {
  const auto drive = open(disk_);
  add(*drive, 0, 20480, 0x82, "ONE");
  add(*drive, 0, 20480, 0x8E, "TWO");
  MemoryDisk before = disk_.copy();
  ui_.expectMessage(
      "A reserved partition of 128 MiB is made at sector 43008. It goes on the way back.",
      MessageResult::yes);
  ASSERT_EQ(convert(*drive, Scheme::gpt).end, FlowEnd::done);
  ui_.expectMessage(
      "The empty reserved partition 3 goes.\nBoot code, disk signature, active mark and "
      "types come back from the table of 20231114-221320.",
      MessageResult::yes);
  ASSERT_EQ(convert(*drive, Scheme::mbr).end, FlowEnd::done);
  for (u64 lba = 0; lba < 2048; ++lba) ASSERT_EQ(disk_.sector(lba), before.sector(lba)) << lba;
  // With other partitions it says what is not kept.
  expectSure();
  ASSERT_EQ(convert(*drive, Scheme::gpt).end, FlowEnd::done);
  ASSERT_EQ(drive->remove(*drive->findByKernelNumber(2)), Error::none);
  ASSERT_EQ(drive->reread(), Error::none);
  ui_.expectMessage("No partition will be active", MessageResult::no);
  EXPECT_EQ(convert(*drive, Scheme::mbr).end, FlowEnd::cancelled);
}

TEST_F(ConvertFlowTest, AGptWithABadCopyIsRepairedFirstAndNothingIsAsked) {
  auto drive = open(disk_);
  add(*drive, 0, 20480, 0x83, "L");
  expectSure();
  ASSERT_EQ(convert(*drive, Scheme::gpt).end, FlowEnd::done);
  disk_.setSector(kSectors - 1, std::vector<u8>(512));
  drive = open(disk_);
  MemoryDisk before = disk_.copy();
  expectFailure("Repair it first:\ntallowinctl table repair /dev/sda");
  const FlowResult result = convert(*drive, Scheme::mbr);
  EXPECT_EQ(result.end, FlowEnd::refused);
  EXPECT_EQ(result.code, Error::gptTableCheck);
  EXPECT_TRUE(before.sameContent(disk_));
}

TEST_F(ConvertFlowTest, TheFirstDiskKeepsItsEmbr) {
  const auto drive = open(disk_);
  expectSure();
  ASSERT_EQ(convert(*drive, Scheme::embr).end, FlowEnd::done);
  MemoryDisk before = disk_.copy();
  for (const Scheme target : {Scheme::mbr, Scheme::gpt}) {
    ui_.expectMessage("The first disk keeps its EMBR, because the boot manager starts from there.");
    EXPECT_EQ(convert(*drive, target).end, FlowEnd::refused);
  }
  EXPECT_TRUE(before.sameContent(disk_));
}

TEST_F(ConvertFlowTest, AButtonUndoesTheChange) {
  const auto drive = open(disk_);
  add(*drive, 0, 20480, 0x83, "ONE");
  const std::string before = tableOf(*drive);
  const std::vector<u8> mbr = disk_.sector(0);
  ui_.expectChoice("Please select the partition style to use:", 0);
  expectSure();
  ui_.expectChoice("kept in\n" + folders_.backupFolder() + "/table-", 1);
  ui_.expectMessage("replaces the present one", MessageResult::yes);
  EXPECT_EQ(changeDiskTypeFlow(with(ui_), *drive).end, FlowEnd::done);
  EXPECT_STREQ(drive->schemeName(), "MBR");
  EXPECT_EQ(tableOf(*drive), before);
  EXPECT_EQ(disk_.sector(0), mbr);
}

TEST_F(ConvertFlowTest, AnEfiSystemKeepsItsGpt) {
  const auto drive = open(disk_);
  expectSure();
  ASSERT_EQ(convert(*drive, Scheme::gpt).end, FlowEnd::done);
  add(*drive, 0, 20480, 0xEF, "ESP");
  MemoryDisk before = disk_.copy();
  expectFailure("Your request is being ignored because EFI Systems required a GPT.");
  EXPECT_EQ(convert(*drive, Scheme::mbr).end, FlowEnd::refused);
  EXPECT_TRUE(before.sameContent(disk_));
}

TEST_F(ConvertFlowTest, RefusalsSayWhyAndWriteNothing) {
  const auto drive = open(disk_);
  add(*drive, 0, 20480, 0x83, "L");
  add(*drive, 0, 20480, 0x42, "DYNAMIC");
  MemoryDisk before = disk_.copy();
  for (const Scheme target : {Scheme::gpt, Scheme::embr}) {
    expectSure();
    expectFailure("The partition layout could not be changed to match your selection.");
    const FlowResult result = convert(*drive, target);
    EXPECT_FALSE(result.succeeded());
    EXPECT_EQ(result.code, Error::dynamicDisk);
    EXPECT_TRUE(before.sameContent(disk_));
  }
}

}  // namespace
}  // namespace tallowin
