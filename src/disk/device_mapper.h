// What lies below a device-mapper node.
#pragma once

#include <optional>
#include <string>

#include "base/host.h"

namespace tallowin {

enum class Descend { no, yes };  // through mappings stacked on mappings

struct MapperMember {
  std::string name;       // "sda2"
  std::string sysFolder;  // "/sys/block/dm-0/slaves/sda2"
};

// The first member of the mapping `node` that is a physical disk or a partition of one. Without
// descent a lower mapping counts when it is the inner piece of a snapshot. Nothing when the node
// is not of `mapperMajor`.
std::optional<MapperMember> physicalMember(Host& host, u32 mapperMajor, const NodeInfo& node,
                                           Descend descend);

// The path of the disk that a member is, or is a partition of; nothing when it is not to be found.
std::optional<std::string> diskOfMember(Host& host, const MapperMember& member);

// Inner pieces of a volume snapshot.
bool isSnapshotPiece(std::string_view mappingName);

}  // namespace tallowin
