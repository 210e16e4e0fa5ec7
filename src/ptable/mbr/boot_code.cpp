#include "ptable/mbr/boot_code.h"

#include <algorithm>

// Assembled from boot/*.S.
extern "C" {
extern const tallowin::u8 tallowinStandardBootCode[tallowin::kBootCodeBytes];
extern const tallowin::u8 tallowinMeasuringBootCode[tallowin::kBootCodeBytes];
}

namespace tallowin {

std::span<const u8, kBootCodeBytes> bootCodeBytes(BootCode code) {
  return std::span<const u8, kBootCodeBytes>(
      code == BootCode::standard ? tallowinStandardBootCode : tallowinMeasuringBootCode,
      kBootCodeBytes);
}

void installBootCode(BootCode code, MbrRecord& mbr) {
  std::ranges::copy(bootCodeBytes(code), mbr.bootCode.begin());
  mbr.signature.set();
}

}  // namespace tallowin
