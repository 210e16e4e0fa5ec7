// A person in the MBR editor: every button by mouse and by key, while sfdisk watches the disk.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "support/oracle.h"
#include "support/sfdisk.h"
#include "support/temp_folder.h"
#include "ui/screen.h"

namespace tallowin {
namespace {

constexpr const char* kMain = "Tallowin 1.32";
constexpr const char* kTitle = "View MBR";
constexpr const char* kScript =
    "label: dos\nlabel-id: 0x12345678\n1:start=2048,size=20480,type=83,bootable\n"
    "2:start=40960,size=20480,type=7\n3:start=24576,size=2048,type=82\n";

struct Place {
  int x;
  int y;
};
constexpr Place kSetActive{122, 125};
constexpr Place kInsert{202, 125};
constexpr Place kDelete{282, 125};
constexpr Place kMoveUp{362, 125};
constexpr Place kMoveDown{442, 125};
constexpr Place kStandardCode{122, 150};
constexpr Place kNewerCode{202, 150};
constexpr Place kClearSignature{282, 150};
constexpr Place kEditSignature{362, 150};
constexpr Place kFillEndChs{442, 150};
constexpr Place kApply{246, 180};
constexpr Place kCancel{318, 180};
constexpr Place kFirstRow{60, 39};
constexpr Place kSelectOk{170, 212};
constexpr int kRowHeight = 14;

class MbrViewTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = Screen::whyMissing(); !missing.empty()) GTEST_SKIP() << missing;
    for (const char* program : {"sfdisk", "sgdisk"})
      if (!hasProgram(program)) GTEST_SKIP() << program << " is not installed";
    setenv("TALLOWIN_HOME", folder_.path().c_str(), 1);
    image_ = folder_.sparse("disk.img", 50ull << 20);
    screen_ = std::make_unique<Screen>();
  }

  void openOn(const std::string& script) {
    if (!script.empty()) {
      ASSERT_EQ(makeTable(image_, script), "");
    }
    before_ = track();
    program_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{UI_PROGRAM, "-nd", "-img:" + image_});
    ASSERT_FALSE(screen_->waitFor(kMain).empty());
  }
  void openEditor() {
    screen_->press("alt+v");
    window_ = screen_->waitFor(kTitle);
    ASSERT_FALSE(window_.empty());
  }
  void click(Place place) { screen_->click(window_, place.x, place.y); }
  void selectSlot(int slot) { click({kFirstRow.x, kFirstRow.y + slot * kRowHeight}); }
  // A message box that must come, answered; then the editor is in front again.
  void answer(const std::string& title, const std::string& keys) {
    ASSERT_FALSE(screen_->waitFor(title).empty());
    screen_->press(keys);
    ASSERT_FALSE(screen_->waitFor(title_).empty());
  }
  void expectClosed() { EXPECT_FALSE(screen_->waitFor(kMain).empty()); }
  // Cancel asks before it drops what was changed.
  void expectDropped() {
    ASSERT_FALSE(screen_->waitFor(kTitle).empty());
    screen_->press("alt+y");
    expectClosed();
  }
  // Apply asks, and then says where the old table is.
  void expectApplied() {
    ASSERT_FALSE(screen_->waitFor(kTitle).empty());
    screen_->press("alt+y");
    ASSERT_FALSE(screen_->waitFor(kTitle).empty());
    screen_->press("Return");
    expectClosed();
  }
  std::string track() { return runProgram({"head", "-c", "32768", image_}).output; }
  void expectUntouched() { EXPECT_TRUE(track() == before_) << "something was written"; }

  TempFolder folder_;
  std::string image_;
  std::string title_ = kTitle;
  std::string window_;
  std::string before_;
  std::unique_ptr<Screen> screen_;
  std::unique_ptr<ChildProcess> program_;
};

TEST_F(MbrViewTest, EveryButtonByMouse) {
  openOn(kScript);
  openEditor();
  EXPECT_EQ(screen_->size(window_), std::pair(565, 200));
  screen_->press("F1");
  answer("Tallowin Help", "Escape");
  selectSlot(1);
  click(kSetActive);
  click(kMoveDown);  // the former slot 2 is the third now
  click(kMoveUp);    // and the second again
  click(kMoveUp);    // and the first
  for (const Place place : {kStandardCode, kNewerCode, kClearSignature, kFillEndChs}) {
    click(place);
    answer("Notice", "Return");
  }
  click(kEditSignature);
  ASSERT_FALSE(screen_->waitFor("Edit").empty());
  screen_->press("ctrl+a 0 x 1 2 3 4 Return");
  answer("Notice", "Return");
  selectSlot(2);
  click(kDelete);
  click(kInsert);
  screen_->click(screen_->waitFor("Select"), kSelectOk.x, kSelectOk.y);
  ASSERT_FALSE(screen_->waitFor(kTitle).empty());
  expectUntouched();
  click(kCancel);
  expectDropped();
  expectUntouched();

  openEditor();
  selectSlot(1);
  click(kMoveUp);
  click(kSetActive);
  click(kApply);
  expectApplied();
  const SfdiskTable table = readTable(image_);
  EXPECT_EQ(table.problems, "");
  ASSERT_EQ(table.rows.size(), 3u);
  EXPECT_EQ(table.rows[0], (SfdiskRow{1, 40960, 20480, 0x07, true}));
  EXPECT_EQ(table.rows[1], (SfdiskRow{2, 2048, 20480, 0x83, false}));
  EXPECT_EQ(table.rows[2], (SfdiskRow{3, 24576, 2048, 0x82, false}));
}

TEST_F(MbrViewTest, EveryButtonByKey) {
  openOn(kScript);
  openEditor();
  screen_->press("Down space shift+space shift+space");
  screen_->press("Down shift+space Delete Insert");
  answer("Select", "F10");
  screen_->press("alt+s alt+d alt+i");
  answer("Select", "alt+o");
  screen_->press("alt+u alt+n");
  for (const char* const keys : {"alt+m", "alt+7", "alt+c", "alt+f"}) {
    screen_->press(keys);
    answer("Notice", "Return");
  }
  screen_->press("alt+e");
  ASSERT_FALSE(screen_->waitFor("Edit").empty());
  screen_->press("ctrl+a 0 x a b Return");
  answer("Notice", "Return");
  expectUntouched();
  screen_->press("Escape");
  expectDropped();
  expectUntouched();

  openEditor();
  screen_->press("Down space alt+e");
  ASSERT_FALSE(screen_->waitFor("Edit").empty());
  screen_->press("ctrl+a 0 x a b Return");
  answer("Notice", "Return");
  screen_->press("F10");
  expectApplied();
  SfdiskTable table = readTable(image_);
  EXPECT_EQ(table.diskSignature, 0xABu);
  EXPECT_FALSE(table.rows[0].bootable);
  EXPECT_TRUE(table.rows[1].bootable);

  openEditor();
  screen_->press("Down Delete alt+p");
  expectApplied();
  table = readTable(image_);
  ASSERT_EQ(table.rows.size(), 2u);
  EXPECT_EQ(table.rows[1].number, 3u);
}

TEST_F(MbrViewTest, ADoubleClickInserts) {
  openOn(kScript);
  openEditor();
  selectSlot(0);
  selectSlot(0);
  ASSERT_FALSE(screen_->waitFor("Select").empty());
  screen_->press("Escape");
  ASSERT_FALSE(screen_->waitFor(kTitle).empty());
  screen_->press("Escape");
  expectClosed();
  expectUntouched();
}

TEST_F(MbrViewTest, ThePlaceHolderOfAGptIsKeptUntilYes) {
  const std::string guid = "12345678-9ABC-4DEF-8123-456789ABCDEF";
  ASSERT_EQ(runProgram({"sgdisk", "-o", "-U", guid, "-n", "1:2048:8191", image_}).status, 0);
  openOn("");
  screen_->press("alt+v");
  title_ = "View MBR - {" + guid + "}";
  ASSERT_FALSE(screen_->waitFor(title_).empty());
  // No keeps the place holder, so that the next Delete asks again; Yes deletes it, so that the
  // third does not.
  screen_->press("Delete");
  answer("Warning", "alt+n");
  screen_->press("Insert");
  answer("Warning", "Escape");
  screen_->press("Delete");
  answer("Warning", "alt+y");
  screen_->press("Delete Escape");
  expectDropped();
  expectUntouched();
  EXPECT_EQ(runProgram({"sgdisk", "-v", image_}).status, 0);

  screen_->press("alt+v");
  ASSERT_FALSE(screen_->waitFor(title_).empty());
  screen_->press("Down Insert");
  answer("Select", "Return");
  screen_->press("F10");
  expectApplied();
  const std::string extent = runProgram({"od", "-An", "-tu4", "-j470", "-N8", image_}).output;
  EXPECT_NE(extent.find("2048"), std::string::npos) << extent;
  EXPECT_NE(extent.find("6144"), std::string::npos) << extent;
}

TEST_F(MbrViewTest, TheFifthPrimaryOfAnEmbrGetsASlotByApplyAlone) {
  ASSERT_EQ(runProgram({"sgdisk", "-n", "1:2048:4095", "-n", "2:4096:6143", "-n", "3:6144:8191",
                        "-n", "4:8192:10239", "-n", "5:10240:20479", image_})
                .status,
            0);
  ASSERT_EQ(runProgram({CTL_PROGRAM, "convert", image_, "--to", "embr", "--yes", "--nd"}).status,
            0);
  std::vector<SfdiskRow> rows = readTable(image_).rows;
  ASSERT_EQ(rows.size(), 4u);
  openOn("");
  openEditor();
  // What was in the slot is offered first, what is in none second.
  screen_->press("Down Down Down Delete Insert");
  answer("Select", "Down Return");
  expectUntouched();
  screen_->press("F10");
  expectApplied();
  rows[3] = {4, 10240, 10240, 0x83};
  EXPECT_EQ(readTable(image_).rows, rows);
  EXPECT_TRUE(track().substr(512) == before_.substr(512)) << "behind the MBR";
}

}  // namespace
}  // namespace tallowin
