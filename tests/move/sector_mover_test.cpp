#include "move/sector_mover.h"

#include <gtest/gtest.h>

#include <cstring>

#include "disk/faulty_disk.h"
#include "move/power.h"
#include "support/fault_loops.h"

namespace tallowin {
namespace {

constexpr u64 kDiskSectors = 42000;

// One move on one disk, or between two.
struct Case {
  u64 source;
  u64 target;
  u64 sectors;
  u32 sectorSize = 512;
  bool twoDisks = false;
  std::vector<std::pair<u64, u64>> extents = {};  // start and count; none: all of it

  bool overlaps() const {
    return !twoDisks && (source > target ? source - target : target - source) < sectors;
  }
};
std::ostream& operator<<(std::ostream& out, const Case& one) {
  return out << one.source << " to " << one.target << ", " << one.sectors << " sectors of "
             << one.sectorSize << (one.twoDisks ? ", two disks" : "") << ", " << one.extents.size()
             << " extents";
}

std::vector<Case> cases(u64 largest) {
  std::vector<Case> all;
  for (const u64 sectors : {u64{1}, u64{300}, largest})
    for (const u64 distance : {u64{1}, u64{130}, sectors / 2 + 1, sectors + 5})
      for (const bool isUp : {false, true})
        all.push_back({isUp ? 100 : 100 + distance, isUp ? 100 + distance : 100, sectors});
  all.push_back({200, 150, 700, 4096});
  all.push_back({200, 100, 900, 512, true});
  all.push_back({150, 153, 2000, 512, false, {{150, 10}, {170, 400}, {1000, 1}, {1300, 850}}});
  all.push_back({153, 150, 2000, 512, false, {{153, 10}, {170, 400}, {1000, 1}, {1300, 853}}});
  all.push_back({150, 3000, 2000, 512, false, {{160, 10}, {800, 400}, {2100, 50}}});
  return all;
}

MemoryDisk madeDisk(u32 sectorSize, u32 seed) {
  MemoryDisk disk(kDiskSectors, sectorSize);
  std::mt19937 random(seed);
  std::vector<u32> bytes(sectorSize * 64);
  for (u64 at = 0; at + 256 <= kDiskSectors; at += 256) {
    std::generate(bytes.begin(), bytes.end(), std::ref(random));
    EXPECT_FALSE(disk.writeSectors(at, bytes.data(), 256));
  }
  return disk;
}

// Made once; copies are cheap.
MemoryDisk randomDisk(u32 sectorSize, u32 seed) {
  static std::map<std::pair<u32, u32>, MemoryDisk> made;
  auto found = made.find({sectorSize, seed});
  if (found == made.end())
    found = made.emplace(std::pair(sectorSize, seed), madeDisk(sectorSize, seed)).first;
  return found->second.copy();
}

ExtentList listOf(const Case& one) {
  ExtentList list;
  for (const auto& [start, count] : one.extents) EXPECT_FALSE(list.add(start, count));
  return list;
}

bool isData(const Case& one, u64 offset) {
  return one.extents.empty() || std::ranges::any_of(one.extents, [&](const auto& extent) {
           return one.source + offset >= extent.first &&
                  one.source + offset < extent.first + extent.second;
         });
}

// Where the data of the range is not at `start` of the disk; nothing when all of it is.
std::string wrongAt(MemoryDisk& disk, u64 start, MemoryDisk& before, const Case& one) {
  std::vector<u8> is(one.sectors * one.sectorSize);
  std::vector<u8> was(is.size());
  EXPECT_FALSE(disk.readSectors(start, is.data(), one.sectors));
  EXPECT_FALSE(before.readSectors(one.source, was.data(), one.sectors));
  for (u64 offset = 0; offset < one.sectors; ++offset)
    if (isData(one, offset) && std::memcmp(is.data() + offset * one.sectorSize,
                                           was.data() + offset * one.sectorSize, one.sectorSize))
      return "offset " + std::to_string(offset);
  return {};
}

// What lies beside source and target is nobody's business.
std::string touchedBeside(MemoryDisk& disk, MemoryDisk& before, const Case& one) {
  const u64 low = std::min(one.source, one.target);
  const u64 high = std::max(one.source, one.target) + one.sectors;
  for (u64 sector = 0; sector < high + 300; ++sector)
    if ((sector < low || (sector >= high && high < kDiskSectors - 300)) &&
        disk.sector(sector) != before.sector(sector))
      return "sector " + std::to_string(sector);
  return {};
}

// How far the progress came, against what was announced.
class CountingJob : public SilentJob {
 public:
  void phase(Phase phase, u64 total) override {
    isUndoing |= phase == Phase::undoing;
    expected = total;
    done = 0;
  }
  void advance(u64 bytes) override { done += bytes; }
  u64 expected = 0;
  u64 done = 0;
  bool isUndoing = false;
};

TEST(SectorMover, MovesEveryKindOfRange) {
  for (const Case& one : cases(20000)) {
    SCOPED_TRACE(one);
    MemoryDisk before = randomDisk(one.sectorSize, 1);
    MemoryDisk disk = before.copy();
    MemoryDisk other = randomDisk(one.sectorSize, 2);
    MemoryDisk& target = one.twoDisks ? other : disk;
    const ExtentList list = listOf(one);
    CountingJob job;
    SectorMover mover({disk, one.source, one.sectors}, target, one.target, job,
                      one.extents.empty() ? nullptr : &list);
    job.phase(Phase::sliding, 2 * mover.sectorsToMove() * one.sectorSize);
    ASSERT_FALSE(mover.whyUnusable());
    ASSERT_FALSE(mover.run());
    EXPECT_EQ(job.done, job.expected);
    EXPECT_FALSE(job.isUndoing);
    EXPECT_EQ(wrongAt(target, one.target, before, one), "");
    EXPECT_EQ(mover.report().moved, mover.sectorsToMove());
    EXPECT_EQ(mover.report().touchedSource, one.overlaps() && one.sectors > 1);
    if (one.twoDisks) {
      EXPECT_TRUE(disk.sameContent(before));
    } else {
      EXPECT_EQ(touchedBeside(disk, before, one), "");
    }
  }
  MemoryDisk small(100);
  MemoryDisk large(100, 4096);
  SilentJob job;
  EXPECT_EQ(SectorMover({small, 0, 10}, large, 0, job).whyUnusable(), Error::sectorSizeDiffers);
}

// Cancelled, or failing once or for ever and not passed over: the source is whole again.
TEST(SectorMover, AStopLeavesTheSourceWhole) {
  constexpr Fault::Kind kKinds[] = {Fault::Kind::read, Fault::Kind::write, Fault::Kind::halfWrite,
                                    Fault::Kind::cancel};
  for (const Case& one : cases(9000)) {
    if (one.twoDisks) continue;
    SCOPED_TRACE(one);
    MemoryDisk before = randomDisk(one.sectorSize, 3);
    const ExtentList list = listOf(one);
    forEachFault(before, kKinds, [&](FaultRound& round) {
      round.begin();
      // A disk that fails for ever cannot be put in order.
      if (round.fault().forever && round.fault().kind != Fault::Kind::cancel) return;
      SectorMover mover({round.disk(), one.source, one.sectors}, round.disk(), one.target,
                        round.job(), one.extents.empty() ? nullptr : &list);
      const Failure failed = mover.run();
      ASSERT_EQ(touchedBeside(round.medium(), before, one), "") << round.fault();
      if (!failed) {
        ASSERT_EQ(wrongAt(round.medium(), one.target, before, one), "") << round.fault();
        return;
      }
      ASSERT_EQ(wrongAt(round.medium(), one.source, before, one), "") << round.fault();
      ASSERT_EQ(mover.report().writeErrors, 0U);
    });
  }
}

class PassingJob : public SilentJob {
 public:
  explicit PassingJob(BadSectorAnswer answer) : answer_(answer) {}
  BadSectorAnswer badSector(const Failure&, Direction) override {
    ++asked;
    return answer_;
  }
  u32 asked = 0;

 private:
  BadSectorAnswer answer_;
};

// What is passed over is counted to the sector, and nothing else is lost.
TEST(SectorMover, BadSectorsAreCountedAndCostNoOther) {
  const Case one{1000, 500, 9000};
  for (const BadSectorAnswer answer : {BadSectorAnswer::skip, BadSectorAnswer::passOverAll}) {
    MemoryDisk before = randomDisk(512, 4);
    MemoryDisk disk = before.copy();
    MemoryDisk other(kDiskSectors);
    FaultyDisk source(disk);
    FaultyDisk target(other);
    source.failReadsOf({1200, 1201});
    source.failReadsOf({8000, 8000});
    target.failAccessTo({600, 602});
    PassingJob job(answer);
    SectorMover mover({source, one.source, one.sectors}, target, one.target, job);
    ASSERT_FALSE(mover.run());
    EXPECT_EQ(mover.report().readErrors, 3U);
    EXPECT_EQ(mover.report().writeErrors, 3U);
    EXPECT_EQ(job.asked, answer == BadSectorAnswer::skip ? 3U : 1U);
    for (u64 offset = 0; offset < one.sectors; ++offset) {
      const u64 from = one.source + offset;
      const u64 to = one.target + offset;
      const bool isUnread = from == 1200 || from == 1201 || from == 8000;
      const bool isUnwritten = to >= 600 && to <= 602;
      const std::vector<u8> zeros(512);
      ASSERT_EQ(other.sector(to), isUnread || isUnwritten ? zeros : before.sector(from)) << offset;
    }
  }
}

// --- Power cuts

enum class After { goOn, undo };

// A move with a journal whose power is cut after `steps` writes and flushes, several times over,
// and then brought to an end. Returns how many steps it has without a cut.
u64 cutAndEnd(const Case& one, u64 steps, u32 seed, After after) {
  std::mt19937 random(seed);
  MemoryDisk before = randomDisk(one.sectorSize, 5);
  MemoryDisk disk = before.copy();
  MemoryDisk other = randomDisk(one.sectorSize, 6);
  MemoryDisk& target = one.twoDisks ? other : disk;
  const ExtentList list = listOf(one);
  CutBytes bytes;
  u64 asked = 0;
  bool isUndone = false;
  for (u32 round = 0;; ++round) {
    Power power;
    // The last one runs to its end.
    if (round < 3 && steps != kAllOnes64) power.stepsLeft = round == 0 ? steps : random() % 60;
    CutDisk source(disk, power);
    CutDisk cutTarget(other, power);
    DiskDevice& to = one.twoDisks ? static_cast<DiskDevice&>(cutTarget) : source;
    std::unique_ptr<JournalFile> file;
    auto storage = std::make_unique<CutStorage>(bytes, power);
    const Failure opened = bytes.durable.empty()
                               ? JournalFile::create(std::move(storage), "a move", {},
                                                     MoveJournal::initialState(), file)
                               : JournalFile::open(std::move(storage), file);
    Failure failed = opened;
    if (!failed) {
      MoveJournal journal(*file);
      EXPECT_FALSE(journal.read());
      SilentJob job;
      SectorMover mover({source, one.source, one.sectors}, to, one.target, job,
                        one.extents.empty() ? nullptr : &list);
      mover.keepJournal(journal);
      isUndone = after == After::undo && round != 0;
      failed = isUndone ? mover.undo() : mover.run();
    }
    asked = power.steps;
    if (power.stepsLeft != 0) {
      EXPECT_FALSE(failed) << "round " << round << " error " << codeOf(failed) << " " << failed.lba;
      break;
    }
    source.cut(random);
    cutTarget.cut(random);
    bytes.cut(random);
    // The making of the journal was cut: nothing was begun.
    Power whole;
    std::unique_ptr<JournalFile> made;
    if (JournalFile::open(std::make_unique<CutStorage>(bytes, whole), made)) bytes = {};
    if (bytes.durable.empty()) {
      EXPECT_EQ(wrongAt(disk, one.source, before, one), "");
    }
  }
  MemoryDisk& where = isUndone ? disk : target;
  EXPECT_EQ(wrongAt(where, isUndone ? one.source : one.target, before, one), "");
  if (!one.twoDisks) {
    EXPECT_EQ(touchedBeside(disk, before, one), "");
  }
  return asked;
}

// After each write and flush of small moves; of what came after the last flush any subset arrives.
TEST(MoveJournal, ACutAtAnyMomentIsContinuedAndUndone) {
  const Case all[] = {{100, 101, 300},
                      {101, 100, 300},
                      {100, 9100, 20000},
                      {9100, 100, 20000},
                      {200, 150, 2500, 4096},
                      {100, 25000, 9000},
                      {200, 100, 9000, 512, true},
                      {150, 153, 12000, 512, false, {{150, 10}, {170, 400}, {1300, 10000}}},
                      {9000, 150, 12000, 512, false, {{9000, 10}, {9170, 5400}, {16000, 4000}}}};
  for (const Case& one : all) {
    SCOPED_TRACE(one);
    const u64 steps = cutAndEnd(one, kAllOnes64, 1, After::goOn);
    // A long move is cut at some of its moments.
    for (u64 step = 0; step < steps; step += 1 + steps / 60)
      for (const After after : {After::goOn, After::undo}) {
        cutAndEnd(one, step, static_cast<u32>(step), after);
        ASSERT_FALSE(testing::Test::HasFailure()) << "step " << step;
      }
  }
}

}  // namespace
}  // namespace tallowin
