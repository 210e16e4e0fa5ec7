#include "app/main_window_model.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "app/mbr_view_model.h"
#include "base/text.h"
#include "ops/create_model.h"
#include "ops/delete_model.h"
#include "ops/edit_model.h"
#include "ops/slide_model.h"
#include "support/fake_host.h"
#include "support/oracle.h"
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
  // The first row of this type.
  void select(const std::string& type) {
    const auto& rows = window().rows();
    const auto row = std::ranges::find(rows, type, &PartitionRow::type);
    ASSERT_NE(row, rows.end()) << type;
    window().selectRow(static_cast<std::size_t>(row - rows.begin()));
  }
  // "name|kind|size|type", with an E before the name of what is in error.
  std::vector<std::string> texts() {
    std::vector<std::string> all;
    for (const PartitionRow& row : window().rows())
      all.push_back((row.isInError ? "E " : "") + row.name + "|" + row.kind + "|" + row.size + "|" +
                    row.type);
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
  const std::vector<std::string> rows = texts();
  for (const char* row : {"MBR 0|Partition|2 MiB|FAT-16", "MBR 1|Partition|16 MiB|Extended",
                          "|Volume|< 1 MiB|Linux Native", "-------|Volume|13 MiB|Free Space"})
    EXPECT_NE(std::ranges::find(rows, row), rows.end()) << row << testing::PrintToString(rows);
}

TEST_F(MainWindowTest, RowsOfAGptHaveTheirOwnNamesAndTypes) {
  addImage(
      "label: gpt\nsize=4M,name=\"Größe 測試\",type=C12A7328-F81F-11D2-BA4B-00A0C93EC93B\n"
      "size=4M,name=swap,type=0657FD6D-A4AB-43C4-84E5-0933C84B4F4F\n"
      "size=4M,name=other,type=01234567-F81F-11D2-BA4B-00A0C93EC93B\n");
  std::vector<std::string> rows = texts();
  std::erase_if(rows, [](const std::string& row) { return row.ends_with("Free Space"); });
  EXPECT_EQ(rows, (std::vector<std::string>{"Größe 測試|Partition|4 MiB|EFI System",
                                            "swap|Partition|4 MiB|Linux Swap",
                                            "other|Partition|4 MiB|GPT Entry"}));
}

TEST_F(MainWindowTest, EveryDisabledButtonSaysWhy) {
  addImage(kScript);
  for (std::size_t row = 0; row < window().rows().size(); ++row) {
    window().selectRow(row);
    for (std::size_t i = 0; i < kActionCount; ++i) {
      const Control control = window().control(static_cast<Action>(i));
      EXPECT_EQ(control.enabled, control.whyDisabled.empty())
          << window().label(static_cast<Action>(i)) << window().rows()[row].type;
    }
  }
  select("Free Space");
  EXPECT_TRUE(isEnabled(Action::create));
  EXPECT_TRUE(isEnabled(Action::deleteOrUndelete));
  EXPECT_EQ(window().label(Action::deleteOrUndelete), "Unde&lete");
  select("FAT-16");
  EXPECT_FALSE(isEnabled(Action::create));
  EXPECT_TRUE(isEnabled(Action::deleteOrUndelete));
  EXPECT_TRUE(isEnabled(Action::format));
  EXPECT_EQ(window().label(Action::deleteOrUndelete), "De&lete");
  EXPECT_TRUE(isEnabled(Action::editFile));
  select("Linux Native");
  EXPECT_FALSE(isEnabled(Action::format));
  EXPECT_FALSE(isEnabled(Action::editFile));
}

TEST_F(MainWindowTest, AChainThatLoopsMarksItsRow) {
  addImage(kScript);
  const long link = 20480L * 512 + 446 + 16;  // of the first EBR, to itself
  damage(link, {0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0});
  EXPECT_TRUE(window().hasErrors());
  select("Extended");
  EXPECT_TRUE(window().rows()[*window().selectedRow()].isInError);
  EXPECT_TRUE(isEnabled(Action::deleteOrUndelete));
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

TEST_F(MainWindowTest, AGptWithOneBadCopyIsRepairedByAClickOrBeforeAChange) {
  addImage("label: gpt\nsize=20M\n");
  damage(-512, {'X'});
  EXPECT_TRUE(window().control(Action::repairTable).shown);
  ui_.expectMessage("The backup of the GPT is missing or damaged.", MessageResult::no);
  window().press(Action::repairTable);
  EXPECT_FALSE(window().drive()->gptHealth()->isSound());
  ui_.expectMessage("The backup of the GPT is missing or damaged.", MessageResult::yes);
  window().press(Action::repairTable);
  EXPECT_TRUE(window().drive()->gptHealth()->isSound());
  EXPECT_FALSE(window().control(Action::repairTable).shown);

  damage(-512, {'X'});
  window().key(Key::f5);
  ui_.expectMessage("The backup of the GPT is missing or damaged.", MessageResult::yes);
  ui_.expectChoice("Please select the partition style to use:", 2);
  window().press(Action::changeDiskType);
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
    dialog.sizeMiB.setValue(20);
    dialog.pass();
    dialog.ok();
  };
  ui_.expect<CreateModel>(linux20);
  window().key(Key::insert);
  EXPECT_EQ(window().rows()[*window().selectedRow()].name, "MBR 0") << "the new one is selected";
  ui_.expect<CreateModel>(linux20);
  select("Free Space");
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

TEST_F(MainWindowTest, ACopyIsPastedOnAnotherDriveUnlessSomethingElseIsDone) {
  addImage(kScript);
  addImage("label: dos\n");
  select("FAT-16");
  window().press(Action::copy);
  EXPECT_EQ("* Paste Pending for Copy (2MiB) *", window().pasteLabel());
  EXPECT_FALSE(isEnabled(Action::paste)) << "onto itself";
  window().selectDrive(1);
  select("Free Space");
  ASSERT_TRUE(isEnabled(Action::paste)) << window().control(Action::paste).whyDisabled;
  ui_.expect<CreateModel>([](CreateModel& model) {
    EXPECT_TRUE(model.isCopy());
    model.ok();
  });
  window().press(Action::paste);
  EXPECT_EQ("", window().pasteLabel());
  const SfdiskTable table = readTable(options_.images[1]);
  ASSERT_EQ(1U, table.rows.size());
  EXPECT_EQ(3072U, table.rows[0].size);
  EXPECT_EQ(6U, table.rows[0].type);
  // The new partition is selected.
  EXPECT_EQ("FAT-16", window().rows()[*window().selectedRow()].type);

  window().press(Action::copy);
  ui_.expect<SlideModel>([](SlideModel& model) { model.cancel(); });
  window().press(Action::slide);
  EXPECT_EQ("", window().pasteLabel()) << "given up";
}

TEST_F(MainWindowTest, TheTableIsReadAgainAfterTheMbrEditor) {
  addImage("label: dos\nsize=10M,type=83\nsize=10M,type=7\n");
  int topic = 0;
  window().setHelpHook([&](int shown) { topic = shown; });
  ui_.expect<MbrViewModel>([this](MbrViewModel& editor) {
    editor.help();
    editor.press(MbrAction::remove);
    ui_.expectMessage("The changes are written to the boot sector", MessageResult::yes);
    ui_.expectChoice("The old partition table is kept in", 0);
    editor.press(MbrAction::apply);
  });
  window().press(Action::viewMbr);
  EXPECT_EQ(topic, MbrViewModel::kHelpTopic);
  for (const std::string& row : texts()) EXPECT_EQ(row.find("Linux"), std::string::npos) << row;
  EXPECT_EQ(readTable(options_.images[0]).rows.size(), 1u);
}

TEST_F(MainWindowTest, FilesAreEditedOnImagesOfEveryForm) {
  for (const char* program : {"qemu-img", "mkfs.fat", "mcopy"})
    if (!hasProgram(program)) GTEST_SKIP() << program << " is not installed";
  addImage("label: dos\nstart=2048,size=32768,type=6\n");
  const std::string raw = options_.images[0];
  const auto run = [](const std::vector<std::string>& command) {
    const ProgramResult result = runProgram(command);
    EXPECT_EQ(result.status, 0) << result.output;
  };
  folder_.write("old", "old\r\n");
  run({"mkfs.fat", "-F", "16", "--offset", "2048", raw, "16384"});
  run({"mcopy", "-i", raw + "@@1M", folder_.file("old"), "::FILE.TXT"});
  options_.images.clear();
  for (const std::string form : {"raw", "vpc", "vmdk"}) {
    options_.images.push_back(folder_.file("image." + form));
    run({"qemu-img", "convert", "-q", "-O", form, raw, options_.images.back()});
  }
  int topic = 0;
  window().setHelpHook([&](int shown) { topic = shown; });
  for (u32 i = 0; i < options_.images.size(); ++i) {
    window().digit(i);
    select("FAT-16");
    ui_.expectFile("/file.txt");
    ui_.expect<EditModel>([](EditModel& model) {
      EXPECT_EQ(model.title, "Edit File - FILE.TXT");
      model.help();
      model.text.change(0, 0, "new and ");
      model.ok();
    });
    window().press(Action::editFile);
    run({"qemu-img", "convert", "-q", "-O", "raw", options_.images[i], folder_.file("back")});
    run({"mcopy", "-n", "-i", folder_.file("back") + "@@1M", "::FILE.TXT", folder_.file("new")});
    EXPECT_EQ(folder_.read("new"), "new and old\r\n") << options_.images[i];
  }
  EXPECT_EQ(topic, EditModel::kHelpTopic);
}

TEST_F(MainWindowTest, ADiscOffersItsFiles) {
  if (!hasProgram("xorriso")) GTEST_SKIP() << "xorriso is not installed";
  folder_.write("disc/file.txt", "hello");
  options_.images.push_back(folder_.file("disc.iso"));
  ASSERT_EQ(
      runProgram({"xorriso", "-as", "mkisofs", "-o", options_.images[0], folder_.file("disc")})
          .status,
      0);
  ASSERT_FALSE(window().rows().empty());
  EXPECT_TRUE(isEnabled(Action::editFile)) << testing::PrintToString(texts());
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
