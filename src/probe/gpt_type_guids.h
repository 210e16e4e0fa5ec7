// The partition types of a GPT that the program itself acts on.
#pragma once

#include "base/guid.h"

namespace tallowin {

inline constexpr Guid kGptEfiSystem = guidLiteral("{C12A7328-F81F-11D2-BA4B-00A0C93EC93B}");
inline constexpr Guid kGptBiosBoot = guidLiteral("{21686148-6449-6E6F-744E-656564454649}");
inline constexpr Guid kGptMsReserved = guidLiteral("{E3C9E316-0B5C-4DB8-817D-F92DF00215AE}");
inline constexpr Guid kGptBasicData = guidLiteral("{EBD0A0A2-B9E5-4433-87C0-68B6B72699C7}");
inline constexpr Guid kGptRecovery = guidLiteral("{DE94BBA4-06D1-4D40-A16A-BFD50179D6AC}");
inline constexpr Guid kGptLinux = guidLiteral("{0FC63DAF-8483-4772-8E79-3D69D8477DE4}");
inline constexpr Guid kGptLinuxRaid = guidLiteral("{A19D880F-05FC-4D3B-A006-743F0F84911E}");
inline constexpr Guid kGptLinuxSwap = guidLiteral("{0657FD6D-A4AB-43C4-84E5-0933C84B4F4F}");
inline constexpr Guid kGptHfsPlus = guidLiteral("{48465300-0000-11AA-AA11-00306543ECAC}");
inline constexpr Guid kGptLinuxLvm = guidLiteral("{E6D6D379-F507-44C2-A23C-238F2A3DF928}");
inline constexpr Guid kGptIntelRst = guidLiteral("{D3BFE2DE-3DAF-11DF-BA40-E3A556D89593}");

}  // namespace tallowin
