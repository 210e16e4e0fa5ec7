// A person in front of the program: creates, formats and deletes on an image, while independent
// programs watch what is written.
#include <signal.h>

#include "ui/program_test.h"

namespace tallowin {
namespace {

const SfdiskRow kLinux{1, 2048, 32768, 0x83};

class MainWindowTest : public ProgramTest {
 protected:
  void prepare() override {
    image_ = folder_.sparse("disk.img", 256ull << 20);
    ASSERT_EQ(makeTable(image_, "label: dos\nstart=2048, size=32768, type=83\n"), "");
    other_ = folder_.sparse("other.img", 100ull << 20);
    ASSERT_EQ(makeTable(other_, "label: dos\n"), "");
    start({image_, other_});
  }

  std::vector<SfdiskRow> rows() {
    const SfdiskTable table = readTable(image_);
    EXPECT_EQ(table.problems, "");
    return table.rows;
  }

  // The file system in these sectors is sound. What its judge says.
  std::string expectSound(u64 start, u64 count) {
    const std::string part = folder_.file("part.img");
    EXPECT_EQ(runProgram({"dd", "if=" + image_, "of=" + part, "skip=" + std::to_string(start),
                          "count=" + std::to_string(count), "status=none"})
                  .status,
              0);
    const ProgramResult check = runProgram({"fsck.fat", "-n", "-v", part});
    EXPECT_EQ(check.status, 0) << check.output;
    return check.output;
  }
  void expectFreshFat32(const SfdiskRow& row) {
    const std::string said = expectSound(row.start, row.size);
    EXPECT_NE(said.find("32 bit entries"), std::string::npos) << said;
  }

  void expectClosed() {
    int status = -1;
    program_->output(status);
    EXPECT_EQ(status, 0);
  }

  std::string other_;
};

TEST_F(MainWindowTest, KeysAloneCreateFormatAndDelete) {
  // The free space behind the first partition, then the type FAT32 with Format ticked.
  press("End Insert", "Create - 239 MiB Block");
  press("w o r k alt+s 1 1 Return", "Format");
  press("Return", "Format Summary");
  press("Return", kMainTitle);
  ASSERT_EQ(rows().size(), 2u);
  const SfdiskRow created = rows()[1];
  EXPECT_EQ(rows()[0], kLinux);
  EXPECT_EQ(created.type, 0xCu);
  EXPECT_GE(created.start, kLinux.start + kLinux.size);
  expectFreshFat32(created);

  // The new row is still selected. Once more, with other clusters; what it held is gone.
  press("alt+f", "Format");
  press("Down Down Return", "Format");
  press("alt+y", "Format Summary");
  press("Escape", kMainTitle);
  EXPECT_EQ(rows(), (std::vector{kLinux, created}));
  expectFreshFat32(created);

  press("Delete", "Confirm Delete");
  press("Return", kMainTitle);  // the focus is on No
  EXPECT_EQ(rows(), (std::vector{kLinux, created}));
  press("alt+l", "Confirm Delete");
  press("alt+y", kMainTitle);
  EXPECT_EQ(rows(), std::vector{kLinux});

  screen_->press("Escape");
  expectClosed();
}

TEST_F(MainWindowTest, ButtonsAnswerClicks) {
  const std::string window = screen_->waitFor(kMainTitle);
  screen_->click(window, 506 + 32, 101 + 10);
  ASSERT_FALSE(screen_->waitFor("Confirm Delete").empty());
  press("alt+y", kMainTitle);
  EXPECT_EQ(rows(), std::vector<SfdiskRow>{});
  screen_->click(window, 176 + 37, 366 + 12);
  expectClosed();
}

TEST_F(MainWindowTest, KeysSelectDrivesReadAgainAndWalk) {
  press("1 Insert", "Create - 99 MiB Block");
  press("Escape", kMainTitle);
  press("0 Page_Down Home End Insert", "Create - 239 MiB Block");
  press("Escape", kMainTitle);

  // Another program changes the table; F5 shows it. Tab goes from the list to the first button.
  ASSERT_EQ(makeTable(image_, "label: dos\nstart=2048, size=104448, type=83\n"), "");
  press("F5 End Tab space", "Create - 204 MiB Block");
  press("Escape", kMainTitle);

  press("F1", "Tallowin Help");
  screen_->press("Escape");
  EXPECT_TRUE(screen_->waitUntilGone("Tallowin Help"));
  ASSERT_FALSE(screen_->waitFor(kMainTitle).empty());
  screen_->press("F10");
  expectClosed();
}

TEST_F(MainWindowTest, AFileIsEditedByKeysAndReadByOthers) {
  for (const char* program : {"mkfs.fat", "mcopy"})
    if (!hasProgram(program)) GTEST_SKIP() << program << " is not installed";
  ASSERT_EQ(makeTable(image_, "label: dos\nstart=2048, size=32768, type=6\n"), "");
  folder_.write("config", "FILES=30\r\nBUFFERS=20\r\n");
  const std::string volume = image_ + "@@1M";
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"mkfs.fat", "-F", "16", "--offset", "2048", image_, "16384"},
        {"mcopy", "-i", volume, folder_.file("config"), "::CONFIG.SYS"},
        {"mcopy", "-i", volume, folder_.file("config"), "::OLD.SYS"}})
    ASSERT_EQ(runProgram(command).status, 0) << command[0];
  const auto read = [&](const std::string& name) {
    const ProgramResult copied =
        runProgram({"mcopy", "-n", "-i", volume, "::" + name, folder_.file("read")});
    return copied.status == 0 ? folder_.read("read") : copied.output;
  };

  // Delete in the list of files, then the name, whatever its case.
  press("F5 Home alt+e", "Open");
  press("Down Down Down Delete", "Warning");
  press("alt+y", "Open");
  EXPECT_NE(read("OLD.SYS").find("not found"), std::string::npos);
  screen_->press("alt+n");
  screen_->type("config.sys");
  press("Return", "Edit File - CONFIG.SYS");
  screen_->press("End BackSpace BackSpace");
  screen_->type("99");
  screen_->press("alt+s Down");
  screen_->type("LASTDRIVE=Z");
  press("alt+v", "Save As");
  screen_->type("Ein Brief.txt");
  press("Return", "Edit File - Ein Brief.txt");
  EXPECT_EQ(read("CONFIG.SYS"), "FILES=99\r\nBUFFERS=20\r\n");
  EXPECT_EQ(read("Ein Brief.txt"), "FILES=99\r\nBUFFERS=LASTDRIVE=Z20\r\n");
  press("Return Escape", "Warning");
  press("alt+n", kMainTitle);
  expectSound(2048, 32768);
  screen_->press("Escape");
  expectClosed();
}

TEST_F(MainWindowTest, ASignalAndALostDisplayEndTheProgramFromAnOpenMenuToo) {
  screen_->press("alt+d space");
  kill(program_->id(), SIGTERM);
  expectClosed();

  screen_->forget();  // the display may give the next window the number of the last
  ChildProcess again({UI_PROGRAM, "-nd", "-img:" + image_});
  ASSERT_FALSE(screen_->waitFor(kMainTitle).empty());
  screen_->press("alt+d space");
  screen_.reset();
  int status = -1;
  again.output(status);
  EXPECT_EQ(status, 1);
}

}  // namespace
}  // namespace tallowin
