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

  FlowResult restore(Drive& drive, ScriptedFrontEnd& ui) {
    ui.expectMessage("The partition table that was kept on", MessageResult::yes);
    ui.answerOthers(MessageResult::cancel);
    return restoreTableFlow(with(ui), drive, backup_);
  }

  TableBackup backup_;
  std::string kept_;
  std::string present_;
};

TEST_F(RestoreTableFlowTest, EveryFailedTransferLeavesOneOfTheTablesAndIsTold) {
  const auto run = [&](const std::function<void(FaultyDisk&)>& fault, u64& reads, u64& writes) {
    MemoryDisk disk = disk_.copy();
    FaultyDisk faulty(disk);
    const auto drive = open(borrowed(faulty));
    const u64 readsBefore = faulty.reads();
    const u64 writesBefore = faulty.writes();
    fault(faulty);
    ScriptedFrontEnd ui;
    const FlowResult result = restore(*drive, ui);
    reads = faulty.reads() - readsBefore;
    writes = faulty.writes() - writesBefore;
    const std::string table = tableOf(*open(disk));
    EXPECT_EQ(result.succeeded() ? kept_ : present_, table);
    EXPECT_TRUE(result.succeeded() || ui.messages.size() > 1) << "nothing was told";
    return result;
  };
  u64 reads = 0;
  u64 writes = 0;
  u64 ignored = 0;
  ASSERT_TRUE(run([](FaultyDisk&) {}, reads, writes).succeeded());
  ASSERT_GT(writes, 0U);
  for (u64 n = 0; n < reads; ++n) {
    SCOPED_TRACE("read " + std::to_string(n));
    static_cast<void>(run([n](FaultyDisk& disk) { disk.failRead(n); }, ignored, ignored));
  }
  for (u64 n = 0; n < writes; ++n) {
    SCOPED_TRACE("write " + std::to_string(n));
    EXPECT_FALSE(run([n](FaultyDisk& disk) { disk.failWrite(n); }, ignored, ignored).succeeded());
  }
}

TEST_F(RestoreTableFlowTest, APowerCutLeavesOneOfTheTables) {
  MemoryDisk changed = disk_.copy();
  RecordingDisk recording(changed);
  const auto drive = open(borrowed(recording));
  ASSERT_EQ(FlowEnd::done, restore(*drive, ui_).end);
  forEachPowerCut(recording.log(), disk_, [&](MemoryDisk& disk) {
    const std::string table = tableOf(*open(disk));
    EXPECT_TRUE(table == present_ || table == kept_) << table;
  });
}

}  // namespace
}  // namespace tallowin
