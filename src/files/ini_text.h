// INI-style text: sections in brackets, key=value lines, edited in place.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/types.h"

namespace tallowin {

// Names of sections and keys compare without regard to case. Lines end with CR LF; LF alone and
// CR alone are accepted. What is not understood is left as it is.
//
// Positions are byte offsets into the text. A capacity counts the text and a closing NUL, so a
// text of n bytes fits a capacity of n + 1.
inline constexpr std::size_t kNoCapacityLimit = std::string::npos;

struct SectionRange {
  std::size_t headerStart = 0;  // the '['
  std::size_t end = 0;          // the next header, or the end of the text
};

// The first line after the header of section `name` (of the first section when there is no name),
// or nothing. Blanks may stand before the '['.
std::optional<std::size_t> findSection(std::string_view text, std::optional<std::string_view> name,
                                       SectionRange* range = nullptr);

// The text between the brackets of the header at `headerStart`; empty when none stands there.
std::string_view sectionName(std::string_view text, std::size_t headerStart);

// The value of the first line of the section that starts with the key, without trailing blanks.
// Without a section: of the lines before the first header.
std::optional<std::string_view> getValue(std::string_view text,
                                         std::optional<std::string_view> section,
                                         std::string_view key);

// The start of the section's lines; the section is added at the end of the text when it is not
// there. Nothing, and the text unchanged, when it does not fit.
std::optional<std::size_t> addSection(std::string& text, std::size_t capacity,
                                      std::string_view name);

// Replaces the value, or inserts "key=value" as the section's first line (the section too when it
// is missing); without a value the key's line is deleted. Answers where the line stands (or
// stood; the section's start or the end of the text when there was nothing to delete). Nothing,
// and the text unchanged, when it does not fit.
std::optional<std::size_t> setValue(std::string& text, std::size_t capacity,
                                    std::optional<std::string_view> value,
                                    std::optional<std::string_view> section, std::string_view key);

}  // namespace tallowin
