// The table of open disks: one object a disk, however many hold it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/host.h"
#include "disk/drive_list.h"
#include "disk/image_disk.h"

namespace tallowin {

// The firmware's number of the disk that it starts from.
inline constexpr u8 kFirstBiosDisk = 0x80;

// The bus of a drive, bits 16..23 of a drive number.
enum class DriveClass : u32 { device = 0, image = 1 };

inline constexpr u32 kDriveIndexMask = 0x7FFF;
inline constexpr u32 kOpticalDriveBit = 0x8000;
// Of a disk that was opened by its path and is neither a row of the list nor a registered image.
// It takes no drive settings and cannot be opened by number.
inline constexpr u32 kUnlistedDrive = 0xFF8000;

constexpr u32 driveNumberOf(DriveClass driveClass, u32 index) {
  return static_cast<u32>(driveClass) << 16 | (index & kDriveIndexMask);
}

// A disk stays open while somebody holds it, and is closed with its last holder. The list and
// the host must outlive the table and everything it opened.
class DiskHandles {
 public:
  static constexpr std::size_t kMaxOpen = 32;
  static constexpr std::size_t kMaxImages = 10;

  // Image paths beyond the tenth are ignored.
  DiskHandles(Host& host, const DriveList& list, std::vector<std::string> imagePaths = {});

  // Asked when a raw image is opened, whose sector size has to be found out.
  void setSectorSizeProbe(SectorSizeProbe probe) { sectorSizeProbe_ = std::move(probe); }

  // The sector size of the raw images that are opened from now on; 0: it is found out.
  void stateSectorSize(u32 sectorSizeBytes) { statedSectorSizeBytes_ = sectorSizeBytes; }

  // Read-write. An open drive is shared, not opened again.
  // unknownDriveClass; tooManyOpenDrives: the 33rd distinct drive; deviceNotOpened, deviceChanged
  // (the path leads to another device than it did): see lastFailure(). `disk` is then left as it
  // was.
  Failure open(u32 driveNumber, std::shared_ptr<DiskDevice>& disk);
  // A block device or an image file by path, listed or not; a relative path counts from the
  // working directory. `driveNumber` receives its number, or kUnlistedDrive. A disk that is open
  // already, by whatever path, keeps the access it was opened with. Errors as above.
  Failure openPath(const std::string& path, DiskAccess access, std::shared_ptr<DiskDevice>& disk,
                   u32& driveNumber);

  // The firmware's number when it is known; else the hard disks of the list count from the first
  // one by their index, and no other disk has a number.
  static std::optional<u8> biosNumberOf(u32 driveNumber, DiskDevice& disk);
  // Hard disks of the list, or registered images.
  u32 driveCount(DriveClass driveClass) const;
  // Of the last open that answered deviceNotOpened or deviceChanged: which device, why, and what to
  // do next.
  const std::string& lastFailure() const { return lastFailure_; }

 private:
  struct Slot {
    std::string key;
    std::weak_ptr<DiskDevice> disk;
  };
  struct Target;

  Target targetOf(const std::string& absolutePath) const;
  Failure openTarget(const Target& target, DiskAccess access, std::shared_ptr<DiskDevice>& disk);
  std::shared_ptr<DiskDevice> openImage(const Target& target, DiskAccess access, Failure& failed);
  std::shared_ptr<DiskDevice> openDevice(const Target& target, DiskAccess access, Failure& failed);
  Failure fail(const std::string& what, int errorNumber);

  Host& host_;
  const DriveList& list_;
  std::vector<std::string> imagePaths_;
  SectorSizeProbe sectorSizeProbe_;
  u32 statedSectorSizeBytes_ = 0;
  std::vector<Slot> slots_;
  std::string lastFailure_;
};

}  // namespace tallowin
