#include "ptable/gpt/unreadable_gpt_scheme.h"

#include "ptable/gpt/gpt_scheme.h"

namespace tallowin {

bool UnreadableGptScheme::read(const TableContext& context, std::span<const u8> track,
                               TableReading& reading) const {
  return hasProtectiveSlot(track) && MbrScheme::read(context, track, reading);
}

const char* UnreadableGptScheme::changeRefusal() const {
  return "Both copies of the GPT on this disk are damaged. Nothing on it is changed.\n"
         "Restore the table from a copy; if there is none any more, clear its place holder in the\n"
         "MBR.";
}

bool LargeGptScheme::read(const TableContext& context, std::span<const u8> track,
                          TableReading& reading) const {
  GptImage image;
  return hasProtectiveSlot(track) &&
         GptImage::read(context.disk, image, track) == Error::entriesDoNotFit &&
         MbrScheme::read(context, track, reading);
}

const char* LargeGptScheme::changeRefusal() const {
  return "The GPT of this disk has more entries than fit here (about 240), so nothing on it is\n"
         "changed. Make its table shorter with the program that made it, and try again.";
}

}  // namespace tallowin
