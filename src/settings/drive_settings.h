// Geometry and alignment settings of one drive, and how they merge with the global ones.
#pragma once

#include <map>
#include <span>
#include <string>

#include "base/geometry.h"
#include "base/types.h"
#include "settings/option_table.h"

namespace tallowin {

struct Options;
class SettingsFile;

// A drive number with this bit takes no settings: default alignment, no geometry override.
inline constexpr u32 kDriveTakesNoSettings = 0x8000;
inline constexpr u32 kMaxDriveNumber = 0xFFFFFF;

enum AlignOnEnd : u32 { kAlignOnEndOff = 0, kAlignOnEndOn = 1, kAlignOnEndByResizing = 2 };

// What a drive's section holds, and the geometry that the drive had when it was first opened.
struct DriveSettingsRecord {
  std::string section;    // of the settings file: driveSectionName or imageSectionName
  u32 driveNumber = 0;    // 24 bits: class in bits 16..23, index in bits 0..15
  Geometry biosGeometry;  // no sectors per track: not yet opened

  bool useOriginalGeometry = false;
  bool useMbrGeometry = false;
  bool validateMbrGeometry = false;
  u32 alignOnEnd = kAlignOnEndOn;
  bool align1MiB = false;
  u32 alignmentBytes = 0;  // 0: none
  bool alignEndHs = false;
  bool alignHsOnTruncate = false;
  u16 cylinders = 0;            // geometry override: the highest cylinder index; 0: the BIOS value
  u8 heads = 0;                 // highest head index; 0: the BIOS value
  u8 sectors = 0;               // per track; 0: the BIOS value
  u32 geometryCalculation = 0;  // 0..5
  bool useGlobalSettings = true;

  friend bool operator==(const DriveSettingsRecord&, const DriveSettingsRecord&) = default;
};

// The last row is UseGlobalGeoSettings.
std::span<const OptionRow<DriveSettingsRecord>> driveOptionTable();

enum class DriveKeys { all, useGlobalSettingsOnly };

// Of a disk of the machine: "HD%u" with the number without its top byte.
std::string driveSectionName(u32 driveNumber);
// Of an image file, whatever place it has in the list and by whatever link it is named: "Image",
// eight hexadecimal digits for the path, and the path, in which "_" stands for what no section
// name can hold.
std::string imageSectionName(const std::string& path);

// What the global alignment rule asks of an opened drive.
struct DriveFacts {
  bool partitionsOn1MiB = false;  // detected
  bool hasPartitions = false;
};

// The settings in force, and the geometry to apply; a zero field of it keeps the drive's value.
struct EffectiveDriveSettings {
  bool globalInForce = false;  // the record shows the global values and cannot be edited
  bool useOriginalGeometry = false;
  bool useMbrGeometry = false;
  bool validateMbrGeometry = false;
  u32 alignOnEnd = kAlignOnEndOn;
  bool align1MiB = false;
  u32 alignmentBytes = 0;
  bool alignEndHs = false;
  bool alignHsOnTruncate = false;
  u32 geometryCalculation = 0;
  Geometry geometry;
};

EffectiveDriveSettings resolveDriveSettings(const DriveSettingsRecord& record,
                                            const Options& options, const DriveFacts& facts);

// The calculation method alone, which is needed before the drive is open.
u32 effectiveGeometryCalculation(const DriveSettingsRecord& record, const Options& options);

// The records of all drives, for the life of the program. A change that was not saved lasts until
// then too.
class DriveSettingsList {
 public:
  // The record of the drive with that section, read from the file when it is asked for the first
  // time.
  DriveSettingsRecord& record(const SettingsFile& file, u32 driveNumber,
                              const std::string& section);

 private:
  std::map<std::string, DriveSettingsRecord> records_;
};

}  // namespace tallowin
