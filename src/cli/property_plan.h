// What `set` is to change in an entry, as the properties that the table is asked for.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/amount.h"
#include "ptable/drive.h"

namespace tallowin {

struct FlagChange {
  std::string flag;  // a bit's number or a word
  bool isSet = false;
};

struct PropertyWish {
  std::optional<std::string> name;
  std::optional<u32> type;
  std::optional<bool> active;
  std::optional<bool> hide;
  std::vector<FlagChange> flags;
  std::optional<Guid> typeGuid;
  std::optional<Amount> end;
};

// "F=0" or "F=1".
std::optional<FlagChange> parseFlagChange(std::string_view text);
// A GUID, or the name of a GPT type; nothing for anything else and for the unused type.
std::optional<Guid> parseTypeGuid(std::string_view text);

// Fills `change`. Else why the table of the drive cannot hold what is wanted, the option first.
std::string planProperties(Drive& drive, const PartitionEntry& entry, const PropertyWish& wanted,
                           EntryProperties& change);

}  // namespace tallowin
