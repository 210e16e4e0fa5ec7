#include "ptable/gpt/gpt_types.h"

#include <algorithm>
#include <array>

#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

struct Row {
  std::string_view text;
  const char* name;
};

// In the order in which a chooser offers them.
constexpr std::array<Row, 49> kRows = {{
    {"{00000000-0000-0000-0000-000000000000}", "Unused"},
    {"{024DEE41-33E7-11D3-9D69-0008C781F39F}", "MBR Reserved Area"},
    {"{C12A7328-F81F-11D2-BA4B-00A0C93EC93B}", "EFI System"},
    {"{21686148-6449-6E6F-744E-656564454649}", "BIOS Boot"},
    {"{E3C9E316-0B5C-4DB8-817D-F92DF00215AE}", "Microsoft Reserved"},
    {"{EBD0A0A2-B9E5-4433-87C0-68B6B72699C7}", "Normal Data"},
    {"{5808C8AA-7E8F-42E0-85D2-E1E90434CFB3}", "Microsoft LDM Metadata"},
    {"{AF9B60A0-1431-4F62-BC68-3311714A69AD}", "Microsoft LDM Data"},
    {"{DE94BBA4-06D1-4D40-A16A-BFD50179D6AC}", "Microsoft Recovery"},
    {"{75894C1E-3AEB-11D3-B7C1-7B03A0000000}", "HP-UX Data"},
    {"{E2A1E728-32E3-11D6-A682-7B03A0000000}", "HP-UX Service"},
    {"{0FC63DAF-8483-4772-8E79-3D69D8477DE4}", "Linux Data"},
    {"{A19D880F-05FC-4D3B-A006-743F0F84911E}", "Linux RAID"},
    {"{0657FD6D-A4AB-43C4-84E5-0933C84B4F4F}", "Linux Swap"},
    {"{E6D6D379-F507-44C2-A23C-238F2A3DF928}", "Linux LVM"},
    {"{8DA63339-0007-60C0-C436-083AC8230908}", "Linux Reserved"},
    {"{83BD6B9D-7F41-11DC-BE0B-001560B84F0F}", "FreeBSD Boot"},
    {"{516E7CB4-6ECF-11D6-8FF8-00022D09712B}", "FreeBSD Data"},
    {"{516E7CB5-6ECF-11D6-8FF8-00022D09712B}", "FreeBSD Swap"},
    {"{516E7CB6-6ECF-11D6-8FF8-00022D09712B}", "FreeBSD UFS"},
    {"{516E7CB8-6ECF-11D6-8FF8-00022D09712B}", "FreeBSD Vinum Vol Manager"},
    {"{516E7CBA-6ECF-11D6-8FF8-00022D09712B}", "FreeBSD ZFS"},
    {"{48465300-0000-11AA-AA11-00306543ECAC}", "Apple HFS+"},
    {"{55465300-0000-11AA-AA11-00306543ECAC}", "Apple UFS"},
    {"{6A898CC3-1DD2-11B2-99A6-080020736631}", "Apple ZFS or Solaris /usr"},
    {"{52414944-0000-11AA-AA11-00306543ECAC}", "Apple RAID"},
    {"{52414944-5F4F-11AA-AA11-00306543ECAC}", "Apple RAID (offline)"},
    {"{426F6F74-0000-11AA-AA11-00306543ECAC}", "Apple Boot"},
    {"{4C616265-6C00-11AA-AA11-00306543ECAC}", "Apple Label"},
    {"{5265636F-7665-11AA-AA11-00306543ECAC}", "Apple TV Recovery"},
    {"{6A82CB45-1DD2-11B2-99A6-080020736631}", "Solaris Boot"},
    {"{6A85CF4D-1DD2-11B2-99A6-080020736631}", "Solaris /"},
    {"{6A87C46F-1DD2-11B2-99A6-080020736631}", "Solaris Swap"},
    {"{6A8B642B-1DD2-11B2-99A6-080020736631}", "Solaris Backup"},
    {"{6A8EF2E9-1DD2-11B2-99A6-080020736631}", "Solaris /var"},
    {"{6A90BA39-1DD2-11B2-99A6-080020736631}", "Solaris /home"},
    {"{6A9283A5-1DD2-11B2-99A6-080020736631}", "Solaris Alternate"},
    {"{6A945A3B-1DD2-11B2-99A6-080020736631}", "Solaris Reserved"},
    {"{6A9630D1-1DD2-11B2-99A6-080020736631}", "Solaris Reserved"},
    {"{6A980767-1DD2-11B2-99A6-080020736631}", "Solaris Reserved"},
    {"{6A96237F-1DD2-11B2-99A6-080020736631}", "Solaris Reserved"},
    {"{6A8D2AC7-1DD2-11B2-99A6-080020736631}", "Solaris Reserved"},
    {"{49F48D32-B10E-11DC-B99B-0019D1879648}", "NetBSD Swap"},
    {"{49F48D5A-B10E-11DC-B99B-0019D1879648}", "NetBSD FFS"},
    {"{49F48D82-B10E-11DC-B99B-0019D1879648}", "NetBSD LFS"},
    {"{49F48DAA-B10E-11DC-B99B-0019D1879648}", "NetBSD RAID"},
    {"{2DB519C4-B10F-11DC-B99B-0019D1879648}", "NetBSD Concatented"},
    {"{2DB519EC-B10F-11DC-B99B-0019D1879648}", "NetBSD Encrypted"},
    {"{D3BFE2DE-3DAF-11DF-BA40-E3A556D89593}", "Intel RST Store"},
}};

std::vector<GptType> makeTypes() {
  std::vector<GptType> types;
  for (const Row& row : kRows) {
    GptType type{.guid = {}, .name = row.name};
    if (parseGuid(row.text, type.guid)) types.push_back(type);
  }
  return types;
}

struct SameType {
  Guid guid;
  u16 type;
};

constexpr std::array<SameType, 8> kSameTypes = {{
    {kGptEfiSystem, types::kEfiSystem},
    {kGptRecovery, types::kWindowsRecovery},
    {kGptLinux, types::kLinux},
    {kGptLinuxSwap, types::kLinuxSwap},
    {kGptLinuxLvm, types::kLinuxLvm},
    {kGptLinuxRaid, types::kLinuxRaid},
    {kGptHfsPlus, types::kHfsPlus},
    {kGptIntelRst, types::kHibernation},
}};

}  // namespace

Guid gptTypeFor(u16 type) {
  const auto same = std::ranges::find(kSameTypes, type, &SameType::type);
  return same != kSameTypes.end() ? same->guid : kGptBasicData;
}

u8 mbrTypeFor(const Guid& guid, u16 content) {
  const auto same = std::ranges::find(kSameTypes, guid, &SameType::guid);
  if (same != kSameTypes.end()) return static_cast<u8>(same->type);
  if (types::isForPartitions(content)) return static_cast<u8>(content);
  return static_cast<u8>(guid == kGptBasicData ? types::kNtfs : types::kOtherData);
}

const std::vector<GptType>& gptTypes() {
  static const std::vector<GptType> types = makeTypes();
  return types;
}

const char* gptTypeName(const Guid& guid) {
  const auto& types = gptTypes();
  const auto found = std::ranges::find(types, guid, &GptType::guid);
  return found == types.end() ? nullptr : found->name;
}

}  // namespace tallowin
