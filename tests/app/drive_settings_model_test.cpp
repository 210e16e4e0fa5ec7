#include "app/drive_settings_model.h"

#include <gtest/gtest.h>

namespace tallowin {
namespace {

DriveSettingsRecord ownRecord() {
  DriveSettingsRecord record;
  record.driveNumber = 0x010002;
  record.biosGeometry = {1023, 254, 63};
  record.useGlobalSettings = false;
  return record;
}

DriveSettingsModel modelOf(const DriveSettingsRecord& record, const Options& options = {},
                           std::optional<EmbrPrimaries> embr = std::nullopt) {
  return {record, options, {}, embr};
}

std::string numbers(const DriveSettingsModel& m) {
  return std::to_string(m.cylinders.value) + "/" + std::to_string(m.heads.value) + "/" +
         std::to_string(m.sectors.value);
}

TEST(DriveSettingsModel, ShowsTheRecordAndStoresItUnchanged) {
  DriveSettingsRecord record = ownRecord();
  record.cylinders = 100;
  record.alignOnEnd = kAlignOnEndByResizing;
  record.align1MiB = true;
  record.geometryCalculation = 3;
  record.alignmentBytes = 4096;
  DriveSettingsModel model = modelOf(record);
  EXPECT_EQ(numbers(model), "100/254/63") << "zero fields show the geometry in force";
  EXPECT_TRUE(model.alignOnEnd.ticked && model.alignEndByResizing.ticked && model.align1MiB.ticked);
  EXPECT_TRUE(model.saveAsDefault.ticked);
  EXPECT_FALSE(model.limitPrimaries.control.shown);
  model.pass();
  EXPECT_EQ(model.result(), record);
  EXPECT_EQ(model.keysToSave(), DriveKeys::all);
}

TEST(DriveSettingsModel, TheEndIsResizedOnlyWhereItIsAligned) {
  DriveSettingsModel model = modelOf(ownRecord());
  EXPECT_TRUE(model.alignEndByResizing.control.enabled);
  model.alignEndByResizing.ticked = true;
  model.pass();
  EXPECT_EQ(model.result().alignOnEnd, kAlignOnEndByResizing);
  model.alignOnEnd.ticked = false;
  model.pass();
  EXPECT_EQ(model.result().alignOnEnd, kAlignOnEndOff);
  EXPECT_FALSE(model.alignEndByResizing.control.enabled);
}

TEST(DriveSettingsModel, TheNumbersFollowTheirSource) {
  DriveSettingsRecord record = ownRecord();
  record.cylinders = 500;
  record.heads = 15;
  DriveSettingsModel model = modelOf(record);
  EXPECT_FALSE(model.validateMbrGeometry.control.enabled);

  // What is typed stays as long as nothing else is clicked, also a zero.
  model.cylinders.value = 7;
  model.heads.value = 0;
  model.align1MiB.ticked = true;
  model.pass();
  EXPECT_EQ(numbers(model), "7/0/63");
  EXPECT_EQ(model.result().cylinders, 7);

  model.useMbrGeometry.ticked = true;
  model.pass();
  EXPECT_EQ(numbers(model), "0/15/63");
  EXPECT_TRUE(model.validateMbrGeometry.control.enabled);
  EXPECT_FALSE(model.geometryControl.enabled);
  EXPECT_FALSE(model.geometryControl.whyDisabled.empty());
  EXPECT_EQ(model.result().cylinders, 500) << "typed numbers are not stored then";

  model.useMbrGeometry.ticked = false;
  model.useOriginalGeometry.ticked = true;
  model.pass();
  EXPECT_EQ(numbers(model), "500/15/63");
  model.useOriginalGeometry.ticked = false;
  model.pass();
  EXPECT_TRUE(model.geometryControl.enabled);

  model.cylinders.type("5000");
  model.sectors.type("17");
  model.pass();
  EXPECT_EQ(numbers(model), "500/15/17") << "nothing is clamped";
  EXPECT_EQ(model.problem(), "Cylinders: \"5000\" is no whole number from 0 to 1023.");
  model.cylinders.type("1023");
  model.sectors.type("63");
  model.pass();
  EXPECT_EQ(numbers(model), "1023/15/63");

  record.cylinders = 0;
  DriveSettingsModel original = modelOf(record);
  EXPECT_EQ(original.cylinders.value, 0u);
  original.useOriginalGeometry.ticked = true;
  original.pass();
  EXPECT_EQ(original.cylinders.value, 1023u) << "the geometry's own";
}

TEST(DriveSettingsModel, GlobalSettingsAreShownAndCannotBeChanged) {
  DriveSettingsRecord record = ownRecord();
  record.cylinders = 500;
  record.alignEndHs = true;
  Options options;
  options.globalGeoMbrGeo = true;
  options.globalGeoAlign2K = true;
  DriveSettingsModel model = modelOf(record, options);
  model.align1MiB.ticked = true;
  model.pass();

  model.useGlobalSettings.ticked = true;
  model.pass();
  EXPECT_TRUE(model.useMbrGeometry.ticked && model.validateMbrGeometry.ticked);
  EXPECT_TRUE(model.align1MiB.ticked && model.alignHsOnTruncate.ticked);
  EXPECT_FALSE(model.alignOnEnd.ticked);
  EXPECT_EQ(numbers(model), "0/254/63");
  for (const Tick* tick : {&model.useMbrGeometry, &model.validateMbrGeometry,
                           &model.useOriginalGeometry, &model.alignOnEnd, &model.alignEndByResizing,
                           &model.align1MiB, &model.alignEndHs, &model.alignHsOnTruncate}) {
    EXPECT_FALSE(tick->control.enabled);
    EXPECT_FALSE(tick->control.whyDisabled.empty());
  }
  EXPECT_FALSE(model.geometryControl.enabled);
  EXPECT_TRUE(model.saveAsDefault.control.enabled);
  EXPECT_EQ(model.keysToSave(), DriveKeys::useGlobalSettingsOnly);
  DriveSettingsRecord expected = record;
  expected.useGlobalSettings = true;
  EXPECT_EQ(model.result(), expected) << "what was ticked before does not count";

  // The other pages change while the dialog is open.
  options.globalGeoMbrGeo = false;
  model.setOptions(options);
  model.pass();
  EXPECT_FALSE(model.useMbrGeometry.ticked);
  options.globalGeoDisable = true;
  model.setOptions(options);
  model.pass();
  EXPECT_TRUE(model.alignEndHs.control.enabled);
  EXPECT_EQ(model.keysToSave(), DriveKeys::all);

  model.useGlobalSettings.ticked = false;
  model.pass();
  EXPECT_TRUE(model.align1MiB.ticked) << "its own values are back";
  EXPECT_TRUE(model.alignEndHs.ticked);
  EXPECT_FALSE(model.useMbrGeometry.ticked);
  EXPECT_EQ(model.cylinders.value, 500u);
}

TEST(DriveSettingsModel, TheLimitOfPrimariesIsOfferedWhereFourSlotsAreEnough) {
  const DriveSettingsRecord record = ownRecord();
  DriveSettingsModel free = modelOf(record, {}, EmbrPrimaries{false, 4, {}});
  EXPECT_TRUE(free.limitPrimaries.control.shown && free.limitPrimaries.control.enabled);
  EXPECT_EQ(free.wantedLimit(), std::nullopt);
  free.limitPrimaries.ticked = true;
  free.useGlobalSettings.ticked = true;
  free.pass();
  EXPECT_EQ(free.wantedLimit(), true) << "it is no global setting";

  DriveSettingsModel limited = modelOf(record, {}, EmbrPrimaries{true, 2, {}});
  EXPECT_TRUE(limited.limitPrimaries.ticked);
  limited.limitPrimaries.ticked = false;
  EXPECT_EQ(limited.wantedLimit(), false);

  for (const EmbrPrimaries& fixed : {EmbrPrimaries{false, 5, {}}, EmbrPrimaries{true, 2, "Why."}}) {
    DriveSettingsModel model = modelOf(record, {}, fixed);
    EXPECT_FALSE(model.limitPrimaries.control.enabled);
    EXPECT_FALSE(model.limitPrimaries.control.whyDisabled.empty());
  }
}

}  // namespace
}  // namespace tallowin
