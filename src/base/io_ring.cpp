#include "base/io_ring.h"

#include <linux/io_uring.h>
#include <linux/time_types.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace tallowin {
namespace {

// One mapping for both rings, and waiting with a time limit.
constexpr u32 kNeededFeatures = IORING_FEAT_SINGLE_MMAP | IORING_FEAT_EXT_ARG;

u32* at(void* base, u32 offset) { return reinterpret_cast<u32*>(static_cast<u8*>(base) + offset); }

// Until a request is done, a signal comes or the time is over.
void sleepUntilOne(int descriptor, std::optional<u32> milliseconds) {
  __kernel_timespec limit{};
  io_uring_getevents_arg argument{};
  if (milliseconds) {
    limit.tv_sec = *milliseconds / 1000;
    limit.tv_nsec = i64{*milliseconds % 1000} * 1'000'000;
    argument.ts = reinterpret_cast<std::uintptr_t>(&limit);
  }
  ::syscall(SYS_io_uring_enter, descriptor, 0, 1, IORING_ENTER_GETEVENTS | IORING_ENTER_EXT_ARG,
            &argument, sizeof argument);
}

}  // namespace

struct IoRing::Request {
  u8 operation = 0;
  int descriptor = -1;
  const void* address = nullptr;
  u32 length = 0;
  u64 offset = 0;
};

IoRing* IoRing::shared() {
  static const std::unique_ptr<IoRing> ring = create();
  return ring.get();
}

IoRing::Mapping IoRing::map(int descriptor, std::size_t size, u64 offset) {
  void* mapped = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE,
                        descriptor, static_cast<off_t>(offset));
  return mapped == MAP_FAILED ? Mapping() : Mapping{mapped, size};
}

std::unique_ptr<IoRing> IoRing::create() {
  std::unique_ptr<IoRing> ring(new IoRing);
  io_uring_params parameters{};
  ring->descriptor_ = static_cast<int>(::syscall(SYS_io_uring_setup, kDepth, &parameters));
  if (ring->descriptor_ < 0 || (parameters.features & kNeededFeatures) != kNeededFeatures)
    return nullptr;
  const std::size_t submitBytes = parameters.sq_off.array + parameters.sq_entries * sizeof(u32);
  const std::size_t completeBytes =
      parameters.cq_off.cqes + parameters.cq_entries * sizeof(io_uring_cqe);
  void* const rings = (ring->rings_ = map(ring->descriptor_, std::max(submitBytes, completeBytes),
                                          IORING_OFF_SQ_RING))
                          .address;
  ring->entries_ =
      map(ring->descriptor_, parameters.sq_entries * sizeof(io_uring_sqe), IORING_OFF_SQES);
  if (rings == nullptr || ring->entries_.address == nullptr) return nullptr;
  ring->submitTail_ = at(rings, parameters.sq_off.tail);
  ring->submitArray_ = at(rings, parameters.sq_off.array);
  ring->submitMask_ = *at(rings, parameters.sq_off.ring_mask);
  ring->completeHead_ = at(rings, parameters.cq_off.head);
  ring->completeTail_ = at(rings, parameters.cq_off.tail);
  ring->completeMask_ = *at(rings, parameters.cq_off.ring_mask);
  ring->completions_ = static_cast<u8*>(rings) + parameters.cq_off.cqes;
  return ring;
}

IoRing::~IoRing() {
  if (rings_.address != nullptr) ::munmap(rings_.address, rings_.bytes);
  if (entries_.address != nullptr) ::munmap(entries_.address, entries_.bytes);
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::optional<u32> IoRing::read(int descriptor, void* buffer, u32 bytes, u64 offset) {
  const auto ticket = freeTicket();
  return ticket ? submit(*ticket, {IORING_OP_READ, descriptor, buffer, bytes, offset}) : ticket;
}

std::optional<u32> IoRing::write(int descriptor, std::span<const iovec> parts, u64 offset) {
  const auto ticket = freeTicket();
  if (!ticket || parts.size() > slots_[*ticket].parts.size()) return std::nullopt;
  if (parts.size() == 1)
    return submit(*ticket, {IORING_OP_WRITE, descriptor, parts[0].iov_base,
                            static_cast<u32>(parts[0].iov_len), offset});
  auto& kept = slots_[*ticket].parts;
  std::copy(parts.begin(), parts.end(), kept.begin());
  return submit(
      *ticket, {IORING_OP_WRITEV, descriptor, kept.data(), static_cast<u32>(parts.size()), offset});
}

std::optional<u32> IoRing::sync(int descriptor) {
  const auto ticket = freeTicket();
  return ticket ? submit(*ticket, {IORING_OP_FSYNC, descriptor, nullptr, 0, 0}) : ticket;
}

std::optional<u32> IoRing::freeTicket() const {
  const auto* const slot =
      std::find_if(slots_.begin(), slots_.end(), [](const Slot& each) { return !each.taken; });
  if (slot == slots_.end()) return std::nullopt;
  return static_cast<u32>(slot - slots_.begin());
}

std::optional<u32> IoRing::submit(u32 ticket, const Request& request) {
  const u32 tail = *submitTail_;  // only this side moves it
  const u32 index = tail & submitMask_;
  auto* entry = static_cast<io_uring_sqe*>(entries_.address) + index;
  std::memset(entry, 0, sizeof *entry);
  entry->opcode = request.operation;
  entry->fd = request.descriptor;
  entry->addr = reinterpret_cast<std::uintptr_t>(request.address);
  entry->len = request.length;
  entry->off = request.offset;
  entry->user_data = ticket;
  submitArray_[index] = index;
  std::atomic_ref(*submitTail_).store(tail + 1, std::memory_order_release);
  long accepted = 0;
  do {
    accepted = ::syscall(SYS_io_uring_enter, descriptor_, 1, 0, 0, nullptr, 0);
  } while (accepted < 0 && errno == EINTR);
  if (accepted != 1) {
    std::atomic_ref(*submitTail_).store(tail, std::memory_order_release);
    return std::nullopt;
  }
  slots_[ticket].taken = true;
  slots_[ticket].done = false;
  return ticket;
}

std::optional<i32> IoRing::wait(u32 ticket, std::optional<u32> milliseconds) {
  Slot& slot = slots_[ticket];
  reap();
  while (!slot.done) {
    sleepUntilOne(descriptor_, milliseconds);
    reap();
    if (!slot.done && milliseconds) return std::nullopt;
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
