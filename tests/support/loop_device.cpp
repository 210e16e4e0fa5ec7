#include "support/loop_device.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "support/oracle.h"

namespace tallowin {

LoopDevice::LoopDevice(const std::string& imagePath, unsigned sectorSizeBytes,
                       unsigned long long offsetBytes) {
  const int image = ::open(imagePath.c_str(), O_RDWR | O_CLOEXEC);
  const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
  loop_config config{};
  config.fd = static_cast<__u32>(image);
  config.block_size = sectorSizeBytes;
  config.info.lo_offset = offsetBytes;
  config.info.lo_flags = LO_FLAGS_PARTSCAN;
  imagePath.copy(reinterpret_cast<char*>(config.info.lo_file_name), LO_NAME_SIZE - 1);
  // Another process may take the free device first.
  for (int attempt = 0; attempt < 50 && path_.empty() && image >= 0 && control >= 0; ++attempt) {
    const std::string path = "/dev/loop" + std::to_string(::ioctl(control, LOOP_CTL_GET_FREE));
    const int device = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (device >= 0 && ::ioctl(device, LOOP_CONFIGURE, &config) == 0) path_ = path;
    if (device >= 0) ::close(device);
  }
  if (control >= 0) ::close(control);
  if (image >= 0) ::close(image);
}

LoopDevice::~LoopDevice() {
  if (path_.empty()) return;
  if (std::filesystem::exists(partition(1))) static_cast<void>(runProgram({"partx", "-d", path_}));
  const int device = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
  if (device < 0) return;
  ::ioctl(device, LOOP_CLR_FD, 0);
  ::close(device);
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
