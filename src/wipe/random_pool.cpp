#include "wipe/random_pool.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "wipe/md5.h"

namespace tallowin {

void RandomPool::stir() {
  Md5State state;
  std::copy(pool_.end() - state.size(), pool_.end(), state.begin());
  for (std::size_t at = 0; at < pool_.size(); at += state.size()) {
    md5Compress(key_, state);
    for (std::size_t i = 0; i < state.size(); ++i) state[i] = pool_[at + i] ^= state[i];
  }
  std::copy_n(pool_.begin(), key_.size(), key_.begin());
  filled_ = 0;
  // The first ones, which are the next key, are never given out.
  next_ = key_.size();
}

void RandomPool::addEntropy(std::span<const u8> bytes) {
  for (const u8 byte : bytes) {
    if (filled_ == key_.size()) stir();
    key_[filled_++] ^= byte;
  }
  next_ = pool_.size();
}

void RandomPool::output(std::span<u8> bytes) {
  while (!bytes.empty()) {
    if (next_ == pool_.size()) stir();
    const std::size_t count = std::min(bytes.size(), pool_.size() - next_);
    std::copy_n(pool_.begin() + static_cast<std::ptrdiff_t>(next_), count, bytes.begin());
    next_ += count;
    bytes = bytes.subspan(count);
  }
}

// xoshiro256**, by Blackman and Vigna.
RandomStream::RandomStream(RandomPool& pool) {
  std::array<u8, sizeof(state_)> seed;
  pool.output(seed);
  std::memcpy(state_.data(), seed.data(), seed.size());
  if (state_ == decltype(state_){}) state_[0] = 1;
}

u64 RandomStream::nextWord() {
  const u64 result = std::rotl(state_[1] * 5, 7) * 9;
  const u64 shifted = state_[1] << 17;
  state_[2] ^= state_[0];
  state_[3] ^= state_[1];
  state_[1] ^= state_[2];
  state_[0] ^= state_[3];
  state_[2] ^= shifted;
  state_[3] = std::rotl(state_[3], 45);
  return result;
}

void RandomStream::fill(std::span<u8> bytes) {
  while (!bytes.empty()) {
    const u64 word = nextWord();
    const std::size_t count = std::min(bytes.size(), sizeof(word));
    std::memcpy(bytes.data(), &word, count);
    bytes = bytes.subspan(count);
  }
}

}  // namespace tallowin
