// What `set` and its like change in each kind of table, judged by other programs.
#include <gtest/gtest.h>

#include <algorithm>

#include "cli/ctl.h"

namespace tallowin {
namespace {

// The entry as sfdisk sees it; all zero when there is none.
GptRow gptRow(const std::string& path, u32 number) {
  for (const GptRow& row : readGpt(path))
    if (row.number == number) return row;
  return {};
}

class SetTest : public testing::Test {
 protected:
  SetTest() : path_(folder_.sparse("disk.img", 64 * kMiB)) {}

  std::vector<std::string> onDisk(const std::string& command,
                                  std::vector<std::string> options) const {
    options.insert(options.begin(), {command, path_});
    return options;
  }
  ProgramResult run(const std::string& command, std::vector<std::string> options) {
    return ctl_.run(onDisk(command, std::move(options)));
  }
  void expectDone(const std::string& command, std::vector<std::string> options) {
    options.push_back("--yes");
    ctl_.expectDone(onDisk(command, std::move(options)));
  }
  void expectRefused(std::vector<std::string> options, const std::string& named) {
    const std::string before = fileHash(path_);
    options.push_back("--yes");
    const ProgramResult result = run("set", options);
    EXPECT_EQ(result.status, 1) << result.output;
    EXPECT_EQ(result.output.find("tallowinctl set: " + named), 0u) << result.output;
    EXPECT_EQ(fileHash(path_), before);
  }
  // The member of the row with this number, as text; "" when there is none.
  std::string member(u32 number, const char* key) {
    const Ctl::Answer listing = ctl_.json({"list", path_});
    for (const auto& row : listing.json["rows"].GetArray()) {
      if (std::string(row["kind"].GetString()) == "free" || row["number"].GetUint() != number)
        continue;
      const auto& value = row[key];
      if (value.IsString()) return value.GetString();
      if (value.IsBool()) return value.GetBool() ? "true" : "false";
      return std::to_string(value.GetUint64());
    }
    return "";
  }

  TempFolder folder_;
  std::string path_;
  Ctl ctl_;
};

TEST_F(SetTest, EntriesOfAGptAndTheirFormat) {
  ASSERT_EQ(makeTable(path_, "label: gpt\nsize=8M,name=first\nsize=20M\n"), "");
  expectDone("create", {"--type", "efi", "--size", "8", "--name", "ESP"});
  EXPECT_EQ(gptRow(path_, 3).type, "C12A7328-F81F-11D2-BA4B-00A0C93EC93B");
  EXPECT_EQ(gptRow(path_, 3).name, "ESP");

  GptRow wanted = gptRow(path_, 1);
  expectDone("set", {"--part", "1", "--name", "Größe 😀", "--type-guid", "linux data", "--flag",
                     "required=1", "--flag", "48=1", "--hide"});
  wanted.name = "Größe 😀";
  wanted.type = "0FC63DAF-8483-4772-8E79-3D69D8477DE4";
  wanted.attributes = 1 | u64{1} << 48 | u64{1} << 62;
  EXPECT_EQ(gptRow(path_, 1), wanted);
  EXPECT_EQ(member(1, "hidden"), "true");
  expectDone("set", {"--part", "1", "--unhide", "--flag", "required=0", "--flag", "48=0"});
  EXPECT_EQ(member(1, "attributes"), "0");
  expectDone("set", {"--part", "1", "--type", "efi"});
  EXPECT_EQ(gptRow(path_, 1).type, "C12A7328-F81F-11D2-BA4B-00A0C93EC93B");

  expectRefused({"--part", "1", "--type", "ntfs"}, "--type: ");
  expectRefused({"--part", "1", "--name", "x", "--active"}, "--active");
  expectRefused({"--part", "1", "--flag", "multi-os=1"}, "--flag: ");
  expectRefused({"--part", "1", "--flag", "64=1"}, "--flag: ");
  expectRefused({"--part", "1", "--name", std::string(37, 'x')}, "--name: ");

  // What a partition of a GPT is for stands nowhere but in its content.
  const std::vector<std::string> second = {"--part", "2", "--yes"};
  EXPECT_NE(run("format", second).output.find("--fs"), std::string::npos);
  expectDone("format", {"--part", "2", "--fs", "fat16"});
  EXPECT_EQ(run("format", second).status, 0);
  EXPECT_EQ(member(2, "fs"), "fat16");
  EXPECT_EQ(gptProblems(path_), "");
}

TEST_F(SetTest, MbrAndItsVolumesAreSet) {
  ASSERT_EQ(makeTable(path_,
                      "label: dos\n1:start=2048,size=20480,type=7,bootable\n"
                      "2:start=40960,size=40960,type=5\n5:start=43008,size=2048,type=83\n"
                      "3:start=22528,size=2048,type=83\n"),
            "");
  expectDone("set", {"--part", "3", "--type", "fat32", "--active", "--hide"});
  EXPECT_EQ(sfdiskRow(path_, 3).type, 0x1Bu);
  EXPECT_TRUE(sfdiskRow(path_, 3).bootable);
  EXPECT_FALSE(sfdiskRow(path_, 1).bootable);
  expectDone("set", {"--part", "3", "--unhide", "--inactive"});
  EXPECT_EQ(sfdiskRow(path_, 3).type, 0x0Bu);
  EXPECT_FALSE(sfdiskRow(path_, 3).bootable);
  expectDone("set", {"--part", "5", "--name", "LETTERS", "--hide"});
  EXPECT_EQ(sfdiskRow(path_, 5).type, 0xEDu);
  EXPECT_EQ(member(5, "type"), "131") << "the real type is kept";
  EXPECT_EQ(member(5, "name"), "LETTERS");
  expectDone("set", {"--part", "5", "--unhide"});
  EXPECT_EQ(sfdiskRow(path_, 5).type, 0x83u);
  EXPECT_EQ(readTable(path_).problems, "");

  expectRefused({"--part", "1", "--name", "x"}, "--name: ");
  expectRefused({"--part", "1", "--type-guid", "Linux Data"}, "--type-guid: ");
  expectRefused({"--part", "1", "--flag", "boot=1"}, "--flag: ");
  expectRefused({"--part", "1", "--type", "extended"}, "--type: ");
  expectRefused({"--part", "2", "--type", "ntfs"}, "--type: ");
  expectRefused({"--part", "1", "--type", "0xEE"}, "--type: ");
  expectRefused({"--part", "1", "--type", "linux", "--hide"}, "--hide: ");
  expectRefused({"--part", "5", "--active"}, "--active");
  expectRefused({"--part", "5", "--name", "ninebytes"}, "--name: ");
  expectRefused({"--part", "9", "--active"}, "'");
  const std::string before = fileHash(path_);
  EXPECT_EQ(run("set", {"--part", "1", "--type", "7"}).status, 1) << "asks";
  EXPECT_EQ(run("set", {"--part", "1", "--type", "7", "--rehearse"}).status, 0);
  EXPECT_EQ(run("set", {"--part", "1", "--hide", "--unhide"}).status, 2);
  EXPECT_EQ(run("set", {"--part", "1", "--flag", "boot"}).status, 2);
  EXPECT_EQ(run("table", {"repair"}).status, 2) << "the words are in another order";
  EXPECT_EQ(ctl_.run({"table", "repair", path_, "--yes"}).status, 1) << "no GPT";
  EXPECT_EQ(fileHash(path_), before);
}

TEST_F(SetTest, EntriesOfAnEmbrHaveTheirIdsAsNumbers) {
  ASSERT_EQ(makeTable(path_,
                      "label: dos\n1:start=2048,size=20480,type=83\n"
                      "2:start=40960,size=40960,type=5\n5:start=43008,size=2048,type=83\n"),
            "");
  expectDone("convert", {"--to", "embr"});
  const Ctl::Answer listing = ctl_.json({"list", path_});
  EXPECT_TRUE(listing.json["gpt_health"].IsNull());
  std::vector<u32> numbers;
  for (const auto& row : listing.json["rows"].GetArray()) {
    if (std::string(row["kind"].GetString()) == "free") continue;
    EXPECT_EQ(row["number"].GetUint(), row["id"].GetUint());
    numbers.push_back(row["number"].GetUint());
  }
  ASSERT_EQ(numbers.size(), 3u);

  const std::string first = std::to_string(numbers[0]);
  expectDone("set", {"--part", first, "--name", "FIRST", "--type", "7", "--active", "--flag",
                     "multi-os=1", "--flag", "bootable=0"});
  EXPECT_EQ(member(numbers[0], "name"), "FIRST");
  EXPECT_EQ(member(numbers[0], "attributes"), "4096");
  EXPECT_EQ(sfdiskRow(path_, 1).type, 7u);
  EXPECT_TRUE(sfdiskRow(path_, 1).bootable);
  expectDone("set", {"--part", std::to_string(numbers[2]), "--name", "VOLUME"});
  EXPECT_EQ(member(numbers[2], "name"), "VOLUME");
  expectRefused({"--part", first, "--flag", "required=1"}, "--flag: ");
  expectRefused({"--part", first, "--type-guid", "Linux Data"}, "--type-guid: ");
  expectRefused({"--part", first, "--name", std::string(16, 'x')}, "--name: ");
  expectDone("delete", {"--part", first});
  EXPECT_EQ(member(numbers[0], "start"), "");
  EXPECT_EQ(sfdiskRow(path_, 1).size, 0u);
}

TEST_F(SetTest, AnEmbrFollowsTheBootSector) {
  makeTable(path_, "label: dos\nstart=2048,size=20480,type=83\n");
  const auto synchronize = [&] { return ctl_.run({"table", "synchronize", path_, "--yes"}); };
  EXPECT_NE(synchronize().output.find("has no EMBR"), std::string::npos);
  expectDone("convert", {"--to", "embr"});
  EXPECT_NE(synchronize().output.find("nothing was to be done"), std::string::npos);

  ASSERT_EQ(runProgram({"sfdisk", "-q", "--part-type", path_, "1", "7"}).status, 0);
  const std::string told = "table synchronize";
  EXPECT_NE(ctl_.run({"list", path_}).output.find(told), std::string::npos);
  EXPECT_EQ(ctl_.run({"table", "synchronize", path_}).status, 1) << "asks";
  EXPECT_NE(run("convert", {"--to", "mbr", "--yes"}).output.find(told), std::string::npos);
  EXPECT_EQ(synchronize().status, 0);
  const Ctl::Answer listing = ctl_.json({"list", path_});
  EXPECT_EQ(listing.json["rows"][0]["type"].GetUint(), 7U);
  EXPECT_EQ(ctl_.run({"list", path_}).output.find(told), std::string::npos);
}

// The end in each kind of table, as sfdisk sees it; and a boot sector that other programs like.
TEST_F(SetTest, TheEndMovesWhereNothingIsLost) {
  for (const char* label : {"label: dos\n", "label: gpt\n"}) {
    makeTable(path_, std::string(label) + "start=2048,size=40960\nstart=81920,size=20480\n");
    ASSERT_EQ(runProgram({"mkfs.fat", "--offset", "2048", path_, "15360"}).status, 0);
    expectDone("set", {"--part", "1", "--end", "81919"});
    EXPECT_EQ(readTable(path_).rows.at(0).size, 79872u) << label;
    expectDone("set", {"--part", "1", "--end", "32767s"});
    EXPECT_EQ(readTable(path_).rows.at(0).size, 30720u) << label;
    // All that the file system has is behind it; no consent of --yes is enough for less.
    expectRefused({"--part", "1", "--end", "32766s"}, "The partition becomes smaller");
    EXPECT_EQ(run("set", {"--part", "1", "--end", "32766s"}).output.find("--overwrite"),
              std::string::npos);
    const ProgramResult rehearsed = run("set", {"--part", "1", "--end", "32766s", "--rehearse"});
    EXPECT_EQ(rehearsed.status, 0) << rehearsed.output;
    EXPECT_NE(rehearsed.output.find("--yes would not answer"), std::string::npos);
    expectRefused({"--part", "1", "--end", "81920s"}, "--end: The partition can end from");
    expectDone("set", {"--part", "1", "--fix-boot-sector"});
    const std::string fixed = fileHash(path_);
    expectDone("set", {"--part", "1", "--fix-boot-sector"});
    EXPECT_EQ(fileHash(path_), fixed);
    const std::string info = runProgram({"minfo", "-i", path_ + "@@1M", "::"}).output;
    const Ctl::Answer list = ctl_.json({"list", path_});
    const auto& geometry = list.json["geometry"];
    const std::string expected =
        "sectors per track: " + std::to_string(geometry["sectors_per_track"].GetUint()) +
        "\nheads: " + std::to_string(geometry["max_head"].GetUint() + 1) + "\n";
    EXPECT_NE(info.find(expected), std::string::npos) << info << expected;
  }
}

}  // namespace
}  // namespace tallowin
