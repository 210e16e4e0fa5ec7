// The order of start-up, up to the point where a front end takes over.
#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "app/session.h"

namespace tallowin {

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitNoMemory = 2;

struct StartUp {
  // Null when no window is to open: the caller ends with `exitStatus`.
  std::unique_ptr<Session> session;
  int exitStatus = kExitDone;
};

// Makes the program's folder the current directory, reads the settings file, the environment
// and the switches, scans for devices and SCSI generic nodes (not with the switch `nd`: then no
// device is opened; nor with a faulty command line), registers the images of `img` switches and
// applies the time zone. Banner, dots and "Invalid parameter %s\n" go to `out`. `arguments` are
// those of main, the program's name first; paths in them are taken from the directory that was
// current before the call.
StartUp startUp(const std::vector<std::string>& arguments, std::unique_ptr<Host> host,
                std::ostream& out);

// Runs what follows the start: its status, or kExitFailed when memory ran out, which `out` is told,
// or the display was lost.
int runFrontEnd(std::ostream& out, const std::function<int()>& program);

// The program file that the arguments of main name, also when it was found along PATH.
std::string ownProgramFile(const std::vector<std::string>& arguments);

// The defaults, then the settings file, then the environment.
Options readOptions(const ProgramFolders& folders);

}  // namespace tallowin
