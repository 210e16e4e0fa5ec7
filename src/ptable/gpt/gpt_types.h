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
