#include <gtest/gtest.h>

#include "disk/faulty_disk.h"
#include "disk/memory_disk.h"
#include "ops/disk_error_prompt.h"
#include "ops/job_of_front_end.h"
#include "ops/operation_progress.h"
#include "ops/target_text.h"
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

}  // namespace
}  // namespace tallowin
