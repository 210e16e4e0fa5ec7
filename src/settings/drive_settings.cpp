#include "settings/drive_settings.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "base/crc32.h"
#include "base/text.h"
#include "settings/options.h"
#include "settings/settings_file.h"

namespace tallowin {
namespace {

using Record = DriveSettingsRecord;
using Row = OptionRow<Record>;

constexpr Row inFile(std::string_view key, OptionType type, Row::Member member,
                     std::size_t largest = 0) {
  return {{}, key, type, member, 0, largest};
}

constexpr auto kTable = std::to_array<Row>({
    inFile("UseOrgGeo", OptionType::boolean, &Record::useOriginalGeometry),
    inFile("UseMBRGeo", OptionType::boolean, &Record::useMbrGeometry),
    inFile("UseValidMBRGeoOnly", OptionType::boolean, &Record::validateMbrGeometry),
    inFile("AlignOnEnd", OptionType::number, &Record::alignOnEnd, kAlignOnEndByResizing),
    inFile("Align2048", OptionType::boolean, &Record::align1MiB),
    inFile("AlignVal", OptionType::number, &Record::alignmentBytes),
    inFile("AlignEndHS", OptionType::boolean, &Record::alignEndHs),
    inFile("AlignHSOnTrunc", OptionType::boolean, &Record::alignHsOnTruncate),
    inFile("c", OptionType::number, &Record::cylinders, 1023),
    inFile("h", OptionType::number, &Record::heads),
    inFile("s", OptionType::number, &Record::sectors, 63),
    inFile("GeoCalc", OptionType::number, &Record::geometryCalculation, 5),
    inFile("UseGlobalGeoSettings", OptionType::boolean, &Record::useGlobalSettings),
});

bool globalInForce(const Record& record, const Options& options) {
  return record.useGlobalSettings && !options.globalGeoDisable;
}

template <typename Number>
Number orElse(Number wanted, Number otherwise) {
  return wanted != 0 ? wanted : otherwise;
}

Geometry overriddenGeometry(const Record& record) {
  const Geometry& bios = record.biosGeometry;
  return {orElse(record.cylinders, bios.maxCylinder), orElse(record.heads, bios.maxHead),
          orElse(record.sectors, bios.sectorsPerTrack)};
}

void applyGlobalAlignment(const Options& options, const DriveFacts& facts,
                          EffectiveDriveSettings& settings) {
  const bool cylinder = options.globalGeoAlignCylinder;
  const bool oneMiB = options.globalGeoAlign2K;
  if (cylinder != oneMiB) {
    settings.align1MiB = oneMiB;
  } else {
    settings.align1MiB = facts.partitionsOn1MiB || (oneMiB && !facts.hasPartitions);
  }
  settings.alignmentBytes = options.globalGeoAlignVal;

  const bool onCylinders = !settings.align1MiB && settings.alignmentBytes == 0;
  settings.alignOnEnd = onCylinders ? kAlignOnEndOn : kAlignOnEndOff;
  settings.alignEndHs = onCylinders ? options.globalGeoAlignHs : true;
  settings.alignHsOnTruncate = settings.alignEndHs;
}

}  // namespace

std::span<const Row> driveOptionTable() { return kTable; }

std::string driveSectionName(u32 driveNumber) {
  return format("HD%u", driveNumber & kMaxDriveNumber);
}

std::string imageSectionName(const std::string& path) {
  std::error_code error;
  const auto canonical = std::filesystem::weakly_canonical(path, error);
  std::string shown = error ? path : canonical.string();
  const u32 check = crc32({reinterpret_cast<const u8*>(shown.data()), shown.size()});
  std::ranges::replace_if(
      shown, [](char c) { return c == ']' || static_cast<u8>(c) < ' '; }, '_');
  return format("Image %08X %s", check, shown.c_str());
}

u32 effectiveGeometryCalculation(const Record& record, const Options& options) {
  return globalInForce(record, options) ? 0 : record.geometryCalculation;
}

EffectiveDriveSettings resolveDriveSettings(const Record& record, const Options& options,
                                            const DriveFacts& facts) {
  EffectiveDriveSettings settings;
  settings.globalInForce = globalInForce(record, options);
  settings.alignOnEnd = record.alignOnEnd;
  settings.geometryCalculation = effectiveGeometryCalculation(record, options);
  if (settings.globalInForce) {
    settings.useOriginalGeometry = options.globalGeoOrgGeo;
    settings.useMbrGeometry = options.globalGeoMbrGeo;
    settings.validateMbrGeometry = options.globalGeoMbrGeoValidate;
    settings.geometry = record.biosGeometry;
    applyGlobalAlignment(options, facts, settings);
    return settings;
  }
  settings.useOriginalGeometry = record.useOriginalGeometry;
  settings.useMbrGeometry = record.useMbrGeometry;
  settings.validateMbrGeometry = record.validateMbrGeometry;
  settings.geometry = overriddenGeometry(record);
  settings.align1MiB = record.align1MiB;
  settings.alignEndHs = record.alignEndHs;
  settings.alignHsOnTruncate = record.alignHsOnTruncate;
  settings.alignmentBytes = record.alignmentBytes;
  return settings;
}

DriveSettingsRecord& DriveSettingsList::record(const SettingsFile& file, u32 driveNumber,
                                               const std::string& section) {
  auto found = records_.find(section);
  if (found == records_.end()) found = records_.emplace(section, file.readDrive(section)).first;
  found->second.driveNumber = driveNumber;
  return found->second;
}

}  // namespace tallowin
