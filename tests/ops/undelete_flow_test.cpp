#include "ops/undelete_flow.h"

#include <gtest/gtest.h>

#include "ops/flow_bench.h"
#include "ops/undelete_model.h"
#include "probe/file_system_kind.h"

namespace tallowin {
namespace {

class UndeleteFlowTest : public FlowTest {
 protected:
  // FAT volumes of 10000 sectors, 20480 apart; a table names none of them.
  void putVolumes(std::initializer_list<u64> starts) {
    for (const u64 start : starts) {
      FormatWish wish;
      wish.type = 0x06;
      wish.hiddenSectors = start;
      SilentJob job;
      FormatReport report;
      EXPECT_FALSE(fileSystems_.byWord("fat16")->format({disk_, start, 10000}, wish, job, report));
    }
  }
  static void expectDialog(ScriptedFrontEnd& ui, std::function<void(UndeleteModel&)> act) {
    ui.expectMessage("This option recovers missing FAT, HPFS, NTFS", MessageResult::ok);
    ui.expect<UndeleteModel>(std::move(act));
  }
  FlowResult undelete(Drive& drive, ScriptedFrontEnd& ui) {
    return undeleteFlow(with(ui), drive, *freeBlocks(drive).front());
  }
  static void pickFirst(UndeleteModel& model) {
    for (std::size_t row = 1; row < model.rows.size(); ++row)
      if (model.rows[row].isPicked) model.toggle(row);
    model.pass();
    model.ok();
    if (model.isOpen()) model.cancel();
  }
};

TEST_F(UndeleteFlowTest, WhatIsChosenComesBackInOneChangeOfTheTable) {
  putVolumes({20480, 40960, 61440});
  const auto drive = open(disk_);
  expectDialog(ui_, [](UndeleteModel& model) {
    EXPECT_EQ(model.intro, "3 lost partitions were found.");
    ASSERT_EQ(model.rows.size(), 3U);
    EXPECT_EQ(model.rows[1].start, "40960");
    EXPECT_NE(model.details.find("sectors 20480 to 30479, type FAT-16"), std::string::npos);
    for (const std::size_t row : {0U, 1U, 2U}) model.toggle(row);
    model.pass();
    EXPECT_FALSE(model.addControl.enabled);
    EXPECT_FALSE(model.addControl.whyDisabled.empty());
    model.toggle(0);
    model.toggle(2);
    model.pass();
    model.ok();
  });
  ui_.expectMessage("Completed - 2 Recovered.");
  EXPECT_EQ(undelete(*drive, ui_).end, FlowEnd::done);
  EXPECT_EQ(tableOf(*drive), "1 06h 20480..30479\n2 06h 61440..71439\n");
  EXPECT_EQ(tableOf(*drive), tableOf(*open(disk_)));
  EXPECT_EQ(keptTables(), 1U);
}

TEST_F(UndeleteFlowTest, ATableWithoutRoomIsLeftAlone) {
  putVolumes({20480, 40960, 61440, 81920, 102400});
  const auto drive = open(disk_);
  const MemoryDisk before = disk_.copy();
  expectDialog(ui_, [](UndeleteModel& model) {
    model.addAll();
    EXPECT_TRUE(model.isOpen());
    model.cancel();
  });
  ui_.expectMessage("Would you like to create an EMBR?", MessageResult::no);
  ui_.expectMessage("room for 4 more partitions, and 5 were chosen");
  EXPECT_EQ(undelete(*drive, ui_).end, FlowEnd::cancelled);
  EXPECT_TRUE(disk_.sameContent(before));
}

TEST_F(UndeleteFlowTest, VolumesComeBackIntoTheirExtendedPartition) {
  add(*open(disk_), 0, 200000, 0x05, "EXT");
  putVolumes({20480, 40960});
  const auto drive = open(disk_);
  expectDialog(ui_, [](UndeleteModel& model) { model.addAll(); });
  ui_.expectMessage("Completed - 2 Recovered.");
  EXPECT_EQ(undeleteFlow(context_, *drive, *freeBlocks(*drive).back()).end, FlowEnd::done);
  EXPECT_EQ(tableOf(*drive), "1 05h 2048..202047\n5 06h 20480..30479\n6 06h 40960..50959\n");
  EXPECT_EQ(tableOf(*drive), tableOf(*open(disk_)));
}

TEST_F(UndeleteFlowTest, WhatAllHadToLeaveOutIsNamed) {
  add(*open(disk_), 0, 200000, 0x05, "EXT");
  putVolumes({20480, 30480, 61440});
  const auto drive = open(disk_);
  expectDialog(ui_, [](UndeleteModel& model) { model.addAll(); });
  ui_.expectMessage(
      "Completed - 2 Recovered.\nNot recovered, for there is no sector left before it "
      "for its EBR:\nNumber 2: FAT12, 5 MiB, from sector 30480");
  EXPECT_EQ(undeleteFlow(context_, *drive, *freeBlocks(*drive).back()).end,
            FlowEnd::doneWithLosses);
  EXPECT_EQ(tableOf(*drive), "1 05h 2048..202047\n5 06h 20480..30479\n6 06h 61440..71439\n");
}

TEST_F(UndeleteFlowTest, FailedTransfersAndPowerCutsLeaveTheOldTableOrTheNew) {
  putVolumes({20480});
  // So that little has to be searched.
  EXPECT_FALSE(open(disk_)->add({.startSector = 32768, .endSector = kSectors - 1, .type = 0x83}));
  const Flow flow = [&](Drive& drive, ScriptedFrontEnd& ui) {
    ui.answerOthers(MessageResult::cancel);
    expectDialog(ui, pickFirst);
    const FlowResult result = undelete(drive, ui);
    // A success is told, too; a failure must tell more than the question.
    if (result.succeeded()) ui.messages.pop_back();
    return result;
  };
  forEachFailedRequest(flow);
  expectCutsLeaveOldOrNew(flow);
}

}  // namespace
}  // namespace tallowin
