// A person in the MBR editor: every button by mouse and by key, while sfdisk watches the disk.
#include "ui/program_test.h"

namespace tallowin {
namespace {

constexpr const char* kTitle = "View MBR";
constexpr const char* kScript =
    "label: dos\nlabel-id: 0x12345678\n1:start=2048,size=20480,type=83,bootable\n"
    "2:start=40960,size=20480,type=7\n3:start=24576,size=2048,type=82\n";

class MbrViewTest : public ProgramTest {
 protected:
  static constexpr Place kSetActive{122, 125};
  static constexpr Place kInsert{202, 125};
  static constexpr Place kDelete{282, 125};
  static constexpr Place kMoveUp{362, 125};
  static constexpr Place kApply{246, 180};
  static constexpr Place kCancel{318, 180};
  static constexpr Place kFirstRow{60, 39};
  static constexpr Place kSelectOk{170, 212};
  static constexpr int kRowHeight = 14;

  void prepare() override { image_ = folder_.sparse("disk.img", 50ull << 20); }
  void open() {
    ASSERT_EQ(makeTable(image_, kScript), "");
    before_ = track();
    start({image_});
    openEditor();
  }
  void openEditor() { press("alt+v", kTitle); }
  void selectSlot(int slot) { click({kFirstRow.x, kFirstRow.y + slot * kRowHeight}); }
  // A message box that must come, answered; then the editor is in front again.
  void answer(const std::string& title, const std::string& keys) {
    ASSERT_FALSE(screen_->waitFor(title).empty());
    screen_->press(keys);
    ASSERT_FALSE(screen_->waitFor(kTitle).empty());
  }
  void expectClosed() { EXPECT_FALSE(screen_->waitFor(kMainTitle).empty()); }
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

  std::string before_;
};

TEST_F(MbrViewTest, RowsAndButtonsByMouse) {
  open();
  EXPECT_EQ(screen_->size(window_), std::pair(565, 200));
  screen_->press("F1");
  answer("Tallowin Help", "Escape");
  selectSlot(0);
  selectSlot(0);  // a double click inserts
  answer("Select", "Escape");
  selectSlot(2);
  click(kDelete);
  click(kInsert);
  screen_->click(screen_->waitFor("Select"), kSelectOk.x, kSelectOk.y);
  ASSERT_FALSE(screen_->waitFor(kTitle).empty());
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
  open();
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
  screen_->press("Down Delete F10");
  expectApplied();
  const SfdiskTable table = readTable(image_);
  EXPECT_EQ(table.diskSignature, 0xABu);
  ASSERT_EQ(table.rows.size(), 2u);
  EXPECT_FALSE(table.rows[0].bootable);
  EXPECT_TRUE(table.rows[1].bootable);
}

}  // namespace
}  // namespace tallowin
