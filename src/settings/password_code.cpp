#include "settings/password_code.h"

#include "base/text.h"
#include "base/types.h"

namespace tallowin {
namespace {

constexpr std::string_view kKey = "Qz7#mulberry-Vane";
static_assert(kKey.size() == 17);

// Each byte is mixed with the key, its position and the scrambled byte before it, so that equal
// letters look different.
u8 maskAt(std::size_t position, u8 previous) {
  const auto key = static_cast<u8>(kKey[position % kKey.size()]);
  return static_cast<u8>(key + previous * 5 + position * 29);
}

// -1 when it is no digit.
int digitValue(char c) {
  const char upper = upperAscii(c);
  if (upper >= '0' && upper <= '9') return upper - '0';
  if (upper >= 'A' && upper <= 'F') return upper - 'A' + 10;
  return -1;
}

}  // namespace

std::string encodePassword(std::string_view password) {
  std::string text;
  u8 previous = 0;
  for (std::size_t i = 0; i < password.size(); ++i) {
    previous = static_cast<u8>(static_cast<u8>(password[i]) ^ maskAt(i, previous));
    text += format("%02X", static_cast<unsigned>(previous));
  }
  return text;
}

std::optional<std::string> decodePassword(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::string password;
  u8 previous = 0;
  for (std::size_t i = 0; i < text.size() / 2; ++i) {
    const int high = digitValue(text[2 * i]);
    const int low = digitValue(text[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    const auto scrambled = static_cast<u8>(high * 16 + low);
    password += static_cast<char>(scrambled ^ maskAt(i, previous));
    previous = scrambled;
  }
  return password;
}

}  // namespace tallowin
