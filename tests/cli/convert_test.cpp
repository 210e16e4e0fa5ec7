// A disk changes its kind of table on the command line, and a kept copy undoes it.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "cli/ctl.h"
#include "support/loop_device.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

class ConvertTest : public ::testing::Test {
 protected:
  explicit ConvertTest(Ctl::Devices devices = Ctl::Devices::hidden) : ctl_(devices) {}

  std::string disk(const std::string& script) {
    std::string path = folder_.sparse("disk.img", 300 * kMiB);
    EXPECT_EQ(makeTable(path, script), "");
    return path;
  }
  std::string schemeOf(const std::string& path) {
    const Ctl::Answer answer = ctl_.json({"list", path});
    return answer.status == 0 ? answer.json["scheme"].GetString() : "";
  }

  TempFolder folder_;
  Ctl ctl_;
};

// Files through all kinds of table, on the sectors of an image file and on those of a device.
class ConvertRoundTest : public ConvertTest, public ::testing::WithParamInterface<u32> {
 protected:
  ConvertRoundTest()
      : ConvertTest(GetParam() == 512 ? Ctl::Devices::hidden : Ctl::Devices::shown) {}

  void SetUp() override {
    path_ = folder_.sparse("disk.img", 600 * kMiB);
    if (GetParam() != 512) {
      TALLOWIN_NEEDS_LOOP_DEVICES();
      loop_.emplace(path_, GetParam());
      path_ = loop_->path();
    }
    ASSERT_EQ(makeTable(path_,
                        "label: dos\nlabel-id: 0x12345678\nstart=1M,size=20M,type=83\n"
                        "start=21M,size=40M,type=6\nstart=62M,size=400M,type=5\n"
                        "v5: size=40M,type=6\nv6: size=280M,type=b\n"),
              "");
    original_ = extents();
  }

  // Of all partitions but the one that holds the volumes, by their start.
  std::vector<std::pair<u64, u64>> extents() const {
    constexpr u32 kExtended = 0x05;
    const SfdiskTable table = readTable(path_);
    EXPECT_EQ(table.problems, "");
    std::vector<std::pair<u64, u64>> found;
    for (const SfdiskRow& row : table.rows)
      if (row.type != kExtended) found.emplace_back(row.start, row.size);
    std::ranges::sort(found);
    return found;
  }
  // All but the first partition hold a file.
  std::string drive(std::size_t index) const {
    return path_ + "@@" + std::to_string(original_[index].first * GetParam());
  }
  void putFiles() const {
    ASSERT_EQ(runProgram({"dd", "if=/dev/urandom", "of=" + file_, "bs=1000", "count=900"}).status,
              0);
    for (std::size_t i = 1; i < original_.size(); ++i)
      ASSERT_EQ(runProgram({"mcopy", "-i", drive(i), file_, "::FILE"}).status, 0) << i;
  }
  void convert(const std::string& to, const std::string& scheme) {
    ASSERT_EQ(ctl_.run({"convert", path_, "--to", to, "--yes"}).status, 0);
    EXPECT_EQ(schemeOf(path_), scheme);
  }
  // The partitions lie where they lay, and hold what they held.
  void expectSamePartitions() const {
    EXPECT_EQ(extents(), original_);
    const std::string out = folder_.file("out");
    for (std::size_t i = 1; i < original_.size(); ++i) {
      EXPECT_EQ(runProgram({"mcopy", "-n", "-o", "-i", drive(i), "::FILE", out}).status, 0) << i;
      EXPECT_EQ(runProgram({"cmp", file_, out}).status, 0) << i;
    }
  }

  std::string path_;
  std::string file_ = folder_.file("in");
  std::optional<LoopDevice> loop_;
  std::vector<std::pair<u64, u64>> original_;
};

TEST_P(ConvertRoundTest, AllKindsAndBackByTheKeptTable) {
  for (const char* number : {"2", "5", "6"})
    ASSERT_EQ(ctl_.run({"format", path_, "--part", number, "--yes"}).status, 0) << number;
  putFiles();
  expectSamePartitions();
  const std::string kept = folder_.file("kept.tbk");
  ASSERT_EQ(ctl_.run({"table", "backup", path_, kept}).status, 0);
  const std::string before = runProgram({"sfdisk", "-d", path_}).output;

  convert("gpt", "GPT");
  // The reserved partition would be one too many for an MBR, and goes by itself.
  const ProgramResult judged = runProgram({"sgdisk", "-v", path_});
  EXPECT_NE(judged.output.find("No problems found"), std::string::npos) << judged.output;
  for (const auto& [to, scheme] :
       {std::pair("embr", "EMBR"), std::pair("mbr", "MBR"), std::pair("embr", "EMBR")}) {
    SCOPED_TRACE(scheme);
    convert(to, scheme);
    expectSamePartitions();
  }
  ASSERT_EQ(ctl_.run({"table", "restore", path_, kept, "--yes"}).status, 0);
  EXPECT_EQ(schemeOf(path_), "MBR");
  EXPECT_EQ(runProgram({"sfdisk", "-d", path_}).output, before);
  expectSamePartitions();
}

INSTANTIATE_TEST_SUITE_P(SectorSizes, ConvertRoundTest, ::testing::Values(512, 4096));

TEST_F(ConvertTest, RefusalsAndRehearsalsChangeNothing) {
  const std::string path = disk("label: dos\nstart=2048,size=40960,type=83\n");
  ASSERT_EQ(runProgram({"dd", "if=/dev/urandom", "of=" + path, "bs=512", "seek=1", "count=4",
                        "conv=notrunc"})
                .status,
            0);
  const std::string before = fileHash(path);
  EXPECT_EQ(ctl_.run({"convert", path, "--to", "gpt"}).status, 1);
  const ProgramResult refused = ctl_.run({"convert", path, "--to", "gpt", "--yes"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("in sector 1"), std::string::npos) << refused.output;
  EXPECT_EQ(ctl_.run({"convert", path, "--to", "xyz"}).status, 2);
  EXPECT_EQ(ctl_.run({"convert", path, "--to", "gpt", "--yes", "--overwrite", "--rehearse"}).status,
            0);
  EXPECT_EQ(fileHash(path), before);
  EXPECT_EQ(ctl_.run({"convert", path, "--to", "gpt", "--yes", "--overwrite"}).status, 0);
  EXPECT_EQ(schemeOf(path), "GPT");
}

// The next step is named, and not taken: it was not asked for.
TEST_F(ConvertTest, ADamagedCopyIsRepairedFirst) {
  const std::string path = disk("label: gpt\nsize=10M\n");
  ASSERT_EQ(runProgram(
                {"dd", "if=/dev/zero", "of=" + path, "bs=512", "seek=1", "count=1", "conv=notrunc"})
                .status,
            0);
  const std::string before = fileHash(path);
  const ProgramResult refused = ctl_.run({"convert", path, "--to", "mbr", "--yes"});
  EXPECT_EQ(refused.status, 1) << refused.output;
  EXPECT_NE(refused.output.find("'tallowinctl table repair " + path + "'"), std::string::npos)
      << refused.output;
  EXPECT_EQ(fileHash(path), before);
  ctl_.expectDone({"table", "repair", path, "--yes"});
  ctl_.expectDone({"convert", path, "--to", "mbr", "--yes"});
  EXPECT_EQ(schemeOf(path), "MBR");
}

// What nobody asked for is not answered by --yes.
TEST_F(ConvertTest, AFifthPrimaryDoesNotChangeTheKindOfTableUnseen) {
  const std::string path = disk(
      "label: dos\nsize=20480,type=83\nsize=20480,type=83\nsize=20480,type=83\n"
      "size=20480,type=83\n");
  const std::string before = fileHash(path);
  const ProgramResult refused =
      ctl_.run({"create", path, "--size", "10", "--type", "linux", "--yes"});
  EXPECT_EQ(refused.status, 1) << refused.output;
  EXPECT_NE(refused.output.find("an EMBR must be created"), std::string::npos) << refused.output;
  EXPECT_NE(refused.output.find("convert"), std::string::npos) << refused.output;
  EXPECT_EQ(fileHash(path), before);

  ASSERT_EQ(ctl_.run({"convert", path, "--to", "embr", "--yes"}).status, 0);
  EXPECT_EQ(ctl_.run({"create", path, "--size", "10", "--type", "linux", "--yes"}).status, 0);
  EXPECT_EQ(ctl_.json({"list", path}).json["scheme"], "EMBR");
}

}  // namespace
}  // namespace tallowin
