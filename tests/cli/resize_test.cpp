// Partitions resized and wiped by tallowinctl, judged by other programs.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "cli/ctl.h"

namespace tallowin {
namespace {

struct Place {
  const char* name;
  const char* table;
  u32 part;
  u64 start;
};

constexpr Place kPlaces[] = {
    {"primary", "label: dos\nstart=2048,size=40960,type=6\nstart=163840,size=2048,type=83\n", 1,
     2048},
    {"volume",
     "label: dos\nstart=2048,size=200000,type=5\nstart=4096,size=40960,type=6\n"
     "start=165888,size=2048,type=83\n",
     5, 4096},
    {"gpt",
     "label: gpt\nstart=2048,size=40960,type=EBD0A0A2-B9E5-4433-87C0-68B6B72699C7\n"
     "start=163840,size=2048\n",
     1, 2048},
};
std::ostream& operator<<(std::ostream& out, const Place& place) { return out << place.name; }

class ResizeTest : public testing::TestWithParam<Place> {
 protected:
  void SetUp() override {
    for (const char* judge : {"fsck.fat", "mcopy"})
      if (!hasProgram(judge)) GTEST_SKIP() << judge << " is not installed";
    disk_ = folder_.sparse("disk", 120 * kMiB);
    ASSERT_EQ("", makeTable(disk_, GetParam().table));
    ctl_.expectDone({"format", disk_, "--part", part(), "--fs", "fat16", "--label", "DATA"});
    file_ = folder_.file("file");
    ASSERT_EQ(0, runProgram({"dd", "if=/dev/urandom", "of=" + file_, "bs=64k", "count=99"}).status);
    for (const char* name : {"::/GONE", "::/FILE"})
      ASSERT_EQ(0, runProgram({"mcopy", "-i", volume(), file_, name}).status);
    ASSERT_EQ(0, runProgram({"mdel", "-i", volume(), "::/GONE"}).status);
    neighbour_ = rowsByCtl(ctl_, disk_).back();
  }
  std::string part() const { return std::to_string(GetParam().part); }
  std::string volume() const { return disk_ + "@@" + std::to_string(GetParam().start * 512); }
  ProgramResult resize(std::vector<std::string> words) {
    words.insert(words.begin(), {"resize", disk_, "--part", part(), "--yes"});
    return ctl_.run(words);
  }
  // The table says this size, the volume is sound and holds its file, and the neighbour is there.
  void expectSize(u64 sectors) {
    const SfdiskRow row = sfdiskRow(disk_, GetParam().part);
    EXPECT_EQ(row.start, GetParam().start);
    EXPECT_EQ(row.size, sectors);
    const std::string alone = folder_.file("alone");
    ASSERT_EQ(0,
              runProgram({"dd", "if=" + disk_, "of=" + alone, "bs=512", "status=none",
                          "skip=" + std::to_string(row.start), "count=" + std::to_string(row.size)})
                  .status);
    const ProgramResult checked = runProgram({"fsck.fat", "-n", alone});
    EXPECT_EQ(0, checked.status) << checked.output;
    const std::string back = folder_.file("back");
    EXPECT_EQ(0, runProgram({"mcopy", "-n", "-o", "-i", volume(), "::/FILE", back}).status);
    EXPECT_EQ(fileHash(file_), fileHash(back));
    EXPECT_EQ(rowsByCtl(ctl_, disk_).back(), neighbour_);
  }
  void expectNoJournal() {
    EXPECT_EQ(1, ctl_.run({"resume", disk_, "--undo", "--yes"}).status) << "nothing is unfinished";
  }

  TempFolder folder_;
  Ctl ctl_;
  std::string disk_;
  std::string file_;
  SfdiskRow neighbour_;
};

TEST_P(ResizeTest, GrowsShrinksAndConverts) {
  const std::pair<std::vector<std::string>, u64> steps[] = {
      {{"--size", "70", "--proof"}, 143360},
      {{"--fs", "fat32", "--cluster", "512B"}, 143360},
      {{"--size", "40", "--fs", "fat16", "--no-journal"}, 81920},
      {{"--size", "30000s", "--cluster", "4KiB", "--no-cache"}, 30720},
  };
  for (const auto& [words, size] : steps) {
    SCOPED_TRACE(words.back());
    const ProgramResult done = resize(words);
    EXPECT_EQ(0, done.status) << done.output;
    expectSize(size);
    expectNoJournal();
  }
  ASSERT_EQ(0, resize({"--size", "max"}).status);
  EXPECT_LE(sfdiskRow(disk_, GetParam().part).size + GetParam().start, neighbour_.start);
}

TEST_P(ResizeTest, WhatCannotBeIsSaidAndARehearsalWritesNothing) {
  const std::string before = fileHash(disk_);
  const Ctl::Answer limits = ctl_.json({"resize", disk_, "--part", part(), "--limits"});
  ASSERT_EQ(0, limits.status);
  const u64 least = limits.json["minimum_sectors"].GetUint64();
  const u64 most = limits.json["maximum_sectors"].GetUint64();
  EXPECT_GT(least, u64{99} * 128);
  for (const u64 wrong : {u64{0}, least - 1, most + 1, u64{1} << 40}) {
    const ProgramResult refused = resize({"--size", std::to_string(wrong) + "s"});
    EXPECT_EQ(1, refused.status) << refused.output;
    EXPECT_NE(std::string::npos, refused.output.find("it can be from")) << refused.output;
  }
  EXPECT_EQ(2, resize({"--size", "12.7.1"}).status);
  EXPECT_EQ(1, resize({"--size", "25", "--fs", "fat32"}).status);
  EXPECT_EQ(1, ctl_.run({"resize", disk_, "--part", part(), "--size", "50"}).status);
  const ProgramResult rehearsed = resize({"--size", "60", "--rehearse"});
  EXPECT_EQ(0, rehearsed.status) << rehearsed.output;
  for (const char* said : {"1 files, 1 identical", "finds no fault", "would be written"})
    EXPECT_NE(std::string::npos, rehearsed.output.find(said)) << rehearsed.output;
  EXPECT_EQ(before, fileHash(disk_));
}

// Killed at some moment: nothing else changes the disk before it is continued or undone.
TEST_P(ResizeTest, AKillIsContinuedOrUndone) {
  std::mt19937 random(GetParam().part);
  u32 cut = 0;
  for (u32 round = 0; round < 40 && cut < 4; ++round) {
    const u64 old = sfdiskRow(disk_, GetParam().part).size;
    const u64 wanted = old == 81920 ? 30720 : 81920;
    const char* cluster = old == 81920 ? "2KiB" : "1KiB";
    const pid_t child =
        startProgram(ctl_.command({"resize", disk_, "--part", part(), "--yes", "--quiet", "--size",
                                   std::to_string(wanted) + "s", "--cluster", cluster}),
                     {});
    ::usleep(static_cast<useconds_t>(1000 + random() % 60000));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    const Ctl::Answer listed = ctl_.json({"list", disk_});
    if (!listed.json.HasMember("unfinished")) continue;
    ++cut;
    EXPECT_EQ(1, ctl_.run({"delete", disk_, "--part", part(), "--yes"}).status);
    const bool undoes = cut % 2 != 0;
    const ProgramResult ended =
        ctl_.run({"resume", disk_, undoes ? "--undo" : "--continue", "--yes"});
    EXPECT_EQ(0, ended.status) << ended.output;
    expectSize(undoes ? old : wanted);
    expectNoJournal();
  }
  EXPECT_GT(cut, 0U) << "no kill came in the middle";
}

// The journal lies elsewhere: it is asked for as long as it is away, and what lies in its place
// then is nobody's to remove.
TEST_P(ResizeTest, AJournalElsewhereIsFoundAndMissed) {
  const std::string journal = folder_.file("elsewhere");
  std::mt19937 random(7 + GetParam().part);
  bool isCut = false;
  for (u32 round = 0; round < 40 && !isCut; ++round) {
    const u64 old = sfdiskRow(disk_, GetParam().part).size;
    const char* wanted = old == 81920 ? "30720s" : "81920s";
    const pid_t child = startProgram(
        ctl_.command({"resize", disk_, "--part", part(), "--yes", "--quiet", "--size", wanted,
                      "--cluster", old == 81920 ? "2KiB" : "1KiB", "--journal", journal}),
        {});
    ::usleep(static_cast<useconds_t>(1000 + random() % 60000));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    isCut = ctl_.json({"list", disk_}).json.HasMember("unfinished");
    if (!isCut) {
      static_cast<void>(::unlink(journal.c_str()));
      continue;
    }
    ASSERT_EQ(0, ::rename(journal.c_str(), (journal + ".away").c_str()));
    ASSERT_EQ(0, runProgram({"cp", file_, journal}).status);
    const ProgramResult missed = ctl_.run({"resume", disk_, "--undo", "--yes"});
    EXPECT_EQ(1, missed.status);
    EXPECT_NE(std::string::npos, missed.output.find("is not there")) << missed.output;
    EXPECT_EQ(fileHash(journal), fileHash(file_)) << "it is somebody's file";
    ASSERT_EQ(0, ::rename((journal + ".away").c_str(), journal.c_str()));
    EXPECT_EQ(0, ctl_.run({"resume", disk_, "--undo", "--yes"}).status);
    expectSize(old);
    expectNoJournal();
  }
  EXPECT_TRUE(isCut) << "no kill came in the middle";
}

INSTANTIATE_TEST_SUITE_P(Places, ResizeTest, testing::ValuesIn(kPlaces),
                         [](const auto& one) { return one.param.name; });

TEST(Wipe, OverwritesWhatIsNamedAndNothingElse) {
  const TempFolder folder;
  Ctl ctl;
  const std::string disk = folder.sparse("disk", 64 * kMiB);
  ASSERT_EQ("", makeTable(disk, "label: gpt\nstart=2048,size=20480\nstart=30000,size=2048\n"));
  const std::string certificate = folder.file("certificate");
  ctl.expectDone(
      {"wipe", disk, "--part", "1", "--passes", "n v 0x5A&0xA5 v", "--certificate", certificate});
  EXPECT_EQ(sfdiskRow(disk, 2).start, 30000U);
  const auto bytesAt = [&](u64 sector) {
    return runProgram({"dd", "if=" + disk, "bs=512", "count=1", "status=none",
                       "skip=" + std::to_string(sector)})
        .output;
  };
  EXPECT_EQ(bytesAt(2047), std::string(512, '\0'));
  EXPECT_EQ(bytesAt(2048).substr(0, 2), "\x5A\xA5");
  EXPECT_EQ(bytesAt(22527).substr(0, 2), "\x5A\xA5");
  EXPECT_EQ(bytesAt(22528), std::string(512, '\0'));
  EXPECT_EQ(1, ctl.run({"wipe", disk, "--whole"}).status) << "nobody said yes";
  EXPECT_EQ(1, ctl.run({"wipe", disk, "--whole", "--passes", "r&", "--yes"}).status);
  EXPECT_EQ(2, ctl.run({"wipe", disk, "--yes"}).status);
  EXPECT_EQ(sfdiskRow(disk, 2).start, 30000U);
  const std::string before = fileHash(disk);
  EXPECT_EQ(0, ctl.run({"wipe", disk, "--whole", "--yes", "--rehearse"}).status);
  EXPECT_EQ(before, fileHash(disk));
  ctl.expectDone({"wipe", disk, "--whole", "--pattern", "mfm"});
  EXPECT_EQ(fileHash(disk), fileHash(folder.sparse("zeros", 64 * kMiB))) << "the backup GPT too";
}

}  // namespace
}  // namespace tallowin
