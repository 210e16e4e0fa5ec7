#include "files/host_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "support/temp_folder.h"

namespace tallowin {
namespace {

// No file may become larger than this while it lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    handler_ = std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

TEST(HostFile, RangesEndWithTheFile) {
  const TempFolder folder;
  folder.write("file", "0123456789");
  struct Case {
    u64 offset;
    u32 count;
    Failure error;
    std::string_view expected;
  };
  const Case cases[] = {{2, 3, Error::none, "234"},
                        {8, 100, Error::none, "89"},
                        {10, 5, Error::none, ""},
                        {11, 5, Error::seekFailed, ""}};
  for (const Case& c : cases) {
    char buffer[100];
    u32 done = 99;
    EXPECT_EQ(readFileRange(folder.file("file"), buffer, c.offset, c.count, done), c.error);
    EXPECT_EQ(std::string_view(buffer, done), c.expected) << c.offset;
  }
  u32 done = 0;
  EXPECT_EQ(readFileRange(folder.file("none"), nullptr, 0, 0, done), Error::cannotOpenForReading);
}

TEST(HostFile, WholeFilesComeWithEveryByte) {
  const TempFolder folder;
  const std::string text("text\0with a NUL", 15);
  folder.write("a", text);
  std::string loaded = "before";
  ASSERT_EQ(loadTextFile(folder.file("a"), loaded), Error::none);
  EXPECT_EQ(loaded, text);
  u64 size = 0;
  EXPECT_EQ(hostFileSize(folder.file("a"), size), Error::none);
  EXPECT_EQ(size, 15U);
  EXPECT_EQ(hostFileSize(folder.file("b"), size), Failure(Error::noSuchFile, ENOENT));
  EXPECT_EQ(loadTextFile(folder.path(), loaded), Failure(Error::read, EISDIR));
  ASSERT_EQ(loadTextFile(folder.sparse("huge", 5 * kGiB), loaded), Error::fileTooLarge);
  EXPECT_EQ(loaded, "");
  EXPECT_EQ(createNewFile(folder.file("c")), Error::none);
  EXPECT_EQ(createNewFile(folder.file("c")), Failure(Error::cannotCreate, EEXIST));
}

TEST(ReplaceFileDurably, KeepsLinkModeAndOldContentOnFailure) {
  const TempFolder folder;
  folder.write("real.ini", "old");
  ::chmod(folder.file("real.ini").c_str(), 0644);
  std::filesystem::create_symlink("real.ini", folder.file("link.ini"));
  ASSERT_EQ(replaceFileDurably(folder.file("link.ini"), "new content"), Error::none);
  EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link.ini")));
  EXPECT_EQ(folder.read("real.ini"), "new content");
  struct stat status {};
  ::stat(folder.file("real.ini").c_str(), &status);
  EXPECT_EQ(status.st_mode & 07777, 0644U);
  {
    const FileSizeLimit limit(100);
    EXPECT_EQ(replaceFileDurably(folder.file("real.ini"), std::string(1000, 'x')),
              Failure(Error::noSpaceLeft, EFBIG));
  }
  EXPECT_EQ(folder.read("real.ini"), "new content");
  EXPECT_EQ(replaceFileDurably(folder.file("no/such/folder"), "x"), Error::cannotCreate);
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(replaceFileDurably(pipe, "x"), Failure(Error::cannotCreate, EPERM));
  EXPECT_TRUE(std::filesystem::is_fifo(pipe));
  EXPECT_TRUE(std::filesystem::remove(pipe));
  ASSERT_EQ(replaceFileDurably(folder.file("fresh"), ""), Error::none);
  const auto entries = std::filesystem::directory_iterator(folder.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 3) << "no temporary file is left";
}

}  // namespace
}  // namespace tallowin
