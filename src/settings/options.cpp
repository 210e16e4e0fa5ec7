#include "settings/options.h"

#include <algorithm>
#include <array>

#include "base/text.h"

namespace tallowin {
namespace {

using Row = OptionRow<Options>;

constexpr Row inFile(std::string_view key, OptionType type, Row::Member member) {
  return {{}, key, type, member, 0, 0};
}

constexpr auto kTable = std::to_array<Row>({
    {"vs", "Verbose", OptionType::boolean, &Options::verbose},
    inFile("StartAt", OptionType::number, &Options::startAt),
    inFile("VolumeLabels", OptionType::boolean, &Options::volumeLabels),
    inFile("SeqVolID", OptionType::boolean, &Options::seqVolId),
    inFile("MakeHD0Active", OptionType::boolean, &Options::makeHd0Active),
    inFile("KeepHDActive", OptionType::boolean, &Options::keepHdActive),
    inFile("DirectBootFDD", OptionType::boolean, &Options::directBootFdd),
    inFile("DirectBootNBD", OptionType::boolean, &Options::directBootNbd),
    inFile("DirectBootAllowed", OptionType::boolean, &Options::directBootAllowed),
    inFile("DirectBoot", OptionType::boolean, &Options::directBoot),
    inFile("UseHD0InBPB", OptionType::boolean, &Options::useHd0InBpb),
    inFile("LimitPrimaries", OptionType::boolean, &Options::limitPrimaries),
    inFile("RequireUser", OptionType::boolean, &Options::requireUser),
    inFile("FixSwap", OptionType::boolean, &Options::fixSwap),
    inFile("ITMode", OptionType::boolean, &Options::itMode),
    inFile("BootNow", OptionType::boolean, &Options::bootNow),
    inFile("FullPartitionList", OptionType::boolean, &Options::fullPartitionList),
    inFile("CompletionAlarm", OptionType::boolean, &Options::completionAlarm),
    inFile("NoRegUpdate", OptionType::boolean, &Options::noRegUpdate),
    inFile("ISO8601", OptionType::boolean, &Options::iso8601),
    inFile("USB", OptionType::boolean, &Options::usb),
    inFile("1394", OptionType::boolean, &Options::fireWire),
    inFile("DisableMaintenance", OptionType::boolean, &Options::disableMaintenance),
    inFile("UseOrgHDNum", OptionType::boolean, &Options::useOrgHdNum),
    inFile("TimeOut", OptionType::number, &Options::timeOut),
    inFile("GlobalGeoDisable", OptionType::boolean, &Options::globalGeoDisable),
    inFile("GlobalGeoAlignHS", OptionType::boolean, &Options::globalGeoAlignHs),
    inFile("GlobalGeoAlignVal", OptionType::number, &Options::globalGeoAlignVal),
    inFile("GlobalGeoAlign2K", OptionType::boolean, &Options::globalGeoAlign2K),
    inFile("GlobalGeoAlignCylinder", OptionType::boolean, &Options::globalGeoAlignCylinder),
    inFile("GlobalGeoMBRGeo", OptionType::boolean, &Options::globalGeoMbrGeo),
    inFile("GlobalGeoMBRGeoValidate", OptionType::boolean, &Options::globalGeoMbrGeoValidate),
    inFile("GlobalGeoOrgGeo", OptionType::boolean, &Options::globalGeoOrgGeo),
    inFile("Win7MBR", OptionType::boolean, &Options::win7Mbr),
    inFile("TimeZone", OptionType::text, &Options::timeZone),
    inFile("BackGround", OptionType::text, &Options::backGround),
    inFile("StartSound", OptionType::text, &Options::startSound),
    inFile("MaintPW", OptionType::encodedText, &Options::maintPw),
    inFile("AllowPWChange", OptionType::boolean, &Options::allowPwChange),
    inFile("MBREncryption", OptionType::boolean, &Options::mbrEncryption),
    inFile("CacheResize", OptionType::boolean, &Options::cacheResize),
    inFile("KeepJournal", OptionType::boolean, &Options::keepJournal),
    inFile("ProveContent", OptionType::boolean, &Options::proveContent),
    inFile("CodePage850", OptionType::boolean, &Options::codePage850),
    inFile("ResumeB", OptionType::text, &Options::resumeB),
    inFile("ResumeU", OptionType::text, &Options::resumeU),
    {"s", {}, OptionType::bitMask, &Options::displayMode, kDisplayModeS},
    {"v", {}, OptionType::bitMask, &Options::displayMode, kDisplayModeV},
    {"nd", {}, OptionType::boolean, &Options::noDevices},
    {"img", {}, OptionType::textList, &Options::images, 0, kMaxImages},
});

bool isSwitch(std::string_view argument) {
  return argument.starts_with('-') || argument.starts_with('+');
}

}  // namespace

std::span<const Row> optionTable() { return kTable; }

SwitchResult applySwitch(Options& options, std::string_view item, const std::string* value) {
  const std::string_view name = item.substr(0, item.find(':'));
  const auto row = std::find_if(kTable.begin(), kTable.end(), [name](const Row& candidate) {
    return !candidate.switchName.empty() && equalsIgnoreCase(candidate.switchName, name);
  });
  if (row == kTable.end()) return {SwitchStatus::unknown, {}};

  std::string_view text = "1";
  if (name.size() < item.size()) {
    text = item.substr(name.size() + 1);
    if (text.empty()) return {SwitchStatus::unknown, {}};
  } else if (row->type != OptionType::boolean && row->type != OptionType::bitMask) {
    if (!value) return {SwitchStatus::needsValue, {}};
    text = *value;
  }
  if (setOption(*row, options, text)) return {SwitchStatus::applied, {}};
  return {SwitchStatus::refused, format("Too many values for -%s: at most %zu are possible",
                                        std::string(row->switchName).c_str(), row->limit)};
}

std::string applyCommandLine(Options& options, std::span<const std::string> arguments) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    SwitchResult result;
    if (isSwitch(argument)) {
      const std::string_view item = std::string_view(argument).substr(1);
      result = applySwitch(options, item);
      // A switch behind it is a switch of its own, never the value.
      if (result.status == SwitchStatus::needsValue && i + 1 < arguments.size() &&
          !isSwitch(arguments[i + 1]))
        result = applySwitch(options, item, &arguments[++i]);
    }
    if (result.status == SwitchStatus::refused) return result.message;
    if (result.status != SwitchStatus::applied)
      return format("Invalid parameter %s", argument.c_str());
  }
  return {};
}

void applyEnvironment(Options& options, std::string_view items) {
  const std::vector<std::string> parts = split(items, ';');
  for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
    const std::string_view item = trim(*part);
    static_cast<void>(applySwitch(options, isSwitch(item) ? item.substr(1) : item));
  }
}

}  // namespace tallowin
