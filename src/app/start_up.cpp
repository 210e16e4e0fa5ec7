#include "app/start_up.h"

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <new>
#include <ostream>
#include <span>

namespace tallowin {
namespace {

constexpr const char* kEnvironmentVariable = "strandel";
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

void applyTimeZone(const Options& options) {
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
  auto session = std::make_unique<Session>(std::move(host), folders, std::move(options));
  banner.say(kNotice);
  banner.say(".");
  applyTimeZone(session->options());
  banner.say(".");
  if (!fault.empty()) {
    out << fault << '\n';
    return {};
  }
  banner.say(".\n");
  return {std::move(session), kExitDone};
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
    out << "Insufficent memory to complete operation";
    return {nullptr, kExitNoMemory};
  }
}

}  // namespace tallowin
