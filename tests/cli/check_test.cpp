// Volumes that another program made are checked and mended on the command line, and that program
// judges the result.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "cli/ctl.h"
#include "fat/fat_record.h"

namespace tallowin {
namespace {

namespace fs = std::filesystem;

class CheckTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!hasProgram("mkfs.fat") || !hasProgram("mcopy")) GTEST_SKIP() << "needs dosfstools, mtools";
  }

  // With a random tree.
  std::string volume(const std::string& kind, u64 mebibytes, u32 clusterSectors, u32 seed) {
    const std::string path = folder_.sparse("disk" + kind, mebibytes * kMiB);
    EXPECT_EQ(
        runProgram({"mkfs.fat", "-F", kind, "-s", std::to_string(clusterSectors), path}).status, 0);
    std::mt19937 random(seed);
    const fs::path top = folder_.file("tree" + kind);
    std::vector<fs::path> directories = {top};
    fs::create_directories(top);
    for (int i = 0; i < 60; ++i) {
      const fs::path in = directories[random() % directories.size()];
      const std::string name = (i % 3 == 0 ? "A long name of " : "N") + std::to_string(i);
      if (i % 4 == 0)
        fs::create_directory(directories.emplace_back(in / name));
      else
        std::ofstream(in / name) << std::string(random() % 9000, 'c');
    }
    // The second time round some of it is replaced, so that files lie in pieces.
    for (int round = 0; round < 2; ++round) {
      std::vector<std::string> copy = {
          "/usr/bin/env", "MTOOLS_SKIP_CHECK=1", "mcopy", "-s", "-o", "-Q", "-i", path};
      for (const auto& entry : fs::directory_iterator(top)) copy.push_back(entry.path().string());
      copy.push_back("::/");
      EXPECT_EQ(runProgram(copy).status, 0);
      for (const auto& entry : fs::recursive_directory_iterator(top))
        if (entry.is_regular_file() && random() % 2 == 0)
          std::ofstream(entry.path()) << std::string(random() % 20000, 'd');
    }
    EXPECT_EQ(runProgram({"fsck.fat", "-n", path}).status, 0);
    return path;
  }
  static void poke(const std::string& path, u64 offset, const std::string& bytes) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(offset));
    file << bytes;
  }

  TempFolder folder_;
  Ctl ctl_;
};

TEST_F(CheckTest, VolumesThatOthersCallCleanAreClean) {
  u32 seed = 0;
  for (const auto& [kind, mebibytes, cluster] :
       {std::tuple("12", 2, 1), std::tuple("16", 20, 1), std::tuple("16", 100, 16),
        std::tuple("32", 40, 1), std::tuple("32", 300, 8)}) {
    const std::string path =
        volume(kind, static_cast<u64>(mebibytes), static_cast<u32>(cluster), ++seed);
    const Ctl::Answer answer = ctl_.json({"check", path, "--part", "0"});
    EXPECT_EQ(answer.status, 0) << kind;
    EXPECT_EQ(answer.json["fault"].GetUint(), 0U);
    const std::string judged = runProgram({"fsck.fat", "-n", path}).output;
    const std::string used = " " + std::to_string(answer.json["used_clusters"].GetUint()) + "/";
    EXPECT_NE(judged.find(used), std::string::npos) << used << judged;
    EXPECT_EQ(answer.json["would_mend"].Size(), 0U);
  }
}

TEST_F(CheckTest, MendsWhatItWasAllowedTo) {
  const std::string path = volume("32", 40, 1, 1);
  const u64 fat = u64{32} * 512;
  poke(path, fat + 4 * 70000, "\xF8\xFF\xFF\x0F");  // in the first copy alone
  poke(path, 65, "\x01");                           // not umounted
  poke(path, 512 + 488, std::string(4, '\x01'));
  const std::string before = fileHash(path);

  const Ctl::Answer faulty = ctl_.json({"check", path, "--part", "0"});
  EXPECT_EQ(faulty.status, 1);
  EXPECT_EQ(faulty.json["error"]["code"].GetUint(), 24U);
  const ProgramResult unasked = ctl_.run({"check", path, "--part", "0", "--repair"});
  EXPECT_EQ(unasked.status, 1);
  EXPECT_NE(unasked.output.find("Repeat it with --yes"), std::string::npos) << unasked.output;
  const Ctl::Answer dry = ctl_.json({"check", path, "--part", "0", "--repair", "--dry-run"});
  EXPECT_EQ(dry.status, 0);
  EXPECT_EQ(dry.json["would_mend"].Size(), 3U);
  ctl_.expectDone({"check", path, "--part", "0", "--repair", "--rehearse"});
  EXPECT_EQ(fileHash(path), before);

  const Ctl::Answer mended = ctl_.json({"check", path, "--part", "0", "--repair", "--yes"});
  EXPECT_EQ(mended.status, 0);
  EXPECT_EQ(mended.json["mended"].Size(), 3U);
  EXPECT_EQ(mended.json["fault"].GetUint(), 0U);
  const ProgramResult judged = runProgram({"fsck.fat", "-n", path});
  EXPECT_EQ(judged.status, 0) << judged.output;
  EXPECT_EQ(judged.output.find("irty"), std::string::npos) << judged.output;
}

TEST_F(CheckTest, LeavesOtherDamageAlone) {
  const std::string path = volume("32", 40, 1, 2);
  poke(path, 65, "\x01");
  const u64 fat = u64{32} * 512;
  const std::string noCluster("\xEE\xEE\xEE\x0E", 4);
  poke(path, fat + 4 * 2, noCluster);
  // The other copy says the same.
  const u32 sectors = [&] {
    std::ifstream file(path, std::ios::binary);
    FatBpbRecord bpb;
    Fat32BpbRecord bpb32;
    file.read(reinterpret_cast<char*>(&bpb), sizeof(bpb));
    file.read(reinterpret_cast<char*>(&bpb32), sizeof(bpb32));
    return u32{bpb32.sectorsPerFat};
  }();
  poke(path, fat + u64{sectors} * 512 + 4 * 2, noCluster);
  const std::string before = fileHash(path);
  const Ctl::Answer refused = ctl_.json({"check", path, "--part", "0", "--repair", "--yes"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.json["error"]["code"].GetUint(), 25U);
  EXPECT_EQ(fileHash(path), before);
}

}  // namespace
}  // namespace tallowin
