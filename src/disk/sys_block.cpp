#include "disk/sys_block.h"

#include <sys/sysmacros.h>

#include <algorithm>

#include "base/text.h"

namespace tallowin {
namespace {

constexpr std::string_view kDev = "/dev/";

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string replaced(std::string text, char from, char to) {
  std::replace(text.begin(), text.end(), from, to);
  return text;
}

}  // namespace

std::string sysNameOf(const std::string& devicePath) {
  constexpr std::string_view kCciss = "/dev/cciss/";
  if (devicePath.starts_with(kCciss)) return replaced(devicePath.substr(kDev.size()), '/', '!');
  return devicePath.substr(devicePath.rfind('/') + 1);
}

std::string devicePathOf(const std::string& sysName) {
  return std::string(kDev) + replaced(sysName, '!', '/');
}

std::string sysFolderOf(Host& host, const std::string& devicePath, u64 deviceNumber) {
  if (deviceNumber == 0)
    if (const auto node = host.nodeInfo(devicePath); node && node->isBlockDevice)
      deviceNumber = makedev(node->major, node->minor);
  const std::string byNumber =
      format("/sys/dev/block/%u:%u", major(deviceNumber), minor(deviceNumber));
  if (deviceNumber != 0 && host.exists(byNumber)) return host.resolveLink(byNumber);
  // Without that folder, as in a container that hides it, there is only the name.
  return "/sys/block/" + sysNameOf(host.resolveLink(devicePath));
}

bool namesDiskOrPartition(const std::string& diskPath, const std::string& node) {
  if (diskPath.empty() || !node.starts_with(diskPath)) return false;
  std::string_view rest = std::string_view(node).substr(diskPath.size());
  if (rest.empty()) return true;
  if (isDigit(diskPath.back())) {
    if (rest.front() != 'p') return false;
    rest.remove_prefix(1);
  }
  return !rest.empty() && std::all_of(rest.begin(), rest.end(), isDigit);
}

std::vector<SysPartition> kernelPartitions(Host& host, const std::string& sysFolder) {
  std::vector<SysPartition> partitions;
  for (const std::string& name : host.list(sysFolder, "*")) {
    const std::string folder = format("%s/%s", sysFolder.c_str(), name.c_str());
    const u64 number = host.number(folder + "/partition");
    const u64 start = host.number(folder + "/start");
    const u64 size = host.number(folder + "/size");
    if (number == kAllOnes64 || start == kAllOnes64 || size == kAllOnes64) continue;
    partitions.push_back({name, static_cast<u32>(number), start, size});
  }
  std::sort(partitions.begin(), partitions.end(),
            [](const SysPartition& a, const SysPartition& b) { return a.number < b.number; });
  return partitions;
}

}  // namespace tallowin
