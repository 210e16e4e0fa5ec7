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

  const std::string& path() const { return path_; }
  // Empty when the file is missing or cannot be read: then everything has its default.
  SettingsText load() const;

  // Section OPTIONS; switch-only options and what is not in the file are left as they are.
  void readOptions(Options& options) const;
  // cannotOpenForReading: the file is there but cannot be read, so it is not replaced.
  // writeFailed, cannotCreate: the old file is still there, whole.
  Failure writeOptions(const Options& options) const;

  // The drives that have a section HD%u.
  std::vector<u32> driveNumbers() const;
  DriveSettingsRecord readDrive(u32 driveNumber) const;
  // Errors as writeOptions.
  Failure writeDrive(const DriveSettingsRecord& record, DriveKeys keys) const;

 private:
  template <typename Change>
  Failure update(const Change& change) const;

  std::string path_;
};

}  // namespace tallowin
