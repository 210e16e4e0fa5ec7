// What somebody at a terminal sees of long work, and what is left when it is stopped there.
#include "support/terminal.h"

#include <gtest/gtest.h>

#include "cli/ctl.h"

namespace tallowin {
namespace {

constexpr const char* kCtrlC = "\x03";

bool contains(const ProgramResult& result, const std::string& text) {
  return result.output.find(text) != std::string::npos;
}

class TerminalTest : public testing::Test {
 protected:
  // One FAT32 partition, large enough that its surface is not checked at once.
  std::string largeDisk() {
    std::string path = folder_.sparse("large.img", 256 * kGiB);
    EXPECT_EQ(makeTable(path, "label: dos\ntype=c\n"), "");
    return path;
  }
  std::vector<std::string> scan(const std::string& path) const {
    return ctl_.command({"format", path, "--part", "1", "--cluster", "64KiB", "--scan", "--yes"});
  }
  // Every call of one kind takes a while; by default those that clear sectors.
  std::vector<std::string> slowed(std::vector<std::string> words,
                                  const std::string& call = "fallocate",
                                  const std::string& when = "delay_enter=200000") const {
    std::vector<std::string> command = {"strace", "-f",
                                        "-o",     "/dev/null",
                                        "-E",     "ASAN_OPTIONS=detect_leaks=0",
                                        "-e",     "trace=" + call,
                                        "-e",     "inject=" + call + ":" + when};
    for (const std::string& word : ctl_.command(std::move(words))) command.push_back(word);
    return command;
  }
  static void expectSoundTable(const std::string& path, std::size_t partitions) {
    const SfdiskTable table = readTable(path);
    EXPECT_EQ(table.problems, "");
    EXPECT_EQ(table.rows.size(), partitions);
  }

  TempFolder folder_;
  Ctl ctl_;
};

TEST_F(TerminalTest, ProgressIsShownAndItsEndStays) {
  const std::string path = folder_.sparse("disk.img", 2 * kGiB);
  ASSERT_EQ(makeTable(path, "label: dos\ntype=c\n"), "");
  const std::vector<std::string> words = {"format", path, "--part", "1", "--scan", "--yes"};
  const ProgramResult shown = Terminal(ctl_.command(words)).finish();
  EXPECT_EQ(shown.status, 0) << shown.output;
  EXPECT_TRUE(contains(shown, "Formatting 100 % 4.0 MiB of 4.0 MiB\r\n")) << shown.output;
  EXPECT_TRUE(contains(shown,
                       "Checking for surface defects... 100 % 2.0 GiB of 2.0 GiB\r\n"
                       "Formatted 1: "))
      << shown.output;

  std::vector<std::string> quiet = words;
  quiet.push_back("--quiet");
  for (const ProgramResult& unseen : {Terminal(ctl_.command(quiet)).finish(), ctl_.run(words)}) {
    EXPECT_EQ(unseen.status, 0);
    EXPECT_EQ(unseen.output.find("Formatted 1: "), 0u) << unseen.output;
    EXPECT_FALSE(contains(unseen, "surface")) << unseen.output;
  }
}

TEST_F(TerminalTest, AStoppedScanLeavesAFileSystemAndANarrowTerminalKeepsTheTimeLeft) {
  const std::string path = largeDisk();
  constexpr std::size_t kColumns = 64;
  Terminal terminal(scan(path), kColumns);
  // Percent, bytes, speed and time left.
  ASSERT_TRUE(terminal.waitFor(" left"));
  terminal.type(kCtrlC);
  const ProgramResult stopped = terminal.finish();
  EXPECT_EQ(stopped.status, 130);
  EXPECT_TRUE(contains(stopped, "\r\ntallowinctl format: Stopped; the partition is formatted"))
      << stopped.output;
  for (std::size_t at = 0; (at = stopped.output.find("\033[K", at)) != std::string::npos;) {
    at += 3;
    EXPECT_LT(stopped.output.find_first_of("\r^", at) - at, kColumns) << stopped.output;
  }
  expectSoundTable(path, 1);
  EXPECT_EQ(ctl_.json({"info", path, "--part", "1"}).json["fs"], "fat32");
}

TEST_F(TerminalTest, CtrlCWhileSectorsAreClearedSaysWhatIsLeft) {
  if (!hasProgram("strace")) GTEST_SKIP() << "strace is not installed";
  const std::string large = largeDisk();  // cleared in more than one piece
  Terminal format(slowed({"format", large, "--part", "1", "--cluster", "64KiB", "--yes"}));
  ASSERT_TRUE(format.waitFor("Formatting "));
  format.type(kCtrlC);
  const ProgramResult unformatted = format.finish();
  EXPECT_EQ(unformatted.status, 130) << unformatted.output;
  EXPECT_TRUE(contains(unformatted, "must be formatted before it can be used"))
      << unformatted.output;
  expectSoundTable(large, 1);

  const std::string path = folder_.sparse("disk.img", 200 * kMiB);
  ASSERT_EQ(makeTable(path, "label: dos\nsize=50M,type=6\nsize=100M,type=83\n"), "");
  Terminal wipe(
      slowed({"delete", path, "--part", "2", "--wipe", "--yes"}, "pwritev", "delay_exit=100000"));
  ASSERT_TRUE(wipe.waitFor(" left"));
  wipe.type(kCtrlC);
  const ProgramResult unwiped = wipe.finish();
  EXPECT_EQ(unwiped.status, 130) << unwiped.output;
  EXPECT_TRUE(contains(unwiped, "The partition was deleted, but it is not wiped: it was stopped"))
      << unwiped.output;
  EXPECT_NE(ctl_.home().read("Debug.txt").find("Stopped by a signal\n"), std::string::npos);
  expectSoundTable(path, 1);
}

TEST_F(TerminalTest, QuestionsAreAskedAndOnlyYesChangesAnything) {
  const std::string path = folder_.sparse("disk.img", 100 * kMiB);
  ASSERT_EQ(makeTable(path, "label: dos\nsize=10M,type=83\n"), "");
  const std::string before = fileHash(path);
  struct Answer {
    const char* keys;
    int status;
    const char* said;
  };
  for (const Answer& answer :
       {Answer{"n\n", 1, "nothing more was changed"}, Answer{"\n", 1, "nothing more was changed"},
        Answer{"\x04", 1, "nothing more was changed"},
        Answer{kCtrlC, 130, "nothing more was changed"}, Answer{"y\n", 0, "Deleted 1: "}}) {
    EXPECT_EQ(fileHash(path), before);
    Terminal terminal(ctl_.command({"delete", path, "--part", "1"}));
    ASSERT_TRUE(terminal.waitFor("[y/N] "));
    terminal.type(answer.keys);
    const ProgramResult result = terminal.finish();
    EXPECT_EQ(result.status, answer.status) << result.output;
    EXPECT_TRUE(contains(result, answer.said)) << result.output;
  }
  expectSoundTable(path, 0);
  Terminal create(ctl_.command({"create", path, "--type", "fat16", "--size", "20", "--format"}));
  ASSERT_TRUE(create.waitFor("everything in its place is overwritten"));
  ASSERT_TRUE(create.waitFor("[y/N] "));
  create.type(kCtrlC);
  EXPECT_EQ(create.finish().status, 130);
  expectSoundTable(path, 0);
}

// The signal comes when the question is out and nobody waits for the answer yet.
TEST_F(TerminalTest, CtrlCJustBeforeTheAnswerIsWaitedForIsNotLost) {
  if (!hasProgram("strace")) GTEST_SKIP() << "strace is not installed";
  const std::string path = folder_.sparse("disk.img", 100 * kMiB);
  ASSERT_EQ(makeTable(path, "label: dos\nsize=10M,type=83\n"), "");
  Terminal terminal(slowed({"delete", path, "--part", "1"}, "write", "delay_exit=100000"));
  ASSERT_TRUE(terminal.waitFor("[y/N] "));
  terminal.type(kCtrlC);
  EXPECT_EQ(terminal.finish().status, 130);
  expectSoundTable(path, 1);
}

}  // namespace
}  // namespace tallowin
