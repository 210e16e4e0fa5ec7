// Tables that are recognised and shown, but that no writer exists for.
#pragma once

#include "ptable/mbr_scheme.h"

namespace tallowin {

// A GUID partition table, told by its protective slot, or an extended master boot record behind
// the boot sector. The slots of the boot sector are shown as they stand, so that nobody takes
// the disk for empty, and nothing on it is changed.
class ShownOnlyScheme : public MbrScheme {
 public:
  bool isOn(std::span<const u8> track, u32 sectorSizeBytes) const override;
  const char* changeRefusal() const override;
  Error add(const TableContext& context, TableEntry& entry) const override;
  Error remove(const TableContext& context, const TableEntry& entry) const override;
  Error changeType(const TableContext& context, TableEntry& entry, u16 type) const override;
};

}  // namespace tallowin
