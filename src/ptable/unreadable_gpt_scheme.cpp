#include "ptable/unreadable_gpt_scheme.h"

#include "ptable/gpt_scheme.h"

namespace tallowin {

bool UnreadableGptScheme::read(const TableContext& context, std::span<const u8> track,
                               TableReading& reading) const {
  return hasProtectiveSlot(track) && MbrScheme::read(context, track, reading);
}

const char* UnreadableGptScheme::changeRefusal() const {
  return "Neither copy of the GPT on this disk can be read, so nothing on it is changed.\n"
         "Restore the table from a copy, or delete its place holder in View MBR.";
}

}  // namespace tallowin
