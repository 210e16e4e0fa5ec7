// settings: the options of the settings file.
#include <cstdio>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/values.h"
#include "settings/settings_file.h"

namespace tallowin {
namespace {

// Without a key all settings; with a value the key gets it.
struct SettingWish {
  std::string key;
  std::optional<std::string> value;
};

std::optional<SettingWish> parseWish(std::string_view text) {
  const std::size_t equals = text.find('=');
  SettingWish wish{std::string(text.substr(0, equals)), std::nullopt};
  if (equals != std::string_view::npos) wish.value = text.substr(equals + 1);
  return wish;
}

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

// A text that the file holds scrambled is given as it is; one line.
template <typename Owner>
bool setPlain(const OptionRow<Owner>& row, Owner& owner, const std::string& text) {
  if (text.find_first_of("\r\n") != std::string::npos) return false;
  return std::visit(
      [&](auto member) {
        if constexpr (requires { owner.*member = text; }) {
          owner.*member = text;
          return true;
        } else {
          return false;
        }
      },
      row.member);
}

// Refuses what the file's own reader would silently take for 0.
template <typename Owner>
bool setChecked(const OptionRow<Owner>& row, Owner& owner, const std::string& text) {
  if (row.type == OptionType::encodedText) return setPlain(row, owner, text);
  const bool isText = row.type == OptionType::text;
  u64 number = 0;
  if (!isText && !parseNumber(text, number)) return false;
  if (row.type == OptionType::number && row.limit != 0 && number > row.limit) return false;
  if (!setOption(row, owner, text)) return false;
  return isText || row.type == OptionType::boolean ||
         optionText(row, owner) == std::to_string(number);
}

CommandResult wrongUsage(std::string message) {
  return {ExitStatus::wrongUsage, Error::none, std::move(message)};
}

template <typename Owner>
void show(CommandContext& context, const OptionRow<Owner>& row, const Owner& owner) {
  const std::string key(row.key);
  const std::string text = optionText(row, owner);
  if (context.options.json)
    context.json.text(key.c_str(), text);
  else
    std::printf("%s=%s\n", key.c_str(), text.c_str());
}

// Shows or changes options of one section; `write` stores the section.
template <typename Owner, typename Write>
CommandResult showOrChange(CommandContext& context, const SettingWish& wish,
                           std::span<const OptionRow<Owner>> rows, Owner owner,
                           const Write& write) {
  if (wish.key.empty() && wish.value)
    return wrongUsage("The setting to change is missing before '='.");
  bool found = wish.key.empty();
  if (context.options.json) context.json.beginObject("settings");
  for (const OptionRow<Owner>& row : rows) {
    if (row.key.empty() || (!wish.key.empty() && !equalsIgnoreCase(row.key, wish.key))) continue;
    found = true;
    if (wish.value) {
      if (!setChecked(row, owner, *wish.value))
        return wrongUsage(
            format("'%s' is no value for %s.", wish.value->c_str(), std::string(row.key).c_str()));
      context.mayHaveChanged = true;
      if (const Failure error = write(owner); error != Error::none)
        return failedBecause(
            "'" + context.session.settingsFile().path() + "' could not be written.", error);
    }
    show(context, row, owner);
  }
  if (!found) return wrongUsage("There is no setting '" + wish.key + "'.");
  if (context.options.json) context.json.endObject();
  return {};
}

// A disk of the machine by its number, an image by its path.
struct SettingsOwner {
  std::optional<u32> number;
  std::string path;
};

std::optional<SettingsOwner> parseOwner(std::string_view text) {
  if (text.empty()) return std::nullopt;
  u64 number = 0;
  if (!parseNumber(text, number)) return SettingsOwner{std::nullopt, std::string(text)};
  if (number >= kDriveTakesNoSettings) return std::nullopt;
  return SettingsOwner{static_cast<u32>(number), {}};
}

class SettingsCommand : public Command {
  void declare(OptionSet& options, CommonOptions&) override {
    options.value("KEY", "[=VALUE]", wish_, parseWish, "a setting",
                  "An option to show, or to set with =VALUE; by default all are shown");
    options.value("--drive", "N|IMAGE", owner_, parseOwner,
                  "a disk's number, which counts from 0, or the path of an image",
                  "The settings of one disk or image, instead of the program's");
  }
  CommandResult run(CommandContext& context) override;

  SettingWish wish_;
  std::optional<SettingsOwner> owner_;
};

CommandResult SettingsCommand::run(CommandContext& context) {
  const SettingsFile& file = context.session.settingsFile();
  if (!owner_) {
    Options options;
    file.readOptions(options);
    return showOrChange(context, wish_, optionTable(), options,
                        [&](const Options& changed) { return file.writeOptions(changed); });
  }
  const std::string section =
      owner_->number ? driveSectionName(*owner_->number) : imageSectionName(owner_->path);
  return showOrChange(
      context, wish_, driveOptionTable(), file.readDrive(section),
      [&](const DriveSettingsRecord& changed) { return file.writeDrive(changed, DriveKeys::all); });
}

}  // namespace

const CommandRow kSettingsCommand = {"settings", "Show or change the settings",
                                     makeCommand<SettingsCommand>};

}  // namespace tallowin
