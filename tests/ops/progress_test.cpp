#include <gtest/gtest.h>

#include "disk/faulty_disk.h"
#include "disk/memory_disk.h"
#include "ops/disk_error_prompt.h"
#include "ops/job_of_front_end.h"
#include "ops/operation_progress.h"
#include "ops/target_text.h"
#include "ops/zero_wipe.h"
#include "support/ops_bench.h"

namespace tallowin {
namespace {

constexpr u64 kSecond = 1'000'000'000;

TEST(OperationProgress, TellsSpeedAndTimeLeft) {
  ScriptedFrontEnd ui;
  SteppingHost host;
  host.step = 0;
  OperationProgress progress(ui, host, "Format", "Formatting", "");
  progress.begin("Checking", "&Skip", 400 * kMiB);
  host.now += 10 * kSecond;
  progress.setBytesDone(100 * kMiB);
  EXPECT_EQ(25U, ui.progress.back().percent);
  EXPECT_EQ("100.0 MiB of 400.0 MiB, 10.0 MiB/s, 0:30 left", ui.progress.back().details);

  progress.begin("Other work", "");
  host.now += 10 * kSecond;
  progress.setPercent(10);
  EXPECT_EQ("1:30 left", ui.progress.back().details);
  EXPECT_EQ("1:01:05", timeText(3665));
  EXPECT_EQ("1.0 GiB", bytesText(kGiB - 1));
}

TEST(OperationProgress, DrawsAndServesAFewTimesASecondAndAlwaysTheEnd) {
  ScriptedFrontEnd ui;
  SteppingHost host;
  host.step = kSecond / 1000;
  OperationProgress progress(ui, host, "Wiping", "", "Cancel");
  progress.setTotalBytes(1000);
  for (u64 i = 1; i <= 1000; ++i) {
    progress.setBytesDone(i);
    EXPECT_FALSE(progress.isCancelled());
  }
  EXPECT_LE(ui.progress.size(), 25U);
  EXPECT_GE(ui.progress.size(), 15U);
  EXPECT_LE(ui.polls(), 105U);
  EXPECT_GE(ui.polls(), 80U);
  EXPECT_EQ(100U, ui.progress.back().percent);
}

TEST(DiskErrorPrompt, OnlyContinueGoesOn) {
  for (const auto& [answer, goesOn] : {std::pair{MessageResult::goOn, true},
                                       {MessageResult::cancel, false},
                                       {MessageResult::none, false}}) {
    ScriptedFrontEnd ui;
    ui.expectMessage(
        "Error: An error has occurred writing to the hard drive.  \n"
        "You can ignore all errors and continue or cancel\nthis process.\n\n"
        "*Warning* Continuing may result in the loss of data.",
        answer);
    EXPECT_EQ(goesOn, askDiskError(ui, Direction::write));
    EXPECT_EQ(Consent::diskError, ui.messages[0].consent);
  }
}

// A disk of 20 MiB full of ones, and an extent in its middle.
class ZeroWipeTest : public OpsTest {
 protected:
  ZeroWipeTest() {
    const std::vector<u8> ones(kMiB, 0xFF);
    for (u64 lba = 0; lba < kSectors; lba += 2048)
      EXPECT_EQ(disk_.writeSectors(lba, ones.data(), 2048), Error::none);
  }

  struct Wiped {
    Failure failure;
    WipeReport report;
  };
  Wiped wipe(DiskDevice& disk, ScriptedFrontEnd& ui) {
    const OperationContext context{ui, host_, options_, folders_, fileSystems_, mounts_};
    JobOfFrontEnd job(context);
    Wiped wiped;
    wiped.failure = zeroWipe(disk, kExtent, job, wiped.report);
    return wiped;
  }

  bool isZero(u64 lba) { return disk_.sector(lba) == std::vector<u8>(512, 0); }

  static constexpr u64 kSectors = 40960;
  static constexpr SectorExtent kExtent{1001, 30000};
  MemoryDisk disk_{kSectors};
};

TEST_F(ZeroWipeTest, ClearsTheExtentAndNothingElse) {
  const Wiped result = wipe(disk_, ui_);
  EXPECT_EQ(Error::none, result.failure);
  EXPECT_EQ(29000U, result.report.sectorsDone);
  for (u64 lba = 0; lba < kSectors; ++lba)
    ASSERT_EQ(lba >= 1001 && lba <= 30000, isZero(lba)) << lba;
  EXPECT_EQ((std::vector<std::string>{"Wiping", "Wipe in progress...", "Cancel"}),
            ui_.progressTexts);
}

TEST_F(ZeroWipeTest, AFullDiskBelowTheImageIsNoBadSector) {
  class FullDisk : public DiskWrapper {
   public:
    using DiskWrapper::DiskWrapper;

   protected:
    Failure transferOut(u64 lba, const void*, u32) override {
      return {Error::noSpaceLeft, ENOSPC, lba};
    }
  };
  FullDisk full(disk_);
  const Wiped result = wipe(full, ui_);  // asks nothing
  EXPECT_EQ(Error::noSpaceLeft, result.failure);
  EXPECT_EQ(0U, result.report.sectorsFailed);
}

TEST_F(ZeroWipeTest, StopsAtEveryPieceAndSaysHowFarItCame) {
  u64 done = 0;
  u64 stops = 0;
  for (u64 poll = 0;; ++poll) {
    ScriptedFrontEnd ui;
    ui.cancelAtPoll(poll);
    const Wiped result = wipe(disk_, ui);
    if (result.failure == Error::none) break;
    EXPECT_EQ(Error::cancelled, result.failure);
    EXPECT_GE(result.report.sectorsDone, done);
    done = result.report.sectorsDone;
    EXPECT_TRUE(done == 0 || isZero(1000 + done));
    EXPECT_FALSE(isZero(1001 + done));
    ++stops;
  }
  EXPECT_EQ(4U, stops);
}

TEST_F(ZeroWipeTest, AWriteErrorThatIsNotIgnoredStopsAndAFailedFlushIsOne) {
  FaultyDisk faulty(disk_);
  faulty.failAccessTo({20000, 20001});
  ui_.expectMessage("Do you want to continue and ignore further problems?", MessageResult::no);
  const Wiped result = wipe(faulty, ui_);
  EXPECT_EQ(Error::write, result.failure);
  EXPECT_EQ(20000U, result.failure.lba);
  EXPECT_EQ(20000U - kExtent.startSector, result.report.sectorsDone);

  FaultyDisk unflushed(disk_);
  unflushed.failFlush(true);
  EXPECT_EQ(Error::flush, wipe(unflushed, ui_).failure);
}

}  // namespace
}  // namespace tallowin
