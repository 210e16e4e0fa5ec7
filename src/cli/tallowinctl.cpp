#include "cli/tallowinctl.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "app/start_up.h"
#include "base/standard_streams.h"
#include "base/stop_request.h"
#include "base/text.h"
#include "cli/command_line.h"

namespace tallowin {
namespace {

// Whether the path leads to a device of this machine.
bool isDevice(const std::string& path) {
  std::error_code failure;
  const auto status = std::filesystem::status(path, failure);
  // Some file systems for files lie below /dev.
  if (std::filesystem::is_regular_file(status)) return false;
  const std::filesystem::path real = std::filesystem::weakly_canonical(path, failure);
  return real.string().starts_with("/dev/") || std::filesystem::is_block_file(status) ||
         std::filesystem::is_character_file(status);
}

// A device is a drive of the machine, with its number and settings; any other target is the
// first image. The scan is left out when nothing depends on it.
void chooseDrives(const ParsedCommandLine& parsed, bool targetIsDevice, Options& options) {
  const std::string& target = parsed.options.target;
  options.images.clear();
  if (!target.empty() && !targetIsDevice) options.images = {target};
  if (!parsed.row->looksForDevices && !targetIsDevice) options.noDevices = true;
}

std::string failureJson(const CommandResult& result) {
  JsonWriter json;
  json.beginObject();
  json.boolean("ok", false);
  json.beginObject("error");
  json.number("code", result.publishedNumber());
  json.number("phase", result.code.phase);
  json.text("message", onOneLine(result.message));
  json.endObject();
  json.endObject();
  return json.content();
}

void reportFailure(const std::string& command, const CommandResult& result, bool asJson) {
  std::string line = "tallowinctl " + command + ": " + onOneLine(result.message);
  if (result.code != Error::none)
    line += format(" (error %u, phase %u)", result.publishedNumber(), result.code.phase);
  std::fprintf(stderr, "%s\n", line.c_str());
  if (asJson) std::printf("%s\n", failureJson(result).c_str());
}

ExitStatus report(const ParsedCommandLine& parsed, const CommandResult& result,
                  const ConsoleFrontEnd& ui, JsonWriter& json) {
  const bool asJson = parsed.options.json;
  if (!result.succeeded()) {
    reportFailure(std::string(parsed.row->name), result, asJson);
    return result.status;
  }
  for (const std::string& note : ui.told())
    std::fprintf(stderr, "note: %s\n", onOneLine(note).c_str());
  if (!ui.told().empty()) {
    json.beginArray("notes");
    for (const std::string& note : ui.told()) json.text(nullptr, note);
    json.endArray();
  }
  json.endObject();
  if (asJson) std::printf("%s\n", json.content());
  return result.status;
}

// What flows keep beside their work, kept tables and traces, while they only rehearse.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::error_code failure;
    // Large files go to the disk: the usual folder may lie in memory.
    const char* const wanted = std::getenv("TMPDIR");
    std::string folder = wanted ? wanted : "/var/tmp";
    if (!std::filesystem::is_directory(folder, failure))
      folder = std::filesystem::temp_directory_path(failure).string();
    std::string name = folder + "/tallowin-XXXXXX";
    if (!failure && ::mkdtemp(name.data())) path_ = name;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;  // empty: it could not be made
};

ExitStatus run(const ParsedCommandLine& parsed, const std::string& programFile,
               std::unique_ptr<Host> host, bool& mayHaveChanged) {
  const CommonOptions& wanted = parsed.options;
  ProgramFolders folders = ProgramFolders::find(programFile);
  Options options = readOptions(folders);
  options.noDevices = options.noDevices || wanted.hideDevices;
  ConsoleFrontEnd ui(!wanted.quiet);
  if (wanted.yes || wanted.rehearse) ui.agreeTo(Consent::general);
  if (wanted.rehearse) ui.rehearse();
  JsonWriter json;
  json.beginObject();
  json.boolean("ok", true);
  const auto end = [&](const CommandResult& result) { return report(parsed, result, ui, json); };
  const bool targetIsDevice = !wanted.target.empty() && isDevice(wanted.target);
  if (targetIsDevice && options.noDevices)
    return end(refused("'" + wanted.target +
                       "' is a device, and devices are hidden; leave out --nd to work on it."));
  chooseDrives(parsed, targetIsDevice, options);
  std::optional<ScratchFolder> scratch;
  if (wanted.rehearse) folders.state = scratch.emplace().path();
  if (wanted.keepTableIn) folders.keptTables = host->absolutePath(*wanted.keepTableIn);
  if (wanted.keepTableIn && !folders.keptTables)
    return end(refused("The working directory is gone; give the whole path of the folder '" +
                       *wanted.keepTableIn + "'."));
  if (wanted.keepNoTable) folders.keptTables = std::string();
  if (scratch && folders.state.empty())
    return end(refused("There is no folder for temporary files; set TMPDIR."));
  Session session(std::move(host), folders, std::move(options));
  CommandContext context{wanted, session, ui, json};
  const ExitStatus status = end(parsed.command->run(context));
  mayHaveChanged = context.mayHaveChanged;
  return status;
}

}  // namespace

int tallowinctl(const std::vector<std::string>& words, std::unique_ptr<Host> host) {
  occupyStandardStreams();
  const std::vector<std::string> rest(words.begin() + (words.empty() ? 0 : 1), words.end());
  const ParsedCommandLine parsed = parseCommandLine(rest);
  ExitStatus status = parsed.status;
  bool mayHaveChanged = false;
  if (parsed.command) {
    catchStopSignals();
    // A reader that went away is an output that fails, and no end in the middle of a change.
    std::signal(SIGPIPE, SIG_IGN);
    status = run(parsed, ownProgramFile(words), std::move(host), mayHaveChanged);
  } else if (status == ExitStatus::done) {
    std::fputs(parsed.text.c_str(), stdout);
  } else {
    const bool asJson = std::find(rest.begin(), rest.end(), "--json") != rest.end();
    reportFailure(rest.empty() ? "" : rest[0], {status, Error::none, parsed.text}, asJson);
  }
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return static_cast<int>(status);
  // What a full disk or a closed pipe swallowed was not said; what was changed stays changed.
  const bool isChanged =
      mayHaveChanged && (status == ExitStatus::done || status == ExitStatus::doneWithLosses);
  std::fputs(isChanged ? "tallowinctl: The change was made, but its report could not be written "
                         "to standard output.\n"
                       : "tallowinctl: Standard output could not be written.\n",
             stderr);
  const bool isLost = status == ExitStatus::done && !isChanged;
  return static_cast<int>(isLost ? ExitStatus::failed : status);
}

}  // namespace tallowin
