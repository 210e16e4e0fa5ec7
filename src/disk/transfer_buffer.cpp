#include "disk/transfer_buffer.h"

#include <sys/mman.h>

#include <utility>

namespace tallowin {
namespace {

constexpr std::size_t kLargePage = 2 * kMiB;

u8* mapAligned(std::size_t bytes) {
  // One large page more than asked for, then the ends that are not needed are given back.
  const std::size_t alignment = bytes >= kLargePage ? kLargePage : 4 * kKiB;
  void* raw = ::mmap(nullptr, bytes + alignment, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  const auto address = reinterpret_cast<std::uintptr_t>(raw);
  const std::size_t before = (alignment - address % alignment) % alignment;
  u8* data = static_cast<u8*>(raw) + before;
  if (before != 0) ::munmap(raw, before);
  if (alignment != before) ::munmap(data + bytes, alignment - before);
  if (alignment == kLargePage) ::madvise(data, bytes, MADV_HUGEPAGE);
  return data;
}

std::size_t wholePages(std::size_t bytes) { return (bytes + 4095) / 4096 * 4096; }

}  // namespace

TransferBuffer::TransferBuffer(std::size_t bytes) : data_(mapAligned(wholePages(bytes))) {
  if (data_ != nullptr) bytes_ = bytes;
}

TransferBuffer::~TransferBuffer() {
  if (data_ != nullptr) ::munmap(data_, wholePages(bytes_));
}

TransferBuffer::TransferBuffer(TransferBuffer&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), bytes_(std::exchange(other.bytes_, 0)) {}

TransferBuffer& TransferBuffer::operator=(TransferBuffer&& other) noexcept {
  std::swap(data_, other.data_);
  std::swap(bytes_, other.bytes_);
  return *this;
}

}  // namespace tallowin
