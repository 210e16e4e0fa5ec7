#include "ops/delete_flow.h"

#include <gtest/gtest.h>

#include "ops/delete_model.h"
#include "ops/flow_bench.h"

namespace tallowin {
namespace {

class DeleteFlowTest : public FlowTest {
 protected:
  // 1 FAT-32, 2 extended with volumes 5 and 6, 3 Linux; the ends of all, and all of 3, are ones.
  DeleteFlowTest() {
    const auto drive = open(disk_);
    add(*drive, 0, 140000, 0x0B, "FAT");
    add(*drive, 0, 100000, 0x05, "EXT");
    add(*drive, 1, 20000, 0x83, "V1");
    add(*drive, 1, 20000, 0x82, "V2");
    add(*drive, 0, 20480, 0x83, "LINUX");
    for (const u32 number : {1U, 5U, 6U, 3U}) {
      const PartitionEntry& entry = *drive->findByKernelNumber(number);
      const u64 count = number == 3 ? entry.sectorCount() : 256;
      const std::vector<u8> ones(count * 512, 0xFF);
      EXPECT_EQ(disk_.writeSectors(entry.startSector, ones.data(), count), Error::none);
      EXPECT_EQ(disk_.writeSectors(entry.endSector + 1 - count, ones.data(), count), Error::none);
    }
    table_ = tableOf(*drive);
  }

  FlowResult erase(Drive& drive, u32 number) {
    return deleteFlow(context_, drive, *drive.findByKernelNumber(number));
  }
  // How many sectors from `first` on are zero.
  static u64 zerosFrom(MemoryDisk& disk, u64 first) {
    u64 count = 0;
    while (first + count < kSectors && disk.sector(first + count) == std::vector<u8>(512, 0))
      ++count;
    return count;
  }
  static void yes(DeleteModel& model) { model.ok(); }

  std::string table_;
};

TEST_F(DeleteFlowTest, TheQuestionNamesDiskAndPartition) {
  const auto drive = open(disk_);
  const u64 start = drive->findByKernelNumber(1)->startSector;
  ui_.expect<DeleteModel>([](DeleteModel& model) {
    EXPECT_EQ("Confirm Delete", model.title);
    EXPECT_EQ("Type: FAT-32", model.typeLine);
    EXPECT_EQ("Size: 68 MiB", model.sizeLine);
    EXPECT_EQ("Disk: 200 MiB, /dev/sda\nPartition 1 'MBR 0', 68 MiB", model.targetText);
    EXPECT_FALSE(model.warningLine.shown);
    model.ok();
  });
  EXPECT_EQ(FlowEnd::done, erase(*drive, 1).end);
  EXPECT_EQ(nullptr, drive->findByKernelNumber(1));
  EXPECT_EQ(tableOf(*drive), tableOf(*open(disk_)));
  EXPECT_EQ(0U, zerosFrom(disk_, start)) << "nothing of the partition is overwritten";
  EXPECT_EQ(1U, keptTables());
}

TEST_F(DeleteFlowTest, VolumesGoWithTheirExtendedPartition) {
  const auto drive = open(disk_);
  ui_.expect<DeleteModel>([](DeleteModel& model) {
    EXPECT_EQ("*WARNING* Volumes will also be deleted.", model.warning);
    model.ok();
  });
  EXPECT_EQ(FlowEnd::done, erase(*drive, 2).end);
  EXPECT_EQ(nullptr, drive->findByKernelNumber(5));
  EXPECT_NE(nullptr, drive->findByKernelNumber(3));
}

TEST_F(DeleteFlowTest, TheBootSectorsOfEachTypeAreCleared) {
  struct Case {
    u32 number;
    bool shift;
    u64 cleared;
  };
  for (const Case& c : {Case{1, false, 7}, Case{1, true, 1}, Case{6, false, 8}, Case{5, false, 129},
                        Case{3, true, 129}}) {
    MemoryDisk disk = disk_.copy();
    const auto drive = open(disk);
    const u64 start = drive->findByKernelNumber(c.number)->startSector;
    ui_.expect<DeleteModel>([&](DeleteModel& model) {
      model.clearBootSector = true;
      model.shiftHeld = c.shift;
      model.ok();
    });
    EXPECT_EQ(FlowEnd::done, erase(*drive, c.number).end);
    EXPECT_EQ(c.cleared, zerosFrom(disk, start)) << c.number;
  }
}

TEST_F(DeleteFlowTest, AStoppedWipeSaysWhatIsDone) {
  const auto drive = open(disk_);
  ui_.expect<DeleteModel>([](DeleteModel& model) {
    model.wipePartition = true;
    model.ok();
  });
  ui_.cancelAtPoll(2);
  ui_.expectMessage(
      "The partition was deleted, but it is not wiped: it was stopped in pass 1.\n"
      "Its first 8.0 MiB were overwritten once at least.");
  EXPECT_EQ(FlowEnd::cancelled, erase(*drive, 3).end);
  EXPECT_EQ(nullptr, drive->findByKernelNumber(3));
}

// The medium's own fast way to zeros may leave what was there.
class FastZeros : public DiskWrapper {
 public:
  using DiskWrapper::DiskWrapper;

 protected:
  std::optional<Failure> zeroFast(u64, u64) override {
    ADD_FAILURE() << "the old bytes are left on the medium";
    return Failure();
  }
};

TEST_F(DeleteFlowTest, AWipeWrites) {
  const auto drive = open(std::make_shared<FastZeros>(disk_));
  const u64 start = drive->findByKernelNumber(1)->startSector;
  ui_.expect<DeleteModel>([](DeleteModel& model) {
    model.wipePartition = true;
    model.ok();
  });
  EXPECT_EQ(FlowEnd::done, erase(*drive, 1).end);
  EXPECT_LE(256U, zerosFrom(disk_, start));
}

TEST_F(DeleteFlowTest, AWipeOverBadSectorsSaysHowManyAreLeft) {
  FaultyDisk faulty(disk_);
  const auto drive = open(borrowed(faulty));
  const u64 start = drive->findByKernelNumber(3)->startSector;
  faulty.failAccessTo({start + 100, start + 102});
  ui_.expect<DeleteModel>([](DeleteModel& model) {
    model.wipePartition = true;
    model.ok();
  });
  ui_.expectMessage("An error has occurred during a write to the drive.", MessageResult::yes);
  ui_.expectMessage("3 sectors could not be overwritten or read back.");
  const u64 count = drive->findByKernelNumber(3)->sectorCount();
  EXPECT_EQ(FlowEnd::doneWithLosses, erase(*drive, 3).end);
  EXPECT_EQ(100U, zerosFrom(disk_, start));
  EXPECT_LE(count - 103, zerosFrom(disk_, start + 103));
}

TEST_F(DeleteFlowTest, AMountedPartitionIsRefusedAndItsNeighbourIsNot) {
  const auto drive = open(disk_);
  const PartitionEntry& first = *drive->findByKernelNumber(1);
  mount(first.startSector, first.sectorCount());
  ui_.expectMessage("Error: The partition is mounted in Linux as /mnt/data.");
  EXPECT_EQ(FlowEnd::refused, erase(*drive, 1).end);
  EXPECT_EQ(table_, tableOf(*open(disk_)));
  ui_.expect<DeleteModel>(yes);
  EXPECT_EQ(FlowEnd::done, erase(*drive, 3).end);
}

TEST_F(DeleteFlowTest, AnotherProgramsLockIsRespected) {
  class Locked : public DiskWrapper {
   public:
    using DiskWrapper::DiskWrapper;
    bool acquireLock() override { return false; }
  };
  const auto drive = open(std::make_shared<Locked>(disk_));
  ui_.expect<DeleteModel>(yes);
  ui_.expectMessage("Another program is changing this disk");
  const FlowResult result = erase(*drive, 1);
  EXPECT_EQ(FlowEnd::refused, result.end);
  EXPECT_EQ(Error::lockNotMade, result.code);
  EXPECT_EQ(table_, tableOf(*open(disk_)));
}

TEST_F(DeleteFlowTest, AKernelThatKeepsTheOldTableIsTold) {
  class Stubborn : public DiskWrapper {
   public:
    using DiskWrapper::DiskWrapper;
    KernelTable tellKernel(std::span<const KernelPartition>) override {
      return KernelTable::restartNeeded;
    }
  };
  const auto drive = open(std::make_shared<Stubborn>(disk_));
  ui_.expect<DeleteModel>(yes);
  ui_.expectMessage("Please restart the computer before you use this disk.");
  EXPECT_EQ(FlowEnd::done, erase(*drive, 1).end);
}

TEST_F(DeleteFlowTest, FailedTransfersAndPowerCutsLeaveTheOldTableOrTheNew) {
  for (const u32 number : {1U, 2U, 5U, 6U}) {
    SCOPED_TRACE("partition " + std::to_string(number));
    const Flow flow = [&](Drive& drive, ScriptedFrontEnd& ui) {
      ui.answerOthers(MessageResult::cancel);
      ui.expect<DeleteModel>(yes);
      return deleteFlow(with(ui), drive, *drive.findByKernelNumber(number));
    };
    forEachFailedRequest(flow, [this](const FaultRun& run) {
      EXPECT_TRUE(!run.failedTransfer() || run.table == table_) << run.table;
    });
    if (number != 2) expectCutsLeaveOldOrNew(flow);
  }
}

}  // namespace
}  // namespace tallowin
