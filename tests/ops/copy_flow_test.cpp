#include "ops/copy_flow.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/bytes.h"
#include "ops/copy_operation.h"
#include "ops/flow_bench.h"
#include "ops/resume_flow.h"
#include "ops/table_change.h"
#include "ops/unfinished_work.h"
#include "support/disk_file.h"
#include "support/sfdisk.h"

namespace tallowin {
namespace {

using Act = std::function<void(CreateModel&)>;

const Act kPlainCopy = [](CreateModel& model) { model.ok(); };
const Act kWithDeletedSource = [](CreateModel& model) {
  ASSERT_TRUE(model.deleteSourceControl.enabled) << model.deleteSourceControl.whyDisabled;
  model.deleteSource = true;
  model.ok();
};

constexpr u64 kCount = 3000;  // of each partition

class CopyFlowTest : public FlowTest {
 protected:
  CopyFlowTest()
      : disk_(diskFromScript(kSectors,
                             "label: dos\n"
                             "start=20480, size=3000, type=6, bootable\n"
                             "start=81920, size=102400, type=5\n"
                             "start=83968, size=3000, type=83\n")) {
    disk_.setName("/dev/sda");
    // What lies in a sector says which one it was.
    for (const u64 start : {20480U, 83968U})
      for (u64 i = 0; i < kCount; ++i) {
        std::vector<u8> sector(512);
        *recordAt<Le64>(std::span(sector), 480) = start + i;
        EXPECT_FALSE(disk_.writeSectors(start + i, sector.data(), 1));
      }
  }

  FlowResult copy(ScriptedFrontEnd& ui, Drive& from, u64 start, Drive& to, std::size_t free,
                  const Act& act = kPlainCopy) {
    ui.expect<CreateModel>(act);
    return copyFlow(with(ui), from, *findByStart(from, start), to, *freeBlocks(to).at(free));
  }
  static void expectCopy(MemoryDisk& disk, u64 start, u64 source) {
    for (u64 i = 0; i < kCount; ++i) {
      const std::vector<u8> sector = disk.sector(start + i);
      ASSERT_EQ(source + i, *recordAt<Le64>(std::span<const u8>(sector), 480)) << i;
    }
  }
  static const SfdiskRow* rowAt(const SfdiskTable& table, u64 start) {
    const auto found = std::ranges::find(table.rows, start, &SfdiskRow::start);
    return found != table.rows.end() ? &*found : nullptr;
  }

  MemoryDisk disk_;
};

TEST_F(CopyFlowTest, OtherProgramsFindTheCopy) {
  const auto drive = open(disk_);
  const std::size_t last = freeBlocks(*drive).size() - 1;
  EXPECT_EQ(FlowEnd::done, copy(ui_, *drive, 20480, *drive, last).end);  // into the container
  // Behind it.
  EXPECT_EQ(FlowEnd::done,
            copy(ui_, *drive, 83968, *drive, 2, [](CreateModel& model) {
              EXPECT_FALSE(model.fileSystemControl.enabled || model.sizeControl.enabled);
              EXPECT_EQ(0U, model.fileSystem.find("131/83h"));
              model.name = "COPY";
              model.ok();
            }).end);
  const SfdiskTable table = readTable(disk_);
  EXPECT_EQ("", table.problems);
  ASSERT_EQ(5U, table.rows.size());
  for (const SfdiskRow& row : table.rows) {
    if (row.number == 3) expectCopy(disk_, row.start, 83968);
    if (row.number == 6) expectCopy(disk_, row.start, 20480);
    EXPECT_TRUE(row.number != 6 || row.type == 6);
  }
  expectCopy(disk_, 20480, 20480);
}

TEST_F(CopyFlowTest, ToAnotherDiskWithAGpt) {
  MemoryDisk other = diskFromScript(kSectors, "label: gpt\n");
  const auto from = open(disk_);
  const auto to = open(other);
  const MemoryDisk before = disk_.copy();
  EXPECT_EQ(FlowEnd::done, copy(ui_, *from, 83968, *to, 0, [](CreateModel& model) {
                             EXPECT_FALSE(model.deleteSourceControl.enabled);
                             model.name = "HOME";
                             model.ok();
                           }).end);
  TempFolder folder;
  storeDisk(other, folder.file("disk"));
  EXPECT_EQ("", gptProblems(folder.file("disk")));
  const auto rows = readGpt(folder.file("disk"));
  ASSERT_EQ(1U, rows.size());
  EXPECT_EQ("HOME", rows[0].name);
  EXPECT_EQ(kCount, rows[0].size);
  expectCopy(other, rows[0].start, 83968);
  EXPECT_TRUE(disk_.sameContent(before)) << "the source was only read";
}

TEST_F(CopyFlowTest, AContainerGoesWithItsVolumes) {
  MemoryDisk other = diskFromScript(kSectors, "label: dos\n");
  const auto from = open(disk_);
  const auto to = open(other);
  EXPECT_EQ(FlowEnd::done, copy(ui_, *from, 81920, *to, 0).end);
  const SfdiskTable table = readTable(other);
  EXPECT_EQ("", table.problems);
  ASSERT_EQ(2U, table.rows.size());
  EXPECT_EQ(kCount, table.rows[1].size);
  expectCopy(other, table.rows[1].start, 83968);
}

TEST_F(CopyFlowTest, ADeletedSourceLeavesItsSlotAndItsMark) {
  const auto drive = open(disk_);
  EXPECT_EQ(FlowEnd::done, copy(ui_, *drive, 20480, *drive, 2, kWithDeletedSource).end);
  const SfdiskTable table = readTable(disk_);
  EXPECT_EQ("", table.problems);
  EXPECT_EQ(nullptr, rowAt(table, 20480));
  const auto copied = std::ranges::find(table.rows, 1U, &SfdiskRow::number);
  ASSERT_NE(table.rows.end(), copied);
  EXPECT_TRUE(copied->bootable);
  expectCopy(disk_, copied->start, 20480);
}

// The old table or the new one, and whichever it is, what it names is whole.
TEST_F(CopyFlowTest, AFailedRequestLeavesTheOldTableOrTheNew) {
  for (const bool keepsJournal : {true, false}) {
    options_.keepJournal = keepsJournal;
    forEachFault(disk_, kFailedRequests, [&](FaultRound& round) {
      const auto drive = open(round.sharedDisk());
      ScriptedFrontEnd ui;
      ui.answerOthers(MessageResult::cancel);
      round.begin();
      const FlowResult result = copy(ui, *drive, 20480, *drive, 2, kWithDeletedSource);
      ui.forget();
      round.heal();
      const auto after = open(round.medium());
      if (const auto work = unfinishedWorkOn(folders_, *after)) {
        EXPECT_TRUE(round.fault().forever) << round.fault();
        EXPECT_TRUE(resumeFlow(with(ui), *after, Resume::undo).succeeded());
      }
      const PartitionEntry* old = findByStart(*after, 20480);
      const PartitionEntry* copied = nullptr;
      for (const auto& entry : after->table().entries)
        if (entry->type == 6 && entry.get() != old) copied = entry.get();
      if (!keepsJournal && result.code == Error::writeFailedTableUnknown) return;
      ASSERT_TRUE((old != nullptr) != (copied != nullptr)) << tableOf(*after);
      EXPECT_EQ(copied != nullptr, result.succeeded() || result.code == Error::writeFailedNewTable);
      EXPECT_TRUE(result.succeeded() || !ui.messages.empty());
      expectCopy(round.medium(), (old ? old : copied)->startSector, 20480);
    });
  }
}

// What lies where the copy would go is asked about before anything is written over it.
TEST_F(CopyFlowTest, WhatAnotherProgramKeepsThereIsGivenUpFirst) {
  const auto drive = open(disk_);
  for (const bool insists : {false, true}) {
    MemoryDisk other = diskFromScript(kSectors, "label: dos\nstart=2048, size=100000, type=5\n");
    std::vector<u8> luks(512);
    const std::string_view magic("LUKS\xBA\xBE\0\1", 8);
    std::copy(magic.begin(), magic.end(), luks.begin());
    ASSERT_FALSE(other.writeSectors(2048, luks.data(), 1));
    const MemoryDisk before = other.copy();
    const auto to = open(other);
    ui_.expect<CreateModel>(kPlainCopy);
    ui_.expectMessage("it holds a LUKS container",
                      insists ? MessageResult::yes : MessageResult::no);
    const std::size_t inside = freeBlocks(*to).size() - 1;
    const FlowResult result =
        copyFlow(with(ui_), *drive, *findByStart(*drive, 83968), *to, *freeBlocks(*to).at(inside));
    EXPECT_EQ(insists ? FlowEnd::done : FlowEnd::refused, result.end);
    EXPECT_EQ(!insists, other.sameContent(before));
  }
}

TEST_F(CopyFlowTest, WhatCannotBeIsRefusedBeforeAnythingIsWritten) {
  const auto drive = open(disk_);
  const MemoryDisk before = disk_.copy();
  MemoryDisk large(4096, 4096);
  MemoryDisk small = diskFromScript(4500, "label: dos\n");
  const auto to4096 = open(large);
  const auto toSmall = open(small);
  const auto refused = [&](Drive& to, const std::string& why, std::size_t block = 0) {
    ScriptedFrontEnd ui;
    ui.expectMessage(why);
    EXPECT_EQ(
        FlowEnd::refused,
        copyFlow(with(ui), *drive, *findByStart(*drive, 20480), to, *freeBlocks(to).at(block)).end);
  };
  refused(*to4096, "The sectors of the two disks differ (512 and 4096 bytes)");
  refused(*toSmall, "The partition has 3000 sectors, and this free block only");
  // An extended partition does not go into another one, nor beside one.
  const std::size_t last = freeBlocks(*drive).size() - 1;
  for (const std::size_t block : {last, std::size_t{2}}) {
    ScriptedFrontEnd ui;
    ui.answerOthers(MessageResult::ok);
    MemoryDisk other = diskFromScript(
        kSectors, "label: dos\nstart=2048, size=150000, type=5\nstart=4096, size=2048, type=83\n");
    const auto to = open(other);
    ui.expect<CreateModel>([](CreateModel& model) {
      model.ok();
      model.cancel();
    });
    EXPECT_EQ(FlowEnd::refused, copyFlow(with(ui), *drive, *findByStart(*drive, 81920), *to,
                                         *freeBlocks(*to).at(block == last ? 1 : 0))
                                    .end);
  }
  mount(20480, kCount);
  refused(*drive, "mounted", 2);
  EXPECT_TRUE(disk_.sameContent(before));
}

}  // namespace
}  // namespace tallowin
