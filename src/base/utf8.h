// UTF-8, as far as names need it.
#pragma once

#include <string>
#include <string_view>

namespace tallowin {

// What stands for bytes that are no character.
inline constexpr char32_t kReplacementCharacter = 0xFFFD;

void appendUtf8(std::string& text, char32_t c);

// The next character of `text` from `at` on, which moves behind it; a byte that starts none is a
// replacement character by itself.
char32_t nextCharacter(std::string_view text, std::size_t& at);

// How many bytes the first `count` characters take.
std::size_t bytesOfCharacters(std::string_view text, std::size_t count);

}  // namespace tallowin
