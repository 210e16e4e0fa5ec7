#include "disk/io_ring.h"

#include <linux/io_uring.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace tallowin {
namespace {

int enter(int descriptor, u32 toSubmit, u32 waitFor, u32 flags) {
  return static_cast<int>(
      ::syscall(SYS_io_uring_enter, descriptor, toSubmit, waitFor, flags, nullptr, 0));
}

u32* at(void* base, u32 offset) { return reinterpret_cast<u32*>(static_cast<u8*>(base) + offset); }

}  // namespace

bool IoRing::Mapping::map(int descriptor, std::size_t size, u64 offset) {
  void* mapped = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE,
                        descriptor, static_cast<off_t>(offset));
  if (mapped == MAP_FAILED) return false;
  address = mapped;
  bytes = size;
  return true;
}

std::unique_ptr<IoRing> IoRing::create() {
  std::unique_ptr<IoRing> ring(new IoRing);
  return ring->setUp() ? std::move(ring) : nullptr;
}

bool IoRing::setUp() {
  io_uring_params parameters{};
  descriptor_ = static_cast<int>(::syscall(SYS_io_uring_setup, kDepth, &parameters));
  // One mapping for both rings came with the first kernels worth supporting.
  if (descriptor_ < 0 || (parameters.features & IORING_FEAT_SINGLE_MMAP) == 0) return false;
  const std::size_t submitBytes = parameters.sq_off.array + parameters.sq_entries * sizeof(u32);
  const std::size_t completeBytes =
      parameters.cq_off.cqes + parameters.cq_entries * sizeof(io_uring_cqe);
  if (!rings_.map(descriptor_, std::max(submitBytes, completeBytes), IORING_OFF_SQ_RING) ||
      !entries_.map(descriptor_, parameters.sq_entries * sizeof(io_uring_sqe), IORING_OFF_SQES))
    return false;
  submitTail_ = at(rings_.address, parameters.sq_off.tail);
  submitArray_ = at(rings_.address, parameters.sq_off.array);
  submitMask_ = *at(rings_.address, parameters.sq_off.ring_mask);
  completeHead_ = at(rings_.address, parameters.cq_off.head);
  completeTail_ = at(rings_.address, parameters.cq_off.tail);
  completeMask_ = *at(rings_.address, parameters.cq_off.ring_mask);
  completions_ = static_cast<u8*>(rings_.address) + parameters.cq_off.cqes;
  return true;
}

IoRing::~IoRing() {
  if (rings_.address != nullptr) ::munmap(rings_.address, rings_.bytes);
  if (entries_.address != nullptr) ::munmap(entries_.address, entries_.bytes);
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::optional<u32> IoRing::submit(Direction direction, int descriptor, void* buffer, u32 bytes,
                                  u64 offset) {
  const auto* const slot =
      std::find_if(slots_.begin(), slots_.end(), [](const Slot& each) { return !each.taken; });
  if (slot == slots_.end()) return std::nullopt;
  const u32 ticket = static_cast<u32>(slot - slots_.begin());
  const u32 tail = *submitTail_;  // only this side moves it
  const u32 index = tail & submitMask_;
  auto* entry = static_cast<io_uring_sqe*>(entries_.address) + index;
  std::memset(entry, 0, sizeof *entry);
  entry->opcode = direction == Direction::read ? IORING_OP_READ : IORING_OP_WRITE;
  entry->fd = descriptor;
  entry->addr = reinterpret_cast<std::uintptr_t>(buffer);
  entry->len = bytes;
  entry->off = offset;
  entry->user_data = ticket;
  submitArray_[index] = index;
  std::atomic_ref(*submitTail_).store(tail + 1, std::memory_order_release);
  int accepted = 0;
  do {
    accepted = enter(descriptor_, 1, 0, 0);
  } while (accepted < 0 && errno == EINTR);
  if (accepted != 1) {
    std::atomic_ref(*submitTail_).store(tail, std::memory_order_release);
    return std::nullopt;
  }
  slots_[ticket] = {.taken = true, .done = false, .result = 0};
  return ticket;
}

i32 IoRing::wait(u32 ticket) {
  Slot& slot = slots_[ticket];
  for (reap(); !slot.done; reap()) {
    // A signal of the repaint timer ends the call early; the next turn waits on.
    if (enter(descriptor_, 0, 1, IORING_ENTER_GETEVENTS) < 0 && errno != EINTR && errno != EAGAIN &&
        errno != EBUSY)
      return -errno;
  }
  slot.taken = false;
  return slot.result;
}

void IoRing::reap() {
  u32 head = *completeHead_;  // only this side moves it
  const u32 tail = std::atomic_ref(*completeTail_).load(std::memory_order_acquire);
  for (; head != tail; ++head) {
    io_uring_cqe completion;
    std::memcpy(&completion, completions_ + (head & completeMask_) * sizeof completion,
                sizeof completion);
    Slot& slot = slots_[completion.user_data % kDepth];
    slot.done = true;
    slot.result = completion.res;
  }
  std::atomic_ref(*completeHead_).store(head, std::memory_order_release);
}

}  // namespace tallowin
