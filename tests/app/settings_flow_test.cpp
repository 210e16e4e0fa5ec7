// The settings from the button to the file and to the drive.
#include "app/settings_flow.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "app/drive_settings_list_model.h"
#include "app/main_window_model.h"
#include "app/settings_model.h"
#include "ptable/embr/embr_image.h"
#include "support/fake_host.h"
#include "support/scripted_front_end.h"
#include "support/sfdisk.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr const char* kNotWritten = "The data could not be written to disk.";

constexpr const char* kEmptyFile = "[OPTIONS]\r\n";

class SettingsFlowTest : public testing::Test {
 protected:
  SettingsFlowTest() {
    for (const char* name : {"a.img", "b.img"}) {
      options_.images.push_back(folder_.sparse(name, 100 * kMiB));
      EXPECT_EQ(makeTable(options_.images.back(), "label: dos\n"), "");
    }
    options_.noDevices = true;
    // Whoever has a file keeps the alignment that it means.
    folder_.write("home/STRANDEL.INI", kEmptyFile);
    restart();
  }

  // A new run of the program, which knows what the file holds.
  void restart() {
    window_.reset();
    session_.reset();
    const ProgramFolders folders{folder_.path(), folder_.path() + "/home", folder_.path()};
    Options options = options_;
    SettingsFile(folders.settingsFile()).readOptions(options);
    session_ = std::make_unique<Session>(std::make_unique<FakeHost>(), folders, options);
    window_ = std::make_unique<MainWindowModel>(*session_, ui_);
  }
  std::string text() { return folder_.read("home/STRANDEL.INI"); }
  // A folder in the place of the file: no user can write it, not even root.
  void blockFile() {
    ASSERT_EQ(::unlink(folder_.file("home/STRANDEL.INI").c_str()), 0);
    folder_.write("home/STRANDEL.INI/inside", "x");
  }
  void unblockFile() {
    ASSERT_EQ(::unlink(folder_.file("home/STRANDEL.INI/inside").c_str()), 0);
    ASSERT_EQ(::rmdir(folder_.file("home/STRANDEL.INI").c_str()), 0);
  }
  void makeEmbr() {
    EmbrImage image;
    auto& disk = window_->drive()->disk();
    EXPECT_EQ(EmbrImage::read(disk, image), Error::notThisFormat);
    image.create({1023, 254, 63}, false);
    ASSERT_EQ(image.write(disk), Error::none);
    window_->drive()->setFlags(kDriveEmbr, kDriveEmbr);
  }
  u64 unit() { return alignmentUnit(window_->drive()->alignment()); }

  TempFolder folder_;
  Options options_;
  ScriptedFrontEnd ui_;
  std::unique_ptr<Session> session_;
  std::unique_ptr<MainWindowModel> window_;
};

TEST_F(SettingsFlowTest, EveryBoxIsItsOptionAndSurvivesARestart) {
  for (const auto page : {generalBoxes(), geometryBoxes()}) {
    for (const OptionBox& box : page) {
      SCOPED_TRACE(box.label);
      const auto toggle = [&](SettingsModel& model) {
        model.options.*box.option = !(model.options.*box.option);
        model.pass();
        model.ok();
      };
      Options expected = session_->options();
      expected.*box.option = !(expected.*box.option);
      ui_.expect<SettingsModel>(toggle);
      window_->press(Action::settings);
      EXPECT_EQ(session_->options(), expected);
      restart();
      EXPECT_EQ(session_->options(), expected);
      ui_.expect<SettingsModel>(toggle);
      window_->press(Action::settings);
    }
  }
  EXPECT_EQ(text(), "[OPTIONS]\r\n") << "defaults leave no keys";
}

TEST_F(SettingsFlowTest, CancelChangesNothingAndWhatOnlyThisRunWasToldIsNotWritten) {
  folder_.write("home/STRANDEL.INI", "; mine\n[OPTIONS]\nTheirs=1\nTimeOut=5\n");
  restart();
  session_->options().verbose = false;  // -vs:0
  ui_.expect<SettingsModel>([](SettingsModel& model) {
    model.options.iso8601 = true;
    model.pass();
    model.cancel();
  });
  const u32 revision = window_->revision();
  window_->press(Action::settings);
  EXPECT_FALSE(session_->options().iso8601);
  EXPECT_EQ(window_->revision(), revision);

  ui_.expect<SettingsModel>([](SettingsModel& model) {
    model.options.iso8601 = true;
    model.drive()->saveAsDefault.ticked = false;
    model.ok();
  });
  window_->press(Action::settings);
  EXPECT_EQ(text(), "; mine\n[OPTIONS]\nISO8601=1\nTheirs=1\nTimeOut=5\n");
  EXPECT_FALSE(session_->options().verbose);
}

TEST_F(SettingsFlowTest, AFileThatCannotBeWrittenKeepsTheDialogsOpenWithTheirValues) {
  blockFile();
  EXPECT_EQ(unit(), 16065u);
  ui_.expect<SettingsModel>([&](SettingsModel& model) {
    model.options.globalGeoAlign2K = true;
    model.pass();
    EXPECT_TRUE(model.drive()->align1MiB.ticked) << "the third page follows the second";
    for (int attempt = 0; attempt < 2; ++attempt) {
      ui_.expectMessage(kNotWritten);
      model.ok();
      EXPECT_TRUE(model.isOpen());
      EXPECT_TRUE(model.options.globalGeoAlign2K);
      EXPECT_FALSE(session_->options().globalGeoAlign2K) << "not in force either";
    }
    unblockFile();
    model.ok();
    EXPECT_FALSE(model.isOpen());
  });
  window_->press(Action::settings);
  EXPECT_TRUE(session_->options().globalGeoAlign2K);
  EXPECT_EQ(unit(), 2048u);
  EXPECT_EQ(window_->drive()->findById(window_->rows().at(0).id)->startSector, 2048u);
}

TEST_F(SettingsFlowTest, ADrivesOwnSettingsAreAppliedAndSaved) {
  ui_.expect<DriveSettingsModel>([](DriveSettingsModel& model) {
    model.useGlobalSettings.ticked = false;
    model.pass();
    model.heads.value = 15;
    model.align1MiB.ticked = true;
    model.alignEndHs.ticked = true;
    model.alignOnEnd.ticked = false;
    model.ok();
  });
  window_->press(Action::driveSettings);
  const auto check = [&] {
    EXPECT_EQ(unit(), 2048u);
    EXPECT_EQ(window_->drive()->geometry().maxHead, 15);
    EXPECT_EQ(window_->drive()->flags() &
                  (kDriveAlignOnEnd | kDriveChsForceEnd | kDriveChsEndIfTruncated),
              u32{kDriveChsForceEnd});
    EXPECT_NE(window_->geometryLabel().find("/15/63"), std::string::npos);
  };
  check();
  restart();
  check();
  window_->selectDrive(1);
  EXPECT_EQ(unit(), 16065u) << "the other drive has its own";
}

TEST_F(SettingsFlowTest, WithoutSaveAsDefaultTheSettingsLastUntilExit) {
  ui_.expect<DriveSettingsModel>([](DriveSettingsModel& model) {
    model.useGlobalSettings.ticked = false;
    model.saveAsDefault.ticked = false;
    model.pass();
    model.align1MiB.ticked = true;
    model.ok();
  });
  window_->press(Action::driveSettings);
  EXPECT_EQ(unit(), 2048u);
  window_->selectDrive(1);
  window_->selectDrive(0);
  EXPECT_EQ(unit(), 2048u);
  restart();
  EXPECT_EQ(unit(), 16065u);
}

TEST_F(SettingsFlowTest, WhatCannotBeSavedDoesNotTakeEffect) {
  ui_.expect<DriveSettingsModel>([&](DriveSettingsModel& model) {
    blockFile();
    model.useGlobalSettings.ticked = false;
    model.pass();
    model.align1MiB.ticked = true;
    ui_.expectMessage(kNotWritten);
    model.ok();
    EXPECT_TRUE(model.isOpen() && model.align1MiB.ticked);
    model.cancel();
  });
  window_->press(Action::driveSettings);
  EXPECT_EQ(unit(), 16065u);
  unblockFile();
}

TEST_F(SettingsFlowTest, OtherDrivesAreEditedFromTheirList) {
  ui_.expect<SettingsModel>([&](SettingsModel& model) {
    ui_.expect<DriveSettingsListModel>([&](DriveSettingsListModel& list) {
      EXPECT_EQ(list.busIndex, 1u);
      list.driveIndex = 1;
      ui_.expect<DriveSettingsModel>([](DriveSettingsModel& drive) {
        EXPECT_EQ(drive.driveLine, "Drive: b.img");
        drive.useGlobalSettings.ticked = false;
        drive.pass();
        drive.align1MiB.ticked = true;
        drive.ok();
      });
      list.ok();
      list.driveIndex = 0;
      ui_.expect<DriveSettingsModel>([](DriveSettingsModel& drive) {
        drive.useGlobalSettings.ticked = false;
        drive.ok();
      });
      list.ok();
      list.cancel();
    });
    model.editOtherDrives();
    EXPECT_FALSE(model.drive()->useGlobalSettings.ticked) << "shown as it is now";
    model.cancel();
  });
  window_->press(Action::settings);
  window_->selectDrive(1);
  EXPECT_EQ(unit(), 2048u);
}

TEST_F(SettingsFlowTest, WithoutADriveTheOptionsCanStillBeChanged) {
  window_->selectBus(0);
  EXPECT_FALSE(window_->control(Action::driveSettings).enabled);
  ui_.expect<SettingsModel>([this](SettingsModel& model) {
    EXPECT_EQ(model.drive(), nullptr);
    EXPECT_EQ(model.whyNoDrive(), window_->whyWithoutDrive());
    model.options.volumeLabels = false;
    model.ok();
  });
  window_->press(Action::settings);
  EXPECT_EQ(text(), "[OPTIONS]\r\nVolumeLabels=0\r\n");
}

TEST_F(SettingsFlowTest, TheLimitOfPrimariesIsAskedOfAnEmbrDriveOnly) {
  std::vector<bool> asked;
  Failure answer = Error::none;
  SettingsContext context{*session_, ui_, {}, {}};
  context.limitPrimaries = [&](Drive&, bool on) {
    asked.push_back(on);
    return answer;
  };
  const auto toggleOption = [](SettingsModel& model) {
    model.options.limitPrimaries = !model.options.limitPrimaries;
    model.ok();
  };
  ui_.expect<SettingsModel>(toggleOption);
  EXPECT_TRUE(editSettings(context, window_->drive(), {}));
  EXPECT_TRUE(asked.empty());

  makeEmbr();
  ui_.expect<SettingsModel>(toggleOption);
  EXPECT_TRUE(editSettings(context, window_->drive(), {}));
  EXPECT_EQ(asked, std::vector<bool>{false});

  ui_.expect<DriveSettingsModel>([](DriveSettingsModel& model) {
    model.limitPrimaries.ticked = true;
    model.ok();
  });
  EXPECT_TRUE(editDriveSettings(context, *window_->drive()));
  EXPECT_EQ(asked, (std::vector<bool>{false, true}));

  const std::pair<Error, const char*> failures[] = {
      {Error::tableInError, "Unable to limit primaries"},
      {Error::tableInError, "Unable to unlimit primaries"},
      {Error::write, kNotWritten},
  };
  for (const auto& [error, message] : failures) {
    answer = error;
    ui_.expect<SettingsModel>([&, said = message](SettingsModel& model) {
      ui_.expectMessage(said);
      toggleOption(model);
    });
    EXPECT_TRUE(editSettings(context, window_->drive(), {}));
  }
  ui_.expect<DriveSettingsModel>([&](DriveSettingsModel& model) {
    model.limitPrimaries.ticked = true;
    ui_.expectMessage("Unable to limit primaries");
    model.ok();
  });
  EXPECT_TRUE(editDriveSettings(context, *window_->drive()));
}

}  // namespace
}  // namespace tallowin
