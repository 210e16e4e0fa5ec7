#include "ops/slide_operation.h"

#include <gtest/gtest.h>

#include "base/bytes.h"
#include "disk/mbr_record.h"
#include "move/power.h"
#include "move/undo_log.h"
#include "ops/flow_bench.h"
#include "ops/table_change.h"
#include "probe/content_record.h"
#include "support/sfdisk.h"

namespace tallowin {
namespace {

constexpr u64 kSmallDisk = 8192;

struct Case {
  const char* name;
  const char* script;
  u64 start;
  u64 newStart;
};

constexpr const char* kVolumes =
    "label: dos\nstart=100, size=200, type=83\nstart=600, size=4000, type=5\n"
    "start=700, size=300, type=6\nstart=1300, size=300, type=6\nstart=2000, size=300, type=83\n";

constexpr Case kCases[] = {
    {"PrimaryUp", "label: dos\nstart=100, size=500, type=6\n", 100, 137},
    {"PrimaryDown", "label: dos\nstart=200, size=500, type=6\n", 200, 101},
    {"PrimaryFar", "label: dos\nstart=100, size=500, type=6\n", 100, 600},
    {"FirstVolumeUp", kVolumes, 700, 760},
    {"VolumeDownOverItsEbr", kVolumes, 1300, 1200},
    {"VolumeUpOverItself", kVolumes, 1300, 1350},
    {"LastVolumeFar", kVolumes, 2000, 3001},
    {"ContainerUp", kVolumes, 600, 700},
    {"Gpt", "label: gpt\nfirst-lba: 34\nstart=100, size=500, type=L, name=one\n", 100, 77},
};

class SlideOperationTest : public FlowTest, public ::testing::WithParamInterface<Case> {
 protected:
  // Each sector says which one it was; the partition begins with the boot sector of an old FAT
  // volume, which has to say where it lies.
  SlideOperationTest() : before_(diskFromScript(kSmallDisk, GetParam().script)) {
    const auto drive = open(before_);
    const PartitionEntry& entry = *findByStart(*drive, GetParam().start);
    count_ = entry.sectorCount();
    gap_ = drive->volumeGap(entry);
    const bool isContainer = entry.type == 5;
    for (u64 i = isContainer ? 3000 : 0; i < count_; ++i) {
      std::vector<u8> sector(512);
      *recordAt<Le64>(std::span(sector), 480) = i;
      if (i == 0) {
        recordAt<VolumeBootRecord>(std::span(sector))->sectorsPerFat = 9;
        recordAt<MbrRecord>(std::span(sector))->signature.set();
      }
      EXPECT_FALSE(before_.writeSectors(entry.startSector + i, sector.data(), 1));
    }
    if (!isContainer) firstNumbered_ = 0;
    table_ = tableOf(*open(before_));
  }

  SlidePlan planFor(Drive& drive) {
    SlidePlan plan;
    MoveOrder order;
    order.flags = kSlideFlags;
    order.sectors = MovedSectorsWish::all;
    EXPECT_EQ(Error::none, planSlide(fileSystems_, drive, *findByStart(drive, GetParam().start),
                                     GetParam().newStart, order, plan)
                               .code);
    return plan;
  }

  // The table and all that is in the partition, at one of its two places.
  void expectAt(MemoryDisk& disk, u64 start, const std::string& when) {
    SCOPED_TRACE(when);
    const auto drive = open(disk);
    const PartitionEntry* entry = findByStart(*drive, start);
    ASSERT_NE(nullptr, entry) << tableOf(*drive);
    ASSERT_EQ(count_, entry->sectorCount());
    if (start == GetParam().start) {
      EXPECT_EQ(table_, tableOf(*drive));
    }
    for (u64 i = firstNumbered_; i < count_; ++i) {
      const std::vector<u8> sector = disk.sector(start + i);
      ASSERT_EQ(i, *recordAt<Le64>(std::span<const u8>(sector), 480)) << "sector " << i;
    }
    if (firstNumbered_ != 0) return;
    const bool isFat = entry->type == 6;
    const std::vector<u8> boot = disk.sector(start);
    const u64 hidden = recordAt<VolumeBootRecord>(std::span<const u8>(boot))->hiddenSectors;
    EXPECT_EQ(!isFat || start == GetParam().start ? 0 : gap_ != 0 ? gap_ : start, hidden);
  }

  MemoryDisk before_;
  std::string table_;
  u64 count_ = 0;
  u64 gap_ = 0;
  u64 firstNumbered_ = 3000;
};

// Without a journal: after each failed request the partition lies at one of its places, or it was
// said that it does not.
TEST_P(SlideOperationTest, AFailedRequestLeavesTheOldPlaceOrTheNew) {
  static constexpr Fault::Kind kKinds[] = {Fault::Kind::read, Fault::Kind::write,
                                           Fault::Kind::halfWrite, Fault::Kind::flush,
                                           Fault::Kind::cancel};
  forEachFault(before_, kKinds, [&](FaultRound& round) {
    const auto drive = open(round.sharedDisk());
    const SlidePlan plan = planFor(*drive);
    round.begin();
    SlideRun slide(fileSystems_, *drive, plan, nullptr);
    const Failure failed = slide.run(round.job());
    const bool isNew = !failed || failed == Error::writeFailedNewTable;
    round.heal();
    // What could not be put back is counted, and told.
    const bool isTold = slide.isStuck() || failed == Error::writeFailedTableUnknown ||
                        slide.report().writeErrors != 0;
    if (isTold) {
      EXPECT_TRUE(round.fault().forever || round.fault().kind == Fault::Kind::flush)
          << round.fault();
      return;
    }
    std::ostringstream when;
    when << round.fault() << ": " << codeOf(failed);
    expectAt(round.medium(), isNew ? GetParam().newStart : GetParam().start, when.str());
  });
}

// With a journal: cut after every write and flush, and with any of those that were not flushed.
TEST_P(SlideOperationTest, ACutIsContinuedAndUndone) {
  for (u64 cutAt = 0;; ++cutAt) {
    bool isWhole = false;
    for (const u32 seed : {1U, 2U, 3U, 4U}) {
      const bool goesOn = seed % 2 == 0;
      std::mt19937 random(static_cast<u32>(cutAt) * 31 + seed);
      MemoryDisk disk = before_.copy();
      CutBytes bytes;
      Power power;
      Failure failed;
      {
        auto cut = std::make_shared<CutDisk>(disk, power);
        const auto drive = open(cut);
        const SlidePlan plan = planFor(*drive);
        std::unique_ptr<JournalFile> journal;
        ASSERT_FALSE(JournalFile::create(std::make_unique<CutStorage>(bytes, power),
                                         recordOf(plan).lines(), attachmentOf(plan),
                                         MoveJournal::initialState(), journal));
        power.stepsLeft = cutAt;
        SilentJob job;
        failed = SlideRun(fileSystems_, *drive, plan, journal.get()).run(job);
        cut->cut(random);
        bytes.cut(random);
      }
      isWhole = !failed;
      power.stepsLeft = kAllOnes64;
      const auto drive = open(disk);
      std::unique_ptr<JournalFile> journal;
      ASSERT_FALSE(JournalFile::open(std::make_unique<CutStorage>(bytes, power), journal));
      SlidePlan plan;
      ASSERT_FALSE(slidePlanOf(WorkRecord(journal->description()), journal->attachment(), plan));
      SilentJob job;
      SlideRun slide(fileSystems_, *drive, plan, journal.get());
      EXPECT_EQ(Error::none, (goesOn ? slide.run(job) : slide.undo(job)).code);
      expectAt(disk, goesOn ? GetParam().newStart : GetParam().start,
               (goesOn ? "continued at " : "undone at ") + std::to_string(cutAt));
      if (HasFailure()) return;
    }
    if (isWhole) break;
  }
}

INSTANTIATE_TEST_SUITE_P(All, SlideOperationTest, ::testing::ValuesIn(kCases),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace tallowin
