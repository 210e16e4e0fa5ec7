#include "fat/boot_code.h"

#include <algorithm>
#include <string_view>

#include "base/bytes.h"

namespace tallowin {
namespace {

constexpr std::size_t kSectorBytes = 512;

// Whether `text` begins at one of the offsets first..last.
bool hasText(std::span<const u8> sector, std::string_view text, std::size_t first,
             std::size_t last) {
  const std::string_view bytes(reinterpret_cast<const char*>(sector.data()), kSectorBytes);
  const std::size_t at = bytes.find(text, first);
  return at != std::string_view::npos && at <= last;
}

// The code of these loaders is told apart by what stands in the middle of the sector.
u16 wordAt(std::span<const u8> sector, std::size_t offset) {
  return *recordAt<Le16>(sector, offset);
}
u32 middleDword(std::span<const u8> sector) { return *recordAt<Le32>(sector, 256); }

template <typename Value>
bool isOneOf(Value value, std::initializer_list<Value> values) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

}  // namespace

bool hasNtldrCode(std::span<const u8> sector) {
  return sector.size() >= kSectorBytes && hasText(sector, "NTLDR", 0, 506) &&
         isOneOf<u16>(wordAt(sector, 256), {0x003B, 0xBB41, 0x42B4});
}

BootmgrCode bootmgrCode(std::span<const u8> sector) {
  if (sector.size() < kSectorBytes || !hasText(sector, "BOOTMGR", 0, 504)) return BootmgrCode::none;
  const u16 middle = wordAt(sector, 256);
  if (!isOneOf<u16>(middle, {0x1655, 0xB868, 0x003B, 0x0002})) return BootmgrCode::none;
  if (middle == 0x1655 && wordAt(sector, 272) == 0x1028) return BootmgrCode::variant3;
  if (middle == 0x1655 && wordAt(sector, 272) == 0x130A) return BootmgrCode::variant4;
  return BootmgrCode::plain;
}

bool hasDosCode(std::span<const u8> sector) {
  return sector.size() >= kSectorBytes && hasText(sector, "IO      SYS", 0, 500) &&
         middleDword(sector) == 0xEFEB10CD;
}

bool hasWindows9xCode(std::span<const u8> sector) {
  if (sector.size() < kSectorBytes) return false;
  if (hasText(sector, "WINBOOT SYS", 64, 500)) return true;
  return hasText(sector, "IO      SYS", 64, 500) &&
         isOneOf<u32>(middleDword(sector), {0xBE02FDE9, 0xEEEB10CD, 0xEB7D81BE});
}

bool hasNtStyleCode(std::span<const u8> sector) {
  return hasNtldrCode(sector) || bootmgrCode(sector) != BootmgrCode::none;
}

}  // namespace tallowin
