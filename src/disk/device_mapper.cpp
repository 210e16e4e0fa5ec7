#include "disk/device_mapper.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "disk/sys_block.h"

namespace tallowin {
namespace {

// The kernel builds no stack that refers to itself, but a tree of links may.
constexpr int kMaxStack = 16;

bool isPhysical(const std::string& member) {
  constexpr std::array kDrivers = {"sd", "hd", "ccis"};
  return std::any_of(kDrivers.begin(), kDrivers.end(),
                     [&](const char* prefix) { return member.starts_with(prefix); });
}

std::optional<MapperMember> resolve(Host& host, u32 mapperMajor, const NodeInfo& node,
                                    Descend descend, int depth) {
  if (depth == kMaxStack || mapperMajor == 0 || node.major != mapperMajor) return std::nullopt;
  const std::string slaves = format("/sys/block/dm-%u/slaves", node.minor);
  for (const std::string& member : host.list(slaves, "*")) {
    const MapperMember found{member, format("%s/%s", slaves.c_str(), member.c_str())};
    if (isPhysical(member)) return found;
    if (!member.starts_with("dm-")) continue;
    if (descend == Descend::no) {
      const auto name = host.firstLine(format("/sys/block/%s/dm/name", member.c_str()));
      if (name && isSnapshotPiece(*name)) return found;
    } else if (const auto info = host.nodeInfo("/dev/" + member)) {
      if (auto lower = resolve(host, mapperMajor, *info, descend, depth + 1)) return lower;
    }
  }
  return std::nullopt;
}

}  // namespace

bool isSnapshotPiece(std::string_view mappingName) {
  return mappingName.ends_with("-cow") || mappingName.ends_with("-real");
}

std::optional<MapperMember> physicalMember(Host& host, u32 mapperMajor, const NodeInfo& node,
                                           Descend descend) {
  return resolve(host, mapperMajor, node, descend, 0);
}

std::optional<std::string> diskOfMember(Host& host, const MapperMember& member) {
  if (host.exists("/sys/block/" + member.name)) return devicePathOf(member.name);
  for (const std::string& disk : host.list("/sys/block", "*")) {
    if (host.exists("/sys/block/" + disk + "/" + member.name)) return devicePathOf(disk);
  }
  return std::nullopt;
}

}  // namespace tallowin
