// Partitions moved and copied by tallowinctl, judged by other programs.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cli/ctl.h"

namespace tallowin {
namespace {

class MoveTest : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* judge : {"mkfs.fat", "mcopy"})
      if (!hasProgram(judge)) GTEST_SKIP() << judge << " is not installed";
    disk_ = folder_.sparse("disk", 100 * kMiB);
    ASSERT_EQ("", makeTable(disk_, "label: dos\nstart=20480, size=40960, type=6\n"));
    ctl_.expectDone({"format", disk_, "--part", "1", "--label", "DATA"});
    file_ = folder_.file("file");
    ASSERT_EQ(0,
              runProgram({"dd", "if=/dev/urandom", "of=" + file_, "bs=64k", "count=150"}).status);
    ASSERT_EQ(0, runProgram({"mcopy", "-i", at(disk_, 20480), file_, "::/FILE"}).status);
  }
  static std::string at(const std::string& disk, u64 sector) {
    return disk + "@@" + std::to_string(sector * 512);
  }
  void expectFileAt(const std::string& disk, u64 sector) {
    const std::string back = folder_.file("back");
    EXPECT_EQ(0, runProgram({"mcopy", "-n", "-o", "-i", at(disk, sector), "::/FILE", back}).status);
    EXPECT_EQ(fileHash(file_), fileHash(back)) << sector;
  }

  TempFolder folder_;
  Ctl ctl_;
  std::string disk_;
  std::string file_;
};

TEST_F(MoveTest, SlidesByPositionAndByFreeSpace) {
  struct Case {
    std::vector<std::string> words;
    u64 start;
  };
  for (const Case& c : {Case{{"--start", "2049s"}, 2049}, Case{{"--start", "16"}, 32768},
                        Case{{"--before", "2"}, 6144}, Case{{"--after", "0"}, 163840},
                        Case{{"--before", "0", "--all-sectors", "--proof"}, 2048}}) {
    std::vector<std::string> words = {"slide", disk_, "--part", "1"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    ctl_.expectDone(words);
    EXPECT_EQ(c.start, sfdiskRow(disk_, 1).start);
    EXPECT_EQ(40960U, sfdiskRow(disk_, 1).size);
    expectFileAt(disk_, c.start);
  }
}

TEST_F(MoveTest, WhatCannotBeIsSaidAndARehearsalWritesNothing) {
  const std::string before = fileHash(disk_);
  const auto run = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"slide", disk_, "--part", "1", "--yes"});
    return ctl_.run(words);
  };
  EXPECT_EQ(2, run({}).status);
  EXPECT_EQ(2, run({"--start", "5", "--before", "5"}).status);
  EXPECT_EQ(1, run({"--before", "500"}).status);
  const ProgramResult outside = run({"--start", "204000s"});
  EXPECT_EQ(1, outside.status);
  EXPECT_NE(std::string::npos, outside.output.find("It can begin from sector 1 to sector 163840"))
      << outside.output;
  const ProgramResult rehearsed = run({"--before", "0", "--rehearse"});
  EXPECT_EQ(0, rehearsed.status) << rehearsed.output;
  EXPECT_NE(std::string::npos, rehearsed.output.find("1 files, 1 identical")) << rehearsed.output;
  EXPECT_EQ(1, ctl_.run({"slide", disk_, "--part", "1", "--before", "0"}).status)
      << "nobody said yes";
  EXPECT_EQ(before, fileHash(disk_));
}

TEST_F(MoveTest, CopiesToAnotherDiskAndInPlaceOfTheSource) {
  const std::string other = folder_.sparse("other", 64 * kMiB);
  const std::string before = fileHash(disk_);
  const Ctl::Answer copied = ctl_.json(
      {"copy", disk_, "--part", "1", "--to", other, "--data-only", "--name", "COPY", "--yes"});
  ASSERT_EQ(0, copied.status);
  EXPECT_EQ(0U, copied.json["read_errors"].GetUint64());
  const u64 start = copied.json["partition"]["start"].GetUint64();
  EXPECT_EQ(start, sfdiskRow(other, 1).start);
  expectFileAt(other, start);
  EXPECT_EQ("COPY\n", ctl_.run({"label", other, "--part", "1"}).output);
  EXPECT_EQ(before, fileHash(disk_));

  ctl_.expectDone({"copy", disk_, "--part", "1", "--to", disk_, "--delete-source"});
  const SfdiskTable table = readTable(disk_);
  ASSERT_EQ(1U, table.rows.size());
  EXPECT_NE(20480U, table.rows[0].start);
  expectFileAt(disk_, table.rows[0].start);
}

// Killed at some moment, again and again: nothing else can be done before it is ended either way.
TEST_F(MoveTest, AKilledSlideIsContinuedOrUndone) {
  u64 start = 20480;
  u32 unfinished = 0;
  for (u32 round = 0; round < 12; ++round) {
    const u64 next = start == 20480 ? 20580 : 20480;
    const pid_t child =
        startProgram(ctl_.command({"slide", disk_, "--part", "1", "--all-sectors", "--start",
                                   std::to_string(next) + "s", "--yes", "--quiet"}),
                     {});
    ASSERT_GT(child, 0);
    usleep(5000 * (round + 1));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const bool goesOn = round % 2 == 0;
    if (ctl_.run({"slide", disk_, "--part", "1", "--start", "30000s", "--yes"})
            .output.find("was cut short") != std::string::npos) {
      ++unfinished;
      ctl_.expectDone({"resume", disk_, goesOn ? "--continue" : "--undo"});
      if (goesOn) start = next;
    } else {
      start = 30000;
    }
    EXPECT_EQ(start, sfdiskRow(disk_, 1).start);
    expectFileAt(disk_, start);
    if (start == 30000) {
      ctl_.expectDone({"slide", disk_, "--part", "1", "--start", "20480s"});
      start = 20480;
    }
  }
  EXPECT_GT(unfinished, 0U);
}

}  // namespace
}  // namespace tallowin
