// Everything that lives from start to exit, and the one way in which a drive is opened.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/types.h"

namespace tallowin {

class DiskHandles;
class Drive;
class DriveList;
class DriveSettings;
class Host;
class Options;
class ProgramFolders;

// A bus of the bus chooser; its number is the class in bits 16..23 of a drive number.
enum class Bus : u32 { system = 0, image = 1 };

// What the window and the scripting front end stand on. It owns all of it; what it hands out by
// reference lives as long as the session.
class Session {
 public:
  Session(std::unique_ptr<Host> host, std::unique_ptr<ProgramFolders> folders,
          std::unique_ptr<Options> options);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Host& host() { return *host_; }
  Options& options() { return *options_; }
  const ProgramFolders& folders() const { return *folders_; }
  DriveSettings& driveSettings() { return *driveSettings_; }
  DriveList& driveList() { return *driveList_; }
  DiskHandles& handles() { return *handles_; }

  // "OS" and "Image", indexed by the numbers of Bus.
  const std::vector<std::string>& busNames() const;
  // The display names of the drives that a chooser offers for the bus: at most 16 disks of the
  // machine, at most 10 images.
  std::vector<std::string> driveNames(Bus bus);
  static u32 driveNumber(Bus bus, u32 index) { return (static_cast<u32>(bus) << 16) | index; }

  // Opens the disk of a drive number and reads its table, with the options' flags and the
  // drive's own settings (geometry, alignment) in force.
  // deviceNotOpened, tooManyOpenDrives, unknownDriveClass, geometryNotAvailable, outOfMemory:
  // `drive` is null and nothing stays open.
  Error openDrive(u32 driveNumber, std::unique_ptr<Drive>& drive);

 private:
  std::unique_ptr<Host> host_;
  std::unique_ptr<ProgramFolders> folders_;
  std::unique_ptr<Options> options_;
  std::unique_ptr<DriveSettings> driveSettings_;
  std::unique_ptr<DriveList> driveList_;
  std::unique_ptr<DiskHandles> handles_;
};

}  // namespace tallowin
