#include "ops/apply_drive_settings.h"

namespace tallowin {
namespace {

// The calculation methods as the geometry modes that a drive is opened with.
u32 geometryModeFlags(u32 calculation) {
  if (calculation == 0 || calculation > 5) return 0;
  const u32 mode = calculation == 5 ? 1 : calculation + 1;
  return mode << kDriveGeometryModeShift;
}

bool isUsableGeometry(const Geometry& g) { return g.sectorsPerTrack >= 1; }

// What is out of range becomes 0, which keeps the drive's value.
Geometry inRange(Geometry geometry) {
  if (geometry.sectorsPerTrack > 63) geometry.sectorsPerTrack = 0;
  if (geometry.maxCylinder > 1023) geometry.maxCylinder = 0;
  return geometry;
}

u32 flagIf(bool condition, u32 flag) { return condition ? flag : 0; }

u64 unitOf(const Drive& drive) { return alignmentUnit(drive.alignment()); }

// True when the unit is another one now.
bool applyAlignment(Drive& drive, const EffectiveDriveSettings& settings) {
  const u64 before = unitOf(drive);
  const u32 sectorBytes = drive.sectorSize();
  if (settings.alignmentBytes >= sectorBytes) {
    static_cast<void>(drive.setAlignment(settings.alignmentBytes / sectorBytes));
  } else if (settings.alignmentBytes != 0) {
    return false;  // less than a sector is no unit
  } else if (settings.align1MiB) {
    static_cast<void>(drive.setAlignment(static_cast<i64>(kMiB / sectorBytes)));
  } else {
    static_cast<void>(drive.setAlignment(AlignmentRules::kDefaultUnit));
  }
  return unitOf(drive) != before;
}

}  // namespace

DriveOpenOptions driveOpenOptions(const Options& options, const DriveSettingsRecord* record,
                                  u32 driveNumber, LabelReader labelReader) {
  DriveOpenOptions open;
  open.driveNumber = driveNumber;
  open.labelReader = std::move(labelReader);
  open.flags |= flagIf(options.volumeLabels, kDrivePreferLabels);
  open.flags |= flagIf(options.seqVolId, kDriveSequentialIds);
  if (record) open.flags |= geometryModeFlags(effectiveGeometryCalculation(*record, options));
  return open;
}

DriveFacts driveFacts(const Drive& drive) {
  return {(drive.flags() & kDriveAligned1MiB) != 0, drive.partitionCount() > 0};
}

bool applyDriveSettings(Drive& drive, DriveSettingsRecord& record, const Options& options,
                        BiosGeometry biosGeometry) {
  if (!isUsableGeometry(record.biosGeometry) || biosGeometry == BiosGeometry::storeCurrent)
    record.biosGeometry = drive.geometry();
  const EffectiveDriveSettings settings = resolveDriveSettings(record, options, driveFacts(drive));

  bool changed = drive.setGeometry(inRange(settings.geometry));
  if (applyAlignment(drive, settings)) changed = true;
  drive.setFlags(kDriveAlignOnEnd | kDriveChsForceEnd | kDriveChsEndIfTruncated,
                 flagIf(settings.alignOnEnd == kAlignOnEndOn, kDriveAlignOnEnd) |
                     flagIf(settings.alignEndHs, kDriveChsForceEnd) |
                     flagIf(settings.alignHsOnTruncate, kDriveChsEndIfTruncated));
  return changed;
}

Failure openDriveWithSettings(std::shared_ptr<DiskDevice> disk, Host& host, const Options& options,
                              DriveSettingsRecord* record, u32 driveNumber, LabelReader labelReader,
                              std::unique_ptr<Drive>& drive) {
  const DriveOpenOptions open =
      driveOpenOptions(options, record, driveNumber, std::move(labelReader));
  if (const Failure error = Drive::open(std::move(disk), host, open, drive); error != Error::none)
    return error;
  // A drive without settings of its own follows those of all drives.
  DriveSettingsRecord usual;
  const bool isListed = record && (driveNumber & kDriveTakesNoSettings) == 0;
  return applyDriveSettings(*drive, isListed ? *record : usual, options) ? drive->reread()
                                                                         : Failure();
}

}  // namespace tallowin
