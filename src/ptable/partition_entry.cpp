#include "ptable/partition_entry.h"

#include <algorithm>

#include "base/text.h"
#include "base/utf8.h"

namespace tallowin {

void PartitionEntry::setName(std::string_view text) {
  name = printableFromUtf8(text.substr(0, bytesOfCharacters(text, kMaxNameLength)));
}

std::string placeholderName(std::size_t mbrSlot) {
  return format("MBR %u", static_cast<unsigned>(mbrSlot));
}

bool isPlaceholderName(const PartitionEntry& entry) {
  return !entry.isVolume() && entry.mbrSlot != kNoMbrSlot &&
         entry.name == placeholderName(entry.mbrSlot);
}

bool VolumeList::isInError() const {
  return status != 0 || std::any_of(entries.begin(), entries.end(),
                                    [](const auto& volume) { return volume->isInError(); });
}

bool PartitionTable::hasErrors() const {
  return std::any_of(entries.begin(), entries.end(), [](const auto& entry) {
    return entry->isInError() || (entry->volumes && entry->volumes->isInError());
  });
}

}  // namespace tallowin
