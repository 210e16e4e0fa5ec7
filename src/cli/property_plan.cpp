#include "cli/property_plan.h"

#include <algorithm>
#include <span>

#include "base/text.h"
#include "disk/mbr_record.h"
#include "probe/type_catalogue.h"
#include "ptable/embr/embr_record.h"
#include "ptable/gpt/gpt_types.h"

namespace tallowin {
namespace {

struct FlagWord {
  std::string_view word;
  u64 mask;
};
constexpr FlagWord kGptFlags[] = {{"required", u64{1} << kGptRequired},
                                  {"no-block-io", u64{1} << kGptNoBlockIo},
                                  {"legacy-boot", u64{1} << kGptLegacyBootable},
                                  {"read-only", u64{1} << kGptReadOnly},
                                  {"shadow-copy", u64{1} << kGptShadowCopy},
                                  {"hidden", u64{1} << kGptHidden},
                                  {"no-mount", u64{1} << kGptNoMount}};
constexpr FlagWord kEmbrFlags[] = {{"boot", kMptBoot},
                                   {"manager", kMptManager},
                                   {"bootable", kMptBootable},
                                   {"multi-os", kMptMultiOs},
                                   {"hd0-only", kMptHd0Only}};
constexpr std::size_t kGptNameUnits = 36;
constexpr std::size_t kMptNameCharacters = 15;

// In UTF-16 units.
std::size_t gptNameLength(std::string_view utf8) {
  std::size_t units = 0;
  for (const char c : utf8) {
    const u8 byte = static_cast<u8>(c);
    if ((byte & 0xC0) != 0x80) units += byte >= 0xF0 ? 2 : 1;
  }
  return units;
}

class Plan {
 public:
  Plan(const Drive& drive, const PartitionEntry& entry, EntryProperties& change)
      : drive_(drive), entry_(entry), change_(change) {}

  std::string name(const std::string& name) {
    change_.name = name;
    if (drive_.isGpt())
      return gptNameLength(name) <= kGptNameUnits ? "" : "--name: a GPT holds 36 characters.";
    if (!drive_.isEmbr() && !entry_.isVolume())
      return "--name: an entry of an MBR has no name; only volumes have one.";
    const std::size_t most = entry_.isVolume() ? kVolumeNameBytes : kMptNameCharacters;
    const bool isPlain = std::ranges::all_of(name, [](char c) { return c >= 0x20 && c < 0x7F; });
    if (!name.empty() && name.size() <= most && isPlain) return {};
    return format("--name: the table holds 1 to %zu ASCII characters.", most);
  }

  std::string type(u32 type) {
    if (type > 0xFF || !types::isForPartitions(static_cast<u16>(type)))
      return format("--type: %u is no type of a partition; give 1 to 255, without 237 and 238.",
                    type);
    if (drive_.isGpt() && entry_.mbrSlot == kNoMbrSlot && type != types::kEfiSystem)
      return "--type: a GPT stores a type GUID and no number; use --type-guid.";
    const u16 byte = static_cast<u16>(type);
    if (types::isExtended(byte) != types::isExtended(entry_.type))
      return "--type: a partition neither becomes an extended one nor ceases to be one by its "
             "type; delete it and create another.";
    change_.type = byte;
    return {};
  }

  std::string active(bool active) {
    if (entry_.isVolume())
      return "--active, --inactive: a volume of an extended partition has no such mark.";
    if (drive_.scheme() != Scheme::mbr && entry_.mbrSlot == kNoMbrSlot)
      return "--active, --inactive: the partition has no slot in the MBR; give it one with 'mbr "
             "--insert'.";
    change_.active = active;
    return {};
  }

  std::string hide(bool hide) {
    if (drive_.isGpt()) return setBits(u64{1} << kGptHidden, hide);
    const u16 byte = change_.type.value_or(entry_.mbrType);
    const bool keepsRealType = byte == types::kHidden && !change_.type;
    const u16 shown = keepsRealType ? entry_.type : types::unhide(byte);
    const u16 wanted = hide ? types::hide(shown) : shown;
    const bool needsRealType = wanted == types::kHidden && byte != types::kHidden;
    if (needsRealType && (!entry_.isVolume() || change_.type))
      return format("--hide: type %u has no hidden form.", shown);
    if (wanted != byte) change_.type = wanted;
    return {};
  }

  std::string flag(const FlagChange& wanted) {
    if (entry_.isVolume() || (!drive_.isGpt() && !drive_.isEmbr()))
      return "--flag: an entry of an MBR and a volume have no flags.";
    const std::span<const FlagWord> words = drive_.isGpt() ? std::span<const FlagWord>(kGptFlags)
                                                           : std::span<const FlagWord>(kEmbrFlags);
    std::string names;
    for (const FlagWord& row : words) {
      if (equalsIgnoreCase(wanted.flag, row.word)) return setBits(row.mask, wanted.isSet);
      names += " " + std::string(row.word);
    }
    u64 bit = 0;
    if (drive_.isGpt() && parseNumber(wanted.flag, bit) && bit < 64)
      return setBits(u64{1} << bit, wanted.isSet);
    return "--flag: '" + wanted.flag + "' is no flag of this table; choose from" + names +
           (drive_.isGpt() ? ", or 0 to 63." : ".");
  }

  std::string typeGuid(const Guid& guid) {
    change_.typeGuid = guid;
    return drive_.isGpt() ? "" : "--type-guid: only a GPT has type GUIDs; use --type.";
  }

 private:
  std::string setBits(u64 mask, bool isSet) {
    const u64 now = change_.attributes.value_or(entry_.attributes);
    change_.attributes = isSet ? now | mask : now & ~mask;
    return {};
  }

  const Drive& drive_;
  const PartitionEntry& entry_;
  EntryProperties& change_;
};

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

std::string planProperties(const Drive& drive, const PartitionEntry& entry,
                           const std::optional<std::string>& name, const SetArguments& wanted,
                           EntryProperties& change) {
  if (drive.scheme() == Scheme::wholeDisk)
    return "A file system fills this disk; it has no partition table that could hold properties.";
  Plan plan(drive, entry, change);
  std::string refusal;
  if (name) refusal = plan.name(*name);
  if (refusal.empty() && wanted.type) refusal = plan.type(*wanted.type);
  if (refusal.empty() && wanted.typeGuid) refusal = plan.typeGuid(*wanted.typeGuid);
  if (refusal.empty() && wanted.active) refusal = plan.active(*wanted.active);
  for (const FlagChange& flag : wanted.flags)
    if (refusal.empty()) refusal = plan.flag(flag);
  if (refusal.empty() && wanted.hide) refusal = plan.hide(*wanted.hide);
  return refusal;
}

}  // namespace tallowin
