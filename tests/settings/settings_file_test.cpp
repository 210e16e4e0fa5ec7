#include "settings/settings_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

class SettingsFileTest : public ::testing::Test {
 protected:
  TempFolder folder_;
  SettingsFile file_{folder_.file("STRANDEL.INI")};
  void write(const std::string& text) { folder_.write("STRANDEL.INI", text); }
  std::string text() { return folder_.read("STRANDEL.INI"); }
};

TEST_F(SettingsFileTest, ReadsEachTypeInAnyCase) {
  write(
      "[Other]\r\nTimeOut=9\r\n[options]\r\nverbose = 0\r\nTIMEOUT=0x10\r\n"
      "GlobalGeoAlignVal=lots\r\nDirectBoot=-1\r\nStartAt=4294967296\r\nTimeZone=CET-1CEST  \r\n");
  Options options;
  file_.readOptions(options);
  EXPECT_FALSE(options.verbose);
  EXPECT_EQ(16U, options.timeOut);
  EXPECT_EQ(0U, options.globalGeoAlignVal) << "what is no number counts as 0";
  EXPECT_EQ(0U, options.startAt) << "what does not fit counts as 0";
  EXPECT_EQ("CET-1CEST", options.timeZone);
}

TEST_F(SettingsFileTest, WritingKeepsWhatBelongsToOthers) {
  write(
      "; made by hand\n\n[Boot]\nTimeOut=9\n\n[Options]\nTimeOut = 3 \n; a comment\nTheirs=x\n"
      "Verbose=0\nVerbose=0\n\n[HD3]\nc=100\n");
  Options options;
  file_.readOptions(options);
  options.timeOut = 12;
  options.verbose = true;
  options.iso8601 = true;
  ASSERT_EQ(Error::none, file_.writeOptions(options));
  EXPECT_EQ(
      "; made by hand\n\n[Boot]\nTimeOut=9\n\n[Options]\nISO8601=1\nTimeOut = 12\n"
      "; a comment\nTheirs=x\n\n[HD3]\nc=100\n",
      text());
}

TEST_F(SettingsFileTest, WhatIsWrittenIsReadBackAndDefaultsLeaveNoKeys) {
  Options options;
  options.verbose = false;
  options.maintPw = "open sesame";
  options.timeZone = "UTC";
  options.globalGeoAlignVal = 4096;
  ASSERT_EQ(Error::none, file_.writeOptions(options));
  EXPECT_EQ(std::string::npos, text().find("sesame"));
  Options back;
  file_.readOptions(back);
  EXPECT_EQ(options, back);

  ASSERT_EQ(Error::none, file_.writeOptions(Options{}));
  EXPECT_EQ("[OPTIONS]\r\n", text());
  // Folders are made where they are missing; what is no file is not replaced.
  const SettingsFile deep(folder_.file("config/tallowin/STRANDEL.INI"));
  back.timeOut = 5;
  deep.readOptions(back);
  EXPECT_EQ(0U, back.timeOut) << "of a missing file";
  ASSERT_EQ(Error::none, deep.writeOptions(options));
  deep.readOptions(back);
  EXPECT_EQ(options, back);
  EXPECT_EQ(Error::read, SettingsFile(folder_.file("config")).writeOptions(options));
}

TEST_F(SettingsFileTest, APasswordThatCannotBeDecodedIsNotLost) {
  write("[OPTIONS]\r\nMaintPW=from elsewhere\r\n");
  Options options;
  file_.readOptions(options);
  EXPECT_EQ("", options.maintPw);
  options.timeOut = 1;
  ASSERT_EQ(Error::none, file_.writeOptions(options));
  EXPECT_EQ("[OPTIONS]\r\nTimeOut=1\r\nMaintPW=from elsewhere\r\n", text());
}

TEST_F(SettingsFileTest, AFileThatCannotBeWrittenIsLeftAsItIs) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs the rights to become somebody else";
  const std::string before = "[OPTIONS]\nTimeOut=5\n";
  write(before);
  ASSERT_EQ(0, ::chmod(folder_.path().c_str(), 0755));
  ASSERT_EQ(0, ::chmod(file_.path().c_str(), 0644));
  Options options;
  options.timeOut = 6;
  DriveSettingsRecord record;
  record.section = "HD0";
  record.align1MiB = true;
  constexpr uid_t kNobody = 65534;
  ASSERT_EQ(0, ::seteuid(kNobody));
  const Failure changed = file_.writeOptions(options);
  const Failure ofDrive = file_.writeDrive(record, DriveKeys::all);
  options.timeOut = 5;
  const Failure same = file_.writeOptions(options);
  ASSERT_EQ(0, ::seteuid(0));
  EXPECT_NE(Error::none, changed);
  EXPECT_NE(Error::none, ofDrive);
  EXPECT_EQ(Error::none, same) << "nothing to write";
  EXPECT_EQ(before, text());

  const SettingsFile nowhere("/proc/self/tallowin/STRANDEL.INI");
  EXPECT_EQ(Error::cannotCreate, nowhere.writeOptions(options));
}

TEST_F(SettingsFileTest, DriveSectionsAreReadAndWritten) {
  write("[HD12]\r\nc=1023\r\nh=300\r\nAlignOnEnd=2\r\nTheirs=1\r\n[HD12]\r\nc=5\r\n");
  DriveSettingsRecord record = file_.readDrive("HD12");
  EXPECT_EQ(1023, record.cylinders);
  EXPECT_EQ(0, record.heads) << "300 is more than a head number can be";
  EXPECT_EQ(2U, record.alignOnEnd);
  EXPECT_TRUE(record.useGlobalSettings);

  record.cylinders = 0;
  record.align1MiB = true;
  record.useGlobalSettings = false;
  ASSERT_EQ(Error::none, file_.writeDrive(record, DriveKeys::useGlobalSettingsOnly));
  DriveSettingsRecord stored = file_.readDrive("HD12");
  EXPECT_FALSE(stored.useGlobalSettings);
  EXPECT_EQ(1023, stored.cylinders);
  EXPECT_FALSE(stored.align1MiB);

  ASSERT_EQ(Error::none, file_.writeDrive(record, DriveKeys::all));
  EXPECT_EQ(record, file_.readDrive("HD12"));
  EXPECT_EQ("1", file_.load().value("HD12", "Theirs"));
}

TEST_F(SettingsFileTest, AnImageHasItsSettingsByItsPath) {
  const auto sectionOf = [&](const std::string& name) {
    return imageSectionName(folder_.file(name));
  };
  const std::vector<std::string> names = {"a.img", "A.img", "a]b=.img", "a_b=.img", "\xC3\xA4.img"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    folder_.write(names[i], "");
    DriveSettingsRecord record = file_.readDrive(sectionOf(names[i]));
    EXPECT_EQ(0U, record.alignmentBytes) << names[i] << " has those of another image";
    record.alignmentBytes = static_cast<u32>(4096 + i);
    ASSERT_EQ(Error::none, file_.writeDrive(record, DriveKeys::all));
  }
  for (std::size_t i = 0; i < names.size(); ++i)
    EXPECT_EQ(4096 + i, file_.readDrive(sectionOf(names[i])).alignmentBytes) << names[i];
  std::filesystem::create_symlink("a.img", folder_.file("link"));
  EXPECT_EQ(sectionOf("a.img"), sectionOf("link"));
}

TEST_F(SettingsFileTest, AFileThatIsTooLargeIsNeitherReadNorReplaced) {
  const std::string huge = "[OPTIONS]\nTimeOut=5\n" + std::string(60 * kMiB, ';');
  write(huge);
  Options options;
  file_.readOptions(options);
  EXPECT_EQ(Options{}, options);
  options.timeOut = 6;
  EXPECT_EQ(Error::fileTooLarge, file_.writeOptions(options));
  EXPECT_TRUE(text() == huge);
}

TEST_F(SettingsFileTest, AChangeThatWasNotSavedLastsAsLongAsTheList) {
  write("[HD1]\r\nAlignVal=4096\r\n");
  DriveSettingsList list;
  list.record(file_, 1, "HD1").alignmentBytes = 8192;
  write("");
  EXPECT_EQ(8192U, list.record(file_, 1, "HD1").alignmentBytes);
  EXPECT_EQ(0U, list.record(file_, 2, "HD2").alignmentBytes);
}

}  // namespace
}  // namespace tallowin
