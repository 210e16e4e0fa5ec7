// What every driver does: one suite over all of them. Each test ends with what others say.
#include "fs/file_system.h"

#include <algorithm>

#include "disk/faulty_disk.h"
#include "fs/fs_bench.h"
#include "fs/new_file.h"
#include "fs/whole_file.h"

namespace tallowin {
namespace {

class FileSystemTest : public testing::TestWithParam<FsSample> {
 protected:
  void SetUp() override {
    if (!hasJudges()) GTEST_SKIP() << "needs dosfstools, mtools";
    reopen();
  }

  void TearDown() override {
    if (!files_ || HasFatalFailure()) return;
    ASSERT_EQ(Error::none, files_->sync());
    const FileTree ours = treeOf(*files_);
    EXPECT_EQ("", checkerSays(disk_));
    EXPECT_EQ("", ownCheckSays(disk_));
    EXPECT_EQ(std::vector<std::string>(), differences(ours, treeByOthers(disk_)));
    reopen();
    EXPECT_EQ(std::vector<std::string>(), differences(ours, treeOf(*files_)));
  }

  void reopen(const OpenWish& wish = {.writable = true}) {
    if (files_ && files_->isWritable()) {
      ASSERT_EQ(Error::none, files_->sync());
    }
    ASSERT_EQ(Error::none, openFiles(disk_, GetParam(), files_, wish));
  }

  Failure put(const std::string& path, const std::string& content) {
    return tallowin::put(*files_, path, content);
  }
  File opened(const std::string& path, const OpenMode& mode) {
    File file;
    EXPECT_EQ(Error::none, files_->open(path, mode, file)) << path;
    return file;
  }
  u64 freeUnits() {
    SpaceInfo space;
    EXPECT_EQ(Error::none, files_->space(space));
    return space.freeUnits;
  }

  MemoryDisk disk_ = formatted(GetParam());
  std::unique_ptr<FileSystem> files_;
};

INSTANTIATE_TEST_SUITE_P(Drivers, FileSystemTest, testing::ValuesIn(kFsSamples),
                         [](const auto& sample) { return std::string(sample.param.name); });

TEST_P(FileSystemTest, NamesComeBackAsTheyWereGiven) {
  std::string longest;
  for (int i = 0; i < 250; ++i) longest += "x";
  FileTree expected;
  for (const char* name :
       {"readme.txt", "ReadMe.md", "UPPER.TXT", "lower", "Mixed.txt", "a long name.txt",
        "a long name, again.txt", "two.dots.in.it", ".hidden", "grüße.txt", "Grüße Zwei", "日本語",
        "😀", "x+y=[z].c", "UPPER.low", "low.UPP", "åäö", "thirteen chars", "CON fig;,ab"})
    expected["/" + std::string(name)] = name;
  for (const char* tail : {"1", "12345", "é"}) expected["/" + longest + tail] = tail;
  for (const auto& [path, content] : expected) ASSERT_EQ(Error::none, put(path, content)) << path;
  reopen();
  EXPECT_EQ(std::vector<std::string>(), differences(expected, treeOf(*files_)));
  FileInfo info;
  EXPECT_EQ(Error::none, files_->info("README.TXT", info));
  EXPECT_EQ("readme.txt", info.name);
  EXPECT_EQ(Error::none, files_->info("/GRÜßE.TXT", info));
  // The others know 16 bits of a character.
  EXPECT_EQ(Error::none, files_->deleteFile("/😀"));
}

TEST_P(FileSystemTest, WritesAnywhereInAFile) {
  std::string model;
  File file = opened("/f", {.access = FileAccess::readWrite, .create = true});
  const auto write = [&](u64 at, const std::string& bytes) {
    model.resize(std::max<std::size_t>(model.size(), at + bytes.size()));
    model.replace(at, bytes.size(), bytes);
    u64 done = 0;
    ASSERT_EQ(Error::none, file.seek(static_cast<i64>(at)));
    ASSERT_EQ(Error::none,
              file.write({reinterpret_cast<const u8*>(bytes.data()), bytes.size()}, done));
    ASSERT_EQ(bytes.size(), done);
  };
  const u32 cluster = GetParam().clusterBytes;
  write(0, randomBytes(1, 10));
  write(3, randomBytes(2, cluster));
  write(cluster * 3 + 100, randomBytes(3, 700));  // a gap
  write(cluster - 1, randomBytes(4, 2));
  write(0, randomBytes(5, cluster * 5));
  for (const u64 size :
       {u64{cluster} * 2, u64{cluster} * 4 + 1, u64{7}, u64{600}, u64{0}, u64{9}}) {
    model.resize(size);
    ASSERT_EQ(Error::none, file.setSize(size));
    ASSERT_TRUE(model == contentOf(*files_, "/f")) << size;
  }
  write(cluster, "end");
  ASSERT_EQ(Error::none, file.close());
  ASSERT_EQ(Error::none, files_->open("/f", {.access = FileAccess::write, .append = true}, file));
  EXPECT_EQ(model.size(), file.position());
  write(model.size(), "more");
  ASSERT_EQ(Error::none, file.close());
  EXPECT_TRUE(model == contentOf(*files_, "/f"));
}

TEST_P(FileSystemTest, ANewFileIsWholeBeforeItReplacesOne) {
  ASSERT_EQ(Error::none, files_->makeDirectory("/sub"));
  ASSERT_EQ(Error::none, put("/sub/An old File.txt", "old"));
  const auto newFile = [this](const std::string& path, NewFileName name, bool finishes) {
    NewFile file(*files_);
    u64 done = 0;
    static constexpr u8 kContent[] = {'n', 'e', 'w'};
    if (const Failure failed = file.create(path, name)) return failed;
    if (const Failure failed = file.write(kContent, done)) return failed;
    return finishes ? file.finish() : Failure(Error::cancelled);
  };
  const FileTree before = treeOf(*files_);
  EXPECT_EQ(Error::alreadyExists, newFile("/sub/an OLD file.txt", NewFileName::own, true));
  EXPECT_EQ(Error::accessDenied, newFile("/sub", NewFileName::other, true));
  EXPECT_EQ(Error::noSuchFile, newFile("/none/x", NewFileName::other, true));
  EXPECT_EQ(Error::cancelled, newFile("/sub/An old File.txt", NewFileName::other, false));
  EXPECT_EQ(Error::cancelled, newFile("/sub/x", NewFileName::own, false));
  EXPECT_EQ(before, treeOf(*files_));
  EXPECT_EQ(Error::none, newFile("\\sub\\an OLD file.txt", NewFileName::other, true));
  EXPECT_EQ(Error::none, newFile("/sub/x", NewFileName::own, true));
  EXPECT_EQ(treeOf(*files_),
            (FileTree{{"/sub/", ""}, {"/sub/An old File.txt", "new"}, {"/sub/x", "new"}}));

  u8 buffer[8];
  u64 done = 0;
  EXPECT_EQ(Error::none, readFileRange(*files_, "/sub/x", buffer, 1, done));
  EXPECT_EQ(2U, done);
  EXPECT_EQ(Error::none, readFileRange(*files_, "/sub/x", buffer, 3, done));
  EXPECT_EQ(0U, done);
  EXPECT_EQ(Error::seekFailed, readFileRange(*files_, "/sub/x", buffer, 4, done));
}

TEST_P(FileSystemTest, DirectoriesGrowAndGo) {
  const u64 before = freeUnits();
  ASSERT_EQ(Error::none, files_->makeDirectory("/a"));
  ASSERT_EQ(Error::none, files_->makeDirectory("/a/b b"));
  for (int i = 0; i < 200; ++i)
    ASSERT_EQ(Error::none, put("/a/b b/a file with number " + std::to_string(i), "x")) << i;
  EXPECT_EQ(Error::directoryNotEmpty, files_->removeDirectory("/a"));
  std::vector<FileInfo> found;
  ASSERT_EQ(Error::none, files_->find("/A/B B/*number 1?9", found));
  EXPECT_EQ(10U, found.size());
  ASSERT_EQ(Error::none, files_->find("/a/b b/AFI*~*", found));
  EXPECT_EQ(200U, found.size()) << "short names are looked at as well";
  for (int i = 0; i < 200; i += 2)
    ASSERT_EQ(Error::none, files_->deleteFile("/a/b b/a file with number " + std::to_string(i)));
  ASSERT_EQ(Error::none, files_->move("/a/b b", "/moved"));
  EXPECT_EQ("x", contentOf(*files_, "/a/../moved/./a file with number 7"));
  ASSERT_EQ(Error::none, files_->makeDirectory("/moved/in"));
  FileInfo parent;
  ASSERT_EQ(Error::none, files_->info("/moved/in/..", parent));
  EXPECT_EQ("moved", parent.name) << "what a path means has its own name";
  ASSERT_EQ(Error::none, files_->removeDirectory("/moved/in"));
  EXPECT_EQ(Error::none, files_->removeDirectory("/a"));
  reopen();
  ASSERT_EQ(Error::none, files_->list("/moved", found));
  EXPECT_EQ(100U, found.size());
  for (const FileInfo& entry : found)
    ASSERT_EQ(Error::none, files_->deleteFile("/moved/" + entry.name));
  EXPECT_EQ(Error::none, files_->removeDirectory("/moved"));
  EXPECT_EQ(before, freeUnits());
}

TEST_P(FileSystemTest, MovesKeepWhatTheyMove) {
  ASSERT_EQ(Error::none, files_->makeDirectory("/d"));
  ASSERT_EQ(Error::none, put("/one.txt", "1"));
  File file = opened("/one.txt", {.access = FileAccess::write});
  const FileTimes times{fileTimeOfUnixSeconds(1000000000), fileTimeOfUnixSeconds(999993600),
                        fileTimeOfUnixSeconds(1200000000)};
  ASSERT_EQ(Error::none, file.setTimes(times));
  ASSERT_EQ(Error::none, file.setAttributes(kFileHidden | kFileReadOnly));
  EXPECT_EQ(Error::accessDenied, files_->move("/one.txt", "/two.txt")) << "it is open";
  ASSERT_EQ(Error::none, file.close());
  for (const auto& [from, to] : std::initializer_list<std::pair<const char*, const char*>>{
           {"/one.txt", "/ONE.TXT"},
           {"/ONE.TXT", "/a name that needs several entries.txt"},
           {"/a name that needs several entries.txt", "/short"},
           {"/short", "/d/Other one.txt"},
           {"/d/Other one.txt", "/d/OTHER ONE.txt"}}) {
    ASSERT_EQ(Error::none, files_->move(from, to)) << to;
    FileInfo info;
    ASSERT_EQ(Error::none, files_->info(to, info));
    EXPECT_EQ("1", contentOf(*files_, to));
    EXPECT_EQ(times, info.times);
    EXPECT_EQ(kFileHidden | kFileReadOnly, info.attributes);
    EXPECT_EQ(std::string(to).substr(std::string(to).rfind('/') + 1), info.name);
  }
  EXPECT_EQ(1U, treeOf(*files_, "/d/").size());
  ASSERT_EQ(Error::none, files_->makeDirectory("/d/e"));
  EXPECT_EQ(Error::invalidName, files_->move("/d", "/d/e/f"));
}

// Each is refused, and nothing is written.
TEST_P(FileSystemTest, RefusesWhatIsNotPossible) {
  ASSERT_EQ(Error::none, files_->makeDirectory("/dir"));
  ASSERT_EQ(Error::none, put("/file", "content"));
  ASSERT_EQ(Error::none, put("/open", "content"));
  reopen();
  File held = opened("/open", {}), file;
  MemoryDisk before = disk_.copy();
  struct Case {
    const char* what;
    Failure failure;
    Error expected;
  };
  const OpenMode create{.access = FileAccess::write, .create = true};
  OpenMode exclusive = create, readingCreate = create;
  exclusive.exclusive = true;
  readingCreate.access = FileAccess::read;
  for (const auto& [what, failure, expected] : std::vector<Case>{
           {"missing", files_->open("/none", {}, file), Error::noSuchFile},
           {"missing folder", files_->open("/none/f", create, file), Error::noSuchFile},
           {"through a file", files_->open("/file/f", create, file), Error::noSuchFile},
           {"exclusive", files_->open("/file", exclusive, file), Error::alreadyExists},
           {"directory as file", files_->open("/dir", {}, file), Error::accessDenied},
           {"file as directory", files_->open("/file", {.isDirectory = true}, file),
            Error::accessDenied},
           {"root", files_->open("/", {.isDirectory = true}, file), Error::accessDenied},
           {"create to read", files_->open("/new", readingCreate, file), Error::invalidName},
           {"wildcard", files_->open("/fi*", {}, file), Error::invalidName},
           {"bad name", files_->open("/a:b", create, file), Error::invalidName},
           {"dot at the end", files_->open("/a.", create, file), Error::invalidName},
           {"long name", files_->open("/" + std::string(256, 'n'), create, file),
            Error::nameTooLong},
           {"no path", files_->open("", {}, file), Error::invalidName},
           {"make again", files_->makeDirectory("/DIR"), Error::alreadyExists},
           {"make as file", files_->makeDirectory("/file"), Error::alreadyExists},
           {"make root", files_->makeDirectory("/"), Error::alreadyExists},
           {"make in nothing", files_->makeDirectory("/none/d"), Error::noSuchFile},
           {"delete directory", files_->deleteFile("/dir"), Error::accessDenied},
           {"delete open", files_->deleteFile("/open"), Error::accessDenied},
           {"delete missing", files_->deleteFile("/none"), Error::noSuchFile},
           {"remove file", files_->removeDirectory("/file"), Error::accessDenied},
           {"remove root", files_->removeDirectory("/dir/.."), Error::accessDenied},
           {"move missing", files_->move("/none", "/x"), Error::noSuchFile},
           {"move onto", files_->move("/file", "/dir"), Error::alreadyExists},
           {"move to bad name", files_->move("/file", "/a|b"), Error::invalidName},
           {"move to missing", files_->move("/file", "/none/x"), Error::noSuchFile},
           {"label", files_->setLabel("much too long a label"), Error::invalidName},
           {"write what is read", held.setSize(3), Error::accessDenied},
           {"attributes", held.setAttributes(0), Error::accessDenied},
           {"seek before", held.seek(-1), Error::invalidName},
           {"seek behind", held.seek(static_cast<i64>(files_->largestFile()) + 1),
            Error::fileTooLarge}})
    EXPECT_EQ(expected, failure.code) << what;
  EXPECT_EQ(Error::none, held.seek(static_cast<i64>(files_->largestFile())));
  EXPECT_EQ(Error::none, files_->move("/file", "/file")) << "nothing is to be done";
  ASSERT_EQ(Error::none, files_->sync());
  EXPECT_TRUE(disk_.sameContent(before));
}

TEST_P(FileSystemTest, AVolumeThatIsReadStaysAsItIs) {
  ASSERT_EQ(Error::none, put("/file", "content"));
  reopen({.writable = false});
  MemoryDisk before = disk_.copy();
  File file;
  EXPECT_EQ(Error::accessDenied, files_->open("/file", {.access = FileAccess::write}, file));
  EXPECT_EQ(Error::accessDenied, files_->makeDirectory("/d"));
  EXPECT_EQ(Error::accessDenied, files_->deleteFile("/file"));
  EXPECT_EQ(Error::accessDenied, files_->move("/file", "/g"));
  EXPECT_EQ(Error::accessDenied, files_->setLabel("L"));
  EXPECT_EQ("content", contentOf(*files_, "/file"));
  ASSERT_EQ(Error::none, files_->sync());
  EXPECT_TRUE(disk_.sameContent(before));
}

TEST_P(FileSystemTest, OnlySoManyFilesAreOpen) {
  ASSERT_EQ(Error::none, put("/file", "content"));
  std::vector<File> open(FileSystem::kMostOpenFiles);
  for (File& file : open) ASSERT_EQ(Error::none, files_->open("/file", {}, file));
  File more;
  EXPECT_EQ(Error::tooManyOpenFiles, files_->open("/file", {}, more));
  open.pop_back();
  EXPECT_EQ(Error::none, files_->open("/file", {}, more));
}

TEST_P(FileSystemTest, LabelsAreStoredAndGo) {
  std::string label;
  for (const char* wish : {"LABEL", "my.disk 1", "TWELVE"}) {
    ASSERT_EQ(Error::none, files_->setLabel(wish));
    reopen();
    ASSERT_EQ(Error::none, files_->label(label));
    EXPECT_EQ("", checkerSays(disk_)) << wish;
  }
  EXPECT_EQ("TWELVE", label);
  ASSERT_EQ(Error::none, put("/twelve", "a file of that name is another thing"));
  ASSERT_EQ(Error::none, files_->setLabel(""));
  ASSERT_EQ(Error::none, files_->label(label));
  EXPECT_EQ("", label);
}

// What does not fit changes nothing; what was freed can be used again at once.
TEST_P(FileSystemTest, AFullVolume) {
  if (GetParam().sectors > 100000) return;  // too large to be filled
  ASSERT_EQ(Error::none, put("/kept", "kept"));
  const u64 unit = GetParam().clusterBytes;
  const u64 room = freeUnits() * unit;
  File file = opened("/big", {.access = FileAccess::write, .create = true});
  EXPECT_EQ(Error::volumeFull, file.setSize(room + 1));
  ASSERT_EQ(Error::none, file.setSize(room - unit));
  const std::string two = randomBytes(1, unit + 1), one = two.substr(1);
  u64 done = 0;
  ASSERT_EQ(Error::none, file.seek(0, SeekFrom::end));
  EXPECT_EQ(Error::volumeFull,
            file.write({reinterpret_cast<const u8*>(two.data()), two.size()}, done));
  EXPECT_EQ(0U, done);
  ASSERT_EQ(Error::none, file.write({reinterpret_cast<const u8*>(one.data()), one.size()}, done));
  EXPECT_EQ(0U, freeUnits());
  EXPECT_EQ(Error::volumeFull, files_->makeDirectory("/d"));
  EXPECT_EQ(Error::volumeFull, put("/small", "x"));
  EXPECT_EQ(Error::none, files_->deleteFile("/small"));
  ASSERT_EQ(Error::none, file.setSize(room - unit));
  ASSERT_EQ(Error::none, file.close());
  EXPECT_EQ(Error::none, put("/small", "x")) << "the freed cluster is there again";
  ASSERT_EQ(Error::none, files_->deleteFile("/big"));
  EXPECT_EQ("kept", contentOf(*files_, "/kept"));
}

}  // namespace
}  // namespace tallowin
