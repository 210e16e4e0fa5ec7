#include "support/loop_device.h"

#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "support/oracle.h"

namespace tallowin {

LoopDevice::LoopDevice(const std::string& imagePath, unsigned sectorSizeBytes,
                       unsigned long long offsetBytes) {
  const ProgramResult result = runProgram({"losetup", "--find", "--show", "--partscan",
                                           "--sector-size", std::to_string(sectorSizeBytes),
                                           "--offset", std::to_string(offsetBytes), imagePath});
  if (result.status == 0) path_ = result.output.substr(0, result.output.find('\n'));
}

LoopDevice::~LoopDevice() {
  if (path_.empty()) return;
  static_cast<void>(runProgram({"partx", "-d", path_}));
  static_cast<void>(runProgram({"losetup", "-d", path_}));
}

bool LoopDevice::addPartitions() const {
  static_cast<void>(runProgram({"partx", "-u", path_}));
  return std::filesystem::exists(partition(1));
}

TestMount::TestMount(const std::string& device, const std::string& folder) : folder_(folder) {
  std::filesystem::create_directories(folder);
  mounted_ = ::mount(device.c_str(), folder.c_str(), "ext4", 0, nullptr) == 0;
}

TestMount::~TestMount() {
  if (mounted_) ::umount2(folder_.c_str(), MNT_DETACH);
}

bool hasLoopDevices() { return isRoot() && ::access("/dev/loop-control", R_OK | W_OK) == 0; }

}  // namespace tallowin
