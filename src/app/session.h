// Everything that lives from start to exit, and the one way in which a drive is opened.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/host.h"
#include "disk/disk_handles.h"
#include "disk/drive_list.h"
#include "disk/scsi_generic.h"
#include "ops/file_systems.h"
#include "ops/operation_context.h"
#include "ptable/drive.h"
#include "settings/drive_settings.h"
#include "settings/options.h"
#include "settings/program_folders.h"
#include "settings/settings_file.h"

namespace tallowin {

// What the window and the scripting front end stand on. It owns all of it; what it hands out by
// reference lives as long as the session.
class Session {
 public:
  // Scans the machine for devices unless the options say to keep off them, and registers the images
  // of the options.
  Session(std::unique_ptr<Host> host, ProgramFolders folders, Options options);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Host& host() { return *host_; }
  Options& options() { return options_; }
  const ProgramFolders& folders() const { return folders_; }
  const SettingsFile& settingsFile() const { return settingsFile_; }
  // The settings of a drive: of an image those of its path, whatever its number.
  DriveSettingsRecord& driveSettings(u32 driveNumber, const std::string& path);
  const DriveList& driveList() const { return driveList_; }
  // The optical drives that the kernel offers as SCSI generic nodes; none while devices are hidden.
  const std::vector<ScsiGenericDevice>& scsiGenericList() const { return scsiGenericList_; }
  DiskHandles& handles() { return handles_; }
  // What a flow is given.
  OperationContext context(FrontEnd& frontEnd) {
    return {frontEnd, *host_, options_, folders_, fileSystems_, mounts_};
  }
  const FileSystemKinds& fileSystems() const { return fileSystems_; }

  // "OS" and "Image": the buses of the chooser, indexed by the numbers of DriveClass.
  static const std::vector<std::string>& busNames();
  // The display names that a chooser offers for the bus: at most 16 disks of the machine, at most
  // 10 images.
  std::vector<std::string> driveNames(DriveClass bus);

  // Opens the disk of a drive number for reading and writing, and its drive with openDrive below.
  // Besides its errors those of DiskHandles::open.
  Failure openDrive(u32 driveNumber, std::unique_ptr<Drive>& drive);
  // Why the last openDrive failed with this error, for the user.
  std::string openFailure(Failure error) const;
  // Why no device is offered, when none is.
  std::string whyNoDevices() const;
  // Reads the table of an open disk with the options' flags and the drive's own settings
  // (geometry, alignment) in force. geometryNotAvailable, outOfMemory: `drive` stays as it was.
  Failure openDrive(std::shared_ptr<DiskDevice> disk, u32 driveNumber,
                    std::unique_ptr<Drive>& drive);

 private:
  std::unique_ptr<Host> host_;
  ProgramFolders folders_;
  Options options_;
  SettingsFile settingsFile_;
  DriveSettingsList driveSettings_;
  DriveList driveList_;
  std::vector<ScsiGenericDevice> scsiGenericList_;
  DiskHandles handles_;
  const FileSystemKinds fileSystems_ = registeredFileSystems();
  MountTable mounts_{fileSystems_};
};

}  // namespace tallowin
