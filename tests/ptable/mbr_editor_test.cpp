#include "ptable/mbr/mbr_editor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "ptable/convert.h"
#include "ptable/mbr/boot_code.h"
#include "ptable/table_bench.h"
#include "support/fault_loops.h"

namespace tallowin {
namespace {

constexpr u64 kSectors = 204800;
constexpr const char* kScript =
    "label: dos\nlabel-id: 0x12345678\n1:start=2048,size=4096,type=83\n"
    "2:start=20480,size=102400,type=f\n3:start=8192,size=4096,type=7,bootable\n"
    "5:start=22528,size=8192,type=83\n";

MemoryDisk sampleDisk() {
  // Opened once, so that the volume has its number on the disk.
  TableBench bench(diskFromScript(kSectors, kScript));
  return bench.disk().copy();
}

class MbrEditorTest : public testing::Test {
 protected:
  MbrEditorTest() { EXPECT_EQ(Error::none, editor_.load()); }

  MbrRecord applied() {
    EXPECT_EQ(Error::none, editor_.apply());
    return mbrOf(bench_.disk());
  }
  const PartitionEntry& part(u32 number) { return *bench_.drive().findByKernelNumber(number); }
  std::vector<u64> candidateStarts(std::size_t slot) const {
    std::vector<u64> starts;
    for (const TableEntry* entry : editor_.candidates(slot)) starts.push_back(entry->startSector);
    return starts;
  }
  std::vector<bool> active() const {
    std::vector<bool> all;
    for (const MbrSlotRow& row : editor_.rows()) all.push_back(row.isActive);
    return all;
  }

  TableBench bench_{sampleDisk()};
  MbrEditor editor_{bench_.drive()};
};

using Starts = std::vector<u64>;
using Flags = std::vector<bool>;

TEST_F(MbrEditorTest, ActiveIsOneOrAsManyAsWanted) {
  editor_.setActive(0);
  EXPECT_EQ((Flags{true, false, false, false}), active());
  editor_.toggleActive(2);
  EXPECT_EQ((Flags{true, false, true, false}), active());
  editor_.toggleActive(0);
  editor_.toggleActive(2);
  EXPECT_EQ((Flags{false, false, false, false}), active());
}

TEST_F(MbrEditorTest, SlotsAreSwappedRemovedAndFilled) {
  const MbrRecord before = mbrOf(bench_.disk());
  editor_.swap(0, 1);
  editor_.remove(2);
  EXPECT_EQ((Starts{8192}), candidateStarts(3));
  EXPECT_EQ((Starts{2048, 8192}), candidateStarts(1)) << "the slot's own partition is offered";
  ASSERT_TRUE(editor_.insert(3, part(3)));
  EXPECT_FALSE(editor_.insert(2, part(5))) << "a volume";
  const MbrRecord after = applied();
  EXPECT_EQ(0, std::memcmp(&before.slots[0], &after.slots[1], sizeof(MbrSlotRecord)));
  EXPECT_EQ(0, std::memcmp(&before.slots[1], &after.slots[0], sizeof(MbrSlotRecord)));
  EXPECT_EQ(MbrSlotRecord{}.type, after.slots[2].type);
  EXPECT_EQ(8192U, after.slots[3].startLba);
  EXPECT_EQ(4096U, after.slots[3].sectorCount);
  EXPECT_EQ(7, after.slots[3].type);
  EXPECT_EQ(0, after.slots[3].bootIndicator) << "the slot's indicator, not the partition's";
  EXPECT_EQ("", readTable(bench_.disk()).problems);
}

TEST_F(MbrEditorTest, CodeSignatureAndEndAddresses) {
  editor_.installBootCode(BootCode::measuring);
  editor_.setSignature(0x1234);
  editor_.fillEndChs();
  MbrRecord mbr = applied();
  EXPECT_TRUE(std::ranges::equal(mbr.bootCode, bootCodeBytes(BootCode::measuring)));
  EXPECT_EQ(0x1234U, mbr.diskSignature);
  EXPECT_EQ((std::array<u8, 3>{0xFE, 0xFF, 0xFF}), mbr.slots[1].endChs);
  EXPECT_EQ((std::array<u8, 3>{}), mbr.slots[3].endChs) << "an empty slot stays empty";
  editor_.installBootCode(BootCode::standard);
  editor_.clearSignature();
  mbr = applied();
  EXPECT_TRUE(std::ranges::equal(mbr.bootCode, bootCodeBytes(BootCode::standard)));
  EXPECT_EQ(0U, mbr.diskSignature);
  EXPECT_EQ(2048U, mbr.slots[0].startLba);
}

TEST(MbrEditor, ASectorOf4096BytesKeepsItsRest) {
  MemoryDisk disk(kSectors, 4096);
  std::vector<u8> sector(4096, 0xA5);
  ASSERT_EQ(disk.writeSectors(0, sector.data(), 1), Error::none);
  TableBench bench(std::move(disk));
  MbrEditor editor(bench.drive());
  ASSERT_EQ(Error::none, editor.load());
  editor.installBootCode(BootCode::standard);
  for (std::size_t slot = 0; slot < kMbrSlots; ++slot) editor.remove(slot);
  ASSERT_EQ(Error::none, editor.apply());
  const std::vector<u8> after = bench.disk().sector(0);
  EXPECT_EQ(0x55, after[510]);
  EXPECT_TRUE(std::all_of(after.begin() + 512, after.end(), [](u8 byte) { return byte == 0xA5; }));
}

TEST_F(MbrEditorTest, AnEmbrStaysAndItsPartitionsCanBeGivenSlots) {
  ASSERT_EQ(Error::none, convertToEmbr(bench_.drive(), false));
  ASSERT_EQ(Error::none, bench_.drive().reread());
  ASSERT_EQ(Error::none, editor_.load());
  for (std::size_t slot = 0; slot < kMbrSlots; ++slot) editor_.remove(slot);
  ASSERT_EQ(3U, editor_.candidates(0).size());
  ASSERT_TRUE(editor_.insert(0, *editor_.candidates(0)[1]));
  EXPECT_EQ((Starts{2048, 20480}), candidateStarts(1));
  EXPECT_EQ(8192U, applied().slots[0].startLba);
  ASSERT_EQ(Error::none, bench_.drive().reread());
  EXPECT_TRUE(bench_.drive().isEmbr());
  EXPECT_EQ((Starts{2048, 8192, 20480}), candidateStarts(0)) << "no partition is lost";
}

TEST_F(MbrEditorTest, WhatAnotherProgramChangedIsNotOverwritten) {
  editor_.setActive(0);
  std::vector<u8> sector = bench_.disk().sector(0);
  recordAt<MbrRecord>(std::span<u8>(sector))->slots[1].type = 0x85;
  ASSERT_EQ(bench_.disk().writeSectors(0, sector.data(), 1), Error::none);
  EXPECT_EQ(Error::tableChangedMeanwhile, editor_.apply());
  EXPECT_EQ(sector, bench_.disk().sector(0));
}

// The sample on any device, with two slots swapped in the copy.
class EditOn {
 public:
  explicit EditOn(DiskDevice& device)
      : drive_(TableBench::openOn(std::shared_ptr<DiskDevice>(&device, [](DiskDevice*) {}), host_)),
        editor(*drive_) {
    EXPECT_EQ(Error::none, editor.load());
    editor.swap(0, 2);
  }

 private:
  FakeHost host_;
  std::unique_ptr<Drive> drive_;

 public:
  MbrEditor editor;
};

TEST(MbrEditor, AfterEveryFailedRequestTheErrorTellsTheTableAndTheEditCanBeRepeated) {
  MemoryDisk done = sampleDisk();
  ASSERT_EQ(Error::none, EditOn(done).editor.apply());
  const std::vector<u8> old = sampleDisk().sector(0);
  forEachFault(sampleDisk(), kFailedRequests, [&](FaultRound& round) {
    EditOn edit(round.disk());
    round.begin();
    const Failure error = edit.editor.apply();
    EXPECT_EQ(edit.editor.isChanged(), bool(error));
    EXPECT_EQ(round.wasHit(), bool(error));
    if (error == Error::read || error == Error::write) {
      EXPECT_EQ(old, round.medium().sector(0));
    } else if (error) {
      EXPECT_EQ(Error::writeFailedTableUnknown, error);
    }
    round.heal();
    EXPECT_EQ(Error::none, edit.editor.apply());
    EXPECT_EQ(done.sector(0), round.medium().sector(0));
    EXPECT_FALSE(edit.editor.isChanged());
  });
}

TEST(MbrEditor, APowerCutLeavesTheOldOrTheNewSector) {
  MemoryDisk old = sampleDisk();
  MemoryDisk done = sampleDisk();
  ASSERT_EQ(Error::none, EditOn(done).editor.apply());
  const auto edit = [](FaultRound& round) {
    EXPECT_EQ(Error::none, EditOn(round.disk()).editor.apply());
  };
  forEachPowerCut(old, edit, [&](MemoryDisk& after) {
    EXPECT_TRUE(after.sameContent(old) || after.sameContent(done));
  });
}

}  // namespace
}  // namespace tallowin
