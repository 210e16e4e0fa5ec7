// Trees are copied while disks fail, while the user stops, and while the power goes.
#include "ops/copy_files.h"

#include <algorithm>
#include <filesystem>

#include "disk/faulty_disk.h"
#include "fs/content_proof.h"
#include "fs/fs_bench.h"
#include "support/fault_loops.h"

namespace tallowin {
namespace {

constexpr FsSample kVolume = {"fat12", "fat12", 0x01, 32000, 4096};
constexpr u32 kCutsPerCheck = 37;

class CopyFilesTest : public testing::Test {
 protected:
  CopyFilesTest() {
    for (const auto& [path, content] : tree_)
      if (!path.ends_with('/')) host_.write("tree" + path, content);
    std::unique_ptr<FileSystem> files;
    EXPECT_EQ(Error::none, openFiles(before_, kVolume, files));
    EXPECT_EQ(Error::none, put(*files, "/older", kOld));
    EXPECT_EQ(Error::none, files->makeDirectory("/sub"));
    EXPECT_EQ(Error::none, put(*files, "/sub/replaced", kOld));
    EXPECT_EQ(Error::none, files->sync());
  }

  CopyWish wish() const { return {.from = host_.file("tree/."), .to = "/", .overwrite = true}; }
  Failure copy(DiskDevice& disk, Job& job, std::unique_ptr<FileSystem>& files) {
    CopyReport report;
    if (const Failure failed = openFiles(disk, kVolume, files)) return failed;
    const FileFailure failed = copyIn(*files, wish(), job, report);
    const Failure unsynced = files->sync();
    return failed ? failed.failure : unsynced;
  }
  // Under the names of the tree are whole files or none, and the older ones are there.
  void judge(DiskDevice& disk) {
    std::unique_ptr<FileSystem> files;
    ASSERT_EQ(Error::none, openFiles(disk, kVolume, files));
    const FileTree found = treeOf(*files);
    EXPECT_EQ(kOld, found.at("/older"));
    EXPECT_TRUE(found.contains("/sub/replaced"));
    for (const auto& [path, content] : found) {
      if (path.ends_with('/') || path == "/older" || path.ends_with(".TMP")) continue;
      const bool isOld = path == "/sub/replaced" && content == kOld;
      EXPECT_TRUE(isOld || (tree_.contains(path) && tree_.at(path) == content)) << path;
    }
  }

  const std::string kOld = randomBytes(1, 9000);
  const FileTree tree_ = {{"/large one", randomBytes(2, 4 * kMiB + 5000)},
                          {"/small", randomBytes(3, 600)},
                          {"/sub/another small one", randomBytes(4, 7000)},
                          {"/sub/replaced", randomBytes(5, 3000)},
                          {"/sub/", ""}};
  TempFolder host_;
  MemoryDisk before_ = formatted(kVolume);
};

TEST_F(CopyFilesTest, WhatFailsOrIsStoppedLeavesWholeFiles) {
  static constexpr Fault::Kind kKinds[] = {Fault::Kind::read, Fault::Kind::write,
                                           Fault::Kind::flush, Fault::Kind::cancel};
  forEachFault(before_, kKinds, [this](FaultRound& round) {
    std::unique_ptr<FileSystem> files;
    round.begin();
    const Failure failure = copy(round.disk(), round.job(), files);
    ASSERT_EQ(round.wasHit(), static_cast<bool>(failure));
    if (round.fault().kind == Fault::Kind::cancel && failure) {
      ASSERT_EQ(Error::cancelled, failure);
      EXPECT_EQ("", treeOf(*files).contains("/~TLWN000.TMP") ? "half a file is left" : "");
    }
    round.heal();
    if (files && failure && failure != Error::cancelled) {
      ASSERT_EQ(Error::none, files->sync());
    }
    files.reset();
    judge(round.medium());
  });
}

TEST_F(CopyFilesTest, APowerCutLeavesWholeFiles) {
  if (!hasJudges()) GTEST_SKIP() << "needs dosfstools, mtools";
  u32 cuts = 0;
  forEachPowerCut(
      before_,
      [this](FaultRound& round) {
        std::unique_ptr<FileSystem> files;
        ASSERT_EQ(Error::none, copy(round.disk(), round.job(), files));
      },
      [&](MemoryDisk& after) {
        judge(after);
        if (cuts++ % kCutsPerCheck != 0) return;
        const std::string findings = checkerSays(after);
        for (const char* bad : {"OLDER", "older", "Truncating"})
          EXPECT_EQ(std::string::npos, findings.find(bad)) << findings;
      });
}

TEST_F(CopyFilesTest, WhatIsCopiedOutIsWholeOrNotThere) {
  SilentJob silent;
  std::unique_ptr<FileSystem> files;
  ASSERT_EQ(Error::none, copy(before_, silent, files));
  files.reset();
  static constexpr Fault::Kind kKinds[] = {Fault::Kind::read, Fault::Kind::cancel};
  forEachFault(before_, kKinds, [this](FaultRound& round) {
    const TempFolder out;
    CopyReport report;
    std::unique_ptr<FileSystem> volume;
    round.begin();
    Failure failure = openFiles(round.disk(), kVolume, volume, {});
    if (!failure)
      failure = copyOut(*volume, {.from = "/", .to = out.path()}, round.job(), report).failure;
    ASSERT_EQ(round.wasHit(), static_cast<bool>(failure));
    u64 whole = 0;
    for (const auto& found : std::filesystem::recursive_directory_iterator(out.path())) {
      if (found.is_directory()) continue;
      const std::string path = found.path().string().substr(out.path().size());
      const std::string content = out.read(path);
      EXPECT_TRUE(path == "/older" ? content == kOld
                                   : tree_.contains(path) && tree_.at(path) == content)
          << path;
      ++whole;
    }
    EXPECT_EQ(report.files, whole);
    EXPECT_TRUE(failure || whole == 5);
  });
}

// A sector that cannot be read costs the file that it is of, where the user goes on.
TEST_F(CopyFilesTest, WhatCannotBeReadIsLeftOutWhenThatIsWished) {
  class Ignoring : public SilentJob {
    BadSectorAnswer badSector(const Failure&, Direction) override {
      return BadSectorAnswer::passOverAll;
    }
  };
  FaultyDisk faulty(before_);
  for (u64 lba = 0; lba < kVolume.sectors; ++lba)
    if (std::ranges::equal(before_.sector(lba), kOld.substr(0, 512),
                           [](u8 a, char b) { return a == static_cast<u8>(b); }))
      faulty.failReadsOf({lba, lba});
  std::unique_ptr<FileSystem> files;
  ASSERT_EQ(Error::none, openFiles(faulty, kVolume, files));
  ASSERT_EQ(Error::none, put(*files, "/whole", "whole"));
  const TempFolder out;
  CopyReport report;
  SilentJob silent;
  Ignoring ignoring;
  const CopyWish wish = {.from = "/", .to = out.path(), .overwrite = true};
  EXPECT_EQ(Error::read, copyOut(*files, wish, silent, report).failure);
  EXPECT_EQ(Error::none, copyOut(*files, wish, ignoring, report).failure);
  ASSERT_EQ(2U, report.leftOut.size());
  EXPECT_EQ("/sub/replaced", report.leftOut[1].path);
  EXPECT_EQ("whole", out.read("whole"));
  EXPECT_FALSE(std::filesystem::exists(out.file("older")));
}

// "AVERYL~1.TXT" is the short name that a long one is given.
TEST_F(CopyFilesTest, AShortNameIsNotTakenForTheFileOfAnotherName) {
  const TempFolder both;
  both.write("AVERYLONGNAME.TXT", "long");
  both.write("AVERYL~1.TXT", "short");
  for (const bool overwrite : {false, true}) {
    SilentJob job;
    CopyReport report;
    std::unique_ptr<FileSystem> files;
    ASSERT_EQ(Error::none, openFiles(before_, kVolume, files));
    const CopyWish wish = {.from = both.path() + "/.", .to = "/", .overwrite = overwrite};
    EXPECT_EQ(Error::sameName, copyIn(*files, wish, job, report).failure);
    ASSERT_EQ(Error::none, files->deleteFile("/AVERYL~1.TXT"));
    ASSERT_EQ(Error::none, put(*files, "/AVERYLONGNAME.TXT", kOld));
    ASSERT_EQ(Error::none, files->sync());
  }
}

TEST_F(CopyFilesTest, ALinkBelowTheTargetLeadsNowhere) {
  const TempFolder out, elsewhere;
  std::filesystem::create_directory_symlink(elsewhere.path(), out.file("sub"));
  SilentJob job;
  CopyReport report;
  std::unique_ptr<FileSystem> files;
  ASSERT_EQ(Error::none, openFiles(before_, kVolume, files, {}));
  const CopyWish wish = {.from = "/", .to = out.path(), .overwrite = true};
  EXPECT_EQ(Error::alreadyExists, copyOut(*files, wish, job, report).failure);
  EXPECT_TRUE(std::filesystem::is_empty(elsewhere.path()));
}

TEST_F(CopyFilesTest, AProofIsTheSameAsTextAndNoticesEachChange) {
  SilentJob job;
  std::unique_ptr<FileSystem> files;
  ContentProof before, after;
  ASSERT_EQ(Error::none, openFiles(before_, kVolume, files));
  ASSERT_EQ(Error::none, proveContent(*files, "/", job, before).failure);
  const auto parsed = parseProof(proofText(before));
  ASSERT_TRUE(parsed.has_value());
  EXPECT_TRUE(compareProofs(before, *parsed).isSame());
  EXPECT_EQ("2 files, 2 identical", comparisonText(compareProofs(before, *parsed)));
  EXPECT_EQ(proofText(before), proofText(*parsed));
  const std::string noHash(32, '-');
  for (const std::string& text : {std::string("x"), std::string("00 1 - /a\n"), std::string("\n"),
                                  noHash + " 1 - /a\n", std::string(32, '0') + " 0 - /a/\n"})
    EXPECT_FALSE(parseProof(text)) << text;

  File file;
  u64 done = 0;
  const u8 byte = static_cast<u8>(~kOld[4000]);
  ASSERT_EQ(Error::none, files->open("/older", {.access = FileAccess::write}, file));
  ASSERT_EQ(Error::none, file.seek(4000));
  ASSERT_EQ(Error::none, file.write({&byte, 1}, done));
  ASSERT_EQ(Error::none, files->open("/sub/replaced", {.access = FileAccess::write}, file));
  ASSERT_EQ(Error::none, file.setTimes({0, 0, fileTimeOfUnixSeconds(1'000'000'000)}));
  ASSERT_EQ(Error::none, file.close());
  ASSERT_EQ(Error::none, files->makeDirectory("/zzz"));
  ASSERT_EQ(Error::none, proveContent(*files, "/", job, after).failure);
  std::string changes;
  for (const ProofDifference& difference : compareProofs(before, after).differences)
    changes += std::string(changeWord(difference.change)) + " " + difference.path + "\n";
  EXPECT_EQ("changed /older\ntime /sub/replaced\nadded /zzz/\n", changes);
}

}  // namespace
}  // namespace tallowin
