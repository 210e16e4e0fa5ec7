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

}  // namespace
}  // namespace tallowin
