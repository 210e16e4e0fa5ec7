// Loop devices and mounts of a test, undone at its end. All of it needs root.
#pragma once

#include <string>
#include <vector>

namespace tallowin {

class LoopDevice {
 public:
  // Empty path when it could not be made. Only for image files of a test's own folder.
  explicit LoopDevice(const std::string& imagePath, unsigned sectorSizeBytes = 512,
                      unsigned long long offsetBytes = 0);
  ~LoopDevice();
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;

  const std::string& path() const { return path_; }
  std::string partition(int number) const { return path_ + "p" + std::to_string(number); }
  // Tells the kernel the partitions of the table on it, whether or not it reads tables itself.
  bool addPartitions() const;

 private:
  std::string path_;
};

class TestMount {
 public:
  TestMount(const std::string& device, const std::string& folder);
  ~TestMount();
  TestMount(const TestMount&) = delete;
  TestMount& operator=(const TestMount&) = delete;

  bool isMounted() const { return mounted_; }

 private:
  std::string folder_;
  bool mounted_ = false;
};

// Whether this process can make loop devices.
bool hasLoopDevices();

}  // namespace tallowin

#define TALLOWIN_NEEDS_LOOP_DEVICES() \
  if (!tallowin::hasLoopDevices()) GTEST_SKIP() << "needs root"
