#include "settings/option_table.h"

#include <limits>
#include <type_traits>

#include "base/text.h"
#include "settings/drive_settings.h"
#include "settings/options.h"
#include "settings/password_code.h"
#include "settings/settings_text.h"

namespace tallowin {
namespace {

u64 numberOf(std::string_view text, u64 largest) {
  u64 value = 0;
  if (!parseNumber(trim(text), value) || value > largest) return 0;
  return value;
}

// What a member holds, set from text or turned into text, by its C++ type.
template <typename Row>
void setMember(const Row&, bool& value, std::string_view text) {
  value = numberOf(text, kAllOnes64) != 0;
}

template <typename Row, typename Number>
requires std::is_unsigned_v<Number>
void setMember(const Row& row, Number& value, std::string_view text) {
  const auto number = static_cast<Number>(numberOf(text, std::numeric_limits<Number>::max()));
  if (row.type != OptionType::bitMask) {
    value = number;
    return;
  }
  const auto mask = static_cast<Number>(row.mask);
  value = static_cast<Number>((value & ~mask) | (number != 0 ? mask : Number{0}));
}

template <typename Row>
void setMember(const Row& row, std::string& value, std::string_view text) {
  if (row.type == OptionType::encodedText) {
    value = decodePassword(text).value_or(std::string());
  } else {
    value = text;
  }
}

template <typename Row>
void setMember(const Row&, std::vector<std::string>& value, std::string_view text) {
  value.emplace_back(text);
}

template <typename Row, typename Number>
std::string memberText(const Row& row, Number value) {
  if (row.type == OptionType::bitMask)
    return format("0x%llX", static_cast<unsigned long long>(value & row.mask));
  return format("%llu", static_cast<unsigned long long>(value));
}

template <typename Row>
std::string memberText(const Row& row, const std::string& value) {
  return row.type == OptionType::encodedText ? encodePassword(value) : value;
}

// Lists have no key, so nothing of them is ever stored.
template <typename Row>
std::string memberText(const Row&, const std::vector<std::string>&) {
  return {};
}

template <typename Owner>
bool isDefault(const OptionRow<Owner>& row, const Owner& owner) {
  static const Owner defaults{};
  return std::visit([&](auto member) { return owner.*member == defaults.*member; }, row.member);
}

}  // namespace

template <typename Owner>
bool setOption(const OptionRow<Owner>& row, Owner& owner, std::string_view text) {
  return std::visit(
      [&](auto member) {
        auto& value = owner.*member;
        if constexpr (requires { value.emplace_back(); }) {
          if (value.size() >= row.limit) return false;
        }
        setMember(row, value, text);
        return true;
      },
      row.member);
}

template <typename Owner>
std::optional<std::string> storedOption(const OptionRow<Owner>& row, const Owner& owner) {
  if (isDefault(row, owner)) return std::nullopt;
  return std::visit([&](auto member) { return memberText(row, owner.*member); }, row.member);
}

template <typename Owner>
void readOptionSection(std::span<const OptionRow<Owner>> rows, const SettingsText& text,
                       std::string_view section, Owner& owner) {
  static const Owner defaults{};
  for (const OptionRow<Owner>& row : rows) {
    if (row.key.empty()) continue;
    std::visit([&](auto member) { owner.*member = defaults.*member; }, row.member);
    if (const auto stored = text.value(section, row.key)) setOption(row, owner, *stored);
  }
}

template <typename Owner>
void writeOptionSection(std::span<const OptionRow<Owner>> rows, const Owner& owner,
                        std::string_view section, SettingsText& text) {
  for (const OptionRow<Owner>& row : rows) {
    if (row.key.empty()) continue;
    if (const auto stored = storedOption(row, owner)) {
      text.setValue(section, row.key, *stored);
      continue;
    }
    const auto present = text.value(section, row.key);
    const bool undecodable =
        present && row.type == OptionType::encodedText && !decodePassword(*present);
    if (!undecodable) text.removeValue(section, row.key);
  }
}

template bool setOption(const OptionRow<Options>&, Options&, std::string_view);
template std::optional<std::string> storedOption(const OptionRow<Options>&, const Options&);
template void readOptionSection(std::span<const OptionRow<Options>>, const SettingsText&,
                                std::string_view, Options&);
template void writeOptionSection(std::span<const OptionRow<Options>>, const Options&,
                                 std::string_view, SettingsText&);

template bool setOption(const OptionRow<DriveSettingsRecord>&, DriveSettingsRecord&,
                        std::string_view);
template std::optional<std::string> storedOption(const OptionRow<DriveSettingsRecord>&,
                                                 const DriveSettingsRecord&);
template void readOptionSection(std::span<const OptionRow<DriveSettingsRecord>>,
                                const SettingsText&, std::string_view, DriveSettingsRecord&);
template void writeOptionSection(std::span<const OptionRow<DriveSettingsRecord>>,
                                 const DriveSettingsRecord&, std::string_view, SettingsText&);

}  // namespace tallowin
