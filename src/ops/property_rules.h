// What a table has a place for of the properties of its entries.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "ptable/drive.h"

namespace tallowin {

enum class Property { name, type, typeGuid, active, flags, hidden, end };

struct PropertyRefusal {
  Property property = Property::name;
  std::string why;  // one sentence or two, with the next step
};

// The first of the wanted properties that the table cannot hold for this entry; nothing when it
// holds them all.
std::optional<PropertyRefusal> refusedProperty(Drive& drive, const PartitionEntry& entry,
                                               const EntryProperties& wanted);

// Why this is no name for anything: bytes that are no UTF-8, control characters. Empty when it is.
std::string whyNoText(std::string_view utf8);
// Why the entry cannot have this type, which may be larger than any that a table holds.
std::string whyNotTyped(const Drive& drive, const PartitionEntry& entry, u32 wanted);
// Why an entry of this table, or a volume in it, cannot have this name (UTF-8); empty when it can.
std::string whyNotNamed(const Drive& drive, bool isVolume, std::string_view name);

// Hidden by its type, or on a GPT by an attribute.
bool isHiddenEntry(const PartitionEntry& entry);
// Sets in `wanted` what hides the entry, or shows it again; what is wanted already counts.
std::optional<PropertyRefusal> wantHidden(const Drive& drive, const PartitionEntry& entry,
                                          bool isHidden, EntryProperties& wanted);

// The flags of a table's entries, which are bits of EntryProperties::attributes.
struct FlagWord {
  std::string_view word;
  u64 mask = 0;
  const char* label = "";  // with its mnemonic
};
// Empty for a table whose entries have none.
std::span<const FlagWord> flagWords(const Drive& drive);

}  // namespace tallowin
