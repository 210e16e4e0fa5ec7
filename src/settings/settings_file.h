// STRANDEL.INI: what the option tables read from it and write to it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/error.h"
#include "settings/drive_settings.h"
#include "settings/options.h"
#include "settings/settings_text.h"

namespace tallowin {

inline constexpr std::string_view kOptionsSection = "OPTIONS";

// The settings file at one path. Every write reads the file again first, changes only what it is
// about and replaces the file durably, so that a second program's changes are not lost.
class SettingsFile {
 public:
  explicit SettingsFile(std::string path) : path_(std::move(path)) {}

  // No settings need as much; what is larger is no settings file of ours.
  static constexpr u64 kMostBytes = 1 * kMiB;

  const std::string& path() const { return path_; }
  // Empty when the file is missing or cannot be read: then everything has its default.
  SettingsText load() const;

  // Section OPTIONS; switch-only options are left as they are. Without a file those of a first
  // start, which the file then holds once something else is written into it.
  void readOptions(Options& options) const;
  // cannotOpenForReading, read, fileTooLarge (more than kMostBytes): the file is there but cannot
  // be read, so it is not replaced. write, noSpaceLeft, flush, cannotCreate: the old file is still
  // there, whole.
  Failure writeOptions(const Options& options) const;

  // The record with this section's name and values; without the section the defaults.
  DriveSettingsRecord readDrive(const std::string& section) const;
  // To the record's section. Errors as writeOptions.
  Failure writeDrive(const DriveSettingsRecord& record, DriveKeys keys) const;

 private:
  template <typename Change>
  Failure update(const Change& change) const;

  std::string path_;
};

}  // namespace tallowin
