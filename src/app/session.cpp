#include "app/session.h"

#include <unistd.h>

#include <algorithm>

#include "base/text.h"
#include "ops/apply_drive_settings.h"
#include "ops/unfinished_work.h"
#include "ptable/sector_size.h"

namespace tallowin {
namespace {

constexpr u32 kMaxOfferedDisks = 16;
constexpr u8 kScsiGenericTypes[] = {kOpticalKind};

}  // namespace

Session::Session(std::unique_ptr<Host> host, ProgramFolders folders, Options options)
    : host_(std::move(host)),
      folders_(std::move(folders)),
      options_(std::move(options)),
      settingsFile_(folders_.settingsFile()),
      driveList_(*host_, options_.noDevices ? DriveList::Scan::none : DriveList::Scan::machine),
      handles_(*host_, driveList_, options_.images) {
  handles_.setSectorSizeProbe(detectSectorSize);
  if (!options_.noDevices) scsiGenericList_ = scsiGenericDevices(*host_, kScsiGenericTypes);
}

Session::~Session() = default;

const std::vector<std::string>& Session::busNames() {
  static const std::vector<std::string> names = {"OS", "Image"};
  return names;
}

std::vector<std::string> Session::driveNames(DriveClass bus) {
  std::vector<std::string> names;
  if (bus == DriveClass::image) {
    const u32 count = handles_.driveCount(bus);
    names.assign(options_.images.begin(), options_.images.begin() + count);
    return names;
  }
  const u32 count = std::min(driveList_.countOfKind(kHardDiskKind), kMaxOfferedDisks);
  for (u32 i = 0; i < count; ++i) names.push_back(driveList_.displayName(i, kHardDiskKind));
  return names;
}

Failure Session::openDrive(u32 driveNumber, std::unique_ptr<Drive>& drive) {
  std::shared_ptr<DiskDevice> disk;
  if (const Failure error = handles_.open(driveNumber, disk); error != Error::none) return error;
  return openDrive(std::move(disk), driveNumber, drive);
}

DriveSettingsRecord& Session::driveSettings(u32 driveNumber, const std::string& path) {
  const bool isImage = driveNumber >> 16 == static_cast<u32>(DriveClass::image);
  return driveSettings_.record(settingsFile_, driveNumber,
                               isImage ? imageSectionName(path) : driveSectionName(driveNumber));
}

std::string Session::openFailure(Failure error) const {
  if (error == Error::deviceNotOpened || error == Error::deviceChanged)
    return handles_.lastFailure();
  return format("The disk could not be opened (error %u).", codeOf(error));
}

std::string Session::whyNoDevices() const {
  if (options_.noDevices) return "The disks of this machine are hidden by the switch -nd.";
  return ::geteuid() != 0 ? "No disk of this machine can be opened; that needs root."
                          : "No disk of this machine can be opened; a container may hide them.";
}

Failure Session::openDrive(std::shared_ptr<DiskDevice> disk, u32 driveNumber,
                           std::unique_ptr<Drive>& drive) {
  const bool takesSettings = (driveNumber & kDriveTakesNoSettings) == 0;
  DriveSettingsRecord* record =
      takesSettings ? &driveSettings(driveNumber, disk->traits().path) : nullptr;
  if (const Failure failed =
          openDriveWithSettings(std::move(disk), *host_, options_, record, driveNumber,
                                labelReaderOf(fileSystems_, options_), drive))
    return failed;
  if (const auto work = unfinishedWorkOn(folders_, *drive)) drive->setUnfinished(work->startSector);
  return {};
}

}  // namespace tallowin
