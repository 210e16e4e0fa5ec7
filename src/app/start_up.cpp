#include "app/start_up.h"

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <new>
#include <ostream>
#include <span>

#include "base/stop_request.h"

namespace tallowin {
namespace {

constexpr const char* kEnvironmentVariable = "strandel";
constexpr const char* kNoMemory = "Insufficent memory to complete operation";
constexpr const char* kNotice =
    "\nPartition manager. Free software under the GNU General Public License, version 3 or later;"
    "\nit comes without any warranty.\n";

// What start-up says while it works, if it says anything.
class Banner {
 public:
  Banner(std::ostream& out, bool verbose) : out_(out), verbose_(verbose) {}
  void say(const char* text) {
    if (verbose_) out_ << text << std::flush;
  }

 private:
  std::ostream& out_;
  bool verbose_;
};

// Where none was set, the user's own stays.
void applyTimeZone(const Options& options) {
  if (options.timeZone.empty()) return;
  ::setenv("TZ", options.timeZone.c_str(), 1);
  ::tzset();
}

StartUp start(const std::vector<std::string>& arguments, std::unique_ptr<Host> host,
              std::ostream& out) {
  const ProgramFolders folders = ProgramFolders::find(ownProgramFile(arguments));
  // Everything that says how to start is read before anything is done: whether the devices are
  // kept off, and whether the banner shows.
  Options options = readOptions(folders);
  const std::string fault = applyCommandLine(
      options, std::span(arguments).subspan(std::min<std::size_t>(1, arguments.size())));
  // Where the working directory is gone, opening the image says so.
  for (std::string& image : options.images) image = host->absolutePath(image).value_or(image);

  Banner banner(out, options.verbose);
  banner.say("Strandel 1.32");
  // Files that are named without a folder live beside the program.
  static_cast<void>(::chdir(folders.program.c_str()));
  StartUp result;
  // A faulty command line was not read to its end, where it might say to keep off the devices.
  if (fault.empty()) result.session = std::make_unique<Session>(std::move(host), folders, options);
  banner.say(kNotice);
  banner.say(".");
  applyTimeZone(options);
  banner.say(".");
  if (fault.empty())
    banner.say(".\n");
  else
    out << fault << '\n';
  return result;
}

}  // namespace

std::string ownProgramFile(const std::vector<std::string>& arguments) {
  if (!arguments.empty() && arguments[0].find('/') != std::string::npos) return arguments[0];
  // Found along PATH, which only the kernel still knows.
  std::error_code failure;
  const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", failure);
  return failure ? std::string("./tallowin") : path.string();
}

Options readOptions(const ProgramFolders& folders) {
  Options options;
  SettingsFile(folders.settingsFile()).readOptions(options);
  if (const auto items = processEnvironment(kEnvironmentVariable))
    applyEnvironment(options, *items);
  return options;
}

StartUp startUp(const std::vector<std::string>& arguments, std::unique_ptr<Host> host,
                std::ostream& out) {
  out << "Starting...\n\n";
  try {
    return start(arguments, std::move(host), out);
  } catch (const std::bad_alloc&) {
    out << kNoMemory;
    return {nullptr, kExitNoMemory};
  }
}

int runFrontEnd(std::ostream& out, const std::function<int()>& program) {
  int status = kExitFailed;
  try {
    status = program();
  } catch (const std::bad_alloc&) {
    requestStop(StopReason::outOfMemory);
  }
  switch (stopReason()) {
    case StopReason::none:
    case StopReason::signal:
      return status;
    case StopReason::displayLost:
      break;
    case StopReason::outOfMemory:
      out << kNoMemory << std::endl;
      break;
  }
  return kExitFailed;
}

}  // namespace tallowin
