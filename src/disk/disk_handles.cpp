#include "disk/disk_handles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/text.h"
#include "disk/linux_disk.h"

namespace tallowin {
namespace {

constexpr u32 classOf(u32 driveNumber) { return driveNumber >> 16; }
constexpr u32 indexOf(u32 driveNumber) { return driveNumber & kDriveIndexMask; }

// The file itself, whatever its path: two objects of one image would undo each other's changes.
// The path where there is no file.
std::string fileKeyOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return path;
  return format("file %llu %llu", static_cast<unsigned long long>(status.st_dev),
                static_cast<unsigned long long>(status.st_ino));
}

std::string deviceKeyOf(u64 deviceNumber) {
  return format("device %llu", static_cast<unsigned long long>(deviceNumber));
}

std::string nextStep(int errorNumber) {
  switch (errorNumber) {
    case EACCES:
    case EPERM:
      return "Start the program with the rights to use this device, for example with sudo.";
    case EROFS:
      return "Remove its write protection first.";
    case EBUSY:
      return "Close the program that uses it first.";
    case ENOMEDIUM:
      return "Insert a medium first.";
    case ENOENT:
    case ENODEV:
    case ENXIO:
      return "Check the name, and that the device is connected.";
    default:
      return "Look into the system log for the reason.";
  }
}

}  // namespace

struct DiskHandles::Target {
  u32 driveNumber = kUnlistedDrive;
  bool isImage = false;
  DriveListEntry entry;  // an image needs only its path

  // What a slot is found by.
  std::string key() const {
    return isImage ? fileKeyOf(entry.path) : deviceKeyOf(entry.deviceNumber);
  }
};

DiskHandles::DiskHandles(Host& host, const DriveList& list, std::vector<std::string> imagePaths)
    : host_(host), list_(list), imagePaths_(std::move(imagePaths)) {
  imagePaths_.resize(std::min(imagePaths_.size(), kMaxImages));
}

Failure DiskHandles::open(u32 driveNumber, std::shared_ptr<DiskDevice>& disk) {
  Target target{.driveNumber = driveNumber, .isImage = false, .entry = {}};
  const u32 index = indexOf(driveNumber);
  if (classOf(driveNumber) == static_cast<u32>(DriveClass::device)) {
    const bool isOptical = (driveNumber & kOpticalDriveBit) != 0;
    const DriveListEntry* entry =
        list_.entryOfKind(index, isOptical ? kOpticalKind : kHardDiskKind);
    if (entry == nullptr) return fail(format("Drive %u", index), ENODEV);
    target.entry = *entry;
  } else if (classOf(driveNumber) == static_cast<u32>(DriveClass::image)) {
    if (index >= imagePaths_.size()) return fail(format("Image %u", index), ENOENT);
    target.isImage = true;
    target.entry.path = imagePaths_[index];
  } else {
    return Error::unknownDriveClass;
  }
  return openTarget(target, DiskAccess::readWrite, disk);
}

Failure DiskHandles::openPath(const std::string& path, DiskAccess access,
                              std::shared_ptr<DiskDevice>& disk, u32& driveNumber) {
  // What is looked at and what is opened must be one path, and the working directory may change.
  const std::optional<std::string> absolute = host_.absolutePath(path);
  if (!absolute) {
    lastFailure_ = format(
        "%s could not be opened: the working directory is gone. Give the whole "
        "path, or change to another directory first.",
        path.c_str());
    return {Error::deviceNotOpened, ENOENT};
  }
  const Target target = targetOf(*absolute);
  if (const Failure failed = openTarget(target, access, disk)) return failed;
  driveNumber = target.driveNumber;
  return {};
}

DiskHandles::Target DiskHandles::targetOf(const std::string& absolutePath) const {
  Target target;
  const auto node = host_.nodeInfo(absolutePath);
  target.isImage = !node || !node->isBlockDevice;
  if (target.isImage) {
    target.entry.path = absolutePath;
    for (std::size_t i = 0; i < imagePaths_.size(); ++i)
      if (fileKeyOf(imagePaths_[i]) == target.key())
        target.driveNumber = driveNumberOf(DriveClass::image, static_cast<u32>(i));
    return target;
  }
  // A node has many names; the one that its links lead to is the one that all else knows.
  target.entry.path = host_.resolveLink(absolutePath);
  target.entry.deviceNumber = makedev(node->major, node->minor);
  for (const u8 kind : {kHardDiskKind, kOpticalKind}) {
    for (u32 i = 0; i < list_.countOfKind(kind); ++i) {
      const DriveListEntry& entry = *list_.entryOfKind(i, kind);
      if (entry.deviceNumber != target.entry.deviceNumber) continue;
      target.entry = entry;
      target.driveNumber =
          driveNumberOf(DriveClass::device, i) | (kind == kOpticalKind ? kOpticalDriveBit : 0);
      return target;
    }
  }
  return target;
}

Failure DiskHandles::openTarget(const Target& target, DiskAccess access,
                                std::shared_ptr<DiskDevice>& disk) {
  std::erase_if(slots_, [](const Slot& slot) { return slot.disk.expired(); });
  const std::string key = target.key();
  for (const Slot& slot : slots_) {
    if (slot.key != key) continue;
    disk = slot.disk.lock();
    return {};
  }
  if (slots_.size() == kMaxOpen) return Error::tooManyOpenDrives;
  Failure failed;
  std::shared_ptr<DiskDevice> opened =
      target.isImage ? openImage(target, access, failed) : openDevice(target, access, failed);
  if (!opened) return failed;
  slots_.push_back({key, opened});
  disk = std::move(opened);
  return {};
}

std::shared_ptr<DiskDevice> DiskHandles::openImage(const Target& target, DiskAccess access,
                                                   Failure& failed) {
  OpenedImage image = openImageFile(target.entry.path, access, kHardDiskKind,
                                    statedSectorSizeBytes_, sectorSizeProbe_);
  if (!image.disk) {
    lastFailure_ = std::move(image.reason);
    failed = image.error.as(Error::deviceNotOpened);
  }
  return std::move(image.disk);
}

std::shared_ptr<DiskDevice> DiskHandles::openDevice(const Target& target, DiskAccess access,
                                                    Failure& failed) {
  std::shared_ptr<DiskDevice> opened =
      LinuxDisk::open(host_, target.entry, access == DiskAccess::readWrite ? O_RDWR : O_RDONLY);
  if (!opened) {
    failed = fail(target.entry.path, errno);
  } else if (opened->traits().deviceNumber != target.entry.deviceNumber) {
    lastFailure_ = format(
        "%s is another device than it was before. Look at the list of disks "
        "again, and start anew.",
        target.entry.path.c_str());
    failed = Error::deviceChanged;
    opened.reset();
  }
  return opened;
}

Failure DiskHandles::fail(const std::string& what, int errorNumber) {
  lastFailure_ = format("%s could not be opened: %s. %s", what.c_str(), std::strerror(errorNumber),
                        nextStep(errorNumber).c_str());
  return {Error::deviceNotOpened, errorNumber};
}

std::optional<u8> DiskHandles::biosNumberOf(u32 driveNumber, DiskDevice& disk) {
  const u32 matched = disk.biosNumber();
  if (matched != kBiosNumberUnknown && matched != kBiosNumberNoMatch)
    return static_cast<u8>(matched);
  const bool isListed = classOf(driveNumber) == static_cast<u32>(DriveClass::device) &&
                        (driveNumber & kOpticalDriveBit) == 0;
  if (!isListed) return std::nullopt;
  return static_cast<u8>(kFirstBiosDisk + indexOf(driveNumber));
}

u32 DiskHandles::driveCount(DriveClass driveClass) const {
  return driveClass == DriveClass::device ? list_.countOfKind(kHardDiskKind)
                                          : static_cast<u32>(imagePaths_.size());
}

}  // namespace tallowin
