// The EMBR as a scheme of the partition model.
#pragma once

#include "ptable/embr/embr_image.h"
#include "ptable/scheme.h"

namespace tallowin {

// Our own table of up to 255 partitions behind the boot sector. At most four of them have a slot
// in the boot sector as well.
class EmbrScheme : public TableScheme {
 public:
  Scheme kind() const override { return Scheme::embr; }
  bool read(const TableContext& context, std::span<const u8> track,
            TableReading& reading) const override;
  Failure checkUnchanged(const TableContext& context, const PartitionTable& table) const override;
  Failure add(const TableContext& context, const NewEntry& entry,
              TrackContent content) const override;
  Failure remove(const TableContext& context, const TableEntry& entry) const override;
  Failure changeProperties(const TableContext& context, const TableEntry& entry,
                           const EntryProperties& wanted) const override;
  Failure move(const TableContext& context, const TableEntry& entry,
               const EntryMove& move) const override;
};

// The entry as the MPT holds it.
MptEntryRecord mptRecordOf(const PartitionEntry& entry);

// Whether the sectors that an EMBR grew over may be overwritten: noFreeEntry, a partition starts
// there; sectorsInUse, something else lies there that `content` keeps.
Failure checkEmbrGrowth(const TableContext& context, const EmbrImage& old, const EmbrImage& image,
                        TrackContent content);

// See Drive::setLimitPrimaries.
Failure setEmbrLimit(const TableContext& context, bool limit, bool makeFirstActive);

}  // namespace tallowin
