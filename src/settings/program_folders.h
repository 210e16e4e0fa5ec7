// Where the program keeps what it reads and writes.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/error.h"

namespace tallowin {

// The value of an environment variable.
using EnvironmentLookup = std::function<std::optional<std::string>(const char* name)>;
std::optional<std::string> processEnvironment(const char* name);

// TALLOWIN_HOME in the environment names one folder for settings, traces and table backups.
// Without it the settings are beside the program when STRANDEL.INI is there or the folder can be
// written, else in the user's configuration folder (XDG_CONFIG_HOME, ~/.config); traces and table
// backups are beside the program when the folder can be written, else in the user's state folder
// (XDG_STATE_HOME, ~/.local/state). Folders are made when something is first written into them.
struct ProgramFolders {
  std::string program;   // holds the program file and its help file
  std::string settings;  // holds STRANDEL.INI
  std::string state;     // holds Debug.txt and the table backups

  std::string settingsFile() const { return settings + "/STRANDEL.INI"; }
  std::string helpFile() const { return program + "/tallowin.hlp"; }
  std::string traceFile() const { return state + "/Debug.txt"; }
  // A folder for the table backups in place of the usual one; empty: none are made.
  std::optional<std::string> keptTables = {};
  std::string backupFolder() const { return keptTables.value_or(state + "/backup"); }

  // `programPath` is the program's own file; relative paths count from the current folder.
  static ProgramFolders find(const std::string& programPath,
                             const EnvironmentLookup& environment = processEnvironment);
};

// Makes the folder and those above it. cannotCreate.
Failure makeFolders(const std::string& folder);

}  // namespace tallowin
