// What fuzz targets share: what must hold, and numbers from the input.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <span>

#include "base/types.h"

namespace tallowin {

inline void require(bool holds) {
  if (!holds) std::abort();
}

// Numbers from the input; zeros behind its end.
class Input {
 public:
  explicit Input(std::span<const u8> bytes) : bytes_(bytes) {}

  bool isEmpty() const { return bytes_.empty(); }
  u32 number(std::size_t bytes) {
    u32 value = 0;
    for (const u8 byte : take(bytes)) value = value << 8 | byte;
    return value;
  }
  std::span<const u8> take(std::size_t count) {
    const auto taken = bytes_.first(std::min(count, bytes_.size()));
    bytes_ = bytes_.subspan(taken.size());
    return taken;
  }

 private:
  std::span<const u8> bytes_;
};

}  // namespace tallowin
