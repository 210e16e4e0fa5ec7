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

// "{C12A7328-F81F-11D2-BA4B-00A0C93EC93B}": upper case, in braces.
std::string guidText(const Guid& guid);
// Accepts the text with or without braces, in any case.
[[nodiscard]] bool parseGuid(std::string_view text, Guid& guid);

}  // namespace tallowin
