// settings: the options of the settings file.
#include <cstdio>

#include "base/text.h"
#include "cli/command.h"
#include "settings/settings_file.h"

namespace tallowin {
namespace {

template <typename Value>
std::string valueText(const Value& value) {
  if constexpr (std::is_same_v<Value, std::string>) {
    return value;
  } else if constexpr (std::is_arithmetic_v<Value>) {
    return std::to_string(u64{value});
  } else {
    return {};  // lists are switches and have no key
  }
}

template <typename Owner>
std::string optionText(const OptionRow<Owner>& row, const Owner& owner) {
  if (row.type == OptionType::encodedText) return "(not shown)";
  return std::visit([&](auto member) { return valueText(owner.*member); }, row.member);
}

// Refuses what the file's own reader would silently take for 0.
template <typename Owner>
bool setChecked(const OptionRow<Owner>& row, Owner& owner, const std::string& text) {
  const bool isText = row.type == OptionType::text || row.type == OptionType::encodedText;
  u64 number = 0;
  if (!isText && !parseNumber(text, number)) return false;
  if (row.type == OptionType::number && row.limit != 0 && number > row.limit) return false;
  if (!setOption(row, owner, text)) return false;
  return isText || row.type == OptionType::boolean ||
         optionText(row, owner) == std::to_string(number);
}

CommandResult wrongUsage(std::string message) {
  return {ExitStatus::wrongUsage, Error::none, 0, std::move(message)};
}

template <typename Owner>
void show(CommandContext& context, const OptionRow<Owner>& row, const Owner& owner) {
  const std::string key(row.key);
  const std::string text = optionText(row, owner);
  if (context.arguments.json)
    context.json.text(key.c_str(), text);
  else
    std::printf("%s=%s\n", key.c_str(), text.c_str());
}

// Shows or changes options of one section; `write` stores the section.
template <typename Owner, typename Write>
CommandResult run(CommandContext& context, std::span<const OptionRow<Owner>> rows, Owner owner,
                  const Write& write) {
  const Arguments& arguments = context.arguments;
  if (arguments.key.empty() && arguments.value)
    return wrongUsage("The setting to change is missing before '='.");
  bool found = arguments.key.empty();
  if (context.arguments.json) context.json.beginObject("settings");
  for (const OptionRow<Owner>& row : rows) {
    if (row.key.empty() || (!arguments.key.empty() && !equalsIgnoreCase(row.key, arguments.key)))
      continue;
    found = true;
    if (arguments.value) {
      if (!setChecked(row, owner, *arguments.value))
        return wrongUsage(format("'%s' is no value for %s.", arguments.value->c_str(),
                                 std::string(row.key).c_str()));
      if (const Failure error = write(owner); error != Error::none)
        return failedBecause(
            "'" + context.session.settingsFile().path() + "' could not be written.", error);
    }
    show(context, row, owner);
  }
  if (!found) return wrongUsage("There is no setting '" + arguments.key + "'.");
  if (context.arguments.json) context.json.endObject();
  return {};
}

}  // namespace

CommandResult runSettings(CommandContext& context) {
  const SettingsFile& file = context.session.settingsFile();
  if (!context.arguments.driveNumber) {
    Options options;
    file.readOptions(options);
    return run(context, optionTable(), options,
               [&](const Options& changed) { return file.writeOptions(changed); });
  }
  if (*context.arguments.driveNumber > kMaxDriveNumber ||
      (*context.arguments.driveNumber & kDriveTakesNoSettings) != 0)
    return wrongUsage(format("Drive %u has no settings: disks count from 0, images from 65536.",
                             *context.arguments.driveNumber));
  return run(
      context, driveOptionTable(), file.readDrive(*context.arguments.driveNumber),
      [&](const DriveSettingsRecord& changed) { return file.writeDrive(changed, DriveKeys::all); });
}

}  // namespace tallowin
