#include "ops/property_lines.h"

#include "base/text.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

const char* noun(const PropertyFacts& facts) { return facts.isVolume ? "Volume" : "Partition"; }

bool isFat16Type(u16 type) { return types::isFat(type) && !types::isFat32(type); }

std::string extendedWarning(u16 lastVolumeType) {
  constexpr const char* kWarning = "Last volume should be visible FAT";
  switch (lastVolumeType) {
    case 0x0B:
    case 0x0C:
    case 0x0E:
      return format("%s%s: %s%s", "DOS ", "Warning", kWarning, "");
    case 0x01:
    case 0x04:
    case 0x06:
      return {};
    default:
      return format("%s%s: %s%s", "", "Warning", kWarning, "/FAT32");
  }
}

std::string bootLine(const PropertyFacts& facts) {
  const std::string bootable = "Bootable: ";
  if (facts.lastVolumeType) return bootable + extendedWarning(*facts.lastVolumeType);
  if (!types::isFat(facts.type) && !types::isNtfs(facts.type))
    return bootable + (facts.boot.hasSignature() ? "Yes" : "No");
  switch (facts.boot.kind()) {
    case BootSectorKind::none:
      return bootable + "Yes";
    case BootSectorKind::ntfs:
      return bootable + "NTFS";
    case BootSectorKind::fat16:
    case BootSectorKind::fat32:
    case BootSectorKind::hpfs:
      break;
  }
  return bootable + facts.boot.typeText() + "  Label: " + facts.boot.label();
}

std::string sizeLine(const PropertyFacts& facts) {
  const u64 total = facts.boot.sectorCount();
  const u64 length = facts.endSector + 1 - facts.startSector;
  u64 end = 0;
  switch (facts.boot.kind()) {
    case BootSectorKind::fat16:
    case BootSectorKind::fat32:
      if (total == length) return {};
      end = facts.startSector + total - 1;
      break;
    case BootSectorKind::ntfs:
      if (total == length || total == length - 1) return {};
      end = facts.startSector + total;
      break;
    case BootSectorKind::hpfs:
    case BootSectorKind::none:
      return {};
  }
  return format("*Warning* File system ends at LBA %llu", static_cast<unsigned long long>(end));
}

std::string clusterLine(const PropertyFacts& facts) {
  const BootSectorKind kind = facts.boot.kind();
  if (kind == BootSectorKind::none || kind == BootSectorKind::ntfs) return {};
  constexpr u32 kNtOnly = 128;
  const bool isNtOnly = kind != BootSectorKind::hpfs && facts.boot.sectorsPerCluster() == kNtOnly;
  return format("%s %u %s", "Cluster size", facts.boot.clusterBytes(), "byte(s)") +
         (isNtOnly ? " - Win NT+ Only!" : "");
}

std::string notAccessible(const PropertyFacts& facts, const char* how, const char* systems) {
  return format("This %s is not%saccessible by %s", noun(facts), how, systems);
}

// Old systems reach a disk by CHS addresses.
std::string reachLine(const PropertyFacts& facts) {
  constexpr u16 kFat16Lba = 0x0E;
  const bool endsBeyond = facts.endSector > facts.lastChsSector;
  const bool startsWithin = facts.startSector <= facts.lastChsSector;
  const u16 type = facts.type;
  if (type == types::kExtendedLba) return notAccessible(facts, " ", "DOS.");
  if (type == types::kEfiSystem || type == 0xDF) return {};
  if (types::isFat32(type)) return notAccessible(facts, " ", "Win95a, \nDOS, WinNT, or OS/2.");
  if (!isFat16Type(type)) return {};
  if (endsBeyond)
    return notAccessible(facts, startsWithin && type != kFat16Lba ? " fully " : " ", "DOS.");
  return type == kFat16Lba ? notAccessible(facts, " ", "DOS.") : std::string();
}

std::string bootReachLine(const PropertyFacts& facts) {
  constexpr u64 kReachedTracks = 65536;
  const bool endsBeyond = facts.endSector > facts.lastChsSector;
  const bool startsWithin = facts.startSector <= facts.lastChsSector;
  const auto boot = [&](const char* systems) {
    return format("This %s %s boot \n%s", noun(facts), startsWithin ? "may not" : "will not",
                  systems);
  };
  if (endsBeyond && !facts.isVolume) {
    if (facts.boot.kind() == BootSectorKind::fat16) return boot("DOS, WinNT, or OS/2.");
    if (facts.boot.kind() == BootSectorKind::ntfs) return boot("WinNT.");
    if (facts.boot.kind() == BootSectorKind::hpfs) return boot("WinNT or OS/2.");
  }
  if (facts.endSector >= facts.sectorsPerTrack * kReachedTracks &&
      facts.boot.kind() == BootSectorKind::none)
    return format(
        "The location of this %s will prevent some\noperating systems from booting from it.",
        noun(facts));
  return {};
}

std::string typeLine(const PropertyFacts& facts) {
  if (facts.isGpt) return {};
  if (facts.typeForEnd != facts.type)
    return format("%s %u", "*WARNING* The file system id should be", facts.typeForEnd);
  if (!facts.fitsType) return format("The file system id is invalid for this size %s", noun(facts));
  return {};
}

}  // namespace

std::vector<std::string> propertyLines(const PropertyFacts& facts) {
  std::vector<std::string> lines;
  for (std::string line :
       {bootLine(facts), sizeLine(facts), clusterLine(facts),
        std::string(facts.isHibernated ? "Hibernated" : ""), reachLine(facts), bootReachLine(facts),
        typeLine(facts),
        std::string(facts.holdsBootManager && !facts.isVolume ? "This partition contains Strandel."
                                                              : "")})
    if (!line.empty()) lines.push_back(std::move(line));
  return lines;
}

}  // namespace tallowin
