// The one mechanism behind the settings file, the environment and the command line: a table of
// rows, each of which knows the member that holds an option's value.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/types.h"

namespace tallowin {

class SettingsText;

enum class OptionType : u32 {
  boolean = 1,  // any number but 0 is true
  number = 2,
  bitMask = 5,
  text = 0x1006,
  encodedText = 0x100A,  // scrambled in the file
  textList = 0x100B,     // each switch adds one; never stored
};

// The default is what a default-constructed Owner holds.
template <typename Owner>
struct OptionRow {
  using Member = std::variant<bool Owner::*, u8 Owner::*, u16 Owner::*, u32 Owner::*,
                              std::string Owner::*, std::vector<std::string> Owner::*>;
  std::string_view switchName;  // empty: set in the file only
  std::string_view key;         // empty: set by its switch only
  OptionType type = OptionType::boolean;
  Member member;
  u64 mask = 0;  // bitMask: the bits that belong to this row
  // textList: how many values it takes. number: the largest that a user may enter, 0 for all that
  // fit; what stands in the file is taken as it is.
  std::size_t limit = 0;
};

// Text in the file or behind a switch, as the row's value. What is no number, or too large for
// the member, counts as 0; a text list that is full stays as it is and answers false.
template <typename Owner>
bool setOption(const OptionRow<Owner>& row, Owner& owner, std::string_view text);

// As it is written to the file; nothing when the value is the default.
template <typename Owner>
std::optional<std::string> storedOption(const OptionRow<Owner>& row, const Owner& owner);

// Rows that have a key; a missing key gives the default.
template <typename Owner>
void readOptionSection(std::span<const OptionRow<Owner>> rows, const SettingsText& text,
                       std::string_view section, Owner& owner);

// Keys whose option has its default are removed. A stored text that could not be decoded stays
// until its option gets another value.
template <typename Owner>
void writeOptionSection(std::span<const OptionRow<Owner>> rows, const Owner& owner,
                        std::string_view section, SettingsText& text);

}  // namespace tallowin
