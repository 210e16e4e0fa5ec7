// Another program changes the MBR of a disk with an EMBR; the MPT follows.
#include "ptable/embr/embr_sync.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "disk/mbr_record.h"
#include "ptable/convert.h"
#include "ptable/embr/embr_image.h"
#include "ptable/table_bench.h"

namespace tallowin {
namespace {

constexpr const char* kTwo =
    "label: dos\n1:start=2048,size=4096,type=83\n2:start=8192,size=4096,type=7\n";

class EmbrSyncTest : public ::testing::Test {
 protected:
  void make(const std::string& script, bool limited) {
    bench_.emplace(diskFromScript(100'000, script));
    ASSERT_EQ(convertToEmbr(bench_->drive(), limited), Error::none);
    bench_->reopen();
  }
  // What another program does to the four slots.
  void changeSlots(const std::function<void(std::array<MbrSlotRecord, kMbrSlots>&)>& change) {
    editSector<MbrRecord>(bench_->disk(), 0, [&](MbrRecord& mbr) { change(mbr.slots); });
    bench_->reopen();
  }
  EmbrSync synchronize() {
    EmbrSync done;
    EXPECT_EQ(synchronizeEmbr(
                  bench_->drive(), [] { return true; }, done),
              Error::none);
    bench_->reopen();
    return done;
  }
  // "2048..6143 83 name", in the order of the MPT.
  std::string entries() {
    EmbrImage image;
    EXPECT_EQ(EmbrImage::read(bench_->disk(), image), Error::none);
    std::ostringstream text;
    for (u32 i = 0; i < image.entryCount(); ++i) {
      const MptEntryRecord& entry = image.entry(i);
      text << entry.firstLba << ".." << entry.lastLba << " " << std::hex << u32{entry.type}
           << std::dec << " " << entry.name << "\n";
    }
    return text.str();
  }

  std::optional<TableBench> bench_;
};

TEST_F(EmbrSyncTest, WhatAgreesIsNotWritten) {
  for (const bool limited : {false, true}) {
    make(kTwo, limited);
    MemoryDisk before = bench_->disk().copy();
    EXPECT_FALSE(synchronize().wrote);
    changeSlots([](auto& slots) { slots[0].bootIndicator = kBootActive; });
    EXPECT_FALSE(synchronize().wrote);
  }
  // Without a signature nothing there is true.
  std::vector<u8> sector = bench_->disk().sector(0);
  sector[510] = 0;
  sector[450] = 0x0C;
  bench_->disk().setSector(0, sector);
  bench_->reopen();
  EXPECT_FALSE(synchronize().wrote);
}

// The place holder of a GPT is no partition, and what it stands for is elsewhere.
TEST_F(EmbrSyncTest, NothingFollowsAPlaceHolder) {
  for (const bool limited : {false, true}) {
    make(kTwo, limited);
    changeSlots([](auto& slots) {
      slots.fill({});
      slots[0] = slot(0xEE, 1, kAllOnes32);
    });
    MemoryDisk before = bench_->disk().copy();
    EXPECT_FALSE(synchronize().wrote);
    EXPECT_TRUE(bench_->disk().sameContent(before));
  }
}

TEST_F(EmbrSyncTest, NewSlotsBecomeEntriesAndAreWarnedOf) {
  for (const bool limited : {false, true}) {
    make(kTwo, limited);
    changeSlots([](auto& slots) { slots[2] = slot(0x0B, 20480, 2048); });
    const EmbrSync done = synchronize();
    EXPECT_TRUE(done.wrote && done.mayOverlap && !done.tableFull);
    EXPECT_EQ(entries(), "2048..6143 83 MBR 0\n8192..12287 7 MBR 1\n20480..22527 b MBR Entry 2\n");
    EXPECT_FALSE(synchronize().wrote);
  }
}

TEST_F(EmbrSyncTest, UnlimitedEntriesFollowTheirStart) {
  make(kTwo, false);
  // Grown, with another type; hidden; and one that is gone from the MBR stays in the MPT.
  changeSlots([](auto& slots) { slots[0] = slot(0x0B, 2048, 5000); });
  EXPECT_TRUE(synchronize().mayOverlap);
  EXPECT_EQ(entries(), "2048..7047 b MBR 0\n8192..12287 7 MBR 1\n");
  changeSlots([](auto& slots) {
    slots[0] = slot(0xED, 2048, 1000);
    slots[1].clear();
  });
  const EmbrSync done = synchronize();
  EXPECT_TRUE(done.wrote && !done.mayOverlap);
  EXPECT_EQ(entries(), "2048..3047 b MBR 0\n8192..12287 7 MBR 1\n");
  // The boot manager's mark is no type of a partition, and no partition of its own.
  changeSlots([](auto& slots) {
    slots[0].type = 0x44;
    slots[2] = slot(0x44, 30000, 100);
  });
  EXPECT_FALSE(synchronize().wrote);
}

TEST_F(EmbrSyncTest, LimitedTablesMirrorTheMbr) {
  make(kTwo, true);
  // The same size elsewhere is the partition that was moved; what is gone is removed.
  changeSlots([](auto& slots) {
    slots[0] = slot(0x83, 40960, 4096);
    slots[1].clear();
  });
  EXPECT_TRUE(synchronize().wrote);
  EXPECT_EQ(entries(), "40960..45055 83 MBR 0\n");
  changeSlots([](auto& slots) { slots[0] = slot(0x0B, 40960, 4096); });
  EXPECT_TRUE(synchronize().wrote);
  EXPECT_EQ(entries(), "40960..45055 b MBR 0\n");
  EXPECT_EQ(rowsOf(bench_->drive()), readTable(bench_->disk()).rows);

  make("label: dos\n1:start=2048,size=40960,type=5\n", true);
  changeSlots([](auto& slots) { slots[0] = slot(0x0F, 4096, 20480); });
  EXPECT_TRUE(synchronize().wrote);
  EXPECT_EQ(entries(), "4096..24575 f MBR 0\n");
}

TEST_F(EmbrSyncTest, TheBootManagersMarkRebuildsTheSlots) {
  make(kTwo, true);
  const std::vector<SfdiskRow> before = readTable(bench_->disk()).rows;
  changeSlots([](auto& slots) {
    slots[0] = slot(0x44, 1, 99'999);
    slots[1].clear();
  });
  EXPECT_TRUE(synchronize().wrote);
  EXPECT_EQ(readTable(bench_->disk()).rows, before);
  EXPECT_EQ(entries(), "2048..6143 83 MBR 0\n8192..12287 7 MBR 1\n");
}

TEST_F(EmbrSyncTest, AFullTableOrANoIsNotWritten) {
  make(kTwo, false);
  EmbrImage image;
  ASSERT_EQ(EmbrImage::read(bench_->disk(), image), Error::none);
  while (image.entryCount() < kMaxMptEntries) {
    MptEntryRecord entry{};
    entry.firstLba = 20'000 + image.entryCount();
    entry.lastLba = 20'000 + image.entryCount();
    entry.type = 0x83;
    entry.id = image.freeId(3);
    ASSERT_EQ(image.insert(image.entryCount(), entry), Error::none);
  }
  ASSERT_EQ(image.write(bench_->disk()), Error::none);
  changeSlots([](auto& slots) { slots[2] = slot(0x83, 60'000, 100); });
  const EmbrSync done = synchronize();
  EXPECT_TRUE(done.tableFull && !done.wrote);
  changeSlots([](auto& slots) { slots[0].sectorCount = 1; });
  MemoryDisk before = bench_->disk().copy();
  EmbrSync refused;
  EXPECT_EQ(synchronizeEmbr(
                bench_->drive(), [] { return false; }, refused),
            Error::cancelled);
  EXPECT_TRUE(bench_->disk().sameContent(before));
}

}  // namespace
}  // namespace tallowin
