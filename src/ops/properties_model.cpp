#include "ops/properties_model.h"

#include <algorithm>

#include "base/text.h"
#include "ops/type_field.h"
#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_types.h"

namespace tallowin {
namespace {

constexpr u16 kMaxTypeByte = 255;

std::vector<std::string> choicesOf(bool isGpt) {
  std::vector<std::string> choices;
  if (isGpt) {
    for (const GptType& type : gptTypes()) choices.emplace_back(type.name);
    return choices;
  }
  for (u16 type = 1; type <= kMaxTypeByte; ++type)
    if (types::hasName(type)) choices.push_back(typeChoiceText(type));
  return choices;
}

std::string guidOrName(const Guid& guid) {
  const char* known = gptTypeName(guid);
  return known ? std::string(known) : guidText(guid);
}

// 0xED hides a volume, whose real type its EBR keeps.
bool isHiddenType(u32 type, bool isVolume) {
  return type <= kMaxTypeByte && types::isHidden(static_cast<u16>(type)) &&
         (type != types::kHidden || isVolume);
}

}  // namespace

PropertiesModel::PropertiesModel(const PropertiesFacts& facts)
    : title(format("%s (%X) ", "Properties", facts.id) +
            (facts.isGpt ? guidText(facts.uniqueGuid) : "")),
      groupLabel(facts.isVolume ? "Volume Information" : "Partition Information"),
      name(facts.name),
      nameMaxLength(facts.nameMaxLength),
      typeLabel(facts.isGpt ? "&Type" : "File &System"),
      typeText(facts.isGpt ? guidOrName(facts.typeGuid) : typeChoiceText(facts.tableType)),
      typeChoices(choicesOf(facts.isGpt)),
      sizeLine(format("%s  %llu MiB", "Size",
                      static_cast<unsigned long long>(sectorsToMiB(
                          facts.endSector + 1 - facts.startSector, facts.sectorSizeBytes)))),
      startLine(format("%s: %llu", "Start", static_cast<unsigned long long>(facts.startSector))),
      endLine(format("%s: %llu", "End", static_cast<unsigned long long>(facts.endSector))),
      endText(std::to_string(facts.endSector)),
      lines(facts.lines),
      facts_(facts) {
  if (!facts.whyNameIsFixed.empty()) nameControl = {true, false, facts.whyNameIsFixed};
  endControl.shown = facts.hasEndField;
  for (const PropertiesFacts::Flag& flag : facts.flags)
    flags.push_back({flag.label, (facts.attributes & flag.mask) != 0});
  if (flags.empty()) flagsControl = {true, false, "An entry of an MBR and a volume have no flags."};
  detailsControl.shown = facts.hasDetails;
  recalcControl.shown = facts.isExtended && !facts.isGpt;
  hideChanged();
}

u32 PropertiesModel::typeValue() const { return typeNumberIn(typeText); }

std::optional<Guid> PropertiesModel::typeGuidValue() const {
  for (const GptType& type : gptTypes())
    if (equalsIgnoreCase(trim(typeText), type.name)) return type.guid;
  Guid guid;
  return parseGuid(trim(typeText), guid) ? std::optional(guid) : std::nullopt;
}

u64 PropertiesModel::attributes() const {
  u64 word = facts_.attributes;
  for (std::size_t i = 0; i < flags.size(); ++i) {
    word &= ~facts_.flags[i].mask;
    if (flags[i].isSet) word |= facts_.flags[i].mask;
  }
  return word;
}

void PropertiesModel::toggleFlag(std::size_t row) {
  if (row < flags.size()) flags[row].isSet = !flags[row].isSet;
}

void PropertiesModel::hideChanged() {
  hideControl.shown = !facts_.isGpt && !facts_.isExtended;
  const u32 value = typeValue();
  const bool isHidden = isHiddenType(value, facts_.isVolume);
  hideLabel = isHidden ? "Un&hide" : "&Hide";
  hideControl.enabled = true;
  hideControl.whyDisabled.clear();
  const auto plain = [](u32 type) { return types::unhide(static_cast<u16>(type)); };
  const bool isSameFamily = value != 0 && value <= kMaxTypeByte &&
                            (plain(value) == plain(facts_.type) || value == types::kHidden);
  const bool hasForm =
      isHidden ||
      (isSameFamily && (types::hide(plain(value)) != types::kHidden || facts_.isVolume));
  if (!isSameFamily || !hasForm)
    hideControl = {hideControl.shown, false,
                   isSameFamily ? "This type has no hidden form."
                                : "Only the type that the partition has now is hidden here."};
}

void PropertiesModel::pressHide() {
  pass();
  if (!hideControl.shown || !hideControl.enabled) return;
  const u16 value = static_cast<u16>(typeValue());
  if (!isHiddenType(value, facts_.isVolume))
    typeText = typeChoiceText(types::hide(value));
  else
    typeText =
        typeChoiceText(value == types::kHidden ? types::unhide(facts_.type) : types::unhide(value));
  pass();
}

void PropertiesModel::pass() { hideChanged(); }

void PropertiesModel::ok() {
  pass();
  if (apply && apply()) close();
}

}  // namespace tallowin
