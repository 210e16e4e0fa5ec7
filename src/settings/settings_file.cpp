#include "settings/settings_file.h"

#include "base/text.h"
#include "files/host_file.h"
#include "settings/options.h"
#include "settings/program_folders.h"

namespace tallowin {
namespace {

bool isMissing(const std::string& path) {
  u64 sizeBytes = 0;
  return hostFileSize(path, sizeBytes) == Error::noSuchFile;
}

// Who has no settings yet begins with an alignment to 1 MiB.
void startWith1MiB(Options& options) { options.globalGeoAlign2K = true; }

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

}  // namespace

SettingsText SettingsFile::load() const {
  std::string text;
  if (loadTextFile(path_, text, kMostBytes)) text.clear();
  return SettingsText(std::move(text));
}

template <typename Change>
Failure SettingsFile::update(const Change& change) const {
  std::string before;
  const bool isNew = isMissing(path_);
  if (!isNew) {
    if (const Failure failed = loadTextFile(path_, before, kMostBytes)) return failed;
  } else if (const Failure failed = makeFolders(folderOf(path_))) {
    return failed;
  }
  SettingsText text(before);
  if (isNew) {
    Options first;
    startWith1MiB(first);
    writeOptionSection(optionTable(), first, kOptionsSection, text);
  }
  change(text);
  if (!isNew && text.text() == before) return {};
  return replaceFileDurably(path_, text.text());
}

void SettingsFile::readOptions(Options& options) const {
  readOptionSection(optionTable(), load(), kOptionsSection, options);
  if (isMissing(path_)) startWith1MiB(options);
}

Failure SettingsFile::writeOptions(const Options& options) const {
  return update([&](SettingsText& text) {
    writeOptionSection(optionTable(), options, kOptionsSection, text);
  });
}

DriveSettingsRecord SettingsFile::readDrive(const std::string& section) const {
  DriveSettingsRecord record;
  record.section = section;
  readOptionSection(driveOptionTable(), load(), section, record);
  return record;
}

Failure SettingsFile::writeDrive(const DriveSettingsRecord& record, DriveKeys keys) const {
  std::span<const OptionRow<DriveSettingsRecord>> rows = driveOptionTable();
  if (keys == DriveKeys::useGlobalSettingsOnly) rows = rows.last(1);
  return update(
      [&](SettingsText& text) { writeOptionSection(rows, record, record.section, text); });
}

}  // namespace tallowin
