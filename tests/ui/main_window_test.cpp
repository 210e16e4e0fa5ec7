// A person in front of the program: creates, looks and deletes on an image, while independent
// programs watch what is written.
#include <gtest/gtest.h>

#include "support/oracle.h"
#include "support/temp_folder.h"
#include "ui/screen.h"

namespace tallowin {
namespace {

constexpr const char* kTitle = "Tallowin 1.32";

class MainWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = Screen::whyMissing(); !missing.empty()) GTEST_SKIP() << missing;
    for (const char* program : {"sfdisk", "fsck.fat", "mlabel"})
      if (!hasProgram(program)) GTEST_SKIP() << program << " is not installed";
    // Settings and table backups of the program go here.
    setenv("TALLOWIN_HOME", folder_.path().c_str(), 1);
    image_ = folder_.sparse("disk.img", 256ull << 20);
    ASSERT_EQ(runProgram({"sfdisk", "-q", image_}, "label: dos\nstart=2048, size=32768, type=83\n")
                  .status,
              0);
    screen_ = std::make_unique<Screen>();
    program_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{UI_PROGRAM, "-nd", "-img:" + image_});
    ASSERT_FALSE(screen_->waitFor(kTitle).empty());
  }

  std::string table() { return runProgram({"sfdisk", "-d", image_}).output; }

  TempFolder folder_;
  std::string image_;
  std::unique_ptr<Screen> screen_;
  std::unique_ptr<ChildProcess> program_;
};

TEST_F(MainWindowTest, APartitionIsCreatedFormattedAndDeleted) {
  // The free space behind the first partition, then the type FAT32 with Format ticked.
  const std::string window = screen_->waitFor(kTitle);
  screen_->press("End Down Insert");
  ASSERT_FALSE(screen_->waitFor("Create - 239 MiB Block").empty());
  screen_->press("w o r k alt+s 1 1");
  screen_->press("Return");
  ASSERT_FALSE(screen_->waitFor("Format").empty());
  screen_->press("Return");
  ASSERT_FALSE(screen_->waitFor("Format Summary").empty());
  EXPECT_NE(table().find("type=c"), std::string::npos) << table();
  screen_->press("Return");
  ASSERT_FALSE(screen_->waitFor(kTitle).empty());

  const std::string image = folder_.file("fat32.img");
  ASSERT_EQ(
      runProgram({"dd", "if=" + image_, "of=" + image, "bs=1M", "skip=17", "status=none"}).status,
      0);
  const ProgramResult check = runProgram({"fsck.fat", "-n", "-v", image});
  EXPECT_EQ(check.status, 0) << check.output;
  EXPECT_NE(check.output.find("32 bit entries"), std::string::npos) << check.output;
  EXPECT_EQ(runProgram({"mdir", "-i", image, "::"}).status, 0);

  // The row is still selected. No keeps it, a click on Delete and Yes remove it.
  screen_->press("Delete");
  ASSERT_FALSE(screen_->waitFor("Confirm Delete").empty());
  screen_->press("Return");
  ASSERT_FALSE(screen_->waitFor(kTitle).empty());
  EXPECT_NE(table().find("type=c"), std::string::npos);
  screen_->click(window, 506 + 32, 101 + 10);
  ASSERT_FALSE(screen_->waitFor("Confirm Delete").empty());
  screen_->press("alt+y");
  ASSERT_FALSE(screen_->waitFor(kTitle).empty());
  EXPECT_EQ(table().find("type=c"), std::string::npos) << table();
  EXPECT_NE(table().find("type=83"), std::string::npos);

  screen_->press("Escape");
  int status = -1;
  program_->output(status);
  EXPECT_EQ(status, 0);
}

TEST_F(MainWindowTest, HelpStaysBesideTheWindowAndKeysClose) {
  screen_->press("F1");
  ASSERT_FALSE(screen_->waitFor("Tallowin Help").empty());
  screen_->press("Escape");
  EXPECT_TRUE(screen_->waitUntilGone("Tallowin Help"));
  ASSERT_FALSE(screen_->waitFor(kTitle).empty());
  screen_->press("9 F5 F10");
  int status = -1;
  program_->output(status);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace tallowin
