// The classic table of four slots in the boot sector.
#pragma once

#include "disk/mbr_record.h"
#include "ptable/scheme.h"

namespace tallowin {

// Reads what any disk has in its boot sector; a disk without a signature has no entries.
class MbrScheme : public TableScheme {
 public:
  Scheme kind() const override { return Scheme::mbr; }
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

// The first disk of the machine gets an active partition; there is never a second one.
void chooseBootIndicator(const TableContext& context, MbrRecord& mbr, MbrSlotRecord& slot);
// Marks a slot as active, and no other, or takes its mark.
void markActive(MbrRecord& mbr, MbrSlotRecord& slot, bool active);

}  // namespace tallowin
