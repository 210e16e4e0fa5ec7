#include <gtest/gtest.h>

#include "cli/ctl.h"

namespace tallowin {
namespace {

TEST(SettingsCommand, ShowsChangesAndObeys) {
  Ctl ctl;
  const TempFolder folder;
  EXPECT_EQ(ctl.run({"settings", "GlobalGeoAlign2K"}).output, "GlobalGeoAlign2K=0\n");
  EXPECT_EQ(ctl.run({"settings", "globalgeoalign2k=1"}).status, 0);
  EXPECT_EQ(ctl.run({"settings", "GlobalGeoAlign2K"}).output, "GlobalGeoAlign2K=1\n");
  EXPECT_NE(ctl.home().read("STRANDEL.INI").find("GlobalGeoAlign2K=1"), std::string::npos);

  const std::string path = folder.sparse("disk.img", 100 * kMiB);
  ASSERT_EQ(ctl.run({"create", path, "--type", "linux", "--size", "10"}).status, 0);
  EXPECT_EQ(sfdiskRow(path, 1).start, 2048u) << "aligned on 1 MiB";

  EXPECT_EQ(ctl.run({"settings", "GlobalGeoAlign2K=0"}).status, 0);
  EXPECT_EQ(ctl.home().read("STRANDEL.INI").find("GlobalGeoAlign2K"), std::string::npos);

  EXPECT_EQ(ctl.run({"settings", "AlignVal=1048576", "--drive", "3"}).status, 0);
  EXPECT_EQ(ctl.run({"settings", "AlignVal", "--drive", "3"}).output, "AlignVal=1048576\n");
  const Ctl::Answer all = ctl.json({"settings", "--drive", "3"});
  EXPECT_EQ(all.json["settings"].MemberCount(), 13u);
}

}  // namespace
}  // namespace tallowin
