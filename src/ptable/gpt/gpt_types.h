// The partition types of a GUID Partition Table, and their names.
#pragma once

#include <vector>

#include "base/guid.h"

namespace tallowin {

struct GptType {
  Guid guid;
  const char* name;
};

// In the order in which a chooser offers them; the first is "Unused".
const std::vector<GptType>& gptTypes();
// Null for a type that is not in the list.
const char* gptTypeName(const Guid& guid);

// What of the types of an MBR says the same as a type of a GPT, and the other way round.
// Basic data for a type byte that has no GUID of its own.
Guid gptTypeFor(u16 type);
// `content` is the type by what the partition holds, kGptEntry when that is not known: it decides
// where the GUID says no more than "data".
u8 mbrTypeFor(const Guid& guid, u16 content);

// "{C12A7328-...}" at compile time, for the types that the program itself acts on.
consteval Guid guidLiteral(const char (&text)[39]) {
  constexpr std::array<u8, 16> kTextAt = {7,  5,  3,  1,  12, 10, 17, 15,
                                          20, 22, 25, 27, 29, 31, 33, 35};
  const auto digit = [](char c) { return static_cast<u8>(c <= '9' ? c - '0' : c - 'A' + 10); };
  Guid guid;
  for (std::size_t i = 0; i < guid.bytes.size(); ++i)
    guid.bytes[i] = static_cast<u8>(digit(text[kTextAt[i]]) << 4 | digit(text[kTextAt[i] + 1]));
  return guid;
}

inline constexpr Guid kGptEfiSystem = guidLiteral("{C12A7328-F81F-11D2-BA4B-00A0C93EC93B}");
inline constexpr Guid kGptBiosBoot = guidLiteral("{21686148-6449-6E6F-744E-656564454649}");
inline constexpr Guid kGptMsReserved = guidLiteral("{E3C9E316-0B5C-4DB8-817D-F92DF00215AE}");
inline constexpr Guid kGptBasicData = guidLiteral("{EBD0A0A2-B9E5-4433-87C0-68B6B72699C7}");
inline constexpr Guid kGptRecovery = guidLiteral("{DE94BBA4-06D1-4D40-A16A-BFD50179D6AC}");
inline constexpr Guid kGptLinux = guidLiteral("{0FC63DAF-8483-4772-8E79-3D69D8477DE4}");
inline constexpr Guid kGptLinuxRaid = guidLiteral("{A19D880F-05FC-4D3B-A006-743F0F84911E}");
inline constexpr Guid kGptLinuxSwap = guidLiteral("{0657FD6D-A4AB-43C4-84E5-0933C84B4F4F}");
inline constexpr Guid kGptLinuxLvm = guidLiteral("{E6D6D379-F507-44C2-A23C-238F2A3DF928}");
inline constexpr Guid kGptIntelRst = guidLiteral("{D3BFE2DE-3DAF-11DF-BA40-E3A556D89593}");

enum GptAttribute : u8 {
  kGptRequired = 0,
  kGptNoBlockIo = 1,
  kGptLegacyBootable = 2,
  kGptReadOnly = 60,
  kGptShadowCopy = 61,
  kGptHidden = 62,
  kGptNoMount = 63,
};

}  // namespace tallowin
