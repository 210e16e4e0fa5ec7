// What is wrong, in use or not asked for changes nothing, and says so.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "cli/ctl.h"

namespace tallowin {
namespace {

class RefusalTest : public testing::Test {
 protected:
  RefusalTest() {
    EXPECT_EQ(runProgram({"sfdisk", "-q", path_},
                         "label: dos\nsize=10M,type=6\ntype=5\nv5: size=10M,type=83\n")
                  .status,
              0);
  }
  std::vector<std::string> onDisk(std::vector<std::string> words) {
    for (std::string& word : words)
      if (word == "DISK") word = path_;
    return words;
  }

  TempFolder folder_;
  Ctl ctl_;
  std::string path_ = folder_.sparse("disk.img", 100 * kMiB);
};

TEST_F(RefusalTest, NothingIsChangedAndOneLineSaysWhy) {
  const std::vector<std::vector<std::string>> cases = {
      {"delete", "DISK", "--part", "1"},  // no --yes, no terminal
      {"format", "DISK", "--part", "1"},
      {"create", "DISK", "--type", "linux", "--size", "5"},
      {"delete", "DISK", "--part", "4", "--yes"},
      {"set", "DISK", "--part", "2", "--type", "0x0F", "--yes"},  // it holds a volume
      {"set", "DISK", "--part", "2", "--hide", "--yes"},
      {"format", "DISK", "--part", "5", "--yes"},  // not a type to format
      {"format", "DISK", "--part", "2", "--yes"},
      {"format", "DISK", "--part", "1", "--fs", "fat12", "--cluster", "1KiB", "--yes"},
      {"create", "DISK", "--type", "linux", "--size", "5", "--free", "9"},
      {"create", "DISK", "--type", "linux", "--size", "5000"},
      {"create", "DISK", "--type", "fat12", "--size", "20"},
      {"create", "DISK", "--type", "extended", "--size", "5"},  // inside an extended partition
      {"create", "DISK", "--type", "300", "--size", "5"},
      {"create", "DISK", "--type", "linux", "--size", "5", "--format"},
      {"table", "restore", "DISK", "DISK", "--yes"},
      {"table", "backup", "DISK", "DISK", "--yes"},
      {"table", "backup", "DISK", folder_.file("link"), "--yes"},   // leads to the disk
      {"table", "backup", "DISK", folder_.file("other"), "--yes"},  // holds something else
      {"table", "backup", "DISK", folder_.path(), "--yes"},
      {"info", "DISK", "--part", "9"},
      {"list", "/nonexistent/disk.img"},
      {"list", "/"},
      {"list", "/dev/null"},
  };
  std::filesystem::create_symlink("disk.img", folder_.file("link"));
  folder_.write("other", "mine");
  const std::string before = fileHash(path_);
  for (const auto& words : cases) {
    const ProgramResult result = ctl_.run(onDisk(words));
    EXPECT_EQ(result.status, 1) << testing::PrintToString(words) << result.output;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    EXPECT_EQ(result.output.find("tallowinctl " + words[0] + ": "), 0u) << result.output;
    EXPECT_EQ(fileHash(path_), before) << testing::PrintToString(words);
  }
  EXPECT_EQ(folder_.read("other"), "mine");
}

// What only looks free, or like one thing and is another.
TEST_F(RefusalTest, WhatOtherProgramsKeepWhereATableCouldGoIsNotOverwritten) {
  const auto expectUntouched = [&](std::vector<std::string> words, const std::string& said) {
    const std::string before = fileHash(path_);
    words.insert(words.begin() + 1, path_);
    words.push_back("--yes");
    const ProgramResult result = ctl_.run(words);
    EXPECT_EQ(result.status, 1) << testing::PrintToString(words);
    EXPECT_NE(result.output.find(said), std::string::npos) << result.output;
    EXPECT_EQ(fileHash(path_), before) << testing::PrintToString(words);
  };
  const auto put = [&](u64 offset, const std::string& bytes) {
    std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(offset))
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  };
  const std::vector<std::string> createInside = {"create", "--type", "linux", "--size",
                                                 "3",      "--free", "1"};
  for (const char* type : {"5", "15", "1f"}) {
    makeTable(path_, std::string("label: dos\nstart=2048,size=40960,type=") + type + "\n");
    ASSERT_EQ(runProgram({"mkfs.fat", "-F16", "--offset", "2048", path_, "20480"}).status, 0);
    expectUntouched(createInside, "it holds a file system");
    put(kMiB, std::string("LUKS\xBA\xBE", 6) + std::string(506, '\0'));
    expectUntouched(createInside, "it holds a LUKS container");
  }
  makeTable(path_, "label: dos\n2:start=2048,size=40960,type=5\n");
  expectUntouched({"create", "--type", "extended", "--size", "3", "--free", "2"},
                  "has an extended partition");

  // The core of a boot loader, which a fine alignment lets appear as free.
  makeTable(path_, "label: dos\nstart=2048,size=40960,type=83\n");
  put(512, std::string(20 * 512, 'x'));
  ASSERT_EQ(ctl_.run({"settings", "GlobalGeoAlignVal=512"}).status, 0);
  ASSERT_EQ(ctl_.run({"settings", "GlobalGeoAlign2K=0"}).status, 0);
  expectUntouched({"create", "--type", "linux", "--size", "100s", "--free", "1"},
                  "would overwrite data of another program");

  put(0, std::string("LUKS\xBA\xBE", 6) + std::string(506, '\0'));
  for (const std::vector<std::string>& change :
       {std::vector<std::string>{"--boot-code", "standard"}, {"--signature", "7"}}) {
    std::vector<std::string> words = {"mbr"};
    words.insert(words.end(), change.begin(), change.end());
    expectUntouched(words, "it holds a LUKS container");
  }
}

TEST_F(RefusalTest, ABootSectorThatIsATableTooIsChangedByNobody) {
  ASSERT_EQ(runProgram({"mkfs.fat", "-F16", path_}).status, 0);
  ASSERT_EQ(runProgram({"sfdisk", "-q", "--wipe", "never", path_},
                       "label: dos\nstart=2048,size=40960,type=83\n")
                .status,
            0);
  const std::string before = fileHash(path_);
  for (const char* words :
       {"format DISK --part 0 --yes", "delete DISK --part 0 --yes", "convert DISK --to mbr --yes",
        "format DISK --whole --fs fat16 --yes", "label DISK --part 0 NEW --yes",
        "files DISK --part 0 mkdir /d --yes", "create DISK --type linux --size 3 --yes"}) {
    EXPECT_EQ(ctl_.run(onDisk(tallowin::words(words))).status, 1) << words;
    EXPECT_EQ(fileHash(path_), before) << words;
  }
  const std::string twin = folder_.file("twin.img");
  ASSERT_EQ(runProgram({"cp", "--sparse=always", path_, twin}).status, 0);
  ctl_.expectDone({"mbr", path_, "--delete-slot", "1", "--yes"});
  EXPECT_STREQ(ctl_.json({"list", path_}).json["scheme"].GetString(), "VOL");
  EXPECT_EQ(runProgram({"fsck.fat", "-n", path_}).status, 0);
  ctl_.expectDone({"mbr", twin, "--boot-code", "standard", "--yes"});
  EXPECT_STREQ(ctl_.json({"list", twin}).json["scheme"].GetString(), "MBR");
}

TEST_F(RefusalTest, WrongUsageIsTwo) {
  const std::vector<std::vector<std::string>> cases = {
      {"polish", "DISK"},
      {"list"},
      {"list", "DISK", "--bright"},
      {"list", "DISK", "--sector-size", "513"},
      {"delete", "DISK", "--part", "1", "--keep-table", "x", "--no-keep-table"},
      {"delete", "DISK", "--part", "1", "--keep-table", "", "--yes"},
      {"delete", "DISK"},
      {"delete", "DISK", "--part", "one"},
      {"delete", "DISK", "--part", "1", "--wipe", "twice"},
      {"create", "DISK", "--type", "fat16"},
      {"create", "DISK", "--type", "fat17", "--size", "5"},
      {"create", "DISK", "--type", "fat16", "--size", "5MB"},
      {"create", "DISK", "--type", "fat16", "--size", "5", "--before", "1", "--after", "1"},
      {"create", "DISK", "--type", "fat16", "--size", "5", "--cluster", "2KiB"},
      {"format", "DISK", "--part", "1", "--cluster", "3KiB", "--yes"},
      {"format", "DISK", "--part", "1", "--fs", "ntfs", "--yes"},
      {"table", "polish", "DISK", "file"},
      {"settings", "NoSuchKey"},
      {"settings", "TimeOut=soon"},
  };
  const std::string before = fileHash(path_);
  for (const auto& words : cases)
    EXPECT_EQ(ctl_.run(onDisk(words)).status, 2) << testing::PrintToString(words);
  EXPECT_EQ(runProgram({TALLOWINCTL}).status, 2);
  EXPECT_EQ(fileHash(path_), before);
}

TEST_F(RefusalTest, FailuresAreJsonToo) {
  for (const auto& words : {onDisk({"delete", "DISK", "--part", "1"}), onDisk({"list"})}) {
    const Ctl::Answer answer = ctl_.json(words);
    EXPECT_NE(answer.status, 0);
    EXPECT_FALSE(answer.json["ok"].GetBool());
    for (const char* key : {"code", "phase", "message"})
      EXPECT_TRUE(answer.json["error"].HasMember(key)) << key;
  }
}

TEST_F(RefusalTest, HiddenDevicesAreNotOpened) {
  const Ctl::Answer none = ctl_.json({"devices"});
  EXPECT_EQ(none.status, 0);
  EXPECT_EQ(none.json["devices"].Size(), 0u);
  const std::string link = folder_.file("link.img");
  ASSERT_EQ(runProgram({"ln", "-s", "/dev/null", link}).status, 0);
  EXPECT_EQ(ctl_.run({"list", link}).status, 1);
  const std::string file = "/dev/shm/" + folder_.path().substr(folder_.path().rfind('/') + 1);
  if (runProgram({"cp", "--sparse=always", path_, file}).status == 0) {
    EXPECT_EQ(ctl_.run({"list", file}).status, 0) << "a file below /dev is a file";
  }
  std::filesystem::remove(file);
  if (!hasProgram("strace")) GTEST_SKIP() << "strace is not installed";
  const ProgramResult traced =
      runProgram({"strace", "-f", "-e", "trace=open,openat", TALLOWINCTL, "devices", "-nd"});
  EXPECT_EQ(traced.output.find("\"/dev/"), std::string::npos) << traced.output;
}

// Files that are no image, or were one: an end in good time, with a line that says what is wrong.
TEST_F(RefusalTest, HostileFilesAreRefusedOrListed) {
  struct Hostile {
    const char* name;
    // A shell script that makes the file "$1"; "$2" is a sound raw image.
    const char* script;
    int status;
  };
  const Hostile cases[] = {
      {"empty", ": >$1", 1},
      {"less than a sector", "head -c 100 /dev/urandom >$1", 1},
      {"a pipe that nobody fills", "mkfifo $1", 1},
      {"a link to itself", "ln -s $1 $1", 1},
      {"noise", "head -c 3000000 /dev/urandom >$1", 0},
      {"half a VHD", "qemu-img convert -O vpc $2 $1; truncate -s 3000 $1", 1},
      {"half a VMDK", "qemu-img convert -O vmdk $2 $1; truncate -s 70000 $1", 1},
  };
  for (const Hostile& hostile : cases) {
    SCOPED_TRACE(hostile.name);
    const std::string file = folder_.file("hostile");
    ASSERT_EQ(runProgram({"sh", "-c", hostile.script, "sh", file, path_}).status, 0);
    for (const auto& words :
         {std::vector<std::string>{"list", file}, {"delete", file, "--part", "1", "--yes"}}) {
      const ProgramResult result = ctl_.run(words);
      EXPECT_EQ(result.status, words[0] == "list" ? hostile.status : 1) << result.output;
      if (result.status == 1) {
        EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
      }
    }
    ASSERT_EQ(runProgram({"rm", file}).status, 0);
  }
}

}  // namespace
}  // namespace tallowin
