// The classic table of four slots in the boot sector.
#pragma once

#include "ptable/scheme.h"

namespace tallowin {

// Reads what any disk has in its boot sector; a disk without a signature has no entries.
class MbrScheme : public TableScheme {
 public:
  Scheme kind() const override { return Scheme::mbr; }
  bool isOn(std::span<const u8> track, u32 sectorSizeBytes) const override;
  void read(const TableContext& context, std::span<const u8> track,
            TableReading& reading) const override;
  Error checkUnchanged(const TableContext& context, const PartitionTable& table) const override;
  Error add(const TableContext& context, TableEntry& entry) const override;
  Error remove(const TableContext& context, const TableEntry& entry) const override;
  Error changeType(const TableContext& context, TableEntry& entry, u16 type) const override;
};

}  // namespace tallowin
