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
  PartitionEntry& block = *freeBlocks(drive).at(freeIndex);
  block.endSector = block.startSector + sectors - 1;
  block.type = type;
  block.setName(name);
  ASSERT_EQ(Error::none, drive.commit(block));
  ASSERT_EQ(Error::none, drive.reread());
}

void FlowTest::mount(u64 startSector, u64 sectors) {
  host_.node("/dev/sda", 8, 0);
  host_.partition("sda", "sda1", 1, startSector, sectors);
  host_.file("/proc/mounts", "/dev/sda1 /mnt/data ext4 rw 0 0\n");
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
