// The two names of a directory entry: 8.3 in a code page, and the long one in parts before it.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "fat/fat_code_page.h"
#include "fat/fat_record.h"

namespace tallowin {

using FatShortName = std::array<char, 11>;  // as in FatDirectoryEntryRecord::name

u8 fatNameChecksum(std::span<const char, 11> name);

// "NAME.EXT", without the blanks; in the case of `caseFlags`.
std::u16string fatShortNameText(std::span<const char, 11> name, u8 caseFlags,
                                const FatCodePage& codePage);

// The names of a new entry.
struct FatNewName {
  FatShortName shortName;
  u8 caseFlags = 0;
  std::u16string longName;  // empty: the short name with its flags says it all
  std::string stem = {};    // of a name with a number behind it, and that number
  u32 number = 0;

  u32 entries() const {
    return 1 + static_cast<u32>((longName.size() + kFatUnitsPerPart - 1) / kFatUnitsPerPart);
  }
};

// What a short name is made of, before it has a tail.
class FatShortNameMaker {
 public:
  FatShortNameMaker(std::u16string_view name, const FatCodePage& codePage);

  // The name fits as it is.
  bool isWhole() const { return isWhole_; }
  bool needsLongName() const { return !isWhole_ || needsLongName_; }
  u8 caseFlags() const { return needsLongName() ? u8{0} : caseFlags_; }
  FatShortName whole() const { return withTail({}); }
  FatShortName numbered(u32 number) const;

 private:
  FatShortName withTail(std::string_view tail) const;

  std::string base_;
  std::string extension_;
  bool isWhole_ = false;
  bool needsLongName_ = false;
  u8 caseFlags_ = 0;
};

// The text of a label as it is stored, 11 bytes: dots become blanks, letters capitals. Nothing when
// it is too long or holds what a label may not.
std::optional<FatShortName> fatLabelName(std::u16string_view label, const FatCodePage& codePage);
std::u16string fatLabelOf(std::span<const char, 11> name, const FatCodePage& codePage);

// Part `sequence` of a long name, from 1.
FatLongNameRecord fatLongNamePart(std::u16string_view name, u32 sequence, u8 checksum);
// The units of a part, without what lies behind the name.
std::u16string fatUnitsOf(const FatLongNameRecord& part);

}  // namespace tallowin
