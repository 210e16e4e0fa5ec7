#include "settings/program_folders.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tallowin {
namespace {

namespace fs = std::filesystem;

constexpr const char* kOwnName = "/tallowin";

std::string absoluteFolderOf(const std::string& programPath) {
  std::error_code error;
  const fs::path absolute = fs::absolute(programPath, error);
  const fs::path folder =
      (error ? fs::path(programPath) : absolute).lexically_normal().parent_path();
  return folder.empty() ? "." : folder.string();
}

// An XDG folder, or its default below the home folder; only absolute paths count.
std::string userFolder(const EnvironmentLookup& environment, const char* variable,
                       const char* belowHome) {
  if (const auto set = environment(variable); set && set->starts_with('/')) return *set + kOwnName;
  if (const auto home = environment("HOME"); home && home->starts_with('/'))
    return *home + belowHome + kOwnName;
  return {};
}

}  // namespace

std::optional<std::string> processEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::optional<std::string>(value) : std::nullopt;
}

ProgramFolders ProgramFolders::find(const std::string& programPath,
                                    const EnvironmentLookup& environment) {
  ProgramFolders folders;
  folders.program = absoluteFolderOf(programPath);
  if (const auto home = environment("TALLOWIN_HOME"); home && !home->empty()) {
    folders.settings = folders.state = absoluteFolderOf(*home + "/");
    return folders;
  }
  const bool isBeside = ::access((folders.program + "/STRANDEL.INI").c_str(), F_OK) == 0;
  const bool canWrite = ::access(folders.program.c_str(), W_OK) == 0;
  const std::string config = userFolder(environment, "XDG_CONFIG_HOME", "/.config");
  const std::string state = userFolder(environment, "XDG_STATE_HOME", "/.local/state");
  folders.settings = isBeside || canWrite || config.empty() ? folders.program : config;
  folders.state = canWrite || state.empty() ? folders.program : state;
  return folders;
}

Failure makeFolders(const std::string& folder) {
  std::error_code failed;
  fs::create_directories(folder, failed);
  std::error_code unknown;
  if (fs::is_directory(folder, unknown)) return {};
  return {Error::cannotCreate, failed ? failed.value() : ENOTDIR};
}

}  // namespace tallowin
