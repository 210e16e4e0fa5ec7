#include "ops/restore_table_flow.h"

#include <gtest/gtest.h>

#include "ops/flow_bench.h"

namespace tallowin {
namespace {

// The kept table has one partition, the present one has two.
class RestoreTableFlowTest : public FlowTest {
 protected:
  RestoreTableFlowTest() {
    const auto drive = open(disk_);
    add(*drive, 0, 100000, 0x0B, "FIRST");
    EXPECT_EQ(Error::none, takeTableBackup(*drive, 0, backup_));
    kept_ = tableOf(*drive);
    add(*drive, 0, 100000, 0x83, "SECOND");
    present_ = tableOf(*drive);
  }

  TableBackup backup_;
  std::string kept_;
  std::string present_;
};

TEST_F(RestoreTableFlowTest, FailedTransfersAndPowerCutsLeaveOneOfTheTables) {
  const Flow flow = [this](Drive& drive, ScriptedFrontEnd& ui) {
    ui.expectMessage("The partition table that was kept on", MessageResult::yes);
    ui.answerOthers(MessageResult::cancel);
    return restoreTableFlow(with(ui), drive, backup_);
  };
  forEachFailedRequest(flow, [this](const FaultRun& run) {
    const bool isBack = run.result.succeeded() || run.result.code == Error::writeFailedNewTable;
    EXPECT_EQ(isBack ? kept_ : present_, run.table);
    EXPECT_FALSE(run.round.fault().isWrite() && run.result.succeeded());
  });
  expectCutsLeaveOldOrNew(flow);
}

TEST_F(RestoreTableFlowTest, TheTableOfAnotherDiskIsInsistedOnWithBothNamed) {
  backup_.diskName = "ACME 4711";
  MemoryDisk larger(2 * kSectors);
  larger.setName("/dev/sdb");
  MemoryDisk before = larger.copy();
  const auto drive = open(larger);
  ui_.expectMessage("ACME 4711, 200 MiB\nWritten to: 400 MiB, /dev/sdb", MessageResult::no);
  EXPECT_EQ(FlowEnd::cancelled, restoreTableFlow(context_, *drive, backup_).end);
  EXPECT_EQ(Consent::insist, ui_.messages.back().consent);
  EXPECT_TRUE(larger.sameContent(before));
  ui_.expectMessage("", MessageResult::yes);
  EXPECT_EQ(FlowEnd::done, restoreTableFlow(context_, *drive, backup_).end);
  EXPECT_EQ(kept_, tableOf(*drive));
}

TEST_F(RestoreTableFlowTest, APartitionThatItWouldWriteIntoIsNamed) {
  MemoryDisk larger(2 * kSectors);
  auto drive = open(larger);
  NewEntry entry = newEntryIn(*freeBlocks(*drive).at(0));
  entry.startSector = 40;  // within the track that is kept
  entry.endSector = 4095;
  entry.type = 0x83;
  ASSERT_EQ(Error::none, drive->add(entry));
  drive = open(larger);
  MemoryDisk before = larger.copy();
  ui_.expectMessage("written into this partition:\nDisk: 400 MiB, memory\nPartition 1 ");
  EXPECT_EQ(FlowEnd::refused, restoreTableFlow(context_, *drive, backup_).end);
  EXPECT_TRUE(larger.sameContent(before));
}

}  // namespace
}  // namespace tallowin
