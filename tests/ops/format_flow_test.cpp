#include "ops/format_flow.h"

#include <gtest/gtest.h>

#include "fat/fat_volume.h"
#include "ops/error_text.h"
#include "ops/flow_bench.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"
#include "support/disk_file.h"
#include "support/oracle.h"

namespace tallowin {
namespace {

class FormatFlowTest : public FlowTest {
 protected:
  FormatFlowTest() {
    const auto drive = open(disk_);
    add(*drive, 0, 102400, 0x06, "FAT16");
    add(*drive, 0, 102400, 0x07, "NTFS");
    add(*drive, 0, 20480, 0x01, "FAT12");
  }

  FlowResult format(Drive& drive, ScriptedFrontEnd& ui, u32 number,
                    const FormatOptions& options = {}) {
    return formatFlow(with(ui), drive, *drive.findByKernelNumber(number), options);
  }
  static void expectDialogs(ScriptedFrontEnd& ui, u32 clusterBytes = 0) {
    ui.expect<FormatModel>([clusterBytes](FormatModel& model) {
      EXPECT_TRUE(model.setClusterBytes(clusterBytes));
      model.pass();
      model.ok();
    });
    ui.expectMessage("will be erased.", MessageResult::yes);
  }
  static void expectSummary(ScriptedFrontEnd& ui) {
    ui.expect<FormatSummaryModel>([](FormatSummaryModel& model) { model.ok(); });
  }
  // Partition 2, which is NTFS, becomes FAT-32.
  FlowResult toFat32(Drive& drive, ScriptedFrontEnd& ui) {
    FormatOptions options;
    options.type = 0x0B;
    options.surfaceScan = false;
    expectDialogs(ui);
    ui.answerOthers(MessageResult::cancel);
    ui.expect<FormatSummaryModel>([](FormatSummaryModel& model) { model.ok(); });
    const FlowResult result = format(drive, ui, 2, options);
    ui.forget();
    return result;
  }
  // Something at both ends of each partition.
  void fillPartitions() {
    const auto drive = open(disk_);
    const std::vector<u8> ones(std::size_t{64} * 512, 0xFF);
    for (const u32 number : {1U, 2U, 3U}) {
      const PartitionEntry& entry = *drive->findByKernelNumber(number);
      EXPECT_EQ(disk_.writeSectors(entry.startSector, ones.data(), 64), Error::none);
      EXPECT_EQ(disk_.writeSectors(entry.endSector - 63, ones.data(), 64), Error::none);
    }
  }
  // Nothing but the table and partition 2 differs from the disk of the test.
  bool neighboursAreWhole(MemoryDisk& disk) {
    const auto drive = open(disk_);
    const PartitionEntry& second = *drive->findByKernelNumber(2);
    const auto rest = [&](MemoryDisk& whole) {
      MemoryDisk copy = whole.copy();
      EXPECT_EQ(copy.writeZeros(0, 1), Error::none);
      EXPECT_EQ(copy.writeZeros(second.startSector, second.sectorCount()), Error::none);
      return copy;
    };
    MemoryDisk before = rest(disk_);
    MemoryDisk after = rest(disk);
    return before.sameContent(after);
  }
  static bool isFat(Drive& drive, u32 number) {
    return FatVolume::open(drive, *drive.findByKernelNumber(number))->isValid();
  }
};

TEST_F(FormatFlowTest, AsksFormatsScansAndShowsTheSummary) {
  const auto drive = open(disk_);
  ui_.expect<FormatModel>([](FormatModel& model) {
    ASSERT_TRUE(model.setClusterBytes(4096));
    model.ok();
  });
  ui_.expectMessage(
      "Format: All data on Partition 'MBR 0' will be erased.\n\nAre you sure you want to "
      "continue?\n\nDisk: 200 MiB, /dev/sda\nPartition 1 'MBR 0', 50 MiB",
      MessageResult::yes);
  ui_.expect<FormatSummaryModel>([](FormatSummaryModel& model) {
    EXPECT_EQ("Type: FAT-16/FAT16   ", model.lines[1]);
    EXPECT_EQ("Cluster size: 4096 byte(s)", model.lines[3]);
    EXPECT_EQ("Bad clusters: 0", model.lines[5]);
    model.ok();
  });
  EXPECT_EQ(FlowEnd::done, format(*drive, ui_, 1).end);
  EXPECT_EQ((std::vector<std::string>{"Format", "Formatting", "", "Checking for surface defects...",
                                      "&Skip"}),
            ui_.progressTexts);
  EXPECT_NE(std::string::npos, home_.read("Debug.txt").find("Format: ended with 0"));

  if (!hasProgram("fsck.fat")) GTEST_SKIP() << "fsck.fat is not installed";
  const PartitionEntry& entry = *drive->findByKernelNumber(1);
  MemoryDisk volume(entry.sectorCount());
  for (u64 lba = 0; lba < entry.sectorCount(); ++lba)
    volume.setSector(lba, disk_.sector(entry.startSector + lba));
  storeDisk(volume, home_.file("volume.img"));
  const ProgramResult checked = runProgram({"fsck.fat", "-n", home_.file("volume.img")});
  EXPECT_EQ(0, checked.status) << checked.output;
}

TEST_F(FormatFlowTest, SmallTypesTakeTheirClustersAndTheQuestionMayBeAnsweredNo) {
  const auto drive = open(disk_);
  ui_.expectMessage("will be erased.", MessageResult::no);
  EXPECT_EQ(FlowEnd::cancelled, format(*drive, ui_, 3).end);
  EXPECT_FALSE(isFat(*drive, 3));
}

TEST_F(FormatFlowTest, WhatCannotBeFormattedIsRefusedBeforeAnythingIsAsked) {
  const auto drive = open(disk_);
  MemoryDisk before = disk_.copy();
  ui_.expectMessage("NTFS cannot be formatted by this version.");
  EXPECT_EQ(Error::unsupportedFileSystem, format(*drive, ui_, 2).code);
  FormatOptions options;
  options.type = 0x01;
  ui_.expectMessage("Format aborted because the partition size is\ninvalid");
  EXPECT_EQ(Error::invalidSizeForType, format(*drive, ui_, 1, options).code);
  const PartitionEntry& first = *drive->findByKernelNumber(1);
  mount(first.startSector, first.sectorCount());
  ui_.expectMessage("mounted in Linux as /mnt/data");
  EXPECT_EQ(FlowEnd::refused, format(*drive, ui_, 1).end);
  EXPECT_TRUE(before.sameContent(disk_));
}

TEST_F(FormatFlowTest, AnotherKindChangesTheTypeFirst) {
  const auto drive = open(disk_);
  FormatOptions options;
  options.type = 0x0B;
  options.surfaceScan = false;
  expectDialogs(ui_);
  expectSummary(ui_);
  EXPECT_EQ(FlowEnd::done, format(*drive, ui_, 2, options).end);
  EXPECT_EQ(0x0B, drive->findByKernelNumber(2)->type);
  EXPECT_TRUE(isFat(*open(disk_), 2));
  EXPECT_EQ(1U, keptTables());
}

TEST_F(FormatFlowTest, EveryLookAtTheButtonMayStopIt) {
  forEachFault(disk_, kCancels, [this](FaultRound& round) {
    const auto drive = open(round.sharedDisk());
    round.begin();
    ScriptedFrontEnd ui;
    ui.cancelWhen([&] { return round.shouldStop(); });
    expectDialogs(ui);
    ui.answerOthers(MessageResult::ok);
    bool skipped = false;
    ui.expect<FormatSummaryModel>([&](FormatSummaryModel& model) {
      skipped = model.lines[5].find("(skipped)") != std::string::npos;
      model.ok();
    });
    const FlowResult result = format(*drive, ui, 1);
    ui.forget();
    EXPECT_TRUE(round.wasHit() || !skipped);
    if (result.end == FlowEnd::cancelled) {
      EXPECT_TRUE(round.wasHit() && ui.wasTold("Formatting was stopped."));
      return;
    }
    EXPECT_EQ(FlowEnd::done, result.end);
    EXPECT_TRUE(isFat(*drive, 1));
  });
}

TEST_F(FormatFlowTest, EveryFailedTransferIsToldOrTheFileSystemIsSound) {
  const Flow flow = [this](Drive& drive, ScriptedFrontEnd& ui) {
    FormatOptions options;
    options.mode = FormatMode::afterCreate;
    options.surfaceScan = false;
    ui.expect<FormatModel>([](FormatModel& model) { model.ok(); });
    ui.answerOthers(MessageResult::ok);
    expectSummary(ui);
    const FlowResult result = format(drive, ui, 1, options);
    ui.forget();
    return result;
  };
  forEachFailedRequest(flow, [this](const FaultRun& run) {
    if (run.result.succeeded()) {
      EXPECT_TRUE(isFat(*open(run.round.medium()), 1));
    } else if (run.round.fault().isWrite()) {
      EXPECT_TRUE(run.ui.wasTold("Due to surface defects"));
    }
  });
}

// With the type changed first, so that the table is written too.
TEST_F(FormatFlowTest, FailedTransfersAndPowerCutsLeaveTheOldTableOrTheNewAndTheNeighboursAlone) {
  fillPartitions();
  const Flow flow = [this](Drive& drive, ScriptedFrontEnd& ui) { return toFat32(drive, ui); };
  forEachFailedRequest(flow, [this](const FaultRun& run) {
    EXPECT_TRUE(neighboursAreWhole(run.round.medium()));
    EXPECT_TRUE(!run.result.succeeded() || isFat(*open(run.round.medium()), 2));
  });
  expectCutsLeaveOldOrNew(flow,
                          [this](MemoryDisk& disk) { EXPECT_TRUE(neighboursAreWhole(disk)); });
}

TEST(ErrorText, EveryCodeHasWordsButSuccessAndCancelled) {
  for (u32 code = 0; code <= static_cast<u32>(Error::clearingFailed); ++code) {
    const auto error = static_cast<Error>(code);
    EXPECT_NE(codeOf(error), kAllOnes32) << code;
    EXPECT_EQ(errorText(error).find("unknown went wrong"), std::string::npos) << code;
    const bool isSilent = error == Error::none || error == Error::cancelled;
    EXPECT_EQ(isSilent, tableErrorText(error).empty()) << code;
    EXPECT_EQ(isSilent, createErrorText(error).empty()) << code;
    EXPECT_EQ(isSilent || error == Error::scanStopped, formatErrorText(error).empty()) << code;
  }
  EXPECT_EQ(0U, deleteErrorText(Error::write).find("Delete failed!\n\n"));
}

}  // namespace
}  // namespace tallowin
