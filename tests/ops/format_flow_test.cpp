#include "ops/format_flow.h"

#include <gtest/gtest.h>

#include "base/bytes.h"
#include "ops/error_text.h"
#include "ops/flow_bench.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"
#include "probe/gpt_type_guids.h"
#include "probe/type_catalogue.h"
#include "ptable/convert.h"

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
    const FormatOptions options{.surfaceScan = false, .kind = kind("fat32")};
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
  static void makeGpt(Drive& drive) {
    ASSERT_EQ(Error::none, convertToMbr(drive, true));
    ASSERT_EQ(Error::none, drive.reread());
    ASSERT_EQ(Error::none, convertToGpt(drive, false));
    ASSERT_EQ(Error::none, drive.reread());
  }
  const FileSystemKind* kind(std::string_view word) const { return fileSystems_.byWord(word); }
  // Any of the three: recognised as such, with sound facts.
  bool isFat(Drive& drive, u32 number) const {
    const PartitionEntry& entry = *drive.findByKernelNumber(number);
    return isFat(rangeOf(drive, entry), entry.type);
  }
  bool isFat(const SectorRange& range, u16 type) const {
    const FileSystemKind* found = fileSystems_.byContent(range, type);
    FileSystemFacts facts;
    return found && !found->facts(range, type, CountClusters::no, facts);
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
    EXPECT_EQ((std::vector<std::string>{"Name: MBR 0", "Type: FAT-16/FAT16   ", "Size: 50 MiB",
                                        "Cluster size: 4096 byte(s)", "Total clusters: 12783",
                                        "Bad clusters: 0", "Free clusters: 12783"}),
              model.lines);
    model.ok();
  });
  EXPECT_EQ(FlowEnd::done, format(*drive, ui_, 1).end);
  EXPECT_EQ((std::vector<std::string>{"Format", "Formatting", "", "Checking for surface defects...",
                                      "&Skip"}),
            ui_.progressTexts);
  EXPECT_NE(std::string::npos, home_.read("Debug.txt").find("Format: ended with 0"));
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
  EXPECT_EQ(FlowEnd::done, toFat32(*drive, ui_).end);
  EXPECT_EQ(0x0B, drive->findByKernelNumber(2)->type);
  EXPECT_TRUE(isFat(*open(disk_), 2));
  EXPECT_EQ(1U, keptTables());
}

// A GPT says the kind by its GUID where it says one; another one is changed to one that fits.
TEST_F(FormatFlowTest, AGptGetsATypeThatFits) {
  struct Case {
    Guid before;
    const char* word;
    Guid after;
  };
  for (const Case& c :
       {Case{kGptLinux, "fat32", kGptBasicData}, Case{kGptEfiSystem, "fat16", kGptEfiSystem},
        Case{kGptEfiSystem, nullptr, kGptEfiSystem}}) {
    MemoryDisk disk(kSectors);
    auto drive = open(disk);
    makeGpt(*drive);
    add(*drive, 0, 102400, 0x0B, "DATA");
    ASSERT_EQ(Error::none,
              drive->changeProperties(*drive->findByKernelNumber(1), {.typeGuid = c.before}));
    ASSERT_EQ(Error::none, drive->reread());
    expectDialogs(ui_);
    expectSummary(ui_);
    FormatOptions options{.surfaceScan = false};
    if (c.word) options.kind = kind(c.word);
    EXPECT_EQ(FlowEnd::done, format(*drive, ui_, 1, options).end);
    drive = open(disk);
    const PartitionEntry& entry = *drive->findByKernelNumber(1);
    EXPECT_EQ(c.after, entry.typeGuid);
    EXPECT_EQ(kind(c.word ? c.word : "fat32"), fileSystems_.byContent(rangeOf(*drive, entry), 0));
  }
}

TEST_F(FormatFlowTest, WhatNothingSaysIsChosenInTheDialog) {
  MemoryDisk disk(kSectors);
  auto drive = open(disk);
  makeGpt(*drive);
  add(*drive, 0, 102400, 0x06, "DATA");
  ASSERT_EQ(types::kGptEntry, drive->findByKernelNumber(1)->type);
  ui_.expect<FormatModel>([](FormatModel& model) {
    EXPECT_EQ((std::vector<std::string>{"FAT16", "FAT32"}), model.kindChoices)
        << "too large for 12";
    model.kindChoice = 1;
    model.ok();
  });
  ui_.expectMessage("will be erased.", MessageResult::yes);
  expectSummary(ui_);
  EXPECT_EQ(FlowEnd::done, format(*drive, ui_, 1).end);
  EXPECT_EQ(
      "fat32",
      fileSystems_.byContent({disk, drive->findByKernelNumber(1)->startSector, 102400}, 0)->word);
}

TEST_F(FormatFlowTest, AnExtendedPartitionKeepsItsVolumes) {
  const auto drive = open(disk_);
  add(*drive, 0, 40960, 0x05, "");
  MemoryDisk before = disk_.copy();
  ui_.expectMessage("An extended partition holds volumes");
  EXPECT_EQ(FlowEnd::refused, format(*drive, ui_, 4, {.kind = kind("fat16")}).end);
  EXPECT_TRUE(before.sameContent(disk_));
}

TEST_F(FormatFlowTest, AWholeDiskBecomesAVolumeWithoutATable) {
  MemoryDisk floppy(2880);
  floppy.setName("/dev/fd0");
  ui_.expectMessage("All data on this disk will be erased.", MessageResult::yes);
  expectSummary(ui_);
  EXPECT_EQ(FlowEnd::done,
            formatWholeFlow(context_, *open(floppy), {.label = "boot", .kind = kind("fat12")}).end);
  const std::vector<u8> boot = floppy.sector(0);
  EXPECT_EQ(0, boot[36]) << "the drive number of a floppy";
  EXPECT_EQ(18, boot[24]);
  EXPECT_EQ(2, boot[26]);
  EXPECT_EQ(0, boot[28]) << "nothing lies before it";
  EXPECT_TRUE(textAt(boot, 43, "BOOT       "));
  EXPECT_EQ(Scheme::wholeDisk, open(floppy)->scheme());

  ui_.expectMessage("This disk has partitions.");
  MemoryDisk before = disk_.copy();
  EXPECT_EQ(FlowEnd::refused, formatWholeFlow(context_, *open(disk_), {.kind = kind("fat16")}).end);
  EXPECT_TRUE(before.sameContent(disk_));

  MemoryDisk luks(kSectors);
  std::vector<u8> header(512);
  std::ranges::copy(std::string_view("LUKS\xBA\xBE", 6), header.begin());
  luks.setSector(0, header);
  MemoryDisk locked = luks.copy();
  expectDialogs(ui_);
  ui_.expectMessage("it holds a LUKS container", MessageResult::no);
  EXPECT_EQ(FlowEnd::cancelled,
            formatWholeFlow(context_, *open(luks), {.kind = kind("fat32")}).end);
  EXPECT_TRUE(luks.sameContent(locked));
}

TEST_F(FormatFlowTest, BadClustersAreALossAndPlaceholdersNoLabels) {
  FaultyDisk faulty(disk_);
  const u64 bad = open(disk_)->findByKernelNumber(1)->endSector - 100;
  faulty.failReadsOf({bad, bad});
  const auto drive = open(borrowed(faulty));
  expectDialogs(ui_);
  ui_.expect<FormatSummaryModel>([](FormatSummaryModel& model) {
    EXPECT_EQ("Bad clusters: 1", model.lines[5]);
    model.ok();
  });
  EXPECT_EQ(FlowEnd::doneWithLosses, format(*drive, ui_, 1).end);
  EXPECT_EQ("", labelIn(*kind("fat16"), rangeOf(*drive, *drive->findByKernelNumber(1)), 0x06, 437));
}

TEST_F(FormatFlowTest, EveryLookAtTheButtonMayStopIt) {
  fillPartitions();
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
      EXPECT_TRUE(round.wasHit());
      // What is told is what is on the disk.
      const bool isWhole = round.medium().sameContent(disk_);
      EXPECT_EQ(!isWhole, ui.wasTold("The partition is partly overwritten"));
      EXPECT_EQ(isWhole, ui.wasTold("What the partition holds was not changed."));
      EXPECT_FALSE(isFat(*drive, 1));
      return;
    }
    EXPECT_EQ(FlowEnd::done, result.end);
    EXPECT_TRUE(isFat(*drive, 1));
  });
}

TEST_F(FormatFlowTest, EveryFailedTransferIsToldOrTheFileSystemIsSound) {
  fillPartitions();
  const Flow flow = [this](Drive& drive, ScriptedFrontEnd& ui) {
    FormatOptions options;
    options.surfaceScan = false;
    ui.expect<FormatModel>([](FormatModel& model) { model.ok(); });
    ui.answerOthers(MessageResult::yes);
    expectSummary(ui);
    const FlowResult result = format(drive, ui, 1, options);
    ui.forget();
    return result;
  };
  forEachFailedRequest(flow, [this](const FaultRun& run) {
    if (run.result.succeeded()) {
      EXPECT_TRUE(isFat(*open(run.round.medium()), 1));
      return;
    }
    const bool isWhole = run.round.medium().sameContent(disk_);
    EXPECT_EQ(!isWhole, run.ui.wasTold("The partition is partly overwritten"));
    EXPECT_EQ(run.round.fault().isWrite(), run.ui.wasTold("Due to surface defects"));
  });
}

// With the type changed first, so that the table is written too.
TEST_F(FormatFlowTest, FailedTransfersAndPowerCutsLeaveTheOldTableOrTheNewAndTheNeighboursAlone) {
  fillPartitions();
  const Flow flow = [this](Drive& drive, ScriptedFrontEnd& ui) { return toFat32(drive, ui); };
  forEachFailedRequest(flow, [this](const FaultRun& run) {
    EXPECT_TRUE(neighboursAreWhole(run.round.medium()));
    EXPECT_TRUE(!run.result.succeeded() || isFat(*open(run.round.medium()), 2));
    const bool isChanged = run.table != tableOf(*open(disk_));
    const bool tellsContent = run.ui.wasTold("The partition is partly") ||
                              run.ui.wasTold("What the partition holds was not changed.");
    EXPECT_EQ(isChanged && !run.result.succeeded() && tellsContent,
              run.ui.wasTold("Its type in the partition table was changed to FAT32"));
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

TEST(ErrorText, AFullDiskBelowAnImageIsNoDiskError) {
  struct Case {
    std::string text;
    const char* left;  // which table, or nothing
  };
  const Case cases[] = {
      {createErrorText({Error::write, ENOSPC, 7}), "The old table is still in place."},
      {deleteErrorText({Error::tableWriteFailed, EDQUOT}), "The old table is still in place."},
      {mbrErrorText({Error::writeFailedNewTable, EFBIG}), "The new partition table is in place."},
      {tableErrorText({Error::writeFailedTableUnknown, ENOSPC}), "could not be found out"},
      {formatErrorText({Error::clearingFailed, ENOSPC}), ""},
      {formatErrorText({Error::write, ENOSPC}), ""},
      {errorText({Error::flush, ENOSPC}), ""},
  };
  for (const auto& [text, left] : cases) {
    EXPECT_NE(text.find("no space left on the disk that holds the image"), std::string::npos)
        << text;
    EXPECT_NE(text.find(left), std::string::npos) << text;
    EXPECT_EQ(text.find("kernel's log"), std::string::npos) << text;
    EXPECT_EQ(text.find("surface defects"), std::string::npos) << text;
  }
  EXPECT_EQ(errorText({Error::cannotCreate, ENOSPC}).find("image"), std::string::npos);
}

}  // namespace
}  // namespace tallowin
