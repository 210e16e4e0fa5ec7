// An open file of the host, and what its failed calls mean.
#pragma once

#include <unistd.h>

#include <utility>

#include "base/error.h"

namespace tallowin {

// Closes on every way out; close() reports, the destructor cannot.
class Descriptor {
 public:
  explicit Descriptor(int value = -1) : value_(value) {}
  ~Descriptor() { static_cast<void>(close()); }
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      static_cast<void>(close());
      value_ = std::exchange(other.value_, -1);
    }
    return *this;
  }

  // -1 when nothing is open.
  int get() const { return value_; }
  // As close(2); nothing to close succeeds.
  [[nodiscard]] int close() {
    const int value = std::exchange(value_, -1);
    return value < 0 ? 0 : ::close(value);
  }

 private:
  int value_;
};

// Of a write, truncate or allocation that failed: noSpaceLeft or write.
Failure writeFailure(int errorNumber);
// Of an fsync that failed: noSpaceLeft or flush.
Failure flushFailure(int errorNumber);

}  // namespace tallowin
