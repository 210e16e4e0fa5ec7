#include <gtest/gtest.h>

#include "cli/ctl.h"
#include "settings/settings_file.h"

namespace tallowin {
namespace {

TEST(SettingsCommand, ShowsChangesAndObeys) {
  Ctl ctl;
  EXPECT_EQ(ctl.run({"settings", "GlobalGeoAlign2K"}).output, "GlobalGeoAlign2K=1\n");
  EXPECT_EQ(ctl.run({"settings", "TimeOut=3"}).status, 0);
  EXPECT_NE(ctl.home().read("STRANDEL.INI").find("GlobalGeoAlign2K=1"), std::string::npos)
      << "what a first start begins with stays when the file comes to be";
  EXPECT_EQ(ctl.run({"settings", "globalgeoalign2k=0"}).status, 0);
  EXPECT_EQ(ctl.run({"settings", "GlobalGeoAlign2K"}).output, "GlobalGeoAlign2K=0\n");
  EXPECT_EQ(ctl.home().read("STRANDEL.INI").find("GlobalGeoAlign2K"), std::string::npos);

  Ctl fresh;
  EXPECT_EQ(fresh.run({"settings", "GlobalGeoAlign2K=0"}).status, 0);
  EXPECT_EQ(fresh.run({"settings", "GlobalGeoAlign2K"}).output, "GlobalGeoAlign2K=0\n");

  EXPECT_EQ(ctl.run({"settings", "AlignVal=1048576", "--drive", "3"}).status, 0);
  EXPECT_EQ(ctl.run({"settings", "AlignVal", "--drive", "3"}).output, "AlignVal=1048576\n");
  const Ctl::Answer all = ctl.json({"settings", "--drive", "3"});
  EXPECT_EQ(all.json["settings"].MemberCount(), 13u);
}

TEST(SettingsCommand, WhatIsNoSettingOrNoValueIsWrongUsageAndChangesNothing) {
  Ctl ctl;
  const std::string before = "; mine\n[OPTIONS]\nTheirs=1\nTimeOut=5\n";
  ctl.home().write("STRANDEL.INI", before);
  const std::vector<std::vector<std::string>> wrong = {
      {"Nope"},
      {"Nope=1"},
      {"=3"},
      {"TimeOut=soon"},
      {"TimeOut=4294967296"},
      {"ISO8601="},
      {"c=1024", "--drive", "1"},
      {"s=64", "--drive", "1"},
      {"GeoCalc=6", "--drive", "1"},
      {"AlignOnEnd=3", "--drive", "1"},
      {"c=5", "--drive", "32768"},
      {"c", "--drive", "16777216"},
      {"TimeOut", "--drive", "1"},
  };
  for (std::vector<std::string> arguments : wrong) {
    SCOPED_TRACE(arguments.front());
    arguments.insert(arguments.begin(), "settings");
    EXPECT_EQ(ctl.run(arguments).status, 2);
    EXPECT_EQ(ctl.home().read("STRANDEL.INI"), before);
  }
}

TEST(SettingsCommand, PasswordsAreKeptAndNotShown) {
  Ctl ctl;
  EXPECT_EQ(ctl.run({"settings", "TimeZone=CET-1CEST"}).output, "TimeZone=CET-1CEST\n");
  EXPECT_EQ(ctl.run({"settings", "MaintPW=sesame"}).output, "MaintPW=(not shown)\n");
  Options options;
  SettingsFile(ctl.home().file("STRANDEL.INI")).readOptions(options);
  EXPECT_EQ(options.maintPw, "sesame");
}

// A geometry is stated for an image by its path, and is in force when that image is the target.
TEST(SettingsCommand, AnImageTakesItsSettingsAlong) {
  Ctl ctl;
  const std::string image = ctl.home().sparse("one.img", 64 * kMiB);
  const std::string other = ctl.home().sparse("two.img", 64 * kMiB);
  for (const char* wish : {"UseGlobalGeoSettings=0", "h=15", "s=32"})
    ASSERT_EQ(ctl.run({"settings", wish, "--drive", image}).status, 0);
  EXPECT_NE(ctl.run({"list", image}).output.find("/15/32\n"), std::string::npos)
      << ctl.run({"list", image}).output;
  EXPECT_EQ(ctl.run({"list", other}).output.find("/15/32\n"), std::string::npos);
}

TEST(SettingsCommand, AFileThatCannotBeWrittenIsNamed) {
  Ctl ctl;
  ctl.home().write("STRANDEL.INI/inside", "");
  const ProgramResult answer = ctl.run({"settings", "TimeOut=1"});
  EXPECT_EQ(answer.status, 1);
  EXPECT_NE(answer.output.find("STRANDEL.INI"), std::string::npos) << answer.output;
}

}  // namespace
}  // namespace tallowin
