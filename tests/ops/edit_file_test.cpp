// Files are edited while people change their minds, other programs write, disks fail and the power
// goes; other programs read what is left.
#include "fs/fs_bench.h"
#include "ops/edit_file_flow.h"
#include "ops/edit_model.h"
#include "ops/flow_bench.h"
#include "support/disk_file.h"
#include "support/oracle.h"
#include "support/table_rows.h"

namespace tallowin {
namespace {

constexpr FsSample kVolume = {"fat12", "fat12", 0x01, 32000, 4096};
constexpr const char* kPath = "/sub/Ein Brief für Žofie.txt";
constexpr const char* kShown = "Edit File - Ein Brief für Žofie.txt";

// A user in the editor: `act`, and then the button.
using Act = std::function<void(EditModel&)>;

void closeAsItIs(EditModel& model) { model.cancel(); }

class EditFileTest : public FlowTest {
 protected:
  EditFileTest() {
    std::unique_ptr<FileSystem> files = volumeFiles();
    EXPECT_EQ(Error::none, files->makeDirectory("/sub"));
    EXPECT_EQ(Error::none, put(*files, kPath, kOld));
    EXPECT_EQ(Error::none, put(*files, "/other", randomBytes(1, 30000)));
    File file;
    EXPECT_EQ(Error::none, files->open(kPath, {.access = FileAccess::write}, file));
    EXPECT_EQ(Error::none, file.setAttributes(kFileHidden | kFileSystemFile));
    EXPECT_EQ(Error::none, file.setTimes({kLongAgo, 0, kLongAgo}));
    EXPECT_EQ(Error::none, file.close());
    EXPECT_EQ(Error::none, files->sync());
  }

  std::unique_ptr<FileSystem> volumeFiles() {
    std::unique_ptr<FileSystem> files;
    EXPECT_EQ(Error::none, openFiles(volume_, kVolume, files));
    return files;
  }
  // Another program writes a file.
  void store(const std::string& path, const std::string& content) {
    const auto files = volumeFiles();
    EXPECT_EQ(Error::none, put(*files, path, content));
    EXPECT_EQ(Error::none, files->sync());
  }
  std::string stored(const std::string& path) { return contentOf(*volumeFiles(), path); }

  FlowResult edit(Drive& drive, ScriptedFrontEnd& ui) {
    const OperationContext context = with(ui);
    return editFileFlow(context, drive, *entriesOf(drive).front());
  }
  FlowEnd edit(std::shared_ptr<DiskDevice> disk) { return edit(*open(std::move(disk)), ui_).end; }
  FlowEnd edit(const std::string& path, const Act& act) {
    ui_.expectFile(path);
    expectEditor(act);
    return edit(borrowed(volume_));
  }
  void expectEditor(const Act& act) { ui_.expect<EditModel>(act); }
  void warn(const std::string& part, MessageResult answer = MessageResult::ok) {
    ui_.expectMessage(part, answer);
  }

  static constexpr FileTime kLongAgo = fileTimeOfUnixSeconds(800'000'000);
  const std::string kOld = "first\r\nsecond\nthird\r\n";
  const std::string kNew = "new first\r\nsecond\nthird\r\n";
  MemoryDisk volume_ = formatted(kVolume);
};

TEST_F(EditFileTest, WhatIsTypedIsReadByOthersAndAllElseStays) {
  if (!hasJudges()) GTEST_SKIP() << "needs dosfstools, mtools";
  FileTree expected = treeByOthers(volume_);
  FileInfo before, after;
  ASSERT_EQ(Error::none, volumeFiles()->info(kPath, before));
  EXPECT_EQ(FlowEnd::done, edit(kPath, [](EditModel& model) {
              EXPECT_EQ(kShown, model.title);
              EXPECT_EQ("first\nsecond\nthird\n", model.text.text());
              EXPECT_EQ("ASCII, mixed line ends", model.stateText);
              model.text.change(0, 0, "new ");
              model.pass();
              EXPECT_EQ("Changed, ASCII, mixed line ends", model.stateText);
              model.ok();
            }));
  expected[kPath] = kNew;
  EXPECT_EQ(expected, treeByOthers(volume_));
  EXPECT_EQ("", checkerSays(volume_));
  ASSERT_EQ(Error::none, volumeFiles()->info(kPath, after));
  EXPECT_EQ(before.attributes | kFileArchive, after.attributes);
  EXPECT_EQ(before.times.created, after.times.created);
  EXPECT_LT(before.times.modified, after.times.modified);
  EXPECT_EQ(before.shortName, after.shortName);
}

TEST_F(EditFileTest, NothingIsWrittenUnlessSomethingWasChangedAndSaved) {
  const MemoryDisk before = volume_.copy();
  EXPECT_EQ(FlowEnd::cancelled, edit(kPath, closeAsItIs));
  EXPECT_EQ(FlowEnd::cancelled, edit(kPath, [](EditModel& model) {
              EXPECT_TRUE(model.save());
              model.text.change(3, 0, "x\ny");
              EXPECT_TRUE(model.text.undo().has_value());
              model.ok();
            }));
  ui_.expectFile(kPath);
  expectEditor([this](EditModel& model) {
    model.text.change(0, 5, "x");
    for (const MessageResult answer : {MessageResult::none, MessageResult::cancel}) {
      warn("Save Changes?", answer);
      model.cancel();
      EXPECT_TRUE(model.isOpen());
    }
    warn("Save Changes?", MessageResult::no);
    model.cancel();
  });
  EXPECT_EQ(FlowEnd::cancelled, edit(borrowed(volume_)));
  ui_.expectFile(std::nullopt);
  EXPECT_EQ(FlowEnd::cancelled, edit(borrowed(volume_)));
  EXPECT_TRUE(before.sameContent(volume_));

  EXPECT_EQ(FlowEnd::done, edit(kPath, [this](EditModel& model) {
              model.text.change(0, 0, "new ");
              warn("Save Changes?", MessageResult::yes);
              model.cancel();
            }));
  EXPECT_EQ(kNew, stored(kPath));
}

TEST_F(EditFileTest, AFileThatIsShownInPartIsNotWrittenInItsPlace) {
  struct Case {
    std::string content;
    bool isWarned;
    bool isWrittenInPlace;
  };
  const std::string full(kMostEditedBytes, 'a');
  const Case cases[] = {
      {full.substr(1), false, true},
      {full, true, true},
      {full + "b", true, false},
      {"text" + std::string(20, '\0'), true, true},
      {std::string("text\0more", 9), true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.content.size());
    store("/file.txt", c.content);
    ui_.expectFile("/file.txt");
    if (c.isWarned) warn("File Truncated!");
    expectEditor([&](EditModel& model) {
      EXPECT_EQ(!c.isWrittenInPlace, model.needsOtherName);
      model.text.change(0, 1, "n");
      if (!c.isWrittenInPlace) ui_.expectFile("/part.txt");
      model.ok();
    });
    EXPECT_EQ(FlowEnd::done, edit(borrowed(volume_)));
    const std::string text = c.content.substr(1, std::min(c.content.find('\0'), full.size()) - 1);
    EXPECT_EQ("n" + text, stored(c.isWrittenInPlace ? "/file.txt" : "/part.txt"));
    if (!c.isWrittenInPlace) {
      EXPECT_EQ(c.content, stored("/file.txt"));
    }
  }
}

TEST_F(EditFileTest, ATextThatIsCutWithinACharacterStaysUtf8) {
  std::string text = "x";
  while (text.size() <= kMostEditedBytes) text += "ü";
  store("/file.txt", text);
  ui_.expectFile("/file.txt");
  warn("File Truncated!");
  expectEditor([&](EditModel& model) {
    EXPECT_EQ("UTF-8", model.text.formText());
    EXPECT_EQ(kMostEditedBytes - 1, model.text.text().size());
    model.cancel();
  });
  EXPECT_EQ(FlowEnd::cancelled, edit(borrowed(volume_)));
}

TEST_F(EditFileTest, WhatHappenedToTheFileMeanwhileIsAskedAbout) {
  EXPECT_EQ(FlowEnd::done, edit(kPath, [this](EditModel& model) {
              model.text.change(0, 0, "new ");
              store(kPath, "by another program");
              warn("has changed on the disk", MessageResult::no);
              model.ok();
              EXPECT_TRUE(model.isOpen());
              EXPECT_EQ("by another program", stored(kPath));
              warn("has changed on the disk", MessageResult::yes);
              EXPECT_TRUE(model.save());
              EXPECT_EQ(kNew, stored(kPath));

              const auto files = volumeFiles();
              EXPECT_EQ(Error::none, files->deleteFile(kPath));
              EXPECT_EQ(Error::none, files->sync());
              warn("is not there any more", MessageResult::no);
              EXPECT_FALSE(model.save());
              warn("is not there any more", MessageResult::yes);
              model.text.change(0, 4, "");
              model.ok();
            }));
  EXPECT_EQ(kOld, stored(kPath));

  const auto files = volumeFiles();
  File file;
  ASSERT_EQ(Error::none, files->open(kPath, {.access = FileAccess::write}, file));
  ASSERT_EQ(Error::none, file.setAttributes(kFileReadOnly));
  ASSERT_EQ(Error::none, file.close());
  ASSERT_EQ(Error::none, files->sync());
  EXPECT_EQ(FlowEnd::done, edit(kPath, [this](EditModel& model) {
              model.text.change(0, 0, "new ");
              warn("is marked as read-only", MessageResult::no);
              EXPECT_FALSE(model.save());
              warn("is marked as read-only", MessageResult::yes);
              EXPECT_TRUE(model.save());
              model.text.change(0, 4, "");
              model.ok();
            }));
  EXPECT_EQ(kOld, stored(kPath));
}

TEST_F(EditFileTest, SaveAsGoesOnWithTheNewFile) {
  EXPECT_EQ(FlowEnd::done, edit(kPath, [this](EditModel& model) {
              const auto saveAs = [&](const std::optional<std::string>& path,
                                      const std::string& told = "") {
                ui_.expectFile(path);
                if (!told.empty()) warn(told);
                return model.saveAs();
              };
              EXPECT_FALSE(saveAs(std::nullopt));
              EXPECT_FALSE(saveAs("/a:b", "The name is not valid"));
              EXPECT_FALSE(saveAs("/nowhere/file", "There is no such file"));
              EXPECT_FALSE(saveAs("/sub", "The data could not be written to disk."));
              EXPECT_EQ(kShown, model.title);
              EXPECT_TRUE(saveAs("/sub/новый.txt"));
              EXPECT_EQ("Edit File - новый.txt", model.title);
              EXPECT_EQ(kOld, stored("/sub/новый.txt"));
              // The chooser has asked about what is there; it keeps its spelling.
              EXPECT_TRUE(saveAs("\\OTHER"));
              EXPECT_EQ("Edit File - other", model.title);
              EXPECT_EQ(kOld, stored("/other"));
              model.text.change(0, 0, "new ");
              model.ok();
            }));
  EXPECT_EQ(kNew, stored("/other"));
  EXPECT_EQ(kOld, stored(kPath));
  EXPECT_EQ(kOld, stored("/sub/новый.txt"));
}

TEST_F(EditFileTest, WhatCannotBeWrittenKeepsTheTextAndTheFile) {
  const std::string dos =
      "Gr\x81\xE1"
      "e\r\n";
  store("/dos.txt", dos);
  EXPECT_EQ(FlowEnd::done, edit("/dos.txt", [this](EditModel& model) {
              EXPECT_EQ("Grüße\n", model.text.text());
              model.text.change(0, 0, "an Žofie: ");
              warn("does not have the character 'Ž' (Line 1, column 4)");
              model.ok();
              EXPECT_TRUE(model.isOpen());
              model.text.change(3, 2, "Z");
              model.ok();
            }));
  EXPECT_EQ("an Zofie: " + dos, stored("/dos.txt"));

  // Both files have to find room until the new one is whole.
  SpaceInfo space;
  ASSERT_EQ(Error::none, volumeFiles()->space(space));
  store("/filler", std::string(space.freeUnits * space.unitBytes, 'x'));
  const MemoryDisk before = volume_.copy();
  EXPECT_EQ(FlowEnd::cancelled, edit(kPath, [this](EditModel& model) {
              model.text.change(0, 0, "new ");
              warn("The file system is full");
              model.ok();
              EXPECT_TRUE(model.text.isChanged());
              warn("Save Changes?", MessageResult::no);
              model.cancel();
            }));
  EXPECT_EQ(kOld, stored(kPath));
  EXPECT_EQ(differences(treeOf(*volumeFiles()),
                        [&] {
                          MemoryDisk old = before.copy();
                          std::unique_ptr<FileSystem> files;
                          EXPECT_EQ(Error::none, openFiles(old, kVolume, files));
                          return treeOf(*files);
                        }()),
            std::vector<std::string>());
}

TEST_F(EditFileTest, AVolumeInUseIsLeftAloneAndAnUnreadableFileKeepsItsPlace) {
  const auto drive = open(disk_);
  add(*drive, 0, 40960, 0x06, "FIRST");
  const PartitionEntry& entry = *drive->findByKernelNumber(1);
  warn("The files of the partition cannot be reached.");
  EXPECT_EQ(FlowEnd::refused, editFileFlow(context_, *drive, entry).end);
  mount(entry.startSector, entry.sectorCount());
  warn("Error: The partition is mounted in Linux as /mnt/data.");
  EXPECT_EQ(Error::targetInUse, editFileFlow(context_, *drive, entry).code);

  u64 place = 0;
  const std::string start = randomBytes(1, 512);
  const std::vector<u8> content(start.begin(), start.end());
  while (place < kVolume.sectors && volume_.sector(place) != content) ++place;
  auto faulty = std::make_shared<FaultyDisk>(volume_);
  ui_.expectFile("/other");
  expectEditor([&](EditModel& model) {
    EXPECT_EQ("", model.text.text());
    EXPECT_TRUE(model.needsOtherName);
    EXPECT_EQ(0U, model.stateText.find("The file could not be read.")) << model.stateText;
    model.cancel();
  });
  ui_.meanwhile([&] { faulty->failReadsOf({place, place}); });
  EXPECT_EQ(FlowEnd::cancelled, edit(faulty));
}

TEST_F(EditFileTest, ADiscIsReadAndNotWritten) {
  if (!hasProgram("xorriso")) GTEST_SKIP() << "needs xorriso";
  home_.write("disc/read me.txt", "hello\n");
  const std::string image = home_.file("disc.iso");
  ASSERT_EQ(
      0, runProgram({"xorriso", "-as", "mkisofs", "-J", "-o", image, home_.file("disc")}).status);
  MemoryDisk disc = loadDisk(image);
  const MemoryDisk before = disc.copy();
  ui_.expectFile("/read me.txt");
  expectEditor([](EditModel& model) {
    EXPECT_EQ("hello\n", model.text.text());
    EXPECT_EQ("Read only, ASCII, LF", model.stateText);
    EXPECT_FALSE(model.saveControl.enabled || model.saveAsControl.enabled);
    EXPECT_NE("", model.saveControl.whyDisabled);
    EXPECT_FALSE(model.save() || model.saveAs());
    model.ok();
  });
  EXPECT_EQ(FlowEnd::cancelled, edit(borrowed(disc)));
  EXPECT_TRUE(before.sameContent(disc));
}

// --- What can go wrong

class EditFaultsTest : public EditFileTest {
 protected:
  // A user who saves, and gives up when that does not work.
  FlowResult editAndSave(Drive& drive, ScriptedFrontEnd& ui) {
    ui.expectFile(kPath);
    ui.expect<EditModel>([](EditModel& model) {
      model.text.change(0, 0, "new ");
      if (!model.needsOtherName) model.ok();
      if (model.isOpen()) model.cancel();
    });
    ui.answerOthers(MessageResult::no);
    const FlowResult result = edit(drive, ui);
    ui.forget();
    return result;
  }
  // The older or the new one is there, whole, and so is everything else.
  void judge(DiskDevice& disk) {
    std::unique_ptr<FileSystem> files;
    ASSERT_EQ(Error::none, openFiles(disk, kVolume, files));
    const FileTree tree = treeOf(*files);
    EXPECT_EQ(randomBytes(1, 30000), tree.at("/other"));
    ASSERT_TRUE(tree.contains(kPath));
    EXPECT_TRUE(tree.at(kPath) == kOld || tree.at(kPath) == kNew) << tree.at(kPath);
  }
};

TEST_F(EditFaultsTest, ASaveThatFailsLeavesTheOlderFileOrTheNewOne) {
  forEachFault(volume_, kFailedRequests, [this](FaultRound& round) {
    ScriptedFrontEnd ui;
    const auto drive = open(round.sharedDisk());
    round.begin();
    const FlowResult result = editAndSave(*drive, ui);
    if (round.isSound()) {
      ASSERT_TRUE(result.succeeded());
    }
    if (result.succeeded()) {
      std::unique_ptr<FileSystem> files;
      ASSERT_EQ(Error::none, openFiles(round.medium(), kVolume, files));
      EXPECT_EQ(kNew, contentOf(*files, kPath));
    } else {
      EXPECT_FALSE(ui.messages.empty()) << "nothing told";
    }
    judge(round.medium());
  });
}

TEST_F(EditFaultsTest, APowerCutLeavesTheOlderFileOrTheNewOne) {
  u32 cuts = 0;
  forEachPowerCut(
      volume_,
      [this](FaultRound& round) {
        ScriptedFrontEnd ui;
        ASSERT_TRUE(editAndSave(*open(round.sharedDisk()), ui).succeeded());
      },
      [&](MemoryDisk& after) {
        judge(after);
        if (cuts++ % 5 != 0 || !hasJudges()) return;
        const std::string findings = checkerSays(after);
        for (const char* bad : {"Truncating", "share clusters"})
          EXPECT_EQ(std::string::npos, findings.find(bad)) << findings;
      });
}

}  // namespace
}  // namespace tallowin
