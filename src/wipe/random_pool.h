// The random bytes of a wipe.
#pragma once

#include <array>
#include <span>

#include "base/types.h"

namespace tallowin {

// A pool that is stirred by MD5. A copy of it is a snapshot: it gives the same bytes again.
class RandomPool {
 public:
  // XORed into the block that stirs; the next output stirs first.
  void addEntropy(std::span<const u8> bytes);
  void output(std::span<u8> bytes);

 private:
  void stir();

  std::array<u8, 1024> pool_{};
  std::array<u8, 64> key_{};
  std::size_t filled_ = 0;   // of the key block
  std::size_t next_ = 1024;  // byte of the pool that is given out next
};

// A fast stream for what has to be new in every byte; the pool seeds it. A copy is a snapshot.
class RandomStream {
 public:
  explicit RandomStream(RandomPool& pool);
  void fill(std::span<u8> bytes);

 private:
  u64 nextWord();

  std::array<u64, 4> state_{};
};

}  // namespace tallowin
