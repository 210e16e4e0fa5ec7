// Random changes of a table, judged by sfdisk after every step.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "ptable/table_bench.h"
#include "support/loop_device.h"

namespace tallowin {
namespace {

constexpr u64 kUnit = 2048;

struct Run {
  u64 start;
  u64 end;  // one past
};

// The blocks that must be free between used runs: the aligned part of each gap.
std::vector<Run> gapsBetween(std::vector<Run> used, u64 first, u64 end, u64 offset) {
  std::ranges::sort(used, {}, &Run::start);
  used.push_back({end, end});
  std::vector<Run> gaps;
  for (const Run& run : used) {
    const u64 start = (first + kUnit - 1) / kUnit * kUnit + offset;
    const u64 stop = run.start / kUnit * kUnit;
    if (start + 1 < stop) gaps.push_back({start, stop});
    first = run.end;
  }
  return gaps;
}

template <typename Entry, typename RunOf>
void expectGaps(const std::vector<std::unique_ptr<Entry>>& entries, RunOf runOf, u64 first, u64 end,
                u64 offset, const std::string& picture) {
  std::vector<Run> used;
  std::vector<Run> free;
  for (const auto& entry : entries) {
    if (entry->isFree()) {
      free.push_back({entry->startSector, entry->endSector + 1});
    } else {
      used.push_back(runOf(*entry));
    }
  }
  const auto expected = gapsBetween(used, first, end, offset);
  EXPECT_TRUE(std::ranges::equal(expected, free, [](const Run& a, const Run& b) {
    return a.start == b.start && a.end == b.end;
  })) << picture;
  std::ranges::sort(used, {}, &Run::start);
  for (std::size_t i = 1; i < used.size(); ++i)
    EXPECT_LE(used[i - 1].end, used[i].start) << picture;
}

void expectSound(TableBench& bench) {
  Drive& drive = bench.drive();
  const std::string picture = pictureOf(drive);
  EXPECT_FALSE(drive.table().hasErrors()) << picture;
  expectGaps(
      drive.table().entries,
      [](const TableEntry& e) {
        return Run{e.startSector, e.endSector + 1};
      },
      1, drive.lastUsableSector() + 1, 0, picture);
  for (const auto& entry : drive.table().entries) {
    if (!entry->volumes) continue;
    EXPECT_LE(entry->volumes->emptyEbrs.size(), 1U);
    expectGaps(
        entry->volumes->entries,
        [&](const VolumeEntry& v) {
          return Run{entry->startSector + v.ebr, v.endSector + 1};
        },
        entry->startSector, entry->endSector + 1, kUnit, picture);
  }
}

class RandomChanges {
 public:
  explicit RandomChanges(unsigned seed, u32 sectorSize)
      : random_(seed), bench_(MemoryDisk(400 * kUnit, sectorSize), alignedTo(kUnit)) {}

  TableBench& bench() { return bench_; }

  void step() {
    switch (pick(5)) {
      case 0:
        return removeOne();
      case 1:
        return create(pickFree(false), pick(4) == 0 ? 0x0F : 0x83);
      default:
        return create(pickFree(true), 0x0B);
    }
  }

 private:
  u64 pick(u64 below) { return random_() % below; }

  // A free block inside or outside of the extended partition; null when there is none.
  PartitionEntry* pickFree(bool inner) {
    std::vector<PartitionEntry*> blocks = entriesOf(bench_.drive());
    std::erase_if(blocks, [inner](const PartitionEntry* block) {
      return !block->isFree() || block->isVolume() != inner;
    });
    return blocks.empty() ? nullptr : blocks[pick(blocks.size())];
  }

  bool hasExtended() {
    return std::ranges::any_of(bench_.drive().table().entries,
                               [](const auto& entry) { return entry->volumes != nullptr; });
  }

  void create(PartitionEntry* block, u16 type) {
    Drive& drive = bench_.drive();
    if (block == nullptr || (type == 0x0F && hasExtended())) return;
    const bool hasRoom = block->isVolume() || drive.table().usedSlots < 4;
    const u64 room = block->sectorCount();
    // Half of the starts are aligned, and half of the sizes take all that is left.
    const u64 before = pick(2) == 0 ? pick(room) / kUnit * kUnit : pick(room / 2 + 1);
    u64 sectors = pick(2) == 0 ? room - before : 1 + pick(room - before);
    if (type == 0x0F && sectors < room / 2) sectors = room - before;
    EXPECT_EQ(addAt(drive, block->startSector + before, sectors, type, "random"),
              hasRoom ? Error::none : Error::noFreeEntry);
  }

  void removeOne() {
    Drive& drive = bench_.drive();
    const std::vector<SfdiskRow> rows = rowsOf(drive);
    if (rows.empty()) return;
    EXPECT_EQ(drive.remove(*drive.findByKernelNumber(rows[pick(rows.size())].number)), Error::none);
    EXPECT_EQ(drive.reread(), Error::none);
  }

  std::mt19937 random_;
  TableBench bench_;
};

TEST(RandomChanges, EveryTableOnTheWayIsSoundForUsAndForSfdisk) {
  for (const auto& [seed, sectorSize] :
       {std::pair{1U, 512U}, {2U, 512U}, {3U, 512U}, {7U, 4096U}}) {
    if (sectorSize != 512 && !hasLoopDevices()) GTEST_SKIP() << "needs root";
    RandomChanges changes(seed, sectorSize);
    for (int i = 0; i < 80 && !testing::Test::HasFailure(); ++i) {
      changes.step();
      expectSound(changes.bench());
      if (sectorSize != 512 && i != 79) continue;  // a loop device for each takes its time
      const SfdiskTable judged = readTable(changes.bench().disk());
      EXPECT_EQ(judged.rows, rowsOf(changes.bench().drive())) << "seed " << seed << ", step " << i;
    }
    EXPECT_EQ(readTable(changes.bench().disk()).problems, "") << pictureOf(changes.bench().drive());
  }
}

}  // namespace
}  // namespace tallowin
