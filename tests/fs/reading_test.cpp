// Volumes that other programs have made and filled: one suite over all drivers, also those that
// only read.
#include "disk/faulty_disk.h"
#include "fs/fs_bench.h"
#include "support/disk_file.h"
#include "support/oracle.h"

namespace tallowin {
namespace {

struct MadeByOthers {
  const char* name;
  u32 sectorSize;
  const char* command;  // of a shell, with $image to be made of the folder $top
};
constexpr const char* kFat = "mkfs.fat $kind -C $image 70000 && mcopy -s -Q -i $image $top/* ::";
constexpr const char* kIso = "xorriso -as mkisofs -quiet -J -joliet-long -o $image $top";
constexpr MadeByOthers kMade[] = {
    {"fat16", 512, "kind=-F16"},
    {"fat32", 512, "kind='-F32 -s1'"},
    {"iso", 2048, nullptr},
    {"isoOf512ByteSectors", 512, nullptr},
};

class ReadingTest : public testing::TestWithParam<MadeByOthers> {
 protected:
  void SetUp() override {
    if (!hasJudges() || !hasProgram("xorriso")) GTEST_SKIP() << "needs dosfstools, mtools, xorriso";
    storeSampleTree(top());
    const char* kind = GetParam().command;
    const std::string script =
        "export LC_ALL=C.UTF-8 image=$0 top=$1 " +
        (kind ? std::string(kind) + " && " + kFat : "; " + std::string(kIso));
    const std::string image = folder_.file("image");
    const ProgramResult made = runProgram({"sh", "-c", script, image, top().string()});
    ASSERT_EQ(0, made.status) << made.output;
    disk_.reset(new MemoryDisk(loadDisk(image, GetParam().sectorSize)));
  }

  std::filesystem::path top() const { return folder_.file("tree"); }

  TempFolder folder_;
  std::unique_ptr<MemoryDisk> disk_;
  std::unique_ptr<FileSystem> files_;
};

INSTANTIATE_TEST_SUITE_P(Drivers, ReadingTest, testing::ValuesIn(kMade),
                         [](const auto& made) { return std::string(made.param.name); });

TEST_P(ReadingTest, EverythingIsReadAsItWasWritten) {
  ASSERT_EQ(Error::none, openFound(*disk_, files_));
  EXPECT_EQ(std::vector<std::string>(), differences(hostTree(top()), treeOf(*files_)));
  FileInfo info, same;
  EXPECT_EQ(Error::none, files_->info("/MANY/file NUMBER 7", info));
  EXPECT_EQ(10U + 13 * 7, info.sizeBytes);
  EXPECT_EQ(Error::none, files_->info("/many/" + info.shortName, same));
  EXPECT_EQ(info.id, same.id);
  EXPECT_EQ(Error::noSuchFile, files_->info("/many/File number 150", info));
}

TEST_P(ReadingTest, NothingCanBeChanged) {
  const MemoryDisk before = disk_->copy();
  ASSERT_EQ(Error::none, openFound(*disk_, files_));
  File file;
  EXPECT_EQ(Error::accessDenied,
            files_->open("/new", {.access = FileAccess::write, .create = true}, file));
  EXPECT_EQ(Error::accessDenied, files_->open("/empty", {.access = FileAccess::write}, file));
  EXPECT_EQ(Error::accessDenied, files_->makeDirectory("/new"));
  EXPECT_EQ(Error::accessDenied, files_->removeDirectory("/many"));
  EXPECT_EQ(Error::accessDenied, files_->deleteFile("/empty"));
  EXPECT_EQ(Error::accessDenied, files_->move("/empty", "/full"));
  EXPECT_EQ(75U, codeOf(files_->setLabel("NEW")));
  ASSERT_EQ(Error::none, files_->open("/empty", {}, file));
  u64 done = 0;
  EXPECT_EQ(Error::accessDenied, file.write(std::vector<u8>(10), done));
  EXPECT_EQ(Error::accessDenied, file.setSize(10));
  EXPECT_EQ(Error::accessDenied, file.setAttributes(0));
  ASSERT_EQ(Error::none, file.close());
  ASSERT_EQ(Error::none, files_->sync());
  EXPECT_TRUE(before.sameContent(*disk_));
}

TEST_P(ReadingTest, WhatCannotBeReadIsTold) {
  FaultyDisk counted(*disk_);
  FileTree tree;
  ASSERT_EQ(Error::none, openFound(counted, files_));
  ASSERT_EQ(Error::none, addTree(*files_, "/", tree));
  const u64 reads = counted.reads();
  for (u64 n = 0; n < reads; n += 1 + reads / 40) {
    files_.reset();
    FaultyDisk faulty(*disk_);
    faulty.failRead(n, true);
    tree.clear();
    Failure failed = openFound(faulty, files_);
    if (!failed) failed = addTree(*files_, "/", tree);
    EXPECT_TRUE(failed) << n;
    files_.reset();
  }
}

}  // namespace
}  // namespace tallowin
