#include "cli/property_plan.h"

#include <algorithm>

#include "base/text.h"
#include "ops/property_rules.h"
#include "ptable/gpt/gpt_types.h"

namespace tallowin {
namespace {

const char* optionOf(Property property) {
  switch (property) {
    case Property::name:
      return "--name";
    case Property::type:
      return "--type";
    case Property::typeGuid:
      return "--type-guid";
    case Property::active:
      return "--active, --inactive";
    case Property::flags:
      return "--flag";
    case Property::hidden:
      return "--hide";
    case Property::end:
      return "--end";
  }
  return "";
}

// The bits of a flag that is given as a word or, on a GPT, as a number.
std::optional<u64> flagMask(const Drive& drive, const std::string& flag) {
  for (const FlagWord& row : flagWords(drive))
    if (equalsIgnoreCase(flag, row.word)) return row.mask;
  u64 bit = 0;
  if (drive.isGpt() && parseNumber(flag, bit) && bit < 64) return u64{1} << bit;
  return std::nullopt;
}

std::string noSuchFlag(const Drive& drive, const std::string& flag) {
  if (flagWords(drive).empty()) return "--flag: An entry of an MBR and a volume have no flags.";
  std::string names;
  for (const FlagWord& row : flagWords(drive)) names += " " + std::string(row.word);
  return "--flag: '" + flag + "' is no flag of this table; choose from" + names +
         (drive.isGpt() ? ", or 0 to 63." : ".");
}

}  // namespace

std::optional<FlagChange> parseFlagChange(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == 0 || equals == std::string_view::npos) return std::nullopt;
  const std::string_view value = text.substr(equals + 1);
  if (value != "0" && value != "1") return std::nullopt;
  return FlagChange{std::string(text.substr(0, equals)), value == "1"};
}

std::optional<Guid> parseTypeGuid(std::string_view text) {
  Guid guid;
  if (!parseGuid(text, guid))
    for (const GptType& type : gptTypes())
      if (equalsIgnoreCase(text, type.name)) {
        guid = type.guid;
        break;
      }
  return guid.isZero() ? std::nullopt : std::optional(guid);
}

std::string planProperties(Drive& drive, const PartitionEntry& entry, const PropertyWish& wanted,
                           EntryProperties& change) {
  change = {};
  change.name = wanted.name;
  if (wanted.type && *wanted.type > 0xFFFF)
    return std::string(optionOf(Property::type)) + ": " + whyNotTyped(drive, entry, *wanted.type);
  if (wanted.type) change.type = static_cast<u16>(*wanted.type);
  change.typeGuid = wanted.typeGuid;
  change.active = wanted.active;
  if (wanted.end) {
    const auto bytes = wanted.end->bytes(drive.sectorSize());
    if (!bytes || *bytes % drive.sectorSize() != 0)
      return "--end: This is no sector of the disk; give one as 4095.";
    change.endSector = *bytes / drive.sectorSize();
  }
  for (const FlagChange& flag : wanted.flags) {
    const auto mask = flagMask(drive, flag.flag);
    if (!mask) return noSuchFlag(drive, flag.flag);
    const u64 now = change.attributes.value_or(entry.attributes);
    change.attributes = flag.isSet ? now | *mask : now & ~*mask;
  }
  std::optional<PropertyRefusal> refusal;
  if (wanted.hide) refusal = wantHidden(drive, entry, *wanted.hide, change);
  if (!refusal) refusal = refusedProperty(drive, entry, change);
  if (refusal && refusal->property == Property::type && !wanted.type)
    refusal->property = Property::hidden;  // which changes the type
  return refusal ? std::string(optionOf(refusal->property)) + ": " + refusal->why : std::string();
}

}  // namespace tallowin
