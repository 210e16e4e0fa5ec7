// `DriveList`: the disks of this machine, found once at start.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/host.h"
#include "disk/disk_device.h"

namespace tallowin {

struct DriveListEntry {
  u64 startOffset = 0;  // sectors inside an underlying disk; encrypted mappings only
  u8 deviceKind = kHardDiskKind;
  MediaFlag mediaFlag = MediaFlag::fixed;
  std::string path;      // at most kMaxPathLength characters
  u64 deviceNumber = 0;  // st_rdev of the node when it was looked at
};

// Rows sorted by path in byte order. An index counts the rows of one kind, so the index of a
// hard disk is its drive number. Members of device-mapper and RAID devices are left out: one
// works on the top-level device. Not rebuilt while the program runs.
class DriveList {
 public:
  static constexpr std::size_t kMaxRows = 47;
  static constexpr std::size_t kMaxPathLength = 75;
  enum class Scan { machine, none };

  // With Scan::none the list is invalid: nothing below /dev is opened, every query fails with
  // ENOENT. Anything unreadable contributes no rows; discovery reports no errors. The host must
  // outlive the list and the devices it opens.
  DriveList(Host& host, Scan scan);
  DriveList(const DriveList&) = delete;
  DriveList& operator=(const DriveList&) = delete;

  bool isValid() const { return valid_; }
  u32 countOfKind(u8 kind) const;
  // Null with errno ENOENT when there is no such row.
  const DriveListEntry* entryOfKind(u32 index, u8 kind) const;
  // Vendor and model with the kernel's name, else the path; empty when there is no such row.
  // Cut to `maxLength` characters.
  std::string displayName(u32 index, u8 kind, std::size_t maxLength = std::string::npos) const;
  // Opens the row's device with open(2) flags; null with errno on failure.
  std::unique_ptr<DiskDevice> open(u32 index, u8 kind, int openFlags) const;

 private:
  void scanIde();
  void scanNodes();
  void scanDeviceMapper();
  bool isHeld(const std::string& sysName) const;
  bool canOpen(const std::string& path) const;
  void add(DriveListEntry entry);

  Host& host_;
  bool valid_;
  std::vector<DriveListEntry> rows_;
};

// Vendor and model of a device with the kernel's name, "ATA SSD 840 (sda)"; else its path.
std::string diskDisplayName(Host& host, const std::string& devicePath);

}  // namespace tallowin
