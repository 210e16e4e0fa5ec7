// Properties of a partition that change without moving it, and the repair of a GPT.
#pragma once

#include <optional>

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

struct PropertyChange {
  std::optional<u16> type;  // the type byte
  EntryProperties properties;

  bool changesProperties() const {
    return properties.name || properties.typeGuid || properties.attributes || properties.active;
  }
  bool changesAnything() const { return type || changesProperties(); }
};

// Asks, and changes all that is wanted; the caller has checked that the table has a place for it.
// When a later write fails, what is changed already is told. Entries on hand are stale afterwards.
FlowResult changePropertiesFlow(const OperationContext& context, Drive& drive,
                                PartitionEntry& entry, const PropertyChange& wanted);

// Asks, and makes both copies of the disk's GPT sound again; see Drive::repairGpt. Done at once
// when they are. Entries on hand are stale afterwards.
FlowResult repairGptFlow(const OperationContext& context, Drive& drive);

}  // namespace tallowin
