// Disks that say they have a GPT, and of which nothing is changed.
#pragma once

#include "ptable/mbr/mbr_scheme.h"

namespace tallowin {

// The slots of the boot sector are shown as they stand, so that nobody takes the disk for empty.
// No copy of the GPT can be read.
class UnreadableGptScheme : public MbrScheme {
 public:
  bool read(const TableContext& context, std::span<const u8> track,
            TableReading& reading) const override;
  const char* changeRefusal() const override;
};

// The GPT has more entries than an image of it holds.
class LargeGptScheme : public MbrScheme {
 public:
  bool read(const TableContext& context, std::span<const u8> track,
            TableReading& reading) const override;
  const char* changeRefusal() const override;
};

}  // namespace tallowin
