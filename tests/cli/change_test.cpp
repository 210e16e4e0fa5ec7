// Tables and file systems made by tallowinctl, judged by other programs.
#include <gtest/gtest.h>

#include "base/text.h"
#include "cli/ctl.h"

namespace tallowin {
namespace {

constexpr const char* kStart = "label: dos\nlabel-id: 0x12345678\n";

class ChangeTest : public testing::Test {
 protected:
  std::string newDisk(const std::string& name, u64 bytes, const std::string& script = kStart) {
    std::string path = folder_.sparse(name, bytes);
    EXPECT_EQ(runProgram({"sfdisk", "-q", path}, script).status, 0);
    return path;
  }

  TempFolder folder_;
  Ctl ctl_;
};

// Never less than asked: to the sector where the alignment allows it, else up to the next boundary.
TEST_F(ChangeTest, TheSizeIsAPromise) {
  struct Case {
    const char* settings;  // null: nobody has been here yet
    const char* sectorSize;
    const char* size;
    u64 start;
    u64 sectors;
  };
  const Case cases[] = {
      {nullptr, "512", "100", 2048, 204800},
      {nullptr, "512", "10241s", 2048, 12288},
      {nullptr, "4096", "100", 256, 25600},
      {"[OPTIONS]\n", "512", "100", 63, 16065 * 13 - 63},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.settings) + " " + c.sectorSize + " " + c.size);
    Ctl ctl;
    if (c.settings) ctl.home().write("STRANDEL.INI", c.settings);
    const std::string path = newDisk("promise.img", 8 * kGiB);
    ctl.expectDone(
        {"create", path, "--type", "fat32", "--size", c.size, "--sector-size", c.sectorSize});
    const Ctl::Answer list = ctl.json({"list", path, "--sector-size", c.sectorSize});
    ASSERT_EQ(list.status, 0);
    const std::vector<SfdiskRow> rows = rowsOf(list.json);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].start, c.start);
    EXPECT_EQ(rows[0].size, c.sectors);
  }
}

TEST_F(ChangeTest, NamesAreKeptAsTheyAreOrRefused) {
  const std::string tooLong(37, 'x');
  struct Case {
    const char* table;
    std::vector<std::string> words;
    const char* name;   // null: refused, naming the option
    const char* label;  // of the file system; null: there is none
  };
  const Case cases[] = {
      {"label: gpt\n", {"--type", "linux", "--name", "Größe 😀"}, "Größe 😀", nullptr},
      {"label: gpt\n", {"--type", "fat16", "--format", "--name", "DATA"}, "DATA", "DATA"},
      {"label: gpt\n", {"--type", "fat16", "--format"}, "", ""},
      {"label: gpt\n", {"--type", "linux", "--name", tooLong}, nullptr, nullptr},
      {"label: gpt\n", {"--type", "linux", "--name", "A\xFF"}, nullptr, nullptr},
      {"label: gpt\n", {"--type", "linux", "--name", "A\nB"}, nullptr, nullptr},
      {"label: gpt\n", {"--type", "linux", "--name", "A\xC2\x9B"}, nullptr, nullptr},
      {"label: gpt\n", {"--type", "65537"}, nullptr, nullptr},
      {"label: dos\n", {"--type", "linux", "--name", "DATA"}, nullptr, nullptr},
      {"label: dos\n", {"--type", "fat16", "--format", "--name", "DATA"}, "MBR 0", "DATA"},
      {"label: dos\n", {"--type", "fat16", "--format"}, "MBR 0", ""},
      {"label: dos\nstart=2048,size=100M,type=5\n",
       {"--free", "1", "--type", "linux", "--name", "VOLUME"},
       "VOLUME",
       nullptr},
      {"label: dos\nstart=2048,size=100M,type=5\n",
       {"--free", "1", "--type", "linux", "--name", "NINEBYTES"},
       nullptr,
       nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.table + testing::PrintToString(c.words));
    const std::string path = newDisk("names.img", 200 * kMiB, c.table);
    const std::string before = fileHash(path);
    std::vector<std::string> words = {"create", path, "--size", "20", "--yes"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    const Ctl::Answer answer = ctl_.json(words);
    ASSERT_EQ(answer.status, c.name ? 0 : 1);
    if (!c.name) {
      EXPECT_EQ(std::string(answer.json["error"]["message"].GetString()).find("--"), 0u);
      EXPECT_EQ(fileHash(path), before);
      continue;
    }
    EXPECT_STREQ(answer.json["partition"]["name"].GetString(), c.name);
    const std::string listed = c.label && *c.label ? c.label : c.name;
    EXPECT_NE(ctl_.run({"list", path}).output.find(listed), std::string::npos);
    if (std::string(c.table) == "label: gpt\n") {
      EXPECT_EQ(readGpt(path)[0].name, c.name);
    }
    if (!c.label) continue;
    const std::string number = std::to_string(answer.json["partition"]["number"].GetUint());
    EXPECT_STREQ(
        ctl_.json({"info", path, "--part", number}).json["file_system"]["label"].GetString(),
        c.label);
  }
}

TEST_F(ChangeTest, TheOldTableIsKeptWhereItIsAskedFor) {
  const std::string path = newDisk("disk.img", 100 * kMiB, "label: dos\nsize=10M,type=83\n");
  const std::string copies = folder_.file("copies");
  const auto count = [](const std::string& folder) {
    return runProgram({"sh", "-c", "ls $1 2>/dev/null | wc -l", "sh", folder}).output;
  };
  ctl_.home().write("backup", "a file, where the folder belongs");
  const std::string before = fileHash(path);
  const ProgramResult refused = ctl_.run({"delete", path, "--part", "1", "--yes"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("--no-keep-table"), std::string::npos) << refused.output;
  EXPECT_NE(refused.output.find(ctl_.home().file("backup")), std::string::npos) << refused.output;
  EXPECT_EQ(fileHash(path), before);

  ctl_.expectDone({"set", path, "--part", "1", "--active", "--keep-table", copies});
  EXPECT_EQ(count(copies), "1\n");
  ctl_.expectDone({"delete", path, "--part", "1", "--no-keep-table"});
  EXPECT_EQ(count(copies), "1\n");
  EXPECT_EQ(ctl_.home().read("backup"), "a file, where the folder belongs");
}

// The change is made to the byte, whatever becomes of what is said about it.
TEST_F(ChangeTest, AnOutputThatFailsDoesNotUndoWhatIsDone) {
  const std::string path = newDisk("disk.img", 100 * kMiB, "label: dos\nsize=10M,type=83\n");
  const std::string twin = folder_.file("twin.img");
  ASSERT_EQ(runProgram({"cp", "--sparse=always", path, twin}).status, 0);
  ctl_.expectDone({"delete", twin, "--part", "1"});
  const auto redirected = [&](const std::vector<std::string>& words, const std::string& where) {
    std::vector<std::string> command = ctl_.command(words);
    command.insert(command.begin(), {"sh", "-c", "\"$@\" " + where, "sh"});
    return runProgram(command);
  };
  for (const std::string where : {">/dev/full", ">&-"}) {
    SCOPED_TRACE(where);
    const std::string copy = folder_.file("copy.img");
    ASSERT_EQ(runProgram({"cp", "--sparse=always", path, copy}).status, 0);
    const ProgramResult done = redirected({"delete", copy, "--part", "1", "--yes"}, where);
    EXPECT_EQ(done.status, 0);
    EXPECT_NE(done.output.find("The change was made"), std::string::npos) << done.output;
    EXPECT_EQ(runProgram({"cmp", copy, twin}).output, "");
  }
  EXPECT_EQ(redirected({"list", path}, ">/dev/full").status, 1);
}

TEST_F(ChangeTest, ASizeThatItsTypeCannotHaveIsSaidBeforeAnythingIsWritten) {
  const std::string path = newDisk("disk.img", 100 * kMiB);
  const std::string before = folder_.read("disk.img");
  const ProgramResult result =
      ctl_.run({"create", path, "--type", "fat32", "--size", "25", "--format", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("at least 66727 sectors"), std::string::npos) << result.output;
  EXPECT_EQ(folder_.read("disk.img"), before);
}

TEST_F(ChangeTest, ABlankImageBecomesAVolumeWithoutATableAndAnotherOne) {
  const std::string path = folder_.sparse("disk.img", 64 * kMiB);
  EXPECT_EQ(ctl_.run({"format", path, "--whole", "--yes"}).status, 1) << "nothing says the kind";
  const auto format = [&](const std::string& kind, std::vector<std::string> more) {
    std::vector<std::string> words = {"format", path, "--fs", kind, "--yes"};
    words.insert(words.end(), more.begin(), more.end());
    Ctl::Answer answer = ctl_.json(words);
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.json["partition"]["number"].GetUint(), 0u);
    EXPECT_EQ(answer.json["partition"]["fs"].GetString(), kind);
    EXPECT_EQ(runProgram({"fsck.fat", "-n", path}).status, 0);
    return answer;
  };
  const Ctl::Answer first = format("fat16", {"--whole"});
  EXPECT_STREQ(first.json["file_system"]["label"].GetString(), "");
  EXPECT_EQ(ctl_.run({"format", path, "--whole", "--yes"}).status, 0) << "it is one already";
  const Ctl::Answer other = format("fat32", {"--part", "0", "--label", "a long label!"});
  EXPECT_STREQ(other.json["partition"]["name"].GetString(), "A LONG LABE");
  EXPECT_EQ(other.json["notes"].Size(), 1u);
  const Ctl::Answer info = ctl_.json({"info", path, "--part", "0"});
  const auto& fat = info.json["file_system"];
  EXPECT_STREQ(fat["kind"].GetString(), "FAT32");
  EXPECT_EQ(fat["clusters"].GetUint(), fat["free_clusters"].GetUint() + 1) << "the root directory";
}

// Reads fail from some moment on: what is said is what is on the disk.
TEST_F(ChangeTest, ADiskThatCannotBeReadAfterAFormatIsFormattedAndNotEmpty) {
  if (!hasProgram("strace")) GTEST_SKIP() << "strace is not installed";
  const std::string path = newDisk("disk.img", 64 * kMiB, "label: dos\nstart=2048,type=6\n");
  const std::string copy = folder_.file("copy.img");
  std::size_t unread = 0;
  for (int reads = 8; reads < 40; ++reads) {
    SCOPED_TRACE(reads);
    ASSERT_EQ(runProgram({"cp", "--sparse=always", path, copy}).status, 0);
    std::vector<std::string> command =
        ctl_.command({"format", copy, "--part", "1", "--label", "NEW", "--yes"});
    command.insert(command.begin(),
                   {"env", "ASAN_OPTIONS=detect_leaks=0", "strace", "-f", "-o", "/dev/null", "-e",
                    "trace=pread64", "-e", format("inject=pread64:error=EIO:when=%d+", reads)});
    const ProgramResult result = runProgram(command);
    const std::string label = runProgram({"mlabel", "-s", "-i", copy + "@@1M", "::"}).output;
    EXPECT_EQ(result.status == 0, label.find("NEW") != std::string::npos) << result.output << label;
    EXPECT_EQ(result.output.find("no partition"), std::string::npos) << result.output;
    if (result.output.find("could not be read again") != std::string::npos) ++unread;
  }
  EXPECT_NE(unread, 0U);
}

TEST_F(ChangeTest, AKeptTableIsPutBackToTheByte) {
  const std::string path = newDisk("disk.img", 100 * kMiB, "label: dos\nsize=10M,type=83\n");
  const std::string kept = folder_.file("kept.tbk");
  ctl_.expectDone({"table", "backup", path, kept});
  const std::string before = fileHash(path);
  ctl_.expectDone({"delete", path, "--part", "1"});
  ASSERT_NE(fileHash(path), before);
  ctl_.expectDone({"table", "restore", path, kept, "--yes"});
  EXPECT_EQ(fileHash(path), before);
  EXPECT_EQ(ctl_.run({"table", "backup", path, kept}).status, 1)
      << "an existing file is not replaced unasked";
}

TEST_F(ChangeTest, DeleteClearsWhatItIsAskedToClear) {
  const std::string path =
      newDisk("disk.img", 64 * kMiB, "label: dos\nstart=2048,size=4096\nstart=8192,size=4096\n");
  ASSERT_EQ(runProgram({"sh", "-c",
                        "tr '\\0' x </dev/zero | dd of=\"$1\" bs=512 seek=2048 count=20000 "
                        "conv=notrunc iflag=fullblock",
                        "sh", path})
                .status,
            0);
  ctl_.expectDone({"delete", path, "--part", "1", "--wipe", "zero"});
  ctl_.expectDone({"delete", path, "--part", "2", "--clear-boot"});
  const std::string after = folder_.read("disk.img");
  for (const u64 sector : {2048U, 6143U, 8192U, 8192U + 128}) EXPECT_EQ(after[sector * 512], 0);
  for (const u64 sector : {6144U, 8191U, 8192U + 129}) EXPECT_EQ(after[sector * 512], 'x');
}

}  // namespace
}  // namespace tallowin
