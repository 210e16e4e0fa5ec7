#include "ops/apply_drive_settings.h"

#include <gtest/gtest.h>

#include "disk/disk_handles.h"
#include "ops/flow_bench.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

class ApplyDriveSettingsTest : public FlowTest {
 protected:
  std::unique_ptr<Drive> openWith(DriveSettingsRecord* record, u32 number = 0) {
    std::unique_ptr<Drive> drive;
    EXPECT_EQ(Error::none,
              openDriveWithSettings(borrowed(disk_), host_, options_, record, number, {}, drive));
    return drive;
  }
};

TEST_F(ApplyDriveSettingsTest, AnEmptyDriveIsOnCylindersAndOneWithPartitionsAsTheyAre) {
  DriveSettingsRecord record;
  auto drive = openWith(&record);
  EXPECT_EQ(16065U, alignmentUnit(drive->alignment()));
  EXPECT_EQ(63U, freeBlocks(*drive).at(0)->startSector);
  EXPECT_EQ(drive->geometry(), record.biosGeometry);
  EXPECT_EQ(u32{kDriveAlignOnEnd | kDriveChsForceEnd | kDriveChsEndIfTruncated},
            drive->flags() & (kDriveAlignOnEnd | kDriveChsForceEnd | kDriveChsEndIfTruncated));

  add(*open(disk_), 0, 20480, 0x83, "L");
  drive = openWith(&record);
  EXPECT_EQ(2048U, alignmentUnit(drive->alignment()));
  EXPECT_EQ(22528U, freeBlocks(*drive).at(0)->startSector) << "read again with the new unit";
  EXPECT_EQ(0U, drive->flags() & kDriveAlignOnEnd);
}

// 1 MiB, which is larger than the first disk, does not help it.
TEST_F(ApplyDriveSettingsTest, AFinerAlignmentThatIsNamedLeavesRoom) {
  for (const u64 sectors : {u64{80}, u64{6000}}) {
    MemoryDisk small(sectors);
    const auto textWith = [&](bool align1MiB, u32 alignmentBytes) {
      options_.globalGeoAlign2K = align1MiB;
      options_.globalGeoAlignVal = alignmentBytes;
      std::unique_ptr<Drive> drive;
      EXPECT_EQ(Error::none, openDriveWithSettings(borrowed(small), host_, options_, nullptr,
                                                   kUnlistedDrive, {}, drive));
      return emptyTableText(*drive);
    };
    const bool isTiny = sectors == 80;
    const std::string why = textWith(isTiny, 0);
    EXPECT_EQ(!isTiny, why.find("1MiB Boundaries") != std::string::npos) << why;
    EXPECT_EQ(isTiny, why.find("GlobalGeoAlignVal=4096") != std::string::npos) << why;
    EXPECT_EQ("", textWith(!isTiny, isTiny ? 4096 : 0)) << sectors;
  }
}

TEST_F(ApplyDriveSettingsTest, ADriveWithoutSettingsOfItsOwnFollowsThoseOfAll) {
  options_.globalGeoAlign2K = true;
  for (const u32 number : {kUnlistedDrive, 0U}) {
    const auto drive = openWith(nullptr, number);
    EXPECT_EQ(2048U, alignmentUnit(drive->alignment()));
    EXPECT_EQ(2048U, freeBlocks(*drive).at(0)->startSector);
  }
}

TEST_F(ApplyDriveSettingsTest, TheDrivesOwnValuesAreTakenWhereTheyArePossible) {
  DriveSettingsRecord record;
  record.useGlobalSettings = false;
  record.alignmentBytes = 4096;
  record.heads = 15;
  record.alignOnEnd = kAlignOnEndByResizing;
  const auto drive = openWith(&record);
  EXPECT_EQ(8U, alignmentUnit(drive->alignment()));
  EXPECT_EQ(15, drive->geometry().maxHead);
  EXPECT_EQ(254, record.biosGeometry.maxHead);
  EXPECT_EQ(0U, drive->flags() & kDriveAlignOnEnd);

  for (const u32 impossible : {3000U, 100U, 1U << 31}) {
    record.alignmentBytes = impossible;
    EXPECT_FALSE(applyDriveSettings(*drive, record, options_)) << impossible;
    EXPECT_EQ(8U, alignmentUnit(drive->alignment())) << impossible;
  }
  record.alignmentBytes = 0;
  EXPECT_TRUE(applyDriveSettings(*drive, record, options_));
  EXPECT_FALSE(applyDriveSettings(*drive, record, options_));
}

TEST_F(ApplyDriveSettingsTest, OpenFlagsFollowTheOptionsAndTheCalculationMethod) {
  DriveSettingsRecord record;
  EXPECT_EQ(0x203U, driveOpenOptions(options_, &record, 0, {}).flags);
  options_.volumeLabels = false;
  options_.seqVolId = true;
  record.useGlobalSettings = false;
  const u32 modes[] = {0, 2, 3, 4, 5, 1, 0};
  for (u32 method = 0; method < std::size(modes); ++method) {
    record.geometryCalculation = method;
    EXPECT_EQ(0x301U | modes[method] << kDriveGeometryModeShift,
              driveOpenOptions(options_, &record, 0, {}).flags);
  }
  EXPECT_EQ(0x301U, driveOpenOptions(options_, nullptr, 0, {}).flags);
}

}  // namespace
}  // namespace tallowin
