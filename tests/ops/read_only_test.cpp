// A disk that can only be read: every change says so before it asks anything, and none is tried.
#include <gtest/gtest.h>

#include "ops/convert_flow.h"
#include "ops/create_flow.h"
#include "ops/delete_flow.h"
#include "ops/flow_bench.h"
#include "ops/format_flow.h"
#include "ops/mbr_edit_flow.h"
#include "ops/properties_flow.h"
#include "ops/restore_table_flow.h"

namespace tallowin {
namespace {

class ReadOnly : public DiskWrapper {
 public:
  explicit ReadOnly(DiskDevice& inner) : DiskWrapper(inner) { traits_.readOnly = true; }

 protected:
  Failure transferOut(u64, const void*, u32) override {
    ADD_FAILURE() << "a write was tried";
    return Error::readOnlyDisk;
  }
};

TEST_F(FlowTest, WhatCanOnlyBeReadIsRefusedBeforeAnythingIsAsked) {
  const auto before = open(disk_);
  add(*before, 0, 20480, 0x06, "DATA");
  const auto drive = open(std::make_shared<ReadOnly>(disk_));
  PartitionEntry& first = *drive->findByKernelNumber(1);
  TableBackup kept;
  ASSERT_EQ(takeTableBackup(*drive, 0, kept), Error::none);
  MbrEditor editor(*drive);
  ASSERT_EQ(editor.load(), Error::none);
  std::string file;
  const std::function<FlowResult()> flows[] = {
      [&] { return createFlow(with(ui_), *drive, *freeBlocks(*drive).at(0)); },
      [&] { return deleteFlow(with(ui_), *drive, first); },
      [&] { return formatFlow(with(ui_), *drive, first); },
      [&] { return changePropertiesFlow(with(ui_), *drive, first, {.active = true}); },
      [&] { return convertFlow(with(ui_), *drive, Scheme::gpt, file); },
      [&] { return applyMbrEdit(with(ui_), *drive, editor, file); },
      [&] { return restoreTableFlow(with(ui_), *drive, kept); },
  };
  for (const auto& flow : flows) {
    ui_.expectMessage("This disk can only be read");
    EXPECT_EQ(flow().end, FlowEnd::refused);
  }
}

}  // namespace
}  // namespace tallowin
