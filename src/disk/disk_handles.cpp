#include "disk/disk_handles.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/text.h"
#include "disk/linux_disk.h"

namespace tallowin {
namespace {

constexpr u32 classOf(u32 driveNumber) { return driveNumber >> 16; }
constexpr u32 indexOf(u32 driveNumber) { return driveNumber & kDriveIndexMask; }

std::string canonicalPath(const std::string& path) {
  std::error_code error;
  const auto canonical = std::filesystem::weakly_canonical(path, error);
  return error ? path : canonical.string();
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

  // What a slot is found by. Two objects of one image would undo each other's changes, so a file
  // counts as the same by whatever path it is named.
  std::string key() const { return isImage ? canonicalPath(entry.path) : entry.path; }
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
  const Target target = targetOf(path);
  if (const Failure error = openTarget(target, access, disk); error != Error::none) return error;
  driveNumber = target.driveNumber;
  return Error::none;
}

DiskHandles::Target DiskHandles::targetOf(const std::string& path) const {
  Target target;
  const auto node = host_.nodeInfo(path);
  target.isImage = !node || !node->isBlockDevice;
  // A node has many names; the one that its links lead to is the one that all else knows.
  target.entry.path = target.isImage ? path : host_.resolveLink(path);
  for (std::size_t i = 0; target.isImage && i < imagePaths_.size(); ++i) {
    if (canonicalPath(imagePaths_[i]) == canonicalPath(path))
      target.driveNumber = driveNumberOf(DriveClass::image, static_cast<u32>(i));
  }
  for (const u8 kind : {kHardDiskKind, kOpticalKind}) {
    for (u32 i = 0; !target.isImage && i < list_.countOfKind(kind); ++i) {
      const DriveListEntry& entry = *list_.entryOfKind(i, kind);
      if (entry.path != path && entry.path != target.entry.path) continue;
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
  for (const Slot& slot : slots_) {
    if (slot.key != target.key()) continue;
    disk = slot.disk.lock();
    return Error::none;
  }
  if (slots_.size() == kMaxOpen) return Error::tooManyOpenDrives;
  std::shared_ptr<DiskDevice> opened;
  if (target.isImage) {
    OpenedImage image =
        openImageFile(target.entry.path, access, kHardDiskKind, 0, sectorSizeProbe_);
    if (image.disk == nullptr) {
      lastFailure_ = std::move(image.reason);
      return Error::deviceNotOpened;
    }
    opened = std::move(image.disk);
  } else {
    opened =
        LinuxDisk::open(host_, target.entry, access == DiskAccess::readWrite ? O_RDWR : O_RDONLY);
    if (opened == nullptr) return fail(target.entry.path, errno);
  }
  slots_.push_back({target.key(), opened});
  disk = std::move(opened);
  return Error::none;
}

Failure DiskHandles::fail(const std::string& what, int errorNumber) {
  lastFailure_ = format("%s could not be opened: %s. %s", what.c_str(), std::strerror(errorNumber),
                        nextStep(errorNumber).c_str());
  return Error::deviceNotOpened;
}

u8 DiskHandles::biosNumberOf(u32 driveNumber, DiskDevice& disk) {
  constexpr u32 kFirstHardDisk = 0x80;
  const u32 matched = disk.biosNumber();
  const bool isKnown = matched != kBiosNumberUnknown && matched != kBiosNumberNoMatch;
  return static_cast<u8>(isKnown ? matched : kFirstHardDisk + indexOf(driveNumber));
}

u32 DiskHandles::driveCount(DriveClass driveClass) const {
  return driveClass == DriveClass::device ? list_.countOfKind(kHardDiskKind)
                                          : static_cast<u32>(imagePaths_.size());
}

}  // namespace tallowin
