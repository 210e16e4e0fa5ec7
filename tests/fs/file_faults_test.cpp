// Files are changed on a disk that fails, and while the power goes.
#include <algorithm>

#include <sstream>

#include "fs/fs_bench.h"
#include "support/fault_loops.h"

namespace tallowin {
namespace {

// One change, on a volume that holds the old files.
struct Change {
  const char* name;
  Failure (*run)(FileSystem& files);
  std::vector<std::string> about;     // how the paths begin that it changes
  std::vector<std::string> findings;  // what the checker may say of it when it was cut
};

constexpr u32 kCutsPerCheck = 23;

const std::string kOldContent = randomBytes(1, 3000);

Failure extendOld(FileSystem& files) {
  File file;
  if (const Failure failed =
          files.open("/grows", {.access = FileAccess::write, .append = true}, file))
    return failed;
  const std::string more = randomBytes(2, 5000);
  u64 done = 0;
  return file.write({reinterpret_cast<const u8*>(more.data()), more.size()}, done);
}

Failure shrinkOld(FileSystem& files) {
  File file;
  if (const Failure failed = files.open("/grows", {.access = FileAccess::write}, file))
    return failed;
  return file.setSize(600);
}

Failure createMany(FileSystem& files) {
  for (int i = 0; i < 12; ++i)
    if (const Failure failed = put(files, "/dir/a new file with a long name " + std::to_string(i),
                                   randomBytes(3, 700)))
      return failed;
  return {};
}

Failure deleteSome(FileSystem& files) {
  if (const Failure failed = files.deleteFile("/dir/gone one with a long name")) return failed;
  if (const Failure failed = files.removeDirectory("/empty")) return failed;
  // What was freed is not overwritten before it is free on the disk.
  return put(files, "/new", randomBytes(4, 3000));
}

Failure takeItsPlace(FileSystem& files) {
  if (const Failure failed = put(files, "/dir/a new one", randomBytes(6, 4000))) return failed;
  return files.replace("/dir/a new one", "/grows");
}

const std::vector<std::string> kTooLong = {"/GROWS", "cluster chain length is >",
                                           "Truncating file"};
const std::vector<std::string> kTwoNames = {"/GROWS",
                                            "/EMPTY",
                                            "/another name",
                                            "/DIR/GROWS.X",
                                            "/DIR/SUB",
                                            "share clusters",
                                            "Truncating second",
                                            "cluster chain length is 0",
                                            "Truncating file to 0",
                                            "Invalid '..' entry"};
const std::vector<std::string> kTwoLabels = {"label", "boot sector and its backup",
                                             "mostly harmless", "Not automatically", ":"};

const Change kChanges[] = {
    {"create", createMany, {"/dir/a new file"}, {}},
    {"replace",
     [](FileSystem& files) { return put(files, "/grows", randomBytes(5, 4000)); },
     {"/grows"},
     {}},
    {"takeItsPlace", takeItsPlace, {"/dir/a new one", "/grows"}, {}},
    {"extend", extendOld, {"/grows"}, kTooLong},
    {"shrink", shrinkOld, {"/grows"}, kTooLong},
    {"delete", deleteSome, {"/dir/gone one", "/empty", "/new"}, {}},
    {"make", [](FileSystem& files) { return files.makeDirectory("/dir/made"); }, {"/dir/made"}, {}},
    {"rename",
     [](FileSystem& files) { return files.move("/grows", "/another name for it"); },
     {"/grows", "/another name for it"},
     kTwoNames},
    {"move",
     [](FileSystem& files) { return files.move("/grows", "/dir/grows.x"); },
     {"/grows", "/dir/grows.x"},
     kTwoNames},
    {"moveDirectory",
     [](FileSystem& files) { return files.move("/empty", "/dir/sub"); },
     {"/empty/", "/dir/sub/"},
     kTwoNames},
    {"label", [](FileSystem& files) { return files.setLabel("NEW"); }, {}, kTwoLabels},
};

std::ostream& operator<<(std::ostream& out, const Change& change) { return out << change.name; }

using FaultCase = std::tuple<FsSample, Change>;
constexpr FsSample kFaultSamples[] = {{"fat12", "fat12", 0x01, 4000, 512},
                                      {"fat32", "fat32", 0x0B, 70000, 512}};

class FileFaultsTest : public testing::TestWithParam<FaultCase> {
 protected:
  void SetUp() override {
    if (!hasJudges()) GTEST_SKIP() << "needs dosfstools, mtools";
    std::unique_ptr<FileSystem> files = open(before_);
    for (const char* directory : {"/dir", "/empty"})
      ASSERT_EQ(Error::none, files->makeDirectory(directory));
    // So that directories have to grow, and chains are in pieces.
    for (int i = 0; i < 4; ++i)
      ASSERT_EQ(Error::none, put(*files, "/dir/file " + std::to_string(i), kOldContent));
    for (const char* path : {"/grows", "/old file", "/dir/gone one with a long name"})
      ASSERT_EQ(Error::none, put(*files, path, kOldContent));
    ASSERT_EQ(Error::none, files->sync());
    old_ = treeOf(*files);
    MemoryDisk after = before_.copy();
    files = open(after);
    ASSERT_EQ(Error::none, change().run(*files));
    ASSERT_EQ(Error::none, files->sync());
    new_ = treeOf(*files);
  }

  const FsSample& sample() const { return std::get<0>(GetParam()); }
  const Change& change() const { return std::get<1>(GetParam()); }
  std::unique_ptr<FileSystem> open(DiskDevice& disk) {
    std::unique_ptr<FileSystem> files;
    EXPECT_EQ(Error::none, openFiles(disk, sample(), files));
    return files;
  }

  // The older files are whole under their names, and the one that changes is there, with what it
  // held or with what it is to hold; when it may be cut also empty.
  enum class Cut { no, may };
  void judge(MemoryDisk& disk, Cut cut = Cut::no);
  void checkFindings(MemoryDisk& disk);
  bool isAbout(const std::string& path) const {
    return std::ranges::any_of(change().about,
                               [&](const std::string& about) { return path.starts_with(about); });
  }

  MemoryDisk before_ = formatted(sample());
  FileTree old_, new_;
};

INSTANTIATE_TEST_SUITE_P(Changes, FileFaultsTest,
                         testing::Combine(testing::ValuesIn(kFaultSamples),
                                          testing::ValuesIn(kChanges)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) + "_" +
                                  std::get<1>(test.param).name;
                         });

void FileFaultsTest::judge(MemoryDisk& disk, Cut cut) {
  const std::unique_ptr<FileSystem> files = open(disk);
  ASSERT_NE(nullptr, files);
  const FileTree found = treeOf(*files);
  for (const auto& [path, content] : old_)
    ASSERT_TRUE(isAbout(path) || (found.contains(path) && found.at(path) == content)) << path;
  bool isThere = false, wasThere = false;
  for (const std::string& path : change().about) {
    wasThere = wasThere || old_.contains(path);
    const auto in = found.find(path);
    if (in == found.end()) continue;
    const auto isIn = [&](const FileTree& tree) {
      return tree.contains(path) && tree.at(path) == in->second;
    };
    isThere = isThere || isIn(old_) || isIn(new_) || (cut == Cut::may && in->second.empty());
  }
  ASSERT_TRUE(isThere || !wasThere) << "the file that was to change is gone";
}

// Lost clusters, and what goes with a change that was cut; nothing about an older file.
void FileFaultsTest::checkFindings(MemoryDisk& disk) {
  static constexpr const char* kHarmless[] = {"fsck.fat ",
                                              "Dirty bit",
                                              "Automatically removing dirty",
                                              "Reclaimed ",
                                              "Free cluster summary",
                                              "Auto-setting",
                                              "Leaving filesystem",
                                              " clusters",
                                              "FATs differ",
                                              "Using first FAT"};
  std::istringstream lines(checkerSays(disk));
  for (std::string line; std::getline(lines, line);) {
    const auto says = [&](std::string_view text) { return line.find(text) != std::string::npos; };
    EXPECT_TRUE(line.empty() || std::ranges::any_of(kHarmless, says) ||
                std::ranges::any_of(change().findings, says))
        << line;
  }
}

TEST_P(FileFaultsTest, AFailedRequestIsToldAndLosesNothing) {
  forEachFault(before_, kFailedRequests, [this](FaultRound& round) {
    std::unique_ptr<FileSystem> files;
    round.begin();
    Failure failure = openFiles(round.disk(), sample(), files);
    if (!failure) failure = change().run(*files);
    if (!failure) failure = files->sync();
    if (round.isSound()) {
      ASSERT_EQ(Error::none, failure);
    }
    ASSERT_EQ(round.wasHit(), static_cast<bool>(failure));
    round.heal();
    judge(round.medium());
    if (!failure) {
      const auto now = open(round.medium());
      ASSERT_EQ(std::vector<std::string>(), differences(new_, treeOf(*now))) << "it told success";
      return;
    }
    // What is held back can still be written.
    if (files == nullptr) return;
    ASSERT_EQ(Error::none, files->sync());
    const FileTree tree = treeOf(*files);
    ASSERT_EQ(std::vector<std::string>(), differences(tree, treeOf(*open(round.medium()))));
    judge(round.medium(), Cut::may);
  });
}

TEST_P(FileFaultsTest, APowerCutLosesNoOlderFile) {
  u32 cuts = 0;
  forEachPowerCut(
      before_,
      [this](FaultRound& round) {
        std::unique_ptr<FileSystem> files;
        ASSERT_EQ(Error::none, openFiles(round.disk(), sample(), files));
        ASSERT_EQ(Error::none, change().run(*files));
        ASSERT_EQ(Error::none, files->sync());
      },
      [&](MemoryDisk& after) {
        judge(after);
        // The checker is a program, and there are many cuts.
        if (cuts++ % kCutsPerCheck != 0) return;
        checkFindings(after);
      });
}

}  // namespace
}  // namespace tallowin
