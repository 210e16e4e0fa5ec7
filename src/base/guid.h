// A GUID as it lies on the disk: the mixed-endian layout of the UEFI specification.
#pragma once

#include <array>
#include <string>

#include "base/types.h"

namespace tallowin {

struct Guid {
  std::array<u8, 16> bytes{};

  friend bool operator==(const Guid&, const Guid&) = default;
  bool isZero() const { return *this == Guid{}; }
};
static_assert(sizeof(Guid) == 16 && alignof(Guid) == 1);

// "{C12A7328-...}" at compile time.
consteval Guid guidLiteral(const char (&text)[39]) {
  constexpr std::array<u8, 16> kTextAt = {7,  5,  3,  1,  12, 10, 17, 15,
                                          20, 22, 25, 27, 29, 31, 33, 35};
  const auto digit = [](char c) { return static_cast<u8>(c <= '9' ? c - '0' : c - 'A' + 10); };
  Guid guid;
  for (std::size_t i = 0; i < guid.bytes.size(); ++i)
    guid.bytes[i] = static_cast<u8>(digit(text[kTextAt[i]]) << 4 | digit(text[kTextAt[i] + 1]));
  return guid;
}

// "{C12A7328-F81F-11D2-BA4B-00A0C93EC93B}": upper case, in braces.
std::string guidText(const Guid& guid);
// Accepts the text with or without braces, in any case.
[[nodiscard]] bool parseGuid(std::string_view text, Guid& guid);

}  // namespace tallowin
