#include "settings/drive_settings.h"

#include <gtest/gtest.h>

#include "settings/options.h"

namespace tallowin {
namespace {

TEST(ResolveDriveSettings, TheGlobalRuleChoosesTheAlignment) {
  struct Case {
    const char* name;
    bool cylinder, oneMiB, found, hasPartitions, alignsOn1MiB;
  };
  const Case cases[] = {
      {"neither, empty drive", false, false, false, false, false},
      {"neither, partitions on cylinders", false, false, false, true, false},
      {"neither, partitions on 1 MiB", false, false, true, true, true},
      {"1 MiB wins over cylinders found", false, true, false, true, true},
      {"cylinders win over 1 MiB found", true, false, true, true, false},
      {"both, empty drive", true, true, false, false, true},
      {"both, partitions on cylinders", true, true, false, true, false},
      {"both, partitions on 1 MiB", true, true, true, true, true},
  };
  const DriveSettingsRecord record;
  for (const Case& c : cases) {
    Options options;
    options.globalGeoAlignCylinder = c.cylinder;
    options.globalGeoAlign2K = c.oneMiB;
    const auto settings = resolveDriveSettings(record, options, {c.found, c.hasPartitions});
    EXPECT_EQ(c.alignsOn1MiB, settings.align1MiB) << c.name;
    EXPECT_EQ(c.alignsOn1MiB ? 0U : 1U, settings.alignOnEnd) << c.name;
    EXPECT_TRUE(settings.alignEndHs && settings.alignHsOnTruncate) << c.name;
  }

  Options options;
  options.globalGeoAlignHs = false;
  EXPECT_FALSE(resolveDriveSettings(record, options, {}).alignEndHs);
  options.globalGeoAlignVal = 8192;
  EXPECT_TRUE(resolveDriveSettings(record, options, {}).alignEndHs) << "a value is no cylinder";
}

}  // namespace
}  // namespace tallowin
