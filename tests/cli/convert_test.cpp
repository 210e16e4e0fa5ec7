// A disk changes its kind of table on the command line.
#include <gtest/gtest.h>

#include "cli/ctl.h"

namespace tallowin {
namespace {

class ConvertTest : public ::testing::Test {
 protected:
  std::string disk(const std::string& script) {
    std::string path = folder_.sparse("disk.img", 300 * kMiB);
    EXPECT_EQ(makeTable(path, script), "");
    return path;
  }
  std::string schemeOf(const std::string& path) {
    const Ctl::Answer answer = ctl_.json({"list", path});
    return answer.status == 0 ? answer.json["scheme"].GetString() : "";
  }
  // With --yes, for the reason that is named, and without a write.
  void expectRefused(std::vector<std::string> words, const std::string& named) {
    const std::string before = fileHash(words[1]);
    words.push_back("--yes");
    const ProgramResult refused = ctl_.run(words);
    EXPECT_EQ(refused.status, 1) << refused.output;
    EXPECT_NE(refused.output.find(named), std::string::npos) << refused.output;
    EXPECT_EQ(fileHash(words[1]), before);
  }

  TempFolder folder_;
  Ctl ctl_;
};

TEST_F(ConvertTest, RefusalsAndRehearsalsChangeNothing) {
  const std::string path = disk("label: dos\nstart=2048,size=40960,type=83\n");
  ASSERT_EQ(runProgram({"dd", "if=/dev/urandom", "of=" + path, "bs=512", "seek=1", "count=4",
                        "conv=notrunc"})
                .status,
            0);
  const std::string before = fileHash(path);
  EXPECT_EQ(ctl_.run({"convert", path, "--to", "gpt"}).status, 1);
  expectRefused({"convert", path, "--to", "gpt"}, "in sector 1");
  EXPECT_EQ(ctl_.run({"convert", path, "--to", "xyz"}).status, 2);
  EXPECT_EQ(ctl_.run({"convert", path, "--to", "gpt", "--yes", "--overwrite", "--rehearse"}).status,
            0);
  EXPECT_EQ(fileHash(path), before);
  EXPECT_EQ(ctl_.run({"convert", path, "--to", "gpt", "--yes", "--overwrite"}).status, 0);
  EXPECT_EQ(schemeOf(path), "GPT");
}

// The next step is named, and not taken: it was not asked for.
TEST_F(ConvertTest, ABlankImageGetsAnMbrThatComesBackBlank) {
  const std::string path = folder_.sparse("disk.img", 64 * kMiB);
  const Ctl::Answer made = ctl_.json({"convert", path, "--to", "mbr", "--yes"});
  ASSERT_EQ(made.status, 0);
  const ProgramResult dump = runProgram({"sfdisk", "-d", path});
  EXPECT_NE(dump.output.find("label: dos\n"), std::string::npos) << dump.output;
  EXPECT_EQ(dump.output.find("label-id: 0x00000000"), std::string::npos) << "a random signature";
  // What could not be kept as asked is said in the answer too.
  const Ctl::Answer created = ctl_.json({"create", path, "--type", "fat16", "--size", "20",
                                         "--format", "--name", "a long label!", "--yes"});
  ASSERT_EQ(created.status, 0);
  ASSERT_EQ(created.json["notes"].Size(), 1U);
  EXPECT_NE(std::string(created.json["notes"][0].GetString()).find("A LONG LABE"),
            std::string::npos);
  ctl_.expectDone({"delete", path, "--part", "1"});
  ctl_.expectDone({"table", "restore", path, made.json["kept_table"].GetString(), "--yes"});
  const std::string first(folder_.read("disk.img"), 0, 512);
  EXPECT_EQ(first, std::string(512, '\0'));
}

TEST_F(ConvertTest, ADamagedCopyIsRepairedFirst) {
  const std::string path = disk("label: gpt\nsize=10M\n");
  EXPECT_EQ(ctl_.run({"table", "repair", path}).status, 0) << "nothing to do";
  ASSERT_EQ(runProgram(
                {"dd", "if=/dev/zero", "of=" + path, "bs=512", "seek=1", "count=1", "conv=notrunc"})
                .status,
            0);
  expectRefused({"convert", path, "--to", "mbr"}, "'tallowinctl table repair " + path + "'");
  EXPECT_NE(ctl_.run({"list", path}).output.find("table repair"), std::string::npos);
  EXPECT_EQ(ctl_.json({"list", path}).json["gpt_health"], "damaged-primary");
  EXPECT_EQ(ctl_.run({"table", "repair", path}).status, 1) << "asks";
  const Ctl::Answer repaired = ctl_.json({"table", "repair", path, "--yes"});
  EXPECT_EQ(repaired.json["health_before"], "damaged-primary");
  EXPECT_EQ(repaired.json["gpt_health"], "sound");
  ctl_.expectDone({"convert", path, "--to", "mbr"});
  EXPECT_EQ(schemeOf(path), "MBR");
}

TEST_F(ConvertTest, AGptThatCannotBeChangedSaysWhy) {
  const std::string path = disk("label: gpt\ntable-length: 256\nstart=2048,size=100\n");
  const std::string why = "has more entries than fit here";
  expectRefused({"create", path, "--type", "linux", "--size", "5"}, why);
  expectRefused({"convert", path, "--to", "mbr"}, why);
  ASSERT_EQ(runProgram({"sh", "-c",
                        "dd if=/dev/zero of=$1 bs=512 seek=1 count=1 conv=notrunc;"
                        "truncate -s -512 $1",
                        "sh", path})
                .status,
            0);
  EXPECT_EQ(ctl_.json({"list", path}).json["gpt_health"], "unreadable");
  expectRefused({"table", "repair", path}, "");
  expectRefused({"delete", path, "--part", "1"}, "");
}

// What nobody asked for is not answered by --yes.
TEST_F(ConvertTest, AFifthPrimaryDoesNotChangeTheKindOfTableUnseen) {
  const std::string path = disk(
      "label: dos\nsize=20480,type=83\nsize=20480,type=83\nsize=20480,type=83\n"
      "size=20480,type=83\n");
  const std::vector<std::string> fifth = {"create", path, "--size", "10", "--type", "linux"};
  expectRefused(fifth, "an EMBR must be created");
  expectRefused(fifth, "convert");
  ctl_.expectDone({"convert", path, "--to", "embr"});
  ctl_.expectDone(fifth);
  EXPECT_EQ(schemeOf(path), "EMBR");
}

}  // namespace
}  // namespace tallowin
