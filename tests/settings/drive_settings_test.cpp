#include "settings/drive_settings.h"

#include <gtest/gtest.h>

#include "settings/options.h"

namespace tallowin {
namespace {

DriveSettingsRecord ownSettings() {
  DriveSettingsRecord record;
  record.biosGeometry = {1023, 254, 63};
  record.useGlobalSettings = false;
  return record;
}

TEST(ResolveDriveSettings, ZeroFieldsOfAnOverrideTakeTheBiosValues) {
  DriveSettingsRecord record = ownSettings();
  record.heads = 15;
  record.alignOnEnd = kAlignOnEndByResizing;
  record.alignEndHs = true;
  record.geometryCalculation = 4;
  Options options;
  options.globalGeoAlignVal = 4096;
  const auto settings = resolveDriveSettings(record, options, {true, true});
  EXPECT_EQ((Geometry{1023, 15, 63}), settings.geometry);
  EXPECT_EQ(kAlignOnEndByResizing, settings.alignOnEnd);
  EXPECT_TRUE(settings.alignEndHs);
  EXPECT_FALSE(settings.alignHsOnTruncate);
  EXPECT_FALSE(settings.align1MiB);
  EXPECT_EQ(0U, settings.alignmentBytes);
  EXPECT_EQ(4U, settings.geometryCalculation);

  // Global settings that are switched off leave the record's.
  record.useGlobalSettings = true;
  options.globalGeoDisable = true;
  EXPECT_EQ((Geometry{1023, 15, 63}), resolveDriveSettings(record, options, {}).geometry);
  options.globalGeoDisable = false;
  const auto global = resolveDriveSettings(record, options, {});
  EXPECT_TRUE(global.globalInForce);
  EXPECT_EQ((Geometry{1023, 254, 63}), global.geometry);
  EXPECT_EQ(0U, global.geometryCalculation);
  EXPECT_EQ(4096U, global.alignmentBytes);
  EXPECT_TRUE(global.validateMbrGeometry);
}

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
