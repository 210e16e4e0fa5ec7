// Block devices as targets, and what this machine uses of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <optional>

#include "cli/ctl.h"
#include "support/loop_device.h"

namespace tallowin {
namespace {

constexpr u32 kExtended = 0x05;

u64 numberIn(const std::string& path) {
  u64 number = 0;
  std::ifstream(path) >> number;
  return number;
}

// A loop device with an empty table, made from an image of the test's own folder.
class DeviceTest : public testing::TestWithParam<u32> {
 protected:
  void SetUp() override {
    TALLOWIN_NEEDS_LOOP_DEVICES();
    image_ = folder_.sparse("disk.img", sizeBytes());
    loop_.emplace(image_, sectorSize());
    ASSERT_NE(path(), "");
    ASSERT_EQ(makeTable(path(), "label: dos\nlabel-id: 0x12345678\n"), "");
  }
  virtual u32 sectorSize() const { return GetParam(); }
  virtual u64 sizeBytes() const { return kGiB; }
  const std::string& path() const { return loop_->path(); }

  // Sound, and the same to the other program, to ours and to the kernel.
  void step(std::vector<std::string> words) {
    SCOPED_TRACE(testing::PrintToString(words));
    words.insert(words.begin() + 1, path());
    ctl_.expectDone(words);
    const SfdiskTable table = readTable(path());
    EXPECT_EQ(table.problems, "");
    EXPECT_EQ(rowsByCtl(ctl_, path()), table.rows);
    EXPECT_EQ(rowsByKernel(table), table.rows);
  }
  std::vector<SfdiskRow> rowsByKernel(const SfdiskTable& table) const {
    std::vector<SfdiskRow> rows = table.rows;
    const u64 scale = sectorSize() / 512;
    const std::string name = path().substr(path().rfind('/') + 1);
    for (SfdiskRow& row : rows) {
      std::string folder = "/sys/block/";
      folder += name + "/" + name + "p" + std::to_string(row.number);
      row.start = numberIn(folder + "/start") / scale;
      // Of an extended partition the kernel shows no more than what a boot loader may take.
      if (row.type != kExtended) row.size = numberIn(folder + "/size") / scale;
    }
    EXPECT_EQ(runProgram({"sh", "-c", "ls /sys/block/$1 | grep -c ^$1p", "sh", name}).output,
              std::to_string(rows.size()) + "\n");
    return rows;
  }
  // A file goes in and comes back by another program, and the file system stays sound.
  void expectUsableFat(int number) const {
    const std::string node = loop_->partition(number);
    folder_.write("words", "some words\n");
    ASSERT_EQ(runProgram({"mcopy", "-i", node, folder_.file("words"), "::words.txt"}).status, 0);
    const ProgramResult read = runProgram({"mtype", "-i", node, "::words.txt"});
    EXPECT_NE(read.output.find("some words\n"), std::string::npos) << read.output;
    const ProgramResult checked = runProgram({"fsck.fat", "-n", node});
    EXPECT_EQ(checked.status, 0) << checked.output;
  }

  TempFolder folder_;
  Ctl ctl_{Ctl::Devices::shown};
  std::string image_;
  std::optional<LoopDevice> loop_;
};

TEST_P(DeviceTest, EveryStepIsSoundToOtherProgramsAndTheKernel) {
  const Ctl::Answer empty = ctl_.json({"list", path()});
  EXPECT_EQ(empty.json["sector_size"].GetUint(), sectorSize());
  EXPECT_EQ(empty.json["sectors"].GetUint64(), sizeBytes() / sectorSize());
  step({"create", "--type", "fat16", "--size", "150", "--before", "0", "--format"});
  expectUsableFat(1);
  step({"create", "--type", "extended", "--size", "800"});
  step({"create", "--type", "fat32", "--size", "350", "--name", "LETTERS", "--format"});
  expectUsableFat(5);
  step({"create", "--type", "linux", "--size", "100", "--name", "HOME"});
  step({"create", "--type", "swap", "--size", "60", "--name", "SWAP", "--after", "0"});
  step({"delete", "--part", "6", "--yes"});
  step({"format", "--part", "5", "--fs", "fat16", "--label", "AGAIN", "--scan", "--yes"});
  expectUsableFat(5);
  EXPECT_EQ(sfdiskRow(path(), 5).type, 0x06u);
  step({"delete", "--part", "2", "--yes"});
  step({"delete", "--part", "1", "--yes"});
}

INSTANTIATE_TEST_SUITE_P(SectorSizes, DeviceTest, testing::Values(512, 4096));

class MountedTest : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_EQ(makeTable(path(),
                        "label: dos\nsize=10M,type=83\nsize=10M,type=6\ntype=5\n"
                        "v5: size=10M,type=83\nv6: size=10M,type=6\n"),
              "");
    ASSERT_TRUE(loop_->addPartitions());
    for (const int number : {1, 5})
      ASSERT_EQ(runProgram({"mkfs.ext4", "-q", loop_->partition(number)}).status, 0);
  }
  u32 sectorSize() const override { return 512; }
  u64 sizeBytes() const override { return 64 * kMiB; }

  // Refused for the mount, by one line that says what to do, with nothing changed.
  void expectRefused(const std::vector<std::string>& words, const std::string& why) {
    for (const std::string& target : {path(), image_}) {
      std::vector<std::string> command = words;
      std::ranges::replace(command, std::string("TARGET"), target);
      SCOPED_TRACE(testing::PrintToString(command));
      const std::string before = fileHash(path());
      const ProgramResult result = ctl_.run(command);
      EXPECT_EQ(result.status, 1);
      EXPECT_EQ(result.output,
                "tallowinctl " + words[0] + ": Error: " + why + " (error 207, phase 0)\n");
      EXPECT_EQ(fileHash(path()), before);
    }
  }
};

TEST_F(MountedTest, WhatIsMountedIsRefusedAlsoBehindAnImage) {
  const std::string first = folder_.file("first place");
  const std::string fifth = folder_.file("fifth");
  const TestMount primary(loop_->partition(1), first);
  const TestMount volume(loop_->partition(5), fifth);
  ASSERT_TRUE(primary.isMounted() && volume.isMounted());
  const auto mounted = [](const std::string& place) {
    return "The partition is mounted in Linux as " + place + ". Please umount it and try again.";
  };
  expectRefused({"delete", "TARGET", "--part", "1", "--yes"}, mounted(first));
  expectRefused({"delete", "TARGET", "--part", "1", "--wipe", "--yes"}, mounted(first));
  expectRefused({"format", "TARGET", "--part", "1", "--fs", "fat16", "--yes"}, mounted(first));
  expectRefused({"delete", "TARGET", "--part", "5", "--yes"}, mounted(fifth));
  // With it would go the volume that is mounted.
  expectRefused({"delete", "TARGET", "--part", "3", "--yes"}, mounted(fifth));
  const std::string kept = folder_.file("kept.tbk");
  ASSERT_EQ(ctl_.run({"table", "backup", path(), kept}).status, 0);
  expectRefused({"table", "restore", "TARGET", kept, "--yes"},
                "This drive contains mounted partitions. Please umount them and try again.");

  // What lies beside it is free.
  for (const char* number : {"2", "6"})
    EXPECT_EQ(ctl_.run({"format", path(), "--part", number, "--yes"}).status, 0) << number;
  EXPECT_EQ(ctl_.run({"delete", path(), "--part", "6", "--yes"}).status, 0);
  EXPECT_EQ(readTable(path()).problems, "");
  EXPECT_EQ(runProgram({"ls", first}).output, "lost+found\n");
}

}  // namespace
}  // namespace tallowin
