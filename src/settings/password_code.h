// How a password is kept out of plain sight in the settings file. This is no encryption: whoever
// has the program can undo it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tallowin {

// Upper-case hexadecimal digits, two a byte. An empty password gives an empty text.
std::string encodePassword(std::string_view password);
// Nothing when the text was not made by encodePassword.
std::optional<std::string> decodePassword(std::string_view text);

}  // namespace tallowin
