#include "ops/property_rules.h"

#include <algorithm>

#include "base/text.h"
#include "base/utf8.h"
#include "disk/mbr_record.h"
#include "probe/type_catalogue.h"
#include "ptable/embr/embr_record.h"
#include "ptable/gpt/gpt_types.h"

namespace tallowin {
namespace {

constexpr FlagWord kGptFlags[] = {
    {"required", u64{1} << kGptRequired, "&Required"},
    {"no-block-io", u64{1} << kGptNoBlockIo, "No &Block IO Protocol"},
    {"legacy-boot", u64{1} << kGptLegacyBootable, "&Legacy BIOS Bootable"},
    {"read-only", u64{1} << kGptReadOnly, "MS: Read &Only"},
    {"shadow-copy", u64{1} << kGptShadowCopy, "MS: Shadow &Copy"},
    {"hidden", u64{1} << kGptHidden, "MS: &Hidden"},
    {"no-mount", u64{1} << kGptNoMount, "MS: No &Mount"}};
constexpr FlagWord kEmbrFlags[] = {{"boot", kMptBoot, "&Boot (obsolete)"},
                                   {"manager", kMptManager, "&EMBR Manager"},
                                   {"bootable", kMptBootable, "B&ootable (obsolete)"},
                                   {"multi-os", kMptMultiOs, "&Multi-OS"},
                                   {"hd0-only", kMptHd0Only, "&HD0 Only (obsolete)"}};
constexpr std::size_t kGptNameUnits = 36;

// In UTF-16 units.
std::size_t gptNameLength(std::string_view utf8) {
  std::size_t units = 0;
  for (const char c : utf8) {
    const u8 byte = static_cast<u8>(c);
    if ((byte & 0xC0) != 0x80) units += byte >= 0xF0 ? 2 : 1;
  }
  return units;
}

bool holdsVolumes(const PartitionEntry& entry) {
  const auto* table = dynamic_cast<const TableEntry*>(&entry);
  return table && table->volumes &&
         std::ranges::any_of(table->volumes->entries,
                             [](const auto& volume) { return !volume->isFree(); });
}

std::string whyNotMarked(const Drive& drive, const PartitionEntry& entry) {
  if (entry.isVolume()) return "A volume of an extended partition has no active mark.";
  if (drive.scheme() != Scheme::mbr && entry.mbrSlot == kNoMbrSlot)
    return "The partition has no slot in the MBR; put it into one first ('mbr --insert').";
  return {};
}

std::string whyNotEnding(Drive& drive, const PartitionEntry& entry, u64 endSector) {
  if (entry.isVolume())
    return "The end of a volume stands in the chain of its extended partition, and stays.";
  const SectorRegion limits = drive.endLimits(entry);
  if (limits.first <= endSector && endSector <= limits.last) return {};
  return format("The partition can end from sector %llu to %llu; choose one of these.",
                static_cast<unsigned long long>(limits.first),
                static_cast<unsigned long long>(limits.last));
}

bool isControl(char32_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }

}  // namespace

std::string whyNoText(std::string_view utf8) {
  for (std::size_t at = 0; at < utf8.size();) {
    const std::size_t first = at;
    const char32_t c = nextCharacter(utf8, at);
    if (c == kReplacementCharacter && at == first + 1)
      return "This is no text in UTF-8; choose another name.";
    if (isControl(c)) return "A name has no control characters; choose another one.";
  }
  return {};
}

std::string whyNotTyped(const Drive& drive, const PartitionEntry& entry, u32 wanted) {
  if (drive.isGpt() && entry.mbrSlot == kNoMbrSlot && wanted != types::kEfiSystem)
    return "A GPT stores a type GUID and no number; choose that.";
  const u16 type = static_cast<u16>(std::min<u32>(wanted, 0xFFFF));
  const bool isHiddenVolume = type == types::kHidden && entry.isVolume();
  if (!isHiddenVolume && !types::isForPartitions(type))
    return format("%u is no type of a partition; give 1 to 255, without 237 and 238.", wanted);
  if (types::isExtended(type) != types::isExtended(entry.type))
    return "A partition neither becomes an extended one nor ceases to be one by its type; delete "
           "it and create another.";
  if (type != entry.mbrType && holdsVolumes(entry))
    return "An extended partition of another type would hide its volumes from other programs; "
           "delete them first.";
  return {};
}

std::string whyNotNamed(const Drive& drive, bool isVolume, std::string_view name) {
  if (std::string why = whyNoText(name); !why.empty()) return why;
  if (drive.isGpt())
    return gptNameLength(name) <= kGptNameUnits ? ""
                                                : "A GPT holds 36 characters; choose a "
                                                  "shorter name.";
  if (!drive.isEmbr() && !isVolume) return "An entry of an MBR has no name; only volumes have one.";
  const std::size_t most = isVolume ? kVolumeNameBytes : kMptNameCharacters;
  const bool isPlain = std::ranges::all_of(name, [](char c) { return c >= 0x20 && c < 0x7F; });
  if (!name.empty() && name.size() <= most && isPlain) return {};
  return format("The table holds 1 to %zu ASCII characters; choose another name.", most);
}

std::optional<PropertyRefusal> refusedProperty(Drive& drive, const PartitionEntry& entry,
                                               const EntryProperties& wanted) {
  if (drive.scheme() == Scheme::wholeDisk)
    return PropertyRefusal{Property::name,
                           "A file system fills this disk; it has no partition table that could "
                           "hold properties."};
  PropertyRefusal refusal;
  const auto refuse = [&](Property property, std::string why) {
    if (refusal.why.empty()) refusal = {property, std::move(why)};
  };
  if (wanted.name) refuse(Property::name, whyNotNamed(drive, entry.isVolume(), *wanted.name));
  if (wanted.type) refuse(Property::type, whyNotTyped(drive, entry, *wanted.type));
  if (wanted.typeGuid && !drive.isGpt())
    refuse(Property::typeGuid, "Only a GPT has type GUIDs; choose a type number.");
  if (wanted.active) refuse(Property::active, whyNotMarked(drive, entry));
  if (wanted.attributes && (entry.isVolume() || flagWords(drive).empty()))
    refuse(Property::flags, "An entry of an MBR and a volume have no flags.");
  if (wanted.endSector) refuse(Property::end, whyNotEnding(drive, entry, *wanted.endSector));
  if (refusal.why.empty()) return std::nullopt;
  return refusal;
}

bool isHiddenEntry(const PartitionEntry& entry) {
  if (!entry.typeGuid.isZero()) return (entry.attributes >> kGptHidden & 1) != 0;
  return types::isHidden(entry.type) || entry.mbrType == types::kHidden;
}

std::optional<PropertyRefusal> wantHidden(const Drive& drive, const PartitionEntry& entry,
                                          bool isHidden, EntryProperties& wanted) {
  if (drive.isGpt()) {
    const u64 bit = u64{1} << kGptHidden;
    const u64 now = wanted.attributes.value_or(entry.attributes);
    wanted.attributes = isHidden ? now | bit : now & ~bit;
    return std::nullopt;
  }
  const u16 byte = wanted.type.value_or(entry.mbrType);
  const bool keepsRealType = byte == types::kHidden && !wanted.type;
  const u16 shown = keepsRealType ? entry.type : types::unhide(byte);
  const u16 type = isHidden ? types::hide(shown) : shown;
  const bool needsRealType = type == types::kHidden && byte != types::kHidden;
  if (needsRealType && (!entry.isVolume() || wanted.type))
    return PropertyRefusal{Property::hidden, format("Type %u has no hidden form.", shown)};
  if (type != byte) wanted.type = type;
  return std::nullopt;
}

std::span<const FlagWord> flagWords(const Drive& drive) {
  if (drive.isGpt()) return kGptFlags;
  return drive.isEmbr() ? std::span<const FlagWord>(kEmbrFlags) : std::span<const FlagWord>();
}

}  // namespace tallowin
