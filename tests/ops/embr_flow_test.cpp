// Flows over a disk with an EMBR: the synchronisation at start, the limit of primaries, and what
// the kernel is told.
#include <gtest/gtest.h>

#include "disk/mbr_record.h"
#include "ops/convert_flow.h"
#include "ops/delete_flow.h"
#include "ops/delete_model.h"
#include "ops/flow_bench.h"
#include "ops/format_flow.h"
#include "ops/synchronize_flow.h"
#include "ptable/convert.h"
#include "ptable/embr/embr_record.h"
#include "support/table_rows.h"

namespace tallowin {
namespace {

class EmbrFlowTest : public FlowTest {
 protected:
  // Three primaries and an extended partition with two volumes.
  std::unique_ptr<Drive> embrDrive(std::shared_ptr<DiskDevice> disk) {
    auto drive = open(std::move(disk));
    for (const char* name : {"ONE", "TWO", "THREE"}) add(*drive, 0, 20480, 0x83, name);
    add(*drive, 0, 102400, 0x05, "MORE");
    for (const char* name : {"FIVE", "SIX"})
      add(*drive, freeBlocks(*drive).size() - 1, 2048, 7, name);
    EXPECT_EQ(convertToEmbr(*drive, false), Error::none);
    EXPECT_EQ(drive->reread(), Error::none);
    return drive;
  }
  // What another program does.
  void changeSlot(std::size_t index, const std::function<void(MbrSlotRecord&)>& change) {
    editSector<MbrRecord>(disk_, 0, [&](MbrRecord& mbr) { change(mbr.slots.at(index)); });
  }
  std::unique_ptr<Drive> opened() { return open(disk_); }
};

TEST_F(EmbrFlowTest, SynchronisingKeepsTheOldTableAndWarnsOfWhatMayOverlap) {
  static_cast<void>(embrDrive(borrowed(disk_)));
  const auto unchanged = opened();
  synchronizeFlow(with(ui_), *unchanged, 0);
  EXPECT_TRUE(ui_.messages.empty());
  EXPECT_EQ(keptTables(), 0U);

  changeSlot(0, [](MbrSlotRecord& slot) { slot.sectorCount = slot.sectorCount + 8; });
  const auto drive = opened();
  ui_.expectMessage("found on HD12\nwhich may overlap");
  synchronizeFlow(with(ui_), *drive, 0x12);
  EXPECT_EQ(keptTables(), 1U);
  EXPECT_EQ(drive->findByKernelNumber(1)->sectorCount(), 20488U);

  changeSlot(0, [](MbrSlotRecord& slot) { slot.type = 0x0B; });
  const auto again = opened();
  synchronizeFlow(with(ui_), *again, 0);
  EXPECT_EQ(again->findByKernelNumber(1)->type, 0x0B) << "and no warning";
}

TEST_F(EmbrFlowTest, SynchronisingSaysWhenItFails) {
  static_cast<void>(embrDrive(borrowed(disk_)));
  changeSlot(0, [](MbrSlotRecord& slot) { slot.type = 0x0B; });
  MemoryDisk before = disk_.copy();

  FaultyDisk faulty(disk_);
  const auto drive = open(borrowed(faulty));
  faulty.failWrite(0, true);
  ui_.expectMessage("Unable to synchronize MPT on HD3");
  synchronizeFlow(with(ui_), *drive, 3);
  EXPECT_TRUE(disk_.sameContent(before));
}

TEST_F(EmbrFlowTest, ALimitIsSetAndLiftedAndTheOldTableKept) {
  const auto drive = embrDrive(borrowed(disk_));
  ASSERT_EQ(drive->table().slots, 255U);
  EXPECT_EQ(limitPrimaries(with(ui_), *drive, true), Error::none);
  EXPECT_EQ(drive->table().slots, 4U) << "read again";
  EXPECT_EQ(keptTables(), 1U);
  EXPECT_EQ(limitPrimaries(with(ui_), *drive, false), Error::none);
  EXPECT_EQ(drive->table().slots, 255U);
  add(*drive, 0, 2048, 0x83, "FIFTH");
  MemoryDisk before = disk_.copy();
  EXPECT_EQ(limitPrimaries(with(ui_), *drive, true), Error::tooManyPartitions);
  EXPECT_TRUE(disk_.sameContent(before));
}

TEST_F(EmbrFlowTest, ThePartitionOfTheBootManagerIsAskedForOnceMore) {
  const auto drive = embrDrive(borrowed(disk_));
  ASSERT_EQ(drive->changeProperties(*drive->findByKernelNumber(1), {.attributes = kMptManager}),
            Error::none);
  ASSERT_EQ(drive->reread(), Error::none);
  MemoryDisk before = disk_.copy();
  PartitionEntry& first = *drive->findByKernelNumber(1);
  for (const bool formats : {false, true}) {
    ui_.expectMessage("*Warning* This partition contains Strandel!", MessageResult::no);
    const FlowResult result = formats ? formatFlow(with(ui_), *drive, first, {.type = 0x06})
                                      : deleteFlow(with(ui_), *drive, first);
    EXPECT_EQ(result.end, FlowEnd::cancelled);
  }
  EXPECT_TRUE(disk_.sameContent(before));
  ui_.expectMessage("*Warning* This partition contains Strandel!", MessageResult::yes);
  ui_.expect<DeleteModel>([](DeleteModel& model) { model.ok(); });
  EXPECT_EQ(deleteFlow(with(ui_), *drive, *drive->findByKernelNumber(1)).end, FlowEnd::done);
  ui_.expect<DeleteModel>([](DeleteModel& model) { model.ok(); });
  EXPECT_EQ(deleteFlow(with(ui_), *drive, *drive->findByKernelNumber(5)).end, FlowEnd::done);
}

TEST_F(EmbrFlowTest, TheKernelIsToldOfWhatItFindsThroughTheMbr) {
  class KernelSpy : public DiskWrapper {
   public:
    using DiskWrapper::DiskWrapper;
    KernelTable tellKernel(std::span<const KernelPartition> wanted) override {
      told.clear();
      for (const KernelPartition& p : wanted) told += std::to_string(p.number) + " ";
      return KernelTable::upToDate;
    }
    std::string told;
  };
  const auto spy = std::make_shared<KernelSpy>(disk_);
  const auto drive = embrDrive(spy);
  add(*drive, 0, 2048, 0x83, "FIFTH");
  EXPECT_EQ(drive->settle().kernel, KernelTable::upToDate);
  EXPECT_EQ(spy->told, "1 2 3 4 5 6 ");
  const auto entryNamed = [&](const std::string& name) -> PartitionEntry& {
    for (const auto& entry : drive->table().entries)
      if (entry->name == name) return *entry;
    ADD_FAILURE() << name;
    return *drive->table().entries.front();
  };
  EXPECT_EQ(drive->kernelNumber(entryNamed("FIFTH")), std::nullopt);

  // An extended partition without a slot hides its volumes too.
  changeSlot(3, [](MbrSlotRecord& slot) { slot.clear(); });
  ASSERT_EQ(drive->reread(), Error::none);
  EXPECT_EQ(drive->settle().kernel, KernelTable::upToDate);
  EXPECT_EQ(spy->told, "1 2 3 ");
  EXPECT_EQ(drive->findByKernelNumber(5), nullptr);
}

}  // namespace
}  // namespace tallowin
