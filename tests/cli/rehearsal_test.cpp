// A rehearsal says what a command would do, and does nothing.
#include <gtest/gtest.h>

#include "cli/ctl.h"

namespace tallowin {
namespace {

TEST(Rehearsal, LeavesTheTargetAndTellsWhatTheCommandThenDoes) {
  const TempFolder folder;
  Ctl ctl;
  const std::string path = folder.sparse("disk.img", 200 * kMiB);
  ASSERT_EQ(runProgram({"sfdisk", "-q", path},
                       "label: dos\nsize=30M,type=6\ntype=5\nv5: size=10M,type=83\n")
                .status,
            0);
  const std::string kept = folder.file("kept.tbk");
  ASSERT_EQ(ctl.run({"table", "backup", path, kept}).status, 0);
  const std::vector<std::vector<std::string>> commands = {
      {"create", path, "--type", "fat16", "--size", "40", "--name", "NEW", "--format"},
      {"format", path, "--part", "1", "--fs", "fat16", "--cluster", "4KiB"},
      {"delete", path, "--part", "5", "--wipe"},
      {"table", "restore", path, kept},
  };
  for (std::vector<std::string> words : commands) {
    SCOPED_TRACE(words[0]);
    const std::string before = fileHash(path);
    const std::string homeBefore = runProgram({"ls", "-R", ctl.home().path()}).output;
    words.push_back("--rehearse");
    const Ctl::Answer answer = ctl.json(words);
    ASSERT_EQ(answer.status, 0) << ctl.run(words).output;
    EXPECT_EQ(fileHash(path), before);
    EXPECT_EQ(runProgram({"ls", "-R", ctl.home().path()}).output, homeBefore);
    EXPECT_TRUE(answer.json["rehearsal"].GetBool());
    u64 bytes = 0;
    for (const auto& range : answer.json["writes"].GetArray())
      bytes += range["sectors"].GetUint64() * 512;
    EXPECT_EQ(answer.json["bytes"].GetUint64(), bytes);
    EXPECT_NE(ctl.run(words).output.find("nothing was written"), std::string::npos);

    words.back() = "--yes";
    ASSERT_EQ(ctl.run(words).status, 0);
    EXPECT_EQ(rowsByCtl(ctl, path), rowsOf(answer.json));
  }
}

}  // namespace
}  // namespace tallowin
