#include "ops/flow_bench.h"

#include <algorithm>

#include "base/text.h"
#include "support/table_rows.h"

namespace tallowin {

FlowTest::FlowTest() { disk_.setName("/dev/sda"); }

std::unique_ptr<Drive> FlowTest::open(std::shared_ptr<DiskDevice> disk) {
  DriveOpenOptions options;
  options.alignment = kOneMiB;
  std::unique_ptr<Drive> drive;
  EXPECT_EQ(Error::none, Drive::open(std::move(disk), host_, options, drive));
  return drive;
}

std::unique_ptr<Drive> FlowTest::open(MemoryDisk& disk) { return open(borrowed(disk)); }

void FlowTest::add(Drive& drive, std::size_t freeIndex, u64 sectors, u16 type,
                   const std::string& name) {
  NewEntry entry = newEntryIn(*freeBlocks(drive).at(freeIndex));
  entry.endSector = entry.startSector + sectors - 1;
  entry.type = type;
  entry.name = name;
  ASSERT_EQ(Error::none, drive.add(entry));
  ASSERT_EQ(Error::none, drive.reread());
}

void FlowTest::mount(u64 startSector, u64 sectors) {
  host_.node("/dev/sda", 8, 0);
  host_.partition("sda", "sda1", 1, startSector, sectors);
  host_.file("/proc/mounts", "/dev/sda1 /mnt/data ext4 rw 0 0\n");
}

void FlowTest::forEachFailedRequest(const Flow& flow,
                                    const std::function<void(const FaultRun&)>& check) {
  const std::string old = tableOf(*open(disk_));
  std::string expected;
  std::size_t usualMessages = 0;
  forEachFault(disk_, kFailedRequests, [&](FaultRound& round) {
    const auto drive = open(round.sharedDisk());
    round.begin();
    ScriptedFrontEnd ui;
    FaultRun done{flow(*drive, ui), round, ui, tableOf(*open(round.medium()))};
    ui.forget();
    if (round.isSound()) {
      ASSERT_TRUE(done.result.succeeded());
      expected = done.table;
      usualMessages = ui.messages.size();
    }
    if (!round.wasHit()) return;
    EXPECT_TRUE(done.table == old || done.table == expected) << done.table;
    EXPECT_TRUE(done.result.succeeded() || ui.messages.size() > usualMessages) << "nothing told";
    const bool saysNew = done.result.succeeded() || done.result.code == Error::writeFailedNewTable;
    EXPECT_TRUE(!saysNew || done.table == expected) << done.table;
    EXPECT_FALSE(round.fault().isWrite() && round.fault().forever && done.result.succeeded());
    if (check) check(done);
  });
}

void FlowTest::expectCutsLeaveOldOrNew(const Flow& flow,
                                       const std::function<void(MemoryDisk&)>& check) {
  const std::string old = tableOf(*open(disk_));
  std::string expected;
  forEachPowerCut(
      disk_,
      [&](FaultRound& round) {
        const auto drive = open(round.sharedDisk());
        ScriptedFrontEnd ui;
        ASSERT_EQ(FlowEnd::done, flow(*drive, ui).end);
        expected = tableOf(*drive);
      },
      [&](MemoryDisk& disk) {
        const std::string table = tableOf(*open(disk));
        EXPECT_TRUE(table == old || table == expected) << table;
        if (check) check(disk);
      });
}

std::size_t FlowTest::keptTables() {
  Host real;
  return real.list(folders_.backupFolder(), "*").size();
}

std::string tableOf(Drive& drive) {
  std::string text;
  for (const PartitionEntry* entry : entriesOf(drive)) {
    if (entry->isFree()) continue;
    text +=
        format("%u %02Xh %llu..%llu%s\n", drive.kernelNumber(*entry).value_or(99), entry->type,
               static_cast<unsigned long long>(entry->startSector),
               static_cast<unsigned long long>(entry->endSector), entry->isInError() ? " !" : "");
  }
  return text;
}

std::vector<PartitionEntry*> freeBlocks(Drive& drive) {
  std::vector<PartitionEntry*> blocks = entriesOf(drive);
  std::erase_if(blocks, [](const PartitionEntry* entry) { return !entry->isFree(); });
  std::stable_partition(blocks.begin(), blocks.end(),
                        [](const PartitionEntry* block) { return !block->isVolume(); });
  return blocks;
}

std::function<void(CreateModel&)> enter(const std::string& type, u32 sizeMiB,
                                        const std::string& name) {
  return [=](CreateModel& model) {
    model.name = name;
    model.fileSystem = type;
    model.sizeMiB.value = sizeMiB;
    model.pass();
    model.ok();
    if (model.isOpen()) model.cancel();
  };
}

std::shared_ptr<DiskDevice> borrowed(DiskDevice& disk) {
  return std::make_shared<DiskWrapper>(disk);
}

}  // namespace tallowin
