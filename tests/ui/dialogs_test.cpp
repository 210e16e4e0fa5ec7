// Every dialog as a person works it: real keys and clicks on a display of the test's own.
#include <gtest/gtest.h>
#include <signal.h>

#include "support/temp_folder.h"
#include "ui/screen.h"

namespace tallowin {
namespace {

struct Case {
  std::vector<std::string> window;  // arguments of the gallery
  std::string title;
  std::string keys;
  std::string answer;
};

class DialogTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = Screen::whyMissing(); !missing.empty()) GTEST_SKIP() << missing;
    screen_ = std::make_unique<Screen>();
  }

  static std::vector<std::string> gallery(const std::vector<std::string>& window) {
    std::vector<std::string> command = {UI_GALLERY};
    command.insert(command.end(), window.begin(), window.end());
    return command;
  }

  void expectAnswer(ChildProcess& child, const std::string& answer) {
    int status = -1;
    EXPECT_EQ(child.output(status), answer + "\n");
    EXPECT_EQ(status, 0);
    screen_->forget();
  }

  void run(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
      SCOPED_TRACE(testing::PrintToString(c.window) + " " + c.keys);
      ChildProcess child(gallery(c.window));
      ASSERT_FALSE(screen_->waitFor(c.title).empty());
      screen_->press(c.keys);
      expectAnswer(child, c.answer);
    }
  }

  std::unique_ptr<Screen> screen_;
};

TEST_F(DialogTest, MessageBoxesAnswerEveryKey) {
  run({
      {{"message", "error", "ok"}, "Error", "Return", "1"},
      {{"message", "error", "ok"}, "Error", "alt+F4", "1"},
      {{"message", "notice", "ok"}, "Notice", "alt+o", "1"},
      {{"message", "question", "okCancel"}, "Question", "Escape", "3"},
      {{"message", "question", "okCancel"}, "Question", "Tab Return", "3"},
      {{"message", "question", "yesNo"}, "Question", "Return", "5"},
      {{"message", "question", "yesNo"}, "Question", "alt+n", "6"},
      {{"message", "question", "yesNo"}, "Question", "alt+F4", "0"},
      {{"message", "warning", "yesNo", "general"}, "Warning", "Return", "6"},
      {{"message", "warning", "yesNo", "general"}, "Warning", "shift+Tab space", "5"},
      {{"message", "question", "yesNoCancel"}, "Question", "Escape", "3"},
      {{"message", "warning", "continueCancel"}, "Warning", "alt+c", "7"},
      {{"message", "warning", "continueCancel"}, "Warning", "alt+F4", "0"},
  });
}

TEST_F(DialogTest, MessageBoxButtonsAnswerClicks) {
  for (const auto& [side, answer] : {std::pair(-1, "5"), std::pair(1, "6")}) {
    ChildProcess child(gallery({"message", "question", "yesNo"}));
    const std::string window = screen_->waitFor("Question");
    ASSERT_FALSE(window.empty());
    const auto [width, height] = screen_->size(window);
    screen_->click(window, width / 2 + side * 44, height - 22);
    expectAnswer(child, answer);
  }
}

TEST_F(DialogTest, ALongMessageStaysOnTheScreen) {
  std::string text;
  for (int line = 0; line < 300; ++line) text += "A line.\n";
  ChildProcess child(gallery({"message", "error", "ok", "none", text}));
  const std::string window = screen_->waitFor("Error");
  ASSERT_FALSE(window.empty());
  EXPECT_LE(screen_->size(window).second, 768);
  screen_->press("Return");
  expectAnswer(child, "1");
}

TEST_F(DialogTest, TextInputAndChoiceBox) {
  run({
      {{"input", "11", "OLD"}, "Volume Label", "End a b Return", "ok OLDab"},
      {{"input", "4", "OLD"}, "Volume Label", "End a b c F10", "ok OLDa"},
      {{"input", "11", "OLD"}, "Volume Label", "End a Escape", "cancel OLD"},
      {{"choice"}, "Change Disk Type", "Return", "0"},
      {{"choice"}, "Change Disk Type", "alt+g", "1"},
      {{"choice"}, "Change Disk Type", "alt+F4", "2"},
  });
}

TEST_F(DialogTest, CreateIsWorkedByKeyboard) {
  run({
      // Typing a type ticks Format; free space after follows the size.
      {{"create", "gpt"},
       "Create - 6000 MiB Block",
       "a b Tab 1 1 alt+n alt+s BackSpace BackSpace 6 Return",
       "ok ab,6,4095,0,1905,1,0"},
      {{"create", "gpt"},
       "Create - 6000 MiB Block",
       "x alt+s 0 x 8 3 Tab ctrl+a 5 0 0 alt+b ctrl+a 1 0 0 F10",
       "ok x,131,500,100,5400,0,0"},
      // From the menu, and by the arrow keys of a number.
      {{"create", "gpt"},
       "Create - 6000 MiB Block",
       "x Tab Down Down Return Tab Down Down F10",
       "ok x,4,29,0,5971,1,0"},
      // Two fields share a letter: the second press goes on to the other one.
      {{"create", "gpt"},
       "Create - 6000 MiB Block",
       "x alt+s 6 alt+s ctrl+a 1 0 0 F10",
       "ok x,6,100,0,5900,1,0"},
      // The Tab key passes every field in its order, and over what is disabled.
      {{"create", "gpt"},
       "Create - 6000 MiB Block",
       "x Tab 1 3 1 Tab ctrl+a 5 0 0 Tab ctrl+a 1 0 0 Tab Tab Tab Return",
       "cancel x,131,500,100,5400,0,0"},
  });

  // What is missing is told, and the dialog stays open.
  ChildProcess child(gallery({"create", "gpt"}));
  ASSERT_FALSE(screen_->waitFor("Create - 6000 MiB Block").empty());
  screen_->press("Return");
  ASSERT_FALSE(screen_->waitFor("Notice").empty());
  screen_->press("Return");
  ASSERT_FALSE(screen_->waitFor("Create - 6000 MiB Block").empty());
  screen_->press("Escape");
  expectAnswer(child, "cancel ,0,6000,0,0,0,0");
}

TEST_F(DialogTest, DeleteFormatAndSummaryAreWorkedByKeyboard) {
  run({
      {{"delete"}, "Confirm Delete", "Return", "no 0000"},
      {{"delete"}, "Confirm Delete", "alt+c alt+w alt+y", "yes 1100"},
      {{"delete"}, "Confirm Delete", "shift+Tab shift+Return", "yes 0001"},
      {{"delete", "error"}, "Confirm Delete", "alt+c alt+w alt+y", "yes 0000"},
      {{"format", "fat32"}, "Format", "Down Down Return", "ok 1024,0"},
      {{"format", "fat32"}, "Format", "alt+a F10", "ok 0,1"},
      {{"format", "fat12", "fat32"}, "Format", "Down Tab Down Return", "ok 512,0,fat32"},
      {{"format"}, "Format", "Escape", "cancel 0,0"},
      {{"summary"}, "Format Summary", "Escape", "closed"},
      {{"help", UI_HELP_FILE}, "Tallowin Help", "F1 Page_Down Escape", "closed"},
      {{"progress"}, "Format", "Escape", "cancelled"},
      {{"progress"}, "Format", "alt+s", "cancelled"},
  });
  ChildProcess child(gallery({"progress"}));
  ASSERT_FALSE(screen_->waitFor("Format").empty());
  // Keys that were meant for whatever stood there before.
  screen_->press("Return space F10 Tab Return");
  screen_->press("Return");
  EXPECT_TRUE(child.runs());
  screen_->press("Escape");
  expectAnswer(child, "cancelled");
}

TEST_F(DialogTest, DriveSettingsAreWorkedByKeyboard) {
  const std::string title = "Drive Settings";
  run({
      {{"drive"}, title, "Return", "ok 0/0/0 00010000010"},
      {{"drive"},
       title,
       "alt+c ctrl+a 9 9 alt+h ctrl+a 1 5 alt+s Down F10",
       "ok 99/15/62 00010000010"},
      {{"drive"}, title, "alt+m alt+v alt+r alt+1 alt+e alt+t alt+d F10", "ok 0/0/0 11011111000"},
      {{"drive"}, title, "alt+g alt+a alt+r alt+l F10", "ok 0/0/0 00100000010"},
      {{"drive", "embr"}, title, "alt+u alt+l F10", "ok 0/0/0 00010000111"},
      // In the order of the tab key: three numbers, then the boxes that can be used.
      {{"drive"}, title, "Tab Tab Tab space Tab space Tab space F10", "ok 0/0/0 11110000010"},
      {{"drive", "global"}, title, "alt+m alt+1 F10", "ok 0/0/0 00010000110"},
  });
}

TEST_F(DialogTest, DrivesAreChosenByKeyboard) {
  const std::string title = "Drive Settings";
  run({
      {{"drives", "a", "b"}, title, "Return F10 Escape", "closed"},
      {{"drives", "a", "b"}, title, "alt+d Down Down F10 Escape", "edit 0,1 closed"},
      {{"drives", "a", "b"}, title, "Down alt+d Down alt+e Escape", "edit 1,0 closed"},
  });
}

TEST_F(DialogTest, SettingsAreWorkedByKeyboard) {
  const std::string drive = " 0/0/0 00010000010";
  const std::string usual = "0100000110100 00001101";
  run({
      {{"settings"}, "Settings", "Return", "ok " + usual + drive},
      {{"settings"},
       "Settings",
       "alt+l alt+v alt+6 alt+a alt+f alt+q alt+o alt+p alt+e alt+d alt+j alt+c alt+n F10",
       "ok 1011111001011 00001101" + drive},
      {{"settings"},
       "Settings",
       "ctrl+Tab alt+d alt+1 alt+c alt+t alt+v alt+b alt+h alt+w F10",
       "ok 0100000110100 11110010" + drive},
      // A letter of the page comes before the same letter of a tab.
      {{"settings"},
       "Settings",
       "alt+r alt+r alt+a alt+g F10",
       "ok " + usual + " 0/0/0 00100000010"},
      {{"settings", "global"},
       "Settings",
       "alt+r alt+a ctrl+Tab alt+l F10",
       "ok 1100000110100 00001101 0/0/0 00010000110"},
      {{"settings", "none"}, "Settings", "alt+r alt+u alt+d F10", "ok " + usual + " -"},
  });

  for (const auto& [keys, title] : {std::pair("F1", "Help"), std::pair("alt+r alt+o", "List")}) {
    ChildProcess child(gallery({"settings"}));
    ASSERT_FALSE(screen_->waitFor("Settings").empty());
    screen_->press(keys);
    ASSERT_FALSE(screen_->waitFor(title).empty());
    screen_->press("Return");
    ASSERT_FALSE(screen_->waitFor("Settings").empty());
    screen_->press("Escape");
    expectAnswer(child, "cancel " + usual + drive);
  }
}

TEST_F(DialogTest, ADisabledControlSaysWhy) {
  const std::string reason =
      "The partition overlaps another one or is not possible, so none of its sectors may be "
      "overwritten.";
  ChildProcess child(gallery({"delete", "error"}));
  const std::string window = screen_->waitFor("Confirm Delete");
  ASSERT_FALSE(window.empty());
  // By its letter, until the next key.
  screen_->press("alt+c");
  EXPECT_TRUE(screen_->waitUntilSeen(reason));
  screen_->press("Tab");
  EXPECT_TRUE(screen_->waitUntilGone(reason));
  // Under the resting mouse, until that goes away.
  const int checkBoxY = screen_->size(window).second - 101;
  screen_->point(window, 60, checkBoxY);
  screen_->point(window, 61, checkBoxY);
  EXPECT_TRUE(screen_->waitUntilSeen(reason));
  screen_->point(window, 30, 5);
  EXPECT_TRUE(screen_->waitUntilGone(reason));
  screen_->press("Escape");
  expectAnswer(child, "no 0000");
}

TEST_F(DialogTest, WindowsArePaintedAndCancelIsNotedWhileADiskDoesNotAnswer) {
  run({
      {{"stuck"}, "Format", "Escape", "read, cancelled, painted"},
      {{"stuck", "pipe"}, "Format", "alt+F4", "read, cancelled, painted"},
  });
}

TEST_F(DialogTest, ASignalOrALostDisplayEndsWhatIsUnderWayAndThenTheProgram) {
  for (const bool isWork : {true, false}) {
    ChildProcess child(gallery({isWork ? "progress" : "choice"}));
    ASSERT_FALSE(screen_->waitFor(isWork ? "Format" : "Change Disk Type").empty());
    kill(child.id(), SIGTERM);
    expectAnswer(child, isWork ? "cancelled" : "2");
  }
  ChildProcess work(gallery({"progress"}));
  ASSERT_FALSE(screen_->waitFor("Format").empty());
  ChildProcess question(gallery({"message", "question", "yesNo"}));
  ASSERT_FALSE(screen_->waitFor("Question").empty());
  screen_.reset();
  for (const auto& [child, answer] : {std::pair(&work, "cancelled\n"), {&question, "0\n"}}) {
    int status = -1;
    EXPECT_EQ(child->output(status), answer);
    EXPECT_EQ(status, 1);
  }
}

TEST_F(DialogTest, FileDialogWalksAndChooses) {
  TempFolder folder;
  folder.write("b/inner.img", "x");
  folder.write("a.img", "x");
  run({
      {{"file", folder.path(), "0x44"},
       "Open",
       "a period i m g Return",
       "chosen " + folder.file("a.img")},
      {{"file", folder.path(), "0x44"}, "Open", "Down Down Return b slash Escape", "cancelled"},
      {{"file", folder.path(), "0x44"},
       "Open",
       "b Return i n n e r period i m g Return",
       "chosen " + folder.file("b/inner.img")},
      {{"file", folder.path(), "0x49"},
       "Save As",
       "n e w period x Return",
       "chosen " + folder.file("new.x")},
  });

  ChildProcess child(gallery({"file", folder.path(), "0x49"}));
  ASSERT_FALSE(screen_->waitFor("Save As").empty());
  screen_->type("a.img");
  screen_->press("Return");
  ASSERT_FALSE(screen_->waitFor("Save As").empty());
  screen_->press("alt+n");  // keeps the file: the dialog stays open
  ASSERT_FALSE(screen_->waitFor("Save As").empty());
  screen_->press("Escape");
  expectAnswer(child, "cancelled");
}

TEST_F(DialogTest, AFileIsEditedByKeyboard) {
  const std::string title = "Edit File - file.txt";
  const std::string old = "one\r\ntwo\nthree";
  run({
      {{"edit", old}, title, "Escape", "closed"},
      {{"edit", old}, title, "F10", "closed"},
      {{"edit", old},
       title,
       "a Return Down b Tab c F10",
       "save:a\\r\\none\\r\\nb\tctwo\\nthree closed"},
      // Undone and made again; what is changed back needs no saving.
      {{"edit", old},
       title,
       "a space b ctrl+z ctrl+z ctrl+y alt+s F10",
       "save:a one\\r\\ntwo\\nthree closed"},
      {{"edit", old}, title, "a BackSpace Delete o Escape", "closed"},
      // A copied line end takes the place where it comes to.
      {{"edit", old},
       title,
       "shift+Down ctrl+c ctrl+End Return ctrl+v alt+v alt+F4",
       "saveAs:one\\r\\ntwo\\nthree\\none\\n closed"},
      {{"edit", old, "readonly"}, title, "a BackSpace ctrl+v Return alt+s F10", "closed"},
      {{"edit", "", "long"}, title, "End ctrl+End ctrl+Home Page_Down Escape", "closed"},
  });

  // An Escape too many loses nothing.
  ChildProcess child(gallery({"edit", ""}));
  for (int round = 0; round < 3; ++round) {
    ASSERT_FALSE(screen_->waitFor(title).empty());
    screen_->press("x Escape");
    ASSERT_FALSE(screen_->waitFor("Warning").empty());
    screen_->press("Escape");
  }
  ASSERT_FALSE(screen_->waitFor(title).empty());
  screen_->press("F1");
  ASSERT_FALSE(screen_->waitFor("Help").empty());
  screen_->press("Return");
  ASSERT_FALSE(screen_->waitFor(title).empty());
  screen_->press("alt+F4");
  ASSERT_FALSE(screen_->waitFor("Warning").empty());
  screen_->press("Return");
  expectAnswer(child, "save:xxx closed");
}

}  // namespace
}  // namespace tallowin
