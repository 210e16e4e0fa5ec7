#include "ops/flow_bench.h"

#include "base/text.h"

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

void FlowTest::forEachFailedTransfer(bool forever, const Flow& flow,
                                     const std::function<void(const FaultRun&)>& check) {
  const std::string old = tableOf(*open(disk_));
  std::string expected;
  std::size_t usualMessages = 0;
  u64 reads = 0;
  u64 writes = 0;
  const auto run = [&](std::optional<u64> fault) {
    MemoryDisk disk = disk_.copy();
    FaultyDisk faulty(disk);
    const auto drive = open(borrowed(faulty));
    const u64 readsBefore = faulty.reads();
    const u64 writesBefore = faulty.writes();
    const bool isWrite = fault && *fault >= reads;
    if (fault && !isWrite) faulty.failRead(*fault, forever);
    if (isWrite) faulty.failWrite(*fault - reads, forever);
    ScriptedFrontEnd ui;
    FaultRun done{flow(*drive, ui), disk, ui, isWrite, {}};
    ui.forget();
    done.table = tableOf(*open(disk));
    if (!fault) {
      ASSERT_TRUE(done.result.succeeded());
      reads = faulty.reads() - readsBefore;
      writes = faulty.writes() - writesBefore;
      expected = done.table;
      usualMessages = ui.messages.size();
      return;
    }
    EXPECT_TRUE(done.table == old || done.table == expected) << done.table;
    EXPECT_TRUE(done.result.succeeded() || ui.messages.size() > usualMessages) << "nothing told";
    const bool saysNew = done.result.succeeded() || done.result.code == Error::writeFailedNewTable;
    EXPECT_TRUE(!saysNew || done.table == expected) << done.table;
    EXPECT_FALSE(isWrite && forever && done.result.succeeded());
    if (check) check(done);
  };
  run(std::nullopt);
  ASSERT_GT(writes, 0U);
  for (u64 n = 0; n < reads + writes; ++n) {
    SCOPED_TRACE("transfer " + std::to_string(n) + " of " + std::to_string(reads) + " reads and " +
                 std::to_string(writes) + " writes");
    run(n);
  }
}

void FlowTest::expectCutsLeaveOldOrNew(const Flow& flow,
                                       const std::function<void(MemoryDisk&)>& check) {
  const std::string old = tableOf(*open(disk_));
  MemoryDisk changed = disk_.copy();
  RecordingDisk recording(changed);
  const auto drive = open(borrowed(recording));
  ScriptedFrontEnd ui;
  ASSERT_EQ(FlowEnd::done, flow(*drive, ui).end);
  const std::string expected = tableOf(*drive);
  ASSERT_GE(recording.log().size(), 3U);
  forEachPowerCut(recording.log(), disk_, [&](MemoryDisk& disk) {
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
  const auto addRow = [&](const PartitionEntry& entry) {
    if (entry.isFree()) return;
    text += format("%u %02Xh %llu..%llu%s\n", drive.kernelNumber(entry).value_or(99), entry.type,
                   static_cast<unsigned long long>(entry.startSector),
                   static_cast<unsigned long long>(entry.endSector), entry.isInError() ? " !" : "");
  };
  for (const auto& entry : drive.table().entries) {
    addRow(*entry);
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries) addRow(*volume);
  }
  return text;
}

std::vector<PartitionEntry*> freeBlocks(Drive& drive) {
  std::vector<PartitionEntry*> top;
  std::vector<PartitionEntry*> inner;
  for (const auto& entry : drive.table().entries) {
    if (entry->isFree()) top.push_back(entry.get());
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries)
      if (volume->isFree()) inner.push_back(volume.get());
  }
  top.insert(top.end(), inner.begin(), inner.end());
  return top;
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

void forEachPowerCut(const WriteLog& log, const MemoryDisk& before,
                     const std::function<void(MemoryDisk&)>& check) {
  for (std::size_t cut = 0; cut <= log.size(); ++cut) {
    SCOPED_TRACE("power cut after step " + std::to_string(cut));
    const std::size_t unflushed = std::min<std::size_t>(log.unflushedBefore(cut), 8);
    for (u64 subset = 0; subset < (u64{1} << unflushed); ++subset) {
      MemoryDisk disk = log.replaySubset(before, cut, subset);
      check(disk);
    }
  }
}

}  // namespace tallowin
