// What stands in the way of every change: the world changes while a question stands, and what was
// checked before is checked again; or the disk can only be read.
#include <gtest/gtest.h>

#include "base/stop_request.h"
#include "ops/convert_flow.h"
#include "ops/create_flow.h"
#include "ops/delete_flow.h"
#include "ops/delete_model.h"
#include "ops/flow_bench.h"
#include "ops/format_flow.h"
#include "ops/format_model.h"
#include "ops/mbr_edit_flow.h"
#include "ops/properties_flow.h"
#include "ops/restore_table_flow.h"
#include "ptable/table_backup.h"

namespace tallowin {
namespace {

struct Case {
  const char* name;
  bool needsFreeSectors;  // refused when they are mounted meanwhile
  std::function<void(ScriptedFrontEnd&)> answers;
  std::function<FlowResult(const OperationContext&, Drive&)> flow;
};

std::vector<Case> cases(const TableBackup& backup) {
  const auto yes = [](ScriptedFrontEnd& ui) { ui.expectMessage("", MessageResult::yes); };
  return {
      {"create", true, [](ScriptedFrontEnd& ui) { ui.expect<CreateModel>(enter("131", 20)); },
       [](const OperationContext& context, Drive& drive) {
         return createFlow(context, drive, *freeBlocks(drive)[0]);
       }},
      {"delete", true,
       [](ScriptedFrontEnd& ui) { ui.expect<DeleteModel>([](DeleteModel& model) { model.ok(); }); },
       [](const OperationContext& context, Drive& drive) {
         return deleteFlow(context, drive, *drive.findByKernelNumber(1));
       }},
      {"format", true,
       [](ScriptedFrontEnd& ui) {
         ui.expect<FormatModel>([](FormatModel& model) { model.ok(); });
         ui.expectMessage("will be erased", MessageResult::yes);
       },
       [](const OperationContext& context, Drive& drive) {
         return formatFlow(context, drive, *drive.findByKernelNumber(1));
       }},
      {"properties", false, yes,
       [](const OperationContext& context, Drive& drive) {
         return changePropertiesFlow(context, drive, *drive.findByKernelNumber(1),
                                     {.active = true});
       }},
      {"restore", true, yes,
       [backup](const OperationContext& context, Drive& drive) {
         return restoreTableFlow(context, drive, backup);
       }},
      {"convert", true, yes,
       [](const OperationContext& context, Drive& drive) {
         std::string kept;
         return convertFlow(context, drive, Scheme::embr, kept);
       }},
  };
}

// Another disk takes its place when a test says so.
class ReplacedDisk : public DiskWrapper {
 public:
  using DiskWrapper::DiskWrapper;
  Failure checkSameDisk() override { return isReplaced ? Error::deviceChanged : Error::none; }

  bool isReplaced = false;
};

class MeanwhileTest : public FlowTest {
 protected:
  MeanwhileTest() {
    const auto drive = open(disk_);
    add(*drive, 0, 100000, 0x06, "FAT");
    EXPECT_EQ(takeTableBackup(*drive, 1, backup_), Error::none);
  }

  // The flow is refused with `reason`, and no byte of what `meanwhile` left is written over.
  void expectRefused(const Case& tried, const std::function<void(MemoryDisk&)>& meanwhile,
                     Error reason) {
    SCOPED_TRACE(tried.name);
    MemoryDisk disk = disk_.copy();
    std::optional<MemoryDisk> changed;
    ScriptedFrontEnd ui;
    tried.answers(ui);
    ui.answerOthers(MessageResult::no);
    ui.meanwhile([&] {
      meanwhile(disk);
      changed.emplace(disk.copy());
    });
    const auto replaced = std::make_shared<ReplacedDisk>(disk);
    replaced->isReplaced = reason == Error::deviceChanged;
    const auto drive = open(replaced);
    const FlowResult result = tried.flow(with(ui), *drive);
    EXPECT_EQ(FlowEnd::refused, result.end);
    EXPECT_EQ(reason, result.code.code);
    EXPECT_TRUE(changed && disk.sameContent(*changed)) << "something was written";
    ui.forget();
  }

  TableBackup backup_;
};

TEST_F(MeanwhileTest, ATableThatAnotherProgramChangesIsNotWrittenOver) {
  for (const Case& tried : cases(backup_))
    expectRefused(
        tried,
        [](MemoryDisk& disk) {
          std::vector<u8> sector = disk.sector(0);
          sector[446 + 12] ^= 8;  // the length of the first slot
          disk.setSector(0, sector);
        },
        Error::tableChangedMeanwhile);
}

TEST_F(MeanwhileTest, ADiskThatTookItsPlaceIsLeftAlone) {
  for (const Case& tried : cases(backup_))
    expectRefused(
        tried, [](MemoryDisk&) {}, Error::deviceChanged);
}

TEST_F(MeanwhileTest, WhatIsMountedMeanwhileIsLeftAlone) {
  for (const Case& tried : cases(backup_)) {
    if (!tried.needsFreeSectors) continue;
    expectRefused(
        tried, [this](MemoryDisk&) { mount(0, kSectors); }, Error::targetInUse);
    host_.file("/proc/mounts", "");
  }
}

// In a process of its own: a request stays.
TEST_F(MeanwhileTest, AStopThatCameBeforeTheFirstWriteIsObeyed) {
  const auto child = [this] {
    for (const Case& tried : cases(backup_)) {
      MemoryDisk disk = disk_.copy();
      ScriptedFrontEnd ui;
      tried.answers(ui);
      ui.answerOthers(MessageResult::no);
      ui.meanwhile([] { requestStop(StopReason::signal); });
      const auto drive = open(disk);
      const bool isCancelled = tried.flow(with(ui), *drive).end == FlowEnd::cancelled;
      if (!isCancelled || !disk.sameContent(disk_)) std::fprintf(stderr, "%s\n", tried.name);
    }
    std::fprintf(stderr, "end");
    std::exit(0);
  };
  EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^end$");
}

TEST_F(MeanwhileTest, AMountedPartitionKeepsItsSlot) {
  const auto drive = open(disk_);
  MbrEditor editor(*drive);
  ASSERT_EQ(editor.load(), Error::none);
  editor.remove(0);
  mount(0, kSectors);
  MemoryDisk before = disk_.copy();
  std::string file;
  ui_.expectMessage("mounted");
  EXPECT_EQ(applyMbrEdit(with(ui_), *drive, editor, file).code, Error::targetInUse);
  EXPECT_TRUE(disk_.sameContent(before));
}

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
