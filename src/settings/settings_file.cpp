#include "settings/settings_file.h"

#include <algorithm>

#include "base/text.h"
#include "files/host_file.h"
#include "settings/program_folders.h"

namespace tallowin {
namespace {

// The number of a section HD%u; nothing for other sections.
std::optional<u32> driveNumberOf(const std::string& section) {
  if (!startsWithIgnoreCase(section, "HD")) return std::nullopt;
  const std::string_view digits = std::string_view(section).substr(2);
  u32 number = 0;
  std::size_t i = 0;
  for (; i < digits.size() && digits[i] >= '0' && digits[i] <= '9'; ++i) {
    number = number * 10 + static_cast<u32>(digits[i] - '0');
    if (number > kMaxDriveNumber) return std::nullopt;
  }
  return i > 0 ? std::optional<u32>(number) : std::nullopt;
}

bool isMissing(const std::string& path) {
  u64 sizeBytes = 0;
  return hostFileSize(path, sizeBytes) == Error::noSuchFile;
}

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

}  // namespace

SettingsText SettingsFile::load() const {
  std::string text;
  if (loadTextFile(path_, text) != Error::none) text.clear();
  return SettingsText(std::move(text));
}

template <typename Change>
Failure SettingsFile::update(const Change& change) const {
  std::string before;
  if (!isMissing(path_)) {
    if (loadTextFile(path_, before) != Error::none) return Error::cannotOpenForReading;
  } else if (!makeFolders(folderOf(path_))) {
    return Error::cannotCreate;
  }
  SettingsText text(before);
  change(text);
  if (text.text() == before) return Error::none;
  return replaceFileDurably(path_, text.text());
}

void SettingsFile::readOptions(Options& options) const {
  readOptionSection(optionTable(), load(), kOptionsSection, options);
}

Failure SettingsFile::writeOptions(const Options& options) const {
  return update([&](SettingsText& text) {
    writeOptionSection(optionTable(), options, kOptionsSection, text);
  });
}

std::vector<u32> SettingsFile::driveNumbers() const {
  std::vector<u32> numbers;
  for (const std::string& section : load().sections()) {
    const auto number = driveNumberOf(section);
    if (number && std::find(numbers.begin(), numbers.end(), *number) == numbers.end())
      numbers.push_back(*number);
  }
  return numbers;
}

DriveSettingsRecord SettingsFile::readDrive(u32 driveNumber) const {
  DriveSettingsRecord record;
  record.driveNumber = driveNumber;
  readOptionSection(driveOptionTable(), load(), driveSectionName(driveNumber), record);
  return record;
}

Failure SettingsFile::writeDrive(const DriveSettingsRecord& record, DriveKeys keys) const {
  std::span<const OptionRow<DriveSettingsRecord>> rows = driveOptionTable();
  if (keys == DriveKeys::useGlobalSettingsOnly) rows = rows.last(1);
  return update([&](SettingsText& text) {
    writeOptionSection(rows, record, driveSectionName(record.driveNumber), text);
  });
}

}  // namespace tallowin
