// The characters of short names and labels beyond ASCII.
#pragma once

#include <optional>

#include "base/types.h"

namespace tallowin {

// Code page 850, and for every other number 437.
class FatCodePage {
 public:
  explicit FatCodePage(u32 number);

  char16_t unitOf(u8 byte) const;
  // Nothing when the code page does not have it.
  std::optional<u8> byteOf(char16_t unit) const;
  // Of the capital, where there is one, else of the letter as it is.
  std::optional<u8> capitalByteOf(char16_t unit) const;

 private:
  const char16_t* upperHalf_;
};

}  // namespace tallowin
