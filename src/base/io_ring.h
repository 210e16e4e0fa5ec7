// Requests that are under way while their thread does something else, by the kernel's submission
// and completion rings.
#pragma once

#include <sys/uio.h>

#include <array>
#include <memory>
#include <optional>
#include <span>

#include "base/types.h"

namespace tallowin {

// One thread, few requests. Not available on kernels without io_uring or where it is forbidden.
class IoRing {
 public:
  static constexpr u32 kDepth = 8;

  // The ring of the process, made when it is first asked for; null when the kernel does not offer
  // one.
  static IoRing* shared();
  ~IoRing();
  IoRing(const IoRing&) = delete;
  IoRing& operator=(const IoRing&) = delete;

  // Each gives a ticket for wait(), or nothing when all places are taken or the kernel refuses;
  // then nothing was started. The memory must stay until wait() has given the result.
  std::optional<u32> read(int descriptor, void* buffer, u32 bytes, u64 offset);
  std::optional<u32> write(int descriptor, std::span<const iovec> parts, u64 offset);
  std::optional<u32> sync(int descriptor);

  // The bytes moved, or a negative errno; gives the ticket back. Nothing when the request is still
  // under way after so many milliseconds or at a signal; without a limit its end is waited for.
  std::optional<i32> wait(u32 ticket, std::optional<u32> milliseconds);

 private:
  struct Slot {
    bool taken = false;
    bool done = false;
    i32 result = 0;
    std::array<iovec, 2> parts = {};  // of a write; the kernel may look at them late
  };
  struct Mapping {
    void* address = nullptr;
    std::size_t bytes = 0;
  };
  struct Request;

  IoRing() = default;
  // None on failure.
  static std::unique_ptr<IoRing> create();
  static Mapping map(int descriptor, std::size_t size, u64 offset);
  std::optional<u32> freeTicket() const;
  std::optional<u32> submit(u32 ticket, const Request& request);
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
