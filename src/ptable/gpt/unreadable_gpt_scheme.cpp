#include "ptable/gpt/unreadable_gpt_scheme.h"

#include "ptable/gpt/gpt_scheme.h"

namespace tallowin {

bool UnreadableGptScheme::read(const TableContext& context, std::span<const u8> track,
                               TableReading& reading) const {
  return hasProtectiveSlot(track) && MbrScheme::read(context, track, reading);
}

const char* UnreadableGptScheme::changeRefusal() const {
  return "No copy of the GPT on this disk can be read: both are damaged, or it has more entries\n"
         "than fit here (about 128). Nothing on it is changed. If it is damaged, restore the\n"
         "table from a copy; if there is none any more, clear its place holder in the MBR.";
}

}  // namespace tallowin
