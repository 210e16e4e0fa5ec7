// A disk changes its kind of table on the command line, and a kept copy undoes it.
#include <gtest/gtest.h>

#include "cli/ctl.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

class ConvertTest : public ::testing::Test {
 protected:
  std::string disk(const std::string& script) {
    const std::string path = folder_.sparse("disk.img", 300 * kMiB);
    EXPECT_EQ(runProgram({"sfdisk", "-q", path}, script).status, 0);
    return path;
  }
  std::string schemeOf(const std::string& path) {
    const Ctl::Answer answer = ctl_.json({"list", path});
    return answer.status == 0 ? answer.json["scheme"].GetString() : "";
  }

  TempFolder folder_;
  Ctl ctl_;
};

TEST_F(ConvertTest, AllKindsAndBackByTheKeptTable) {
  const std::string path = disk(
      "label: dos\nlabel-id: 0x12345678\nstart=2048,size=40960,type=83\n"
      "start=43008,size=40960,type=6\n");
  ASSERT_EQ(ctl_.run({"format", path, "--part", "2", "--yes"}).status, 0);
  const std::string drive = path + "@@" + std::to_string(43008 * 512);
  const std::string file = folder_.file("in");
  ASSERT_EQ(runProgram({"dd", "if=/dev/urandom", "of=" + file, "bs=1000", "count=900"}).status, 0);
  ASSERT_EQ(runProgram({"mcopy", "-i", drive, file, "::FILE"}).status, 0);
  const auto expectSameFile = [&] {
    const std::string out = folder_.file("out");
    EXPECT_EQ(runProgram({"mcopy", "-n", "-o", "-i", drive, "::FILE", out}).status, 0);
    EXPECT_EQ(runProgram({"cmp", file, out}).status, 0);
  };
  const std::string kept = folder_.file("kept.tbk");
  ASSERT_EQ(ctl_.run({"table", "backup", path, kept}).status, 0);
  const std::string before = runProgram({"sfdisk", "-d", path}).output;

  ASSERT_EQ(ctl_.run({"convert", path, "--to", "gpt", "--yes"}).status, 0);
  EXPECT_EQ(runProgram({"sgdisk", "-v", path}).status, 0);
  EXPECT_EQ(schemeOf(path), "GPT");
  expectSameFile();
  ASSERT_EQ(ctl_.run({"convert", path, "--to", "embr", "--yes"}).status, 0);
  EXPECT_EQ(schemeOf(path), "EMBR");
  expectSameFile();
  ASSERT_EQ(ctl_.run({"table", "restore", path, kept, "--yes"}).status, 0);
  EXPECT_EQ(schemeOf(path), "MBR");
  EXPECT_EQ(runProgram({"sfdisk", "-d", path}).output, before);
  expectSameFile();
}

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
