// A person in Properties and in Undelete: by key and by mouse, while other programs watch the disk.
#include "ui/program_test.h"

namespace tallowin {
namespace {

constexpr const char* kScript =
    "label: dos\n1:start=2048,size=32768,type=6\n2:start=40960,size=20480,type=83\n"
    "3:start=65536,size=131072,type=f\n5:start=67584,size=20480,type=83\n";
constexpr std::size_t kBootSector = 2048 * 512;
constexpr const char* kFirstGuid = "11111111-2222-3333-4444-555555555555";

class PartitionDialogsTest : public ProgramTest {
 protected:
  static constexpr Place kMainProperties{538, 212};
  static constexpr Place kFirstFlagBox{22, 141};
  static constexpr Place kDetails{67, 331};
  static constexpr Place kHide{179, 331};
  static constexpr Place kOk{201, 373};
  static constexpr Place kCancel{289, 373};
  static constexpr Place kFirstFoundBox{22, 81};
  static constexpr Place kAddAll{50, 304};
  static constexpr Place kAdd{236, 304};
  static constexpr int kRowHeight = 15;

  void prepare() override { image_ = folder_.sparse("disk.img", 128ull << 20); }
  void start() { ProgramTest::start({image_}); }
  // A FAT in the image, by its own tool.
  void putFat(u64 sector, unsigned mebibytes, const std::string& options) {
    const std::string volume = folder_.sparse("volume.img", u64{mebibytes} << 20);
    ASSERT_EQ(runProgram({"sh", "-c",
                          "mkfs.fat " + options +
                              " -h $2 \"$1\" && dd if=\"$1\" of=\"$3\""
                              " seek=$2 conv=notrunc,sparse status=none",
                          "sh", volume, std::to_string(sector), image_})
                  .status,
              0);
  }
  unsigned byteAt(std::size_t offset) { return static_cast<u8>(folder_.read("disk.img")[offset]); }
  std::vector<SfdiskRow> rows() { return readTable(image_).rows; }
  std::string label() {
    return runProgram({"mlabel", "-s", "-i", image_ + "@@" + std::to_string(kBootSector), "::"})
        .output;
  }
};

TEST_F(PartitionDialogsTest, AFatIsRepairedRenamedAndHiddenAndShownAgain) {
  const std::string title = "Properties (1) ";
  ASSERT_EQ(makeTable(image_, kScript), "");
  putFat(2048, 16, "-F 16 -n OLD -g 3/7 -D 0x81");
  start();
  press("Home alt+t", "Warning");  // heads and sectors
  press("Return", "Notice");       // the focus is on No; the drive's number
  press("alt+y", title);
  EXPECT_EQ(byteAt(kBootSector + 26), 3u);
  EXPECT_EQ(byteAt(kBootSector + 36), 0x80u);
  press("alt+d", "Details");
  press("Return", title);
  press("alt+n ctrl+a N E W alt+h F10", kMainTitle);
  EXPECT_NE(label().find("NEW"), std::string::npos) << label();
  EXPECT_EQ(rows()[0].type, 0x16u);

  // The same by mouse, and back.
  click(kMainProperties, "Warning");
  press("alt+y", title);
  EXPECT_NE(byteAt(kBootSector + 26), 3u);
  click(kDetails, "Details");
  press("Return", title);
  click(kHide);
  click(kOk, kMainTitle);
  EXPECT_EQ(rows()[0].type, 0x06u);
  click(kMainProperties, title);
  click(kHide);
  click(kCancel, kMainTitle);
  EXPECT_EQ(rows()[0].type, 0x06u);
}

TEST_F(PartitionDialogsTest, WhatCannotBeIsRefusedAndTheEndIsChangedWithShift) {
  ASSERT_EQ(makeTable(image_, kScript), "");
  start();
  std::string title = "Properties (2) ";
  press("Home Down Down alt+t", title);
  for (const char* type : {"0", "2 3 8", "x"}) {
    press(std::string("alt+s ctrl+a ") + type + " Return", "Notice");
    press("Return", title);
  }
  press("alt+d", "Notice");  // nothing that can be mounted
  press("Return", title);
  press("Escape", kMainTitle);
  EXPECT_EQ(rows()[1], (SfdiskRow{2, 40960, 20480, 0x83}));

  click(kMainProperties, title, "shift");
  press("alt+e ctrl+a 9 9 9 9 9 9 9 Return", "Notice");
  press("Return", title);
  press("alt+e ctrl+a 5 9 3 9 1 Return", "Properties");  // what lies behind is lost
  press("Return", title);
  EXPECT_EQ(rows()[1].size, 20480u);
  press("Return", "Properties");
  press("alt+y", kMainTitle);
  EXPECT_EQ(rows()[1], (SfdiskRow{2, 40960, 18432, 0x83}));
  press("shift+alt+t", title);
  press("alt+e ctrl+a 6 1 4 3 9 F10", kMainTitle);
  EXPECT_EQ(rows()[1].size, 20480u);

  // Volumes have no end to change, and hide by a type of their own.
  press("Down Down alt+t", "Properties (3) ");
  press("alt+r", "Notice");
  press("Return", "Properties (3) ");
  press("Escape", kMainTitle);
  title = "Properties (380) ";
  press("Down shift+alt+t", title);
  press("alt+s ctrl+a 5 Return", "Notice");
  press("Return", title);
  press("alt+s ctrl+a 1 3 1 alt+n ctrl+a V O L alt+h F10", kMainTitle);
  EXPECT_EQ(rows()[3], (SfdiskRow{5, 67584, 20480, 0xED}));
  press("alt+t", title);
  press("alt+h F10", kMainTitle);
  EXPECT_EQ(rows()[3], (SfdiskRow{5, 67584, 20480, 0x83}));
}

TEST_F(PartitionDialogsTest, FlagsAndTypesOfAGptAreChanged) {
  const std::string title = std::string("Properties (1) {") + kFirstGuid + "}";
  ASSERT_EQ(makeTable(image_, std::string("label: gpt\n1:start=2048,size=20480,type=0FC63DAF-8483-"
                                          "4772-8E79-3D69D8477DE4,name=first,uuid=") +
                                  kFirstGuid + "\n"),
            "");
  start();
  press("Home alt+t", title);
  press("alt+t ctrl+a x Return", "Notice");
  press("Return", title);
  screen_->press("alt+n ctrl+a o t h e r alt+t ctrl+a");
  screen_->type("EFI System");
  press("alt+g Home space Down Down space End space F10", kMainTitle);
  const GptRow row = readGpt(image_)[0];
  EXPECT_EQ(row.name, "other");
  EXPECT_EQ(row.type, "C12A7328-F81F-11D2-BA4B-00A0C93EC93B");
  EXPECT_EQ(row.attributes, 1u << 0 | 1u << 2 | u64{1} << 63);
  click(kMainProperties, title);
  click({kFirstFlagBox.x, kFirstFlagBox.y + kRowHeight});
  click(kFirstFlagBox);
  click(kOk, kMainTitle);
  EXPECT_EQ(readGpt(image_)[0].attributes, 1u << 1 | 1u << 2 | u64{1} << 63);
}

TEST_F(PartitionDialogsTest, LostPartitionsAreTickedAndAdded) {
  const std::string title = "Undelete";
  ASSERT_EQ(makeTable(image_, "label: dos\n"), "");
  for (const u64 sector : {2048U, 40960U, 81920U}) putFat(sector, 16, "-F 16");
  start();
  // The search itself has a window of this title, too.
  const auto waitForList = [&] {
    constexpr int kListWidth = 560;
    do {
      window_ = screen_->waitFor(title);
      ASSERT_FALSE(window_.empty());
    } while (screen_->size(window_).first != kListWidth);
  };
  press("End Delete", title);
  press("Return", title);
  screen_->press("alt+n");  // the first unit is searched too
  waitForList();
  // All are ticked; not the first one, and the third by a click on its box.
  screen_->press("Home space");
  click({kFirstFoundBox.x, kFirstFoundBox.y + 2 * kRowHeight});
  press("alt+a", title);
  press("Return", kMainTitle);
  EXPECT_EQ(rows(), (std::vector{SfdiskRow{1, 40960, 32768, 6}}));

  press("End Delete", title);
  screen_->press("Return");
  waitForList();
  click(kAdd, title);
  press("Return", kMainTitle);
  EXPECT_EQ(rows().size(), 2u);
  EXPECT_EQ(rows()[1].start, 81920u);

  press("Home Delete", title);
  press("Escape", kMainTitle);
  press("Home Delete", title);
  press("Return", title);
  screen_->press("alt+n");
  waitForList();
  click(kAddAll, title);
  press("Return", kMainTitle);
  EXPECT_EQ(rows().size(), 3u);
}

}  // namespace
}  // namespace tallowin
