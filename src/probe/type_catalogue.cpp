#include "probe/type_catalogue.h"

#include <algorithm>
#include <array>

#include "base/text.h"

namespace tallowin::PartitionTypeCatalogue {
namespace {

struct NamedType {
  u16 type;
  const char* name;
};

// Sorted by type.
constexpr NamedType kNames[] = {
    {0, "Free Space"},
    {1, "FAT-12"},
    {2, "XENIX"},
    {3, "XENIX"},
    {4, "FAT-16 (0-32MB)"},
    {5, "Extended"},
    {6, "FAT-16"},
    {7, "NTFS/exFAT/HPFS/+"},
    {8, "AIX Boot"},
    {9, "AIX Data/Coherent"},
    {10, "OS/2 BM"},
    {11, "FAT-32"},
    {12, "FAT-32"},
    {14, "FAT-16"},
    {15, "Extended"},
    {16, "OPUS"},
    {17, "Hidden FAT-12"},
    {18, "Compaq Config"},
    {20, "Hidden FAT-16"},
    {21, "Hidden Extended"},
    {22, "Hidden FAT-16"},
    {23, "Hidden NTFS/exFAT/+"},
    {24, "AST Swap"},
    {27, "Hidden FAT-32"},
    {28, "Hidden FAT-32"},
    {30, "Hidden FAT-16"},
    {31, "Hidden Extended"},
    {32, "OFS1"},
    {33, "FSo2"},
    {34, "FSo2"},
    {36, "NEC DOS"},
    {39, "Windows RE"},
    {53, "OS/2 JFS"},
    {56, "THEOS"},
    {57, "Plan 9"},
    {58, "THEOS"},
    {59, "THEOS"},
    {60, "PM Recovery"},
    {65, "MINUX"},
    {66, "Dynamic"},
    {68, "GoBack"},
    {69, "MS SCTPP"},
    {77, "QNX 4.x"},
    {78, "QNX 4.x"},
    {79, "QNX 4.x"},
    {80, "Drive Manager"},
    {81, "Drive Manager"},
    {82, "CPM"},
    {83, "Drive Manager"},
    {84, "Drive Manager"},
    {85, "EZ-Drive"},
    {86, "EZ-Drive"},
    {87, "Drive Pro"},
    {92, "Priam EDisk"},
    {97, "SpeedStor"},
    {99, "UNIX"},
    {100, "Netware 286"},
    {101, "Netware 386+"},
    {117, "PC/IX"},
    {130, "Linux Swap/Solaris"},
    {131, "Linux Native"},
    {132, "Hibernation"},
    {133, "Linux Extended"},
    {134, "NT Volume Set"},
    {135, "NT Volume Set"},
    {142, "Linux LVM"},
    {147, "Amoeba"},
    {148, "Amoeba BBT"},
    {159, "BSDI"},
    {160, "Hibernation"},
    {165, "xBSD"},
    {166, "OpenBSD"},
    {167, "NEXTSTEP"},
    {169, "xBSD"},
    {175, "OS X"},
    {183, "BSDI/386"},
    {185, "BSDI/386 Swap"},
    {190, "Solaris Boot"},
    {191, "Solaris 10+"},
    {193, "DRDOS/Secure"},
    {196, "DRDOS/Secure"},
    {198, "DRDOS/Secure"},
    {208, "REAL/32"},
    {215, "QuickPlay"},
    {216, "CPM"},
    {218, "Image"},
    {219, "CC DOS/Dell Restore"},
    {222, "Dell Utility"},
    {223, "Strandel EMBRM"},
    {235, "BeOS"},
    {237, "Hidden"},
    {238, "GPT Reserved"},
    {239, "EFI System"},
    {244, "Prologue"},
    {245, "Prologue"},
    {253, "Linux RAID"},
    {254, "PS/2 IML"},
    {255, "XENIX BBT"},
    {256, "No Type"},
    {387, "GPT Entry"},
};
static_assert(std::is_sorted(std::begin(kNames), std::end(kNames),
                             [](const NamedType& a, const NamedType& b) {
                               return a.type < b.type;
                             }));

constexpr u16 kHiddenOffset = 0x10;

constexpr std::array<u16, 9> kHasHiddenForm = {0x01, 0x04, 0x05, 0x06, 0x07,
                                               0x0B, 0x0C, 0x0E, 0x0F};
constexpr std::array<u16, 7> kHideableData = {0x01, 0x04, 0x06, 0x07, 0x0B, 0x0C, 0x0E};
constexpr std::array<u16, 10> kFatFamily = {0x01, 0x04, 0x06, 0x0B, 0x0C,
                                            0x0E, 0x12, 0xDE, 0xDF, kEfiSystem};

template <std::size_t kCount>
bool contains(const std::array<u16, kCount>& types, u16 type) {
  return std::find(types.begin(), types.end(), type) != types.end();
}

bool hasHiddenByte(u16 type) {
  return type >= kHiddenOffset && contains(kHasHiddenForm, static_cast<u16>(type - kHiddenOffset));
}

const NamedType* find(u16 type) {
  const auto* found =
      std::lower_bound(std::begin(kNames), std::end(kNames), type,
                       [](const NamedType& named, u16 wanted) { return named.type < wanted; });
  return found != std::end(kNames) && found->type == type ? found : nullptr;
}

}  // namespace

std::string name(u16 type) {
  const NamedType* named = find(type);
  return named != nullptr ? named->name : format("Type %Xh/%i", type, type);
}

bool isForPartitions(u16 type) {
  return type != kFree && type <= 0xFF && type != kGptReserved && type != kHidden;
}

bool hasName(u16 type) { return find(type) != nullptr; }

u16 unhide(u16 type) { return hasHiddenByte(type) ? static_cast<u16>(type - kHiddenOffset) : type; }

u16 hide(u16 type) {
  if (hasHiddenByte(type)) return type;
  return contains(kHasHiddenForm, type) ? static_cast<u16>(type + kHiddenOffset) : kHidden;
}

bool isHidden(u16 type) { return hasHiddenByte(type) || type == kHidden; }

bool isHideableData(u16 type) { return contains(kHideableData, type); }

bool isChainLink(u16 type) {
  constexpr u16 kLinuxExtended = 0x85;
  return type == kExtended || type == kExtendedLba || type == kLinuxExtended;
}

bool isExtended(u16 type) { return isChainLink(unhide(type)); }

bool isFat(u16 type) { return contains(kFatFamily, unhide(type)); }

bool isFat32(u16 type) {
  const u16 shown = unhide(type);
  return shown == 0x0B || shown == 0x0C || shown == kEfiSystem;
}

bool isNtfs(u16 type) {
  constexpr u16 kRecoveryBit = 0x20;
  return (unhide(type) & ~kRecoveryBit) == kNtfs;
}

u32 maxFatSizeMiB(u16 type, u64 unitBytes, FatLimit limit) {
  constexpr u32 kLargestMiB = 0x1FFFFF;
  const auto limitOf = [limit](u16 shown) -> u32 {
    switch (shown) {
      case 0x01:
        return 16;
      case 0x04:
        return 32;
      case 0x06:
      case 0x0E:
      case 0xDF:
        return 4096;
      case 0x0B:
      case 0x0C:
        return kLargestMiB;
      case 0xDE:
      case 0x12:
        return limit == FatLimit::large ? kLargestMiB : 4096;
      default:
        return kNoSizeLimit;
    }
  };
  const u32 mib = limitOf(unhide(type));
  const bool wholeUnits = unitBytes != 0 && kMiB % unitBytes == 0;
  return mib != kNoSizeLimit && wholeUnits ? mib - 1 : mib;
}

}  // namespace tallowin::PartitionTypeCatalogue
