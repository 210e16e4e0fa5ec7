#include "disk/drive_list.h"

#include <fcntl.h>
#include <linux/hdreg.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/text.h"
#include "disk/device_mapper.h"
#include "disk/linux_disk.h"
#include "disk/sys_block.h"

namespace tallowin {
namespace {

constexpr int kProbeFlags = O_RDONLY | O_NONBLOCK;

enum class NodeFamily { disk, optical, raid };

struct NodePattern {
  const char* folder;
  const char* pattern;
  NodeFamily family = NodeFamily::disk;
};

constexpr std::array kNodePatterns = {
    NodePattern{"/dev", "sd?"},
    NodePattern{"/dev", "sr*", NodeFamily::optical},
    NodePattern{"/dev/cciss", "c?d?"},
    NodePattern{"/dev/cciss", "c?d??"},
    NodePattern{"/dev", "mmcblk?"},
    NodePattern{"/dev", "mmcblk??"},
    NodePattern{"/dev", "md*", NodeFamily::raid},
    NodePattern{"/dev", "xvd?"},
    NodePattern{"/dev", "vd?"},
    NodePattern{"/dev", "nvme?n?"},
    NodePattern{"/dev", "nvme??n?"},
};

bool isPrefixWithNumber(std::string_view text, std::string_view prefix) {
  if (!text.starts_with(prefix) || text.size() == prefix.size()) return false;
  return text.find_first_not_of("0123456789", prefix.size()) == std::string_view::npos;
}

bool isEncryptedContainer(std::string_view mappingName) {
  return isPrefixWithNumber(mappingName, "truecrypt") ||
         isPrefixWithNumber(mappingName, "veracrypt");
}

bool isRaidInUse(Host& host, const std::string& name, const NodeInfo& node) {
  constexpr u32 kRaidMajor = 9;
  if (node.major != kRaidMajor) return false;
  const u64 size = host.number("/sys/block/" + name + "/size");
  return size != 0 && size != kAllOnes64;
}

// A text attribute cut at the first line end or NUL and stripped of trailing blanks; nothing
// when it cannot be read.
std::optional<std::string> deviceText(Host& host, const std::string& sysFolder,
                                      const char* attribute, std::size_t maxBytes) {
  auto text = host.content(sysFolder + "/device/" + attribute, maxBytes);
  if (!text) return std::nullopt;
  const std::string_view kept =
      std::string_view(*text).substr(0, text->find_first_of(std::string_view("\r\n\0", 3)));
  return std::string(kept.substr(0, kept.find_last_not_of(' ') + 1));
}

}  // namespace

DriveList::DriveList(Host& host, Scan scan) : host_(host), valid_(scan == Scan::machine) {
  if (!valid_) return;
  rows_.reserve(kMaxRows);
  scanIde();
  scanNodes();
  scanDeviceMapper();
}

void DriveList::scanIde() {
  for (const std::string& name : host_.list("/proc/ide", "hd?")) {
    if (isHeld(name)) continue;
    const std::string path = "/dev/" + name;
    const int descriptor = host_.open(path, kProbeFlags);
    if (descriptor < 0) continue;
    std::array<u16, 256> identity{};
    const bool identified = host_.control(descriptor, HDIO_GET_IDENTITY, identity.data()) == 0;
    host_.close(descriptor);
    if (!identified) continue;
    const u16 config = identity[0];
    const bool isAtapi = (config & 0x8000) != 0;
    const bool isRemovable = (config & 0x80) != 0;
    add({.startOffset = 0,
         .deviceKind = static_cast<u8>(isAtapi ? config >> 8 & 0x1F : kHardDiskKind),
         .mediaFlag = isRemovable ? MediaFlag::removable : MediaFlag::fixed,
         .path = path});
  }
}

void DriveList::scanNodes() {
  for (const NodePattern& pattern : kNodePatterns) {
    for (const std::string& name : host_.list(pattern.folder, pattern.pattern)) {
      const std::string path = std::string(pattern.folder) + "/" + name;
      const auto node = host_.nodeInfo(path);
      if (!node || !node->isBlockDevice || isHeld(sysNameOf(path))) continue;
      if (pattern.family == NodeFamily::raid && !isRaidInUse(host_, name, *node)) continue;
      if (!canOpen(path)) continue;
      const bool isOptical = pattern.family == NodeFamily::optical;
      add({.startOffset = 0,
           .deviceKind = isOptical ? kOpticalKind : kHardDiskKind,
           .mediaFlag = isOptical ? MediaFlag::removable : MediaFlag::fixed,
           .path = path});
    }
  }
}

void DriveList::scanDeviceMapper() {
  u32 mapperMajor = 0;  // not known until a node shows it
  for (const std::string& name : host_.list("/dev/mapper", "*")) {
    const std::string path = "/dev/mapper/" + name;
    const auto node = host_.nodeInfo(path);
    if (!node || !node->isBlockDevice) continue;
    if (mapperMajor == 0 && node->major >= 252 && node->major <= 254) mapperMajor = node->major;
    if (isSnapshotPiece(name)) continue;
    u64 startOffset = 0;
    if (isEncryptedContainer(name)) {
      if (const auto member = physicalMember(host_, mapperMajor, *node, Descend::yes)) {
        const u64 start = host_.number(member->sysFolder + "/start");
        if (start != kAllOnes64) startOffset = start;
      }
    } else {
      const bool isStackAllowed = name.find("lvm_pv_") != std::string::npos;
      if (!physicalMember(host_, mapperMajor, *node, isStackAllowed ? Descend::yes : Descend::no))
        continue;
    }
    if (!canOpen(path)) continue;
    add({.startOffset = startOffset,
         .deviceKind = kHardDiskKind,
         .mediaFlag = MediaFlag::fixed,
         .path = path});
  }
}

bool DriveList::isHeld(const std::string& sysName) const {
  const std::vector<std::string> holders = host_.list("/sys/block/" + sysName + "/holders", "*");
  return std::any_of(holders.begin(), holders.end(), [](const std::string& holder) {
    return holder.starts_with("dm-") || isPrefixWithNumber(holder, "md");
  });
}

bool DriveList::canOpen(const std::string& path) const {
  const int descriptor = host_.open(path, kProbeFlags);
  if (descriptor < 0) return false;
  host_.close(descriptor);
  return true;
}

void DriveList::add(DriveListEntry entry) {
  if (rows_.size() == kMaxRows || entry.path.size() > kMaxPathLength) return;
  if (const auto node = host_.nodeInfo(entry.path); node && node->isBlockDevice)
    entry.deviceNumber = makedev(node->major, node->minor);
  const auto after = std::upper_bound(
      rows_.begin(), rows_.end(), entry,
      [](const DriveListEntry& a, const DriveListEntry& b) { return a.path < b.path; });
  rows_.insert(after, std::move(entry));
}

u32 DriveList::countOfKind(u8 kind) const {
  return static_cast<u32>(std::count_if(rows_.begin(), rows_.end(), [&](const DriveListEntry& row) {
    return row.deviceKind == kind;
  }));
}

const DriveListEntry* DriveList::entryOfKind(u32 index, u8 kind) const {
  for (const DriveListEntry& row : rows_) {
    if (row.deviceKind == kind && index-- == 0) return &row;
  }
  errno = ENOENT;
  return nullptr;
}

std::string DriveList::displayName(u32 index, u8 kind, std::size_t maxLength) const {
  const DriveListEntry* row = entryOfKind(index, kind);
  if (row == nullptr) return {};
  return diskDisplayName(host_, row->path).substr(0, maxLength);
}

std::unique_ptr<DiskDevice> DriveList::open(u32 index, u8 kind, int openFlags) const {
  const DriveListEntry* row = entryOfKind(index, kind);
  if (row == nullptr) return nullptr;
  return LinuxDisk::open(host_, *row, openFlags);
}

std::string diskDisplayName(Host& host, const std::string& devicePath) {
  const std::string folder = sysFolderOf(host, devicePath);
  const std::string name = folder.substr(folder.rfind('/') + 1);
  std::string text = deviceText(host, folder, "vendor", 8).value_or("");
  auto piece = deviceText(host, folder, "model", 16);
  if (piece && !piece->empty()) text += (text.empty() ? "" : " ") + *piece;
  if (text.empty()) {
    piece = deviceText(host, folder, "name", 24);
    text = piece.value_or("");
  }
  if (!piece || text.empty()) return devicePath;
  return format("%s (%s)", text.c_str(), name.c_str());
}

}  // namespace tallowin
