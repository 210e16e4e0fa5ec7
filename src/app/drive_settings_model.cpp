#include "app/drive_settings_model.h"

#include "base/text.h"

namespace tallowin {
namespace {

constexpr u32 kMaxCylinderIndex = 1023;
constexpr u32 kMaxHeadIndex = 255;
constexpr u32 kMaxSectorsPerTrack = 63;
constexpr u32 kMbrSlots = 4;

constexpr const char* kGlobalInForce =
    "The global settings are in force. Clear Use Global Settings to change this drive alone.";

Control enabledIf(bool condition, const char* whyNot) {
  return {true, condition, condition ? std::string() : whyNot};
}

}  // namespace

DriveSettingsModel::DriveSettingsModel(const DriveSettingsRecord& record, const Options& options,
                                       const DriveFacts& facts,
                                       const std::optional<EmbrPrimaries>& embr)
    : cylinders{0, 0, kMaxCylinderIndex},
      heads{0, 0, kMaxHeadIndex},
      sectors{0, 0, kMaxSectorsPerTrack},
      before_(record),
      own_(record),
      options_(options),
      facts_(facts),
      embr_(embr) {
  useGlobalSettings.ticked = record.useGlobalSettings;
  saveAsDefault.ticked = true;
  limitPrimaries.control.shown = embr_.has_value();
  if (embr_) {
    limitPrimaries.ticked = embr_->limited;
    if (!embr_->whyFixed.empty())
      limitPrimaries.control = enabledIf(false, embr_->whyFixed.c_str());
    else if (embr_->usedEntries > kMbrSlots)
      limitPrimaries.control = enabledIf(
          false, "The drive has more primary partitions than the four slots of an MBR hold.");
  }
  const EffectiveDriveSettings settings = resolveDriveSettings(own_, options_, facts_);
  showTicks(settings);
  showNumbers(settings);
  enable();
}

bool DriveSettingsModel::isGlobalInForce() const {
  return useGlobalSettings.ticked && !options_.globalGeoDisable;
}

bool DriveSettingsModel::takesNumbers() const {
  return !isGlobalInForce() && !useMbrGeometry.ticked && !useOriginalGeometry.ticked;
}

void DriveSettingsModel::readTicks() {
  own_.useMbrGeometry = useMbrGeometry.ticked;
  own_.validateMbrGeometry = validateMbrGeometry.ticked;
  own_.useOriginalGeometry = useOriginalGeometry.ticked;
  own_.alignOnEnd = !alignOnEnd.ticked          ? kAlignOnEndOff
                    : alignEndByResizing.ticked ? kAlignOnEndByResizing
                                                : kAlignOnEndOn;
  own_.align1MiB = align1MiB.ticked;
  own_.alignEndHs = alignEndHs.ticked;
  own_.alignHsOnTruncate = alignHsOnTruncate.ticked;
}

void DriveSettingsModel::showTicks(const EffectiveDriveSettings& settings) {
  useMbrGeometry.ticked = settings.useMbrGeometry;
  validateMbrGeometry.ticked = settings.validateMbrGeometry;
  useOriginalGeometry.ticked = settings.useOriginalGeometry;
  alignOnEnd.ticked = settings.alignOnEnd != kAlignOnEndOff;
  alignEndByResizing.ticked = settings.alignOnEnd == kAlignOnEndByResizing;
  align1MiB.ticked = settings.align1MiB;
  alignEndHs.ticked = settings.alignEndHs;
  alignHsOnTruncate.ticked = settings.alignHsOnTruncate;
  showsGlobal_ = settings.globalInForce;
}

// Only when their source changed: what is being typed stays.
void DriveSettingsModel::showNumbers(const EffectiveDriveSettings& settings) {
  const GeometrySource source{settings.globalInForce, settings.useMbrGeometry,
                              settings.validateMbrGeometry, settings.useOriginalGeometry};
  if (shownSource_ == source) return;
  shownSource_ = source;
  shown_ = settings.geometry;
  if (!settings.useOriginalGeometry) shown_.maxCylinder = own_.cylinders;
  if (settings.useMbrGeometry) shown_.maxCylinder = 0;
  cylinders.setValue(shown_.maxCylinder);
  heads.setValue(shown_.maxHead);
  sectors.setValue(shown_.sectorsPerTrack);
}

void DriveSettingsModel::enable() {
  const bool own = !isGlobalInForce();
  const Control editable = enabledIf(own, kGlobalInForce);
  for (Tick* tick : {&useMbrGeometry, &useOriginalGeometry, &alignOnEnd, &align1MiB, &alignEndHs,
                     &alignHsOnTruncate})
    tick->control = editable;
  geometryControl = !own ? editable
                         : enabledIf(takesNumbers(),
                                     "The numbers come from the MBR or from the drive itself while "
                                     "Use MBR Geometry or Use Original Geometry is ticked.");
  validateMbrGeometry.control =
      !own ? editable : enabledIf(useMbrGeometry.ticked, "Tick Use MBR Geometry first.");
  alignEndByResizing.control =
      !own ? editable : enabledIf(alignOnEnd.ticked, "Tick Align on End first.");
}

void DriveSettingsModel::pass() {
  // Ticks that show global values are not the drive's own.
  if (!showsGlobal_) readTicks();
  own_.useGlobalSettings = useGlobalSettings.ticked;
  const EffectiveDriveSettings settings = resolveDriveSettings(own_, options_, facts_);
  const bool shows = settings.globalInForce || showsGlobal_;
  if (shows) showTicks(settings);
  showNumbers(settings);
  enable();
}

void DriveSettingsModel::ok() {
  pass();
  if (!store || !store()) return;
  confirmed = true;
  close();
}

std::string DriveSettingsModel::problem() const {
  for (const std::string& why :
       {cylinders.problem("Cylinders"), heads.problem("Heads"), sectors.problem("Sectors")})
    if (!why.empty()) return why;
  return {};
}

DriveSettingsRecord DriveSettingsModel::result() const {
  DriveSettingsRecord record = isGlobalInForce() ? before_ : own_;
  record.useGlobalSettings = useGlobalSettings.ticked;
  if (!takesNumbers()) return record;
  // A number that was left alone stays 0 in the record when it comes from the drive.
  if (cylinders.value != shown_.maxCylinder) record.cylinders = static_cast<u16>(cylinders.value);
  if (heads.value != shown_.maxHead) record.heads = static_cast<u8>(heads.value);
  if (sectors.value != shown_.sectorsPerTrack) record.sectors = static_cast<u8>(sectors.value);
  return record;
}

DriveKeys DriveSettingsModel::keysToSave() const {
  return isGlobalInForce() ? DriveKeys::useGlobalSettingsOnly : DriveKeys::all;
}

std::optional<bool> DriveSettingsModel::wantedLimit() const {
  if (!embr_ || !limitPrimaries.control.enabled || limitPrimaries.ticked == embr_->limited)
    return std::nullopt;
  return limitPrimaries.ticked;
}

}  // namespace tallowin
