// Overlapping transfers on one descriptor, by the kernel's submission and completion rings.
#pragma once

#include <array>
#include <memory>
#include <optional>

#include "base/types.h"

namespace tallowin {

// One thread, few requests. Not available on kernels without io_uring or where it is forbidden.
class IoRing {
 public:
  static constexpr u32 kDepth = 8;
  enum class Direction { read, write };

  // Null when the kernel does not offer it.
  static std::unique_ptr<IoRing> create();
  ~IoRing();
  IoRing(const IoRing&) = delete;
  IoRing& operator=(const IoRing&) = delete;

  // A ticket for wait(), or nothing when all places are taken or the kernel refuses; then
  // nothing was started. The buffer must stay until wait() has returned.
  std::optional<u32> submit(Direction direction, int descriptor, void* buffer, u32 bytes,
                            u64 offset);
  // The bytes moved, or a negative errno. Gives the ticket back.
  i32 wait(u32 ticket);

 private:
  struct Slot {
    bool taken = false;
    bool done = false;
    i32 result = 0;
  };
  struct Mapping {
    void* address = nullptr;
    std::size_t bytes = 0;
    bool map(int descriptor, std::size_t size, u64 offset);
  };

  IoRing() = default;
  bool setUp();
  void reap();

  int descriptor_ = -1;
  Mapping rings_;    // both rings in one mapping
  Mapping entries_;  // the submission entries
  u32* submitTail_ = nullptr;
  u32* submitArray_ = nullptr;
  u32 submitMask_ = 0;
  u32* completeHead_ = nullptr;
  u32* completeTail_ = nullptr;
  u32 completeMask_ = 0;
  u8* completions_ = nullptr;
  std::array<Slot, kDepth> slots_;
};

}  // namespace tallowin
