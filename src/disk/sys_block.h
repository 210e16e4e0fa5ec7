// The kernel's names of disks and partitions, and its picture of a disk's table.
#pragma once

#include <string>
#include <vector>

#include "base/host.h"

namespace tallowin {

// Attributes below /sys/block count 512-byte sectors, whatever the disk's own size of them.
inline constexpr u64 kSysSectorBytes = 512;

// "/dev/sda" -> "sda", "/dev/cciss/c0d0" -> "cciss!c0d0".
std::string sysNameOf(const std::string& devicePath);
// The way back: "cciss!c0d0" -> "/dev/cciss/c0d0".
std::string devicePathOf(const std::string& sysName);
// The folder below /sys that describes a disk or a partition: by the number of the device, since a
// node may have any name. `deviceNumber` is that of an open device; 0 asks the node.
std::string sysFolderOf(Host& host, const std::string& devicePath, u64 deviceNumber = 0);

// Whether `node` is the path of the disk or of one of its partitions, by the kernel's rule: a
// number follows the disk's name, with a `p` before it when that name ends in a digit.
bool namesDiskOrPartition(const std::string& diskPath, const std::string& node);

struct SysPartition {
  std::string name;  // "sda1"
  u32 number = 0;
  u64 start = 0;  // in kSysSectorBytes
  u64 size = 0;
};

// The partitions that the kernel knows of a disk, by number; `sysFolder` as of sysFolderOf.
std::vector<SysPartition> kernelPartitions(Host& host, const std::string& sysFolder);

}  // namespace tallowin
