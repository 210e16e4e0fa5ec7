// A disk that says it has a GPT, of which no copy can be read.
#pragma once

#include "ptable/mbr/mbr_scheme.h"

namespace tallowin {

// The slots of the boot sector are shown as they stand, so that nobody takes the disk for empty,
// and nothing on it is changed.
class UnreadableGptScheme : public MbrScheme {
 public:
  bool read(const TableContext& context, std::span<const u8> track,
            TableReading& reading) const override;
  const char* changeRefusal() const override;
};

}  // namespace tallowin
