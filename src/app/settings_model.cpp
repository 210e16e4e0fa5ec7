#include "app/settings_model.h"

#include <array>

namespace tallowin {
namespace {

constexpr auto kGeneral = std::to_array<OptionBox>({
    {"&Limit Primaries", &Options::limitPrimaries},
    {"Use &Volume Label", &Options::volumeLabels},
    {"ISO8&601 Date/Time", &Options::iso8601},
    {"Completion &Alarm", &Options::completionAlarm},
    {"&Full Partition List", &Options::fullPartitionList},
    {"Volume Se&quence as ID", &Options::seqVolId},
    {"Assume &Original HD", &Options::useOrgHdNum},
    {"Use HD0 in FAT B&PB", &Options::useHd0InBpb},
    {"R&esize with Caching", &Options::cacheResize},
    {"&Disable Fixups", &Options::noRegUpdate},
    {"Keep a &Journal of Moves", &Options::keepJournal},
    {"&Compare Files Afterwards", &Options::proveContent},
    {"Code Page 850 for FAT &Names", &Options::codePage850},
});

constexpr auto kGeometry = std::to_array<OptionBox>({
    {"&Disable", &Options::globalGeoDisable},
    {"Align on &1MiB Boundaries", &Options::globalGeoAlign2K},
    {"Align on &Cylinder", &Options::globalGeoAlignCylinder},
    {"Assume Same &Target System", &Options::globalGeoMbrGeo},
    {"&Validate Geometry Before Use", &Options::globalGeoMbrGeoValidate},
    {"Align MBR for &BIOS Auto Mode", &Options::globalGeoAlignHs},
    {"Use Source &Host Geometry", &Options::globalGeoOrgGeo},
    {"Use New &Windows MBR", &Options::win7Mbr},
});

}  // namespace

std::span<const OptionBox> generalBoxes() { return kGeneral; }
std::span<const OptionBox> geometryBoxes() { return kGeometry; }

void copyShownOptions(const Options& from, Options& to) {
  for (const std::span<const OptionBox> page : {generalBoxes(), geometryBoxes()})
    for (const OptionBox& box : page) to.*box.option = from.*box.option;
}

SettingsModel::SettingsModel(const Options& shown, std::unique_ptr<DriveSettingsModel> drive,
                             std::string whyNoDrive)
    : options(shown), drive_(std::move(drive)), whyNoDrive_(std::move(whyNoDrive)) {}

void SettingsModel::pass() {
  if (!drive_) return;
  drive_->setOptions(options);
  drive_->pass();
}

void SettingsModel::ok() {
  pass();
  if (store && store()) close();
}

}  // namespace tallowin
