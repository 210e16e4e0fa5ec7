#include "app/main_window_model.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "app/mbr_view_model.h"
#include "base/text.h"
#include "ops/create_model.h"
#include "ops/delete_model.h"
#include "support/fake_host.h"
#include "support/scripted_front_end.h"
#include "support/sfdisk.h"

namespace tallowin {
namespace {

class MainWindowTest : public testing::Test {
 protected:
  // An image with a table made by another program.
  void addImage(const std::string& script, u64 bytes = 100 * kMiB) {
    const std::string name = "disk" + std::to_string(options_.images.size()) + ".img";
    options_.images.push_back(folder_.sparse(name, bytes));
    EXPECT_EQ(makeTable(options_.images.back(), script), "");
  }
  // Puts bytes into the first image, counted from its end where the offset is negative.
  void damage(long offset, const std::vector<u8>& bytes) {
    std::FILE* image = std::fopen(options_.images[0].c_str(), "r+b");
    ASSERT_NE(image, nullptr);
    std::fseek(image, offset, offset < 0 ? SEEK_END : SEEK_SET);
    std::fwrite(bytes.data(), 1, bytes.size(), image);
    std::fclose(image);
  }
  MainWindowModel& window() {
    if (model_) return *model_;
    options_.noDevices = true;
    session_ = std::make_unique<Session>(
        std::make_unique<FakeHost>(),
        ProgramFolders{folder_.path(), folder_.path(), folder_.path()}, options_);
    model_ = std::make_unique<MainWindowModel>(*session_, ui_);
    return *model_;
  }
  // The first row with this text in it.
  void select(const std::string& part) {
    const auto& rows = window().rows();
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const PartitionRow& r) {
      return r.text.find(part) != std::string::npos;
    });
    ASSERT_NE(row, rows.end()) << part;
    window().selectRow(static_cast<std::size_t>(row - rows.begin()));
  }
  std::vector<std::string> texts() {
    std::vector<std::string> all;
    for (const PartitionRow& row : window().rows()) all.push_back(row.text);
    return all;
  }
  bool isEnabled(Action action) { return window().control(action).enabled; }

  TempFolder folder_;
  Options options_;
  ScriptedFrontEnd ui_;
  std::unique_ptr<Session> session_;
  std::unique_ptr<MainWindowModel> model_;
};

constexpr const char* kScript =
    "label: dos\nstart=2048,size=3072,type=6\nstart=20480,size=32768,type=5\n"
    "v5: start=22528,size=819,type=83\nstart=65536,size=2048,type=7,bootable\n";

TEST_F(MainWindowTest, RowsAndLabels) {
  addImage(kScript);
  EXPECT_EQ(window().buses(), (std::vector<std::string>{"OS", "Image"}));
  EXPECT_EQ(window().busIndex(), 1u) << "the bus that has a drive";
  EXPECT_EQ(window().driveCountLabel(), "(1)");
  EXPECT_EQ(window().schemeLabel(), "MBR Partitions");
  EXPECT_FALSE(window().hasErrors());
  const auto rows = texts();
  ASSERT_GE(rows.size(), 4u);
  EXPECT_NE(std::ranges::find(rows, "MBR 0\tPartition  \t\x0fr2 MiB\t FAT-16"), rows.end())
      << "1.5 MiB is shown as 2: " << testing::PrintToString(rows);
  EXPECT_NE(std::ranges::find(rows, "MBR 1\tPartition  \t\x0fr16 MiB\t Extended"), rows.end());
  EXPECT_NE(std::ranges::find_if(rows,
                                 [](const std::string& row) {
                                   return row.starts_with("    ") &&
                                          row.ends_with("\tVolume  \t\x0fr< 1 MiB\t Linux Native");
                                 }),
            rows.end());
  EXPECT_NE(std::ranges::find_if(rows,
                                 [](const std::string& row) {
                                   return row.starts_with("-------\tPartition  \t\x0fr") &&
                                          row.ends_with("\t Free Space");
                                 }),
            rows.end());
}

TEST_F(MainWindowTest, ChooserRowsOfTheOtherModes) {
  addImage(kScript);
  const auto table = partitionRows(*window().drive(), RowMode::tableEntries);
  EXPECT_EQ(table.size(), 3u) << "neither volumes nor free space";
  const auto names = partitionRows(*window().drive(), RowMode::names);
  ASSERT_EQ(names.size(), 3u) << "not the extended partition";
  EXPECT_EQ(names[0].text, "MBR 0");
  EXPECT_EQ(names[1].text, "MBR 2");
  EXPECT_TRUE(names[2].text.starts_with("(vol) "));
}

TEST_F(MainWindowTest, EveryDisabledButtonSaysWhy) {
  addImage(kScript);
  for (std::size_t row = 0; row < window().rows().size(); ++row) {
    window().selectRow(row);
    for (std::size_t i = 0; i < kActionCount; ++i) {
      const Control control = window().control(static_cast<Action>(i));
      EXPECT_EQ(control.enabled, control.whyDisabled.empty())
          << window().label(static_cast<Action>(i)) << window().rows()[row].text;
    }
  }
  select("-------");
  EXPECT_TRUE(isEnabled(Action::create));
  EXPECT_FALSE(isEnabled(Action::deleteOrUndelete));
  EXPECT_EQ(window().label(Action::deleteOrUndelete), "Unde&lete");
  select("FAT-16");
  EXPECT_FALSE(isEnabled(Action::create));
  EXPECT_TRUE(isEnabled(Action::deleteOrUndelete));
  EXPECT_TRUE(isEnabled(Action::format));
  EXPECT_EQ(window().label(Action::deleteOrUndelete), "De&lete");
  select("Linux Native");
  EXPECT_FALSE(isEnabled(Action::format));
}

TEST_F(MainWindowTest, OverlapsAreMarkedAndCanOnlyBeDeleted) {
  addImage("label: dos\nstart=2048,size=4096,type=6\nstart=8192,size=4096,type=83\n");
  damage(446 + 16 + 8, {0x00, 0x10, 0, 0});  // starts in the first one
  EXPECT_TRUE(window().hasErrors());
  select("\tPartition E\t");
  EXPECT_TRUE(isEnabled(Action::deleteOrUndelete));
  EXPECT_FALSE(isEnabled(Action::format));
}

TEST_F(MainWindowTest, AnEmptyListSaysWhatWouldFillIt) {
  addImage("label: dos\n", 4 * kMiB);
  EXPECT_TRUE(window().rows().empty());
  EXPECT_NE(window().whyEmpty().find("16065 sectors"), std::string::npos) << window().whyEmpty();
  EXPECT_EQ(window().control(Action::create).whyDisabled, window().whyEmpty());
  model_.reset();
  options_.globalGeoAlign2K = true;
  EXPECT_EQ(window().rows().size(), 1U);
  EXPECT_EQ(window().whyEmpty(), "");
}

TEST_F(MainWindowTest, AGptDamagedInBothCopiesIsShownAndNotChanged) {
  addImage("label: gpt\nsize=20M\n");
  for (const long header : {512L, -512L}) damage(header, {'X'});
  ASSERT_FALSE(window().rows().empty());
  EXPECT_FALSE(isEnabled(Action::deleteOrUndelete));
  EXPECT_EQ(window().control(Action::deleteOrUndelete).whyDisabled,
            window().drive()->changeRefusal());
}

TEST_F(MainWindowTest, AGptWithOneBadCopyIsMarkedAndRepairedBeforeAChange) {
  addImage("label: gpt\nsize=20M\n");
  damage(-512, {'X'});
  EXPECT_EQ(window().errorLabel(), "* GPT Needs Repair *");
  ui_.expectMessage("The backup of the GPT is missing or damaged.", MessageResult::yes);
  ui_.expectChoice("Please select the partition style to use:", 2);
  window().press(Action::changeDiskType);
  EXPECT_EQ(window().errorLabel(), "");
  EXPECT_TRUE(window().drive()->gptHealth()->isSound());
}

TEST_F(MainWindowTest, DigitsAndTheChooserSelectDrives) {
  for (int i = 0; i < 4; ++i) addImage("label: dos\nsize=10M,type=83\n");
  window().digit(3);
  EXPECT_EQ(window().driveIndex(), 3u);
  const u32 revision = window().revision();
  window().digit(7);
  EXPECT_EQ(window().driveIndex(), 3u);
  EXPECT_EQ(window().revision(), revision);
  window().selectBus(0);
  EXPECT_EQ(window().driveCountLabel(), "(0)");
  EXPECT_TRUE(window().rows().empty());
  EXPECT_EQ(window().schemeLabel(), "");
  EXPECT_FALSE(isEnabled(Action::create));
  EXPECT_NE(window().whyWithoutDrive(), "");
  EXPECT_EQ(window().control(Action::create).whyDisabled, window().whyWithoutDrive());
}

TEST_F(MainWindowTest, ADriveThatCannotBeOpenedSaysSo) {
  options_.images.push_back(folder_.file("missing.img"));
  EXPECT_TRUE(window().rows().empty());
  EXPECT_NE(window().whyWithoutDrive().find("missing.img"), std::string::npos);
  EXPECT_EQ(window().control(Action::create).whyDisabled, window().whyWithoutDrive());
}

TEST_F(MainWindowTest, CreateByKeyAndByDoubleClickThenDelete) {
  addImage("label: dos\n");
  const auto linux20 = [](CreateModel& dialog) {
    dialog.name = "WORK";
    dialog.fileSystem = "131";
    dialog.pass();
    dialog.sizeMiB.value = 20;
    dialog.pass();
    dialog.ok();
  };
  ui_.expect<CreateModel>(linux20);
  window().key(Key::insert);
  ui_.expect<CreateModel>(linux20);
  select("-------");
  window().setScrollPosition(40);
  window().doubleClick();
  EXPECT_EQ(window().scrollPosition(), 40) << "the list stays where it was";
  EXPECT_EQ(readTable(options_.images[0]).rows.size(), 2u);

  select("Linux Native");
  const std::size_t row = *window().selectedRow();
  ui_.expect<DeleteModel>([](DeleteModel& dialog) { dialog.ok(); });
  window().key(Key::del);
  EXPECT_EQ(readTable(options_.images[0]).rows.size(), 1u);
  EXPECT_EQ(window().selectedRow(), row) << "a row beside the deleted one";

  ui_.expect<DeleteModel>([](DeleteModel& dialog) { dialog.cancel(); });
  select("Linux Native");
  window().press(Action::deleteOrUndelete);
  EXPECT_EQ(readTable(options_.images[0]).rows.size(), 1u);
}

TEST_F(MainWindowTest, TheTableIsReadAgainAfterTheMbrEditor) {
  addImage("label: dos\nsize=10M,type=83\nsize=10M,type=7\n");
  int topic = 0;
  window().setHelpHook([&](int shown) { topic = shown; });
  ui_.expect<MbrViewModel>([](MbrViewModel& editor) {
    editor.help();
    editor.press(MbrAction::remove);
    editor.press(MbrAction::apply);
  });
  window().press(Action::viewMbr);
  EXPECT_EQ(topic, MbrViewModel::kHelpTopic);
  for (const std::string& row : texts()) EXPECT_EQ(row.find("Linux"), std::string::npos) << row;
  EXPECT_EQ(readTable(options_.images[0]).rows.size(), 1u);
}

TEST_F(MainWindowTest, RefreshShowsWhatOthersChanged) {
  addImage("label: dos\nsize=10M,type=83\n");
  const std::size_t before = window().rows().size();
  ASSERT_EQ(makeTable(options_.images[0], "label: dos\nsize=10M,type=83\nsize=10M,type=7\n"), "");
  const u32 revision = window().revision();
  window().key(Key::f5);
  EXPECT_GT(window().rows().size(), before);
  EXPECT_GT(window().revision(), revision);
}

TEST_F(MainWindowTest, HelpAndTheThreeWaysToClose) {
  addImage("label: dos\n");
  int topic = 0;
  window().setHelpHook([&](int shown) { topic = shown; });
  window().key(Key::f1);
  EXPECT_EQ(topic, 4);
  for (const Key key : {Key::f10, Key::escape}) {
    MainWindowModel model(*session_, ui_);
    model.key(key);
    EXPECT_FALSE(model.isOpen());
    EXPECT_EQ(model.drive(), nullptr);
  }
  window().press(Action::close);
  EXPECT_FALSE(window().isOpen());
}

}  // namespace
}  // namespace tallowin
