// Opening a drive with its settings in force.
#pragma once

#include <memory>

#include "ptable/drive.h"
#include "settings/drive_settings.h"
#include "settings/options.h"

namespace tallowin {

// Flags and geometry mode to open a drive with; a null record: a drive that takes no settings.
DriveOpenOptions driveOpenOptions(const Options& options, const DriveSettingsRecord* record,
                                  u32 driveNumber, LabelReader labelReader);

// What the global alignment rule asks of the drive as it was read.
DriveFacts driveFacts(const Drive& drive);

enum class BiosGeometry { keep, storeCurrent };

// Gives the drive geometry, alignment and flags of the settings in force. A record without a BIOS
// geometry gets the drive's current one, as it does with storeCurrent. True when something
// changed: then the drive's table must be read again.
[[nodiscard]] bool applyDriveSettings(Drive& drive, DriveSettingsRecord& record,
                                      const Options& options,
                                      BiosGeometry biosGeometry = BiosGeometry::keep);

// Opens a disk with its settings applied; `record` is null for drives that have none of
// their own, which follow those of all drives. Errors as Drive::open.
Failure openDriveWithSettings(std::shared_ptr<DiskDevice> disk, Host& host, const Options& options,
                              DriveSettingsRecord* record, u32 driveNumber, LabelReader labelReader,
                              std::unique_ptr<Drive>& drive);

}  // namespace tallowin
