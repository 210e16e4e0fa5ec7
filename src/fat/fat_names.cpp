#include "fat/fat_names.h"

#include <algorithm>
#include <cstring>

#include "base/text.h"
#include "fs/names.h"

namespace tallowin {
namespace {

constexpr std::size_t kBase = 8;
constexpr std::size_t kExtension = 3;
constexpr std::string_view kShortNameMarks = "$%'-_@{}~`!#()";
constexpr std::string_view kNotInLabels = "\"&*+,./:;<=>?[\\]^|";
constexpr char kE5 = static_cast<char>(kFatDeleted);
constexpr char kStandIn = static_cast<char>(kFatStandsForE5);

bool isAsciiLetterOrDigit(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9');
}

// The byte of a short name that stands for `unit`; nothing when none does.
std::optional<char> shortNameByte(char16_t unit, const FatCodePage& codePage) {
  const char16_t upper = upperCase(unit);
  if (upper < 0x80)
    return isAsciiLetterOrDigit(upper) ||
                   kShortNameMarks.find(static_cast<char>(upper)) != std::string_view::npos
               ? std::optional(static_cast<char>(upper))
               : std::nullopt;
  const std::optional<u8> byte = codePage.capitalByteOf(unit);
  return byte ? std::optional(static_cast<char>(*byte)) : std::nullopt;
}

std::string shortNameBytes(std::u16string_view text, std::size_t most,
                           const FatCodePage& codePage) {
  std::string bytes;
  for (const char16_t unit : text)
    if (const auto byte = shortNameByte(unit, codePage); byte && bytes.size() < most)
      bytes += *byte;
  return bytes;
}

enum class LetterCase { none, upper, lower, mixed };

LetterCase caseOf(std::u16string_view text) {
  const bool hasLower = std::ranges::any_of(text, [](char16_t c) { return upperCase(c) != c; });
  const bool hasUpper = std::ranges::any_of(text, [](char16_t c) { return lowerCase(c) != c; });
  if (hasLower && hasUpper) return LetterCase::mixed;
  return hasLower ? LetterCase::lower : hasUpper ? LetterCase::upper : LetterCase::none;
}

void appendPart(std::u16string& text, std::string_view bytes, bool isLower,
                const FatCodePage& codePage) {
  for (const char byte : trimRight(bytes)) {
    const char16_t unit = codePage.unitOf(static_cast<u8>(byte));
    text += isLower ? lowerCase(unit) : unit;
  }
}

// Calls use(unit field, its number in the part) for all of them.
template <typename Part, typename Use>
void forEachUnit(Part& part, Use use) {
  std::size_t number = 0;
  for (auto& unit : part.units1) use(unit, number++);
  for (auto& unit : part.units2) use(unit, number++);
  for (auto& unit : part.units3) use(unit, number++);
}

}  // namespace

u8 fatNameChecksum(std::span<const char, 11> name) {
  u8 sum = 0;
  for (const char c : name) sum = static_cast<u8>((sum >> 1 | sum << 7) + static_cast<u8>(c));
  return sum;
}

std::u16string fatShortNameText(std::span<const char, 11> name, u8 caseFlags,
                                const FatCodePage& codePage) {
  FatShortName bytes;
  std::ranges::copy(name, bytes.begin());
  if (bytes[0] == kStandIn) bytes[0] = kE5;
  std::u16string text;
  const std::string_view whole(bytes.data(), bytes.size());
  appendPart(text, whole.substr(0, kBase), (caseFlags & kFatLowerCaseName) != 0, codePage);
  const std::size_t base = text.size();
  appendPart(text, whole.substr(kBase), (caseFlags & kFatLowerCaseExtension) != 0, codePage);
  if (text.size() > base) text.insert(base, 1, u'.');
  return text;
}

FatShortNameMaker::FatShortNameMaker(std::u16string_view name, const FatCodePage& codePage) {
  const std::size_t dot = name.rfind(u'.');
  const std::u16string_view base = name.substr(0, dot);
  const std::u16string_view extension =
      dot == std::u16string_view::npos ? std::u16string_view() : name.substr(dot + 1);
  base_ = shortNameBytes(base, kBase, codePage);
  extension_ = shortNameBytes(extension, kExtension, codePage);
  isWhole_ = !base_.empty() &&
             fatShortNameText(whole(), 0, codePage) == upperCase(std::u16string_view(name));
  const LetterCase baseCase = caseOf(base);
  const LetterCase extensionCase = caseOf(extension);
  // Which letter a byte beyond ASCII is depends on who reads it.
  needsLongName_ = baseCase == LetterCase::mixed || extensionCase == LetterCase::mixed ||
                   std::ranges::any_of(name, [](char16_t c) { return c >= 0x80; });
  if (baseCase == LetterCase::lower) caseFlags_ |= kFatLowerCaseName;
  if (extensionCase == LetterCase::lower) caseFlags_ |= kFatLowerCaseExtension;
}

FatShortName FatShortNameMaker::withTail(std::string_view tail) const {
  FatShortName name;
  name.fill(' ');
  const std::string base = base_.substr(0, kBase - tail.size()) + std::string(tail);
  std::ranges::copy(base, name.begin());
  std::ranges::copy(extension_, name.begin() + kBase);
  if (name[0] == kE5) name[0] = kStandIn;
  return name;
}

FatShortName FatShortNameMaker::numbered(u32 number) const {
  return withTail(format("~%X", number));
}

std::optional<FatShortName> fatLabelName(std::u16string_view label, const FatCodePage& codePage) {
  FatShortName name;
  name.fill(' ');
  if (label.size() > name.size()) return std::nullopt;
  for (std::size_t i = 0; i < label.size(); ++i) {
    const std::optional<u8> byte = codePage.capitalByteOf(label[i] == u'.' ? u' ' : label[i]);
    if (!byte || *byte < 0x20 || *byte == 0x7F ||
        kNotInLabels.find(static_cast<char>(*byte)) != std::string_view::npos)
      return std::nullopt;
    name[i] = static_cast<char>(*byte);
  }
  if (name[0] == ' ') return std::nullopt;
  if (name[0] == kE5) name[0] = kStandIn;
  return name;
}

std::u16string fatLabelOf(std::span<const char, 11> name, const FatCodePage& codePage) {
  std::u16string label;
  appendPart(label, {name.data(), name.size()}, false, codePage);
  if (!label.empty() && name[0] == kStandIn) label[0] = codePage.unitOf(kFatDeleted);
  return label;
}

FatLongNameRecord fatLongNamePart(std::u16string_view name, u32 sequence, u8 checksum) {
  constexpr u16 kBehindName = 0xFFFF;
  FatLongNameRecord part = {};
  const std::size_t from = (sequence - 1) * kFatUnitsPerPart;
  const bool isLast = from + kFatUnitsPerPart >= name.size();
  part.sequence = static_cast<u8>(sequence | (isLast ? kFatLastPart : 0));
  part.attributes = kFatLongName;
  part.checksum = checksum;
  forEachUnit(part, [&](Le16& unit, std::size_t number) {
    const std::size_t at = from + number;
    unit = at < name.size() ? static_cast<u16>(name[at]) : at == name.size() ? u16{0} : kBehindName;
  });
  return part;
}

std::u16string fatUnitsOf(const FatLongNameRecord& part) {
  std::u16string units;
  bool isBehind = false;
  forEachUnit(part, [&](const Le16& unit, std::size_t) {
    isBehind = isBehind || unit == 0;
    if (!isBehind) units += static_cast<char16_t>(u16{unit});
  });
  return units;
}

}  // namespace tallowin
