// The byte layer of every on-disk format: endian field types for records, and bounded reads.
#pragma once

#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>

#include "base/types.h"

namespace tallowin {

enum class ByteOrder { little, big };

// An integer as it lies on the disk. Alignment 1, so that a record of such fields needs no
// packing and may lie at any address; it converts to and from the native integer by shifts.
template <typename Integer, ByteOrder kOrder>
class EndianField {
 public:
  constexpr EndianField() = default;
  constexpr EndianField(Integer value) { store(value); }  // NOLINT(google-explicit-constructor)
  constexpr EndianField& operator=(Integer value) {
    store(value);
    return *this;
  }
  constexpr operator Integer() const {  // NOLINT(google-explicit-constructor)
    std::make_unsigned_t<Integer> value = 0;
    for (std::size_t i = 0; i < sizeof(Integer); ++i) {
      const std::size_t at = kOrder == ByteOrder::big ? i : sizeof(Integer) - 1 - i;
      value = static_cast<std::make_unsigned_t<Integer>>((u64{value} << 8) | bytes_[at]);
    }
    return static_cast<Integer>(value);
  }

 private:
  constexpr void store(Integer value) {
    u64 rest = static_cast<std::make_unsigned_t<Integer>>(value);
    for (std::size_t i = 0; i < sizeof(Integer); ++i, rest >>= 8)
      bytes_[kOrder == ByteOrder::little ? i : sizeof(Integer) - 1 - i] = static_cast<u8>(rest);
  }

  u8 bytes_[sizeof(Integer)] = {};
};

using Le16 = EndianField<u16, ByteOrder::little>;
using Le32 = EndianField<u32, ByteOrder::little>;
using Le64 = EndianField<u64, ByteOrder::little>;
using Be16 = EndianField<u16, ByteOrder::big>;
using Be32 = EndianField<u32, ByteOrder::big>;
using Be64 = EndianField<u64, ByteOrder::big>;
static_assert(sizeof(Le64) == 8 && alignof(Le64) == 1 && sizeof(Be16) == 2);

// A record type that may be read straight from a buffer at any offset.
template <typename T>
concept DiskRecord = std::is_trivially_copyable_v<T> && alignof(T) == 1;

// The record at `offset`, or null when the buffer is too short for it.
template <DiskRecord Record>
const Record* recordAt(std::span<const u8> buffer, std::size_t offset = 0) {
  if (offset > buffer.size() || sizeof(Record) > buffer.size() - offset) return nullptr;
  return reinterpret_cast<const Record*>(buffer.data() + offset);
}

template <DiskRecord Record>
Record* recordAt(std::span<u8> buffer, std::size_t offset = 0) {
  return const_cast<Record*>(recordAt<Record>(std::span<const u8>(buffer), offset));
}

// Whether `text` stands at `offset`; false when it would pass the end.
inline bool textAt(std::span<const u8> buffer, std::size_t offset, std::string_view text) {
  return offset <= buffer.size() && text.size() <= buffer.size() - offset &&
         std::memcmp(buffer.data() + offset, text.data(), text.size()) == 0;
}

inline bool isAllZero(std::span<const u8> bytes) {
  // Compares the bytes with themselves one further on.
  return bytes.empty() ||
         (bytes[0] == 0 && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

template <DiskRecord Record>
std::span<const u8> bytesOf(const Record& record) {
  return {reinterpret_cast<const u8*>(&record), sizeof(Record)};
}

}  // namespace tallowin
