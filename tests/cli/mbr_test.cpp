// The boot sector, edited by tallowinctl and judged by other programs.
#include <gtest/gtest.h>

#include "cli/ctl.h"

namespace tallowin {
namespace {

constexpr const char* kScript =
    "label: dos\nlabel-id: 0x12345678\n1:start=2048,size=20480,type=83,bootable\n"
    "2:start=40960,size=40960,type=5\n5:start=43008,size=2048,type=83\n"
    "3:start=22528,size=2048,type=7\n";

class MbrTest : public testing::Test {
 protected:
  MbrTest() : path_(folder_.sparse("disk.img", 50 * kMiB)) {
    EXPECT_EQ(makeTable(path_, kScript), "");
  }
  std::vector<std::string> onDisk(std::vector<std::string> options) const {
    options.insert(options.begin(), {"mbr", path_});
    return options;
  }
  ProgramResult mbr(std::vector<std::string> options) {
    return ctl_.run(onDisk(std::move(options)));
  }
  void expectDone(std::vector<std::string> options) {
    options.push_back("--yes");
    ctl_.expectDone(onDisk(std::move(options)));
    EXPECT_EQ(readTable(path_).problems, "");
  }

  TempFolder folder_;
  std::string path_;
  Ctl ctl_;
};

TEST_F(MbrTest, ShowsTheSlotsAndChangesNothing) {
  const std::string before = fileHash(path_);
  const Ctl::Answer answer = ctl_.json({"mbr", path_});
  ASSERT_EQ(answer.status, 0);
  EXPECT_STREQ(answer.json["signature"].GetString(), "0x12345678");
  const auto& slots = answer.json["slots"];
  ASSERT_EQ(slots.Size(), 4u);
  EXPECT_TRUE(slots[0]["active"].GetBool());
  EXPECT_EQ(slots[2]["start"].GetUint(), 22528u);
  EXPECT_EQ(slots[2]["type"].GetUint(), 7u);
  EXPECT_EQ(slots[3]["type"].GetUint(), 0u);
  const ProgramResult shown = mbr({});
  EXPECT_EQ(shown.status, 0);
  EXPECT_NE(shown.output.find("22528"), std::string::npos) << shown.output;
  EXPECT_EQ(fileHash(path_), before);
}

TEST_F(MbrTest, EditsAreSeenByTheOtherProgram) {
  expectDone(
      {"--set-active", "3", "--signature", "0x1234", "--boot-code", "standard", "--fill-echs"});
  EXPECT_TRUE(sfdiskRow(path_, 3).bootable);
  EXPECT_FALSE(sfdiskRow(path_, 1).bootable);
  EXPECT_EQ(readTable(path_).diskSignature, 0x1234u);
  expectDone({"--insert", "3", "--slot", "3", "--delete-slot", "1", "--clear-signature"});
  EXPECT_EQ(sfdiskRow(path_, 1).size, 0u);
  EXPECT_EQ(sfdiskRow(path_, 3).start, 22528u);
  EXPECT_EQ(readTable(path_).diskSignature, 0u);
}

TEST_F(MbrTest, RefusalsAndRehearsalsChangeNothing) {
  const std::string before = fileHash(path_);
  const std::vector<std::pair<std::vector<std::string>, int>> cases = {
      {{"--delete-slot", "1"}, 1},  // without --yes and a terminal
      {{"--insert", "5", "--slot", "4", "--yes"}, 1},
      {{"--insert", "3", "--slot", "4", "--yes"}, 1},  // is in slot 3
      {{"--insert", "9", "--slot", "4", "--yes"}, 1},
      {{"--insert", "3"}, 2},
      {{"--set-active", "5"}, 2},
      {{"--signature", "nonsense"}, 2},
      {{"--signature", "0x123456789"}, 2},
      {{"--boot-code", "old"}, 2},
      {{"--delete-slot", "1", "--rehearse"}, 0},
  };
  for (const auto& [options, status] : cases) {
    const ProgramResult result = mbr(options);
    EXPECT_EQ(result.status, status) << testing::PrintToString(options) << result.output;
    EXPECT_EQ(fileHash(path_), before);
  }
}

TEST_F(MbrTest, AGptDiskLosesItsPlaceHolderOnlyAfterAWarning) {
  if (!hasProgram("sgdisk")) GTEST_SKIP() << "sgdisk is not installed";
  path_ = folder_.sparse("gpt.img", 20 * kMiB);
  ASSERT_EQ(runProgram({"sgdisk", "-o", "-n", "1:2048:8191", path_}).status, 0);
  const std::string before = fileHash(path_);
  const ProgramResult unasked = mbr({"--delete-slot", "1"});
  EXPECT_EQ(unasked.status, 1);
  EXPECT_NE(unasked.output.find("--overwrite"), std::string::npos) << unasked.output;
  EXPECT_EQ(fileHash(path_), before);
  // A hybrid: the GPT partition has an MBR entry beside the place holder.
  EXPECT_STREQ(ctl_.json({"list", path_}).json["scheme"].GetString(), "GPT");
  ASSERT_EQ(mbr({"--insert", "1", "--slot", "2", "--yes"}).status, 0);
  EXPECT_STREQ(ctl_.json({"list", path_}).json["scheme"].GetString(), "GPT");
  EXPECT_EQ(ctl_.json({"mbr", path_}).json["slots"][0]["name"], "GPT Reserved");
  const std::string hybrid = fileHash(path_);
  EXPECT_EQ(mbr({"--insert", "1", "--slot", "1", "--yes"}).status, 1)
      << "--yes answers no insisting";
  EXPECT_EQ(fileHash(path_), hybrid);
  EXPECT_EQ(mbr({"--delete-slot", "1", "--yes"}).status, 1) << "a GPT goes";
  ASSERT_EQ(mbr({"--delete-slot", "1", "--yes", "--overwrite"}).status, 0);
  EXPECT_STREQ(ctl_.json({"list", path_}).json["scheme"].GetString(), "MBR");
  EXPECT_EQ(sfdiskRow(path_, 2).start, 2048u);
  EXPECT_EQ(sfdiskRow(path_, 2).size, 6144u);
}

}  // namespace
}  // namespace tallowin
