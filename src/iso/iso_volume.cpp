#include "iso/iso_volume.h"

#include <algorithm>
#include <vector>

#include "base/text.h"
#include "fs/names.h"

namespace tallowin {
namespace {

constexpr u32 kSerialWords = 348;
constexpr std::string_view kJolietEscapes[] = {"%/@", "%/C", "%/E"};
// Volumes of one maker have their end in the sector behind the start.
constexpr std::string_view kOwnEndSystem = "VLM   ";
constexpr std::size_t kOwnEndOffset = 1024;

bool isJoliet(const IsoVolumeDescriptor& descriptor) {
  const std::string_view escapes(descriptor.escapeSequences, sizeof(descriptor.escapeSequences));
  for (const std::string_view wanted : kJolietEscapes)
    if (escapes.starts_with(wanted)) return true;
  return false;
}

std::string labelOf(const IsoVolumeDescriptor& descriptor, bool asJoliet) {
  const auto* bytes = reinterpret_cast<const u8*>(descriptor.volumeIdentifier);
  const std::u16string units = isoNameOf({bytes, sizeof(descriptor.volumeIdentifier)}, asJoliet);
  return std::string(trimRight(utf8Of(units)));
}

u32 serialOf(std::span<const u8> sector) {
  u32 sum = 0;
  for (u32 i = 0; i < kSerialWords; ++i) sum += *recordAt<Le32>(sector, std::size_t{i} * 4);
  return sum;
}

void takeDescriptor(std::span<const u8> sector, IsoVolume& volume, bool& hasRoot) {
  const auto& descriptor = *recordAt<IsoVolumeDescriptor>(sector);
  const bool asJoliet = descriptor.type == kIsoSupplementary && isJoliet(descriptor);
  const bool isFirstPrimary = descriptor.type == kIsoPrimary && !volume.isJoliet && !hasRoot;
  if (!asJoliet && !isFirstPrimary) return;
  if (isFirstPrimary) volume.serial = serialOf(sector);
  volume.root = {descriptor.root.extent.value, descriptor.root.dataLength.value};
  volume.usedSectors = descriptor.volumeSectors.value;
  volume.isJoliet = asJoliet;
  volume.label = labelOf(descriptor, asJoliet);
  hasRoot = true;
}

// Where the last session begins, and what can be read of the disc. Behind a track that was written
// in one go lie two sectors that cannot.
u32 takeTrack(IsoVolume& volume) {
  const SectorRange& range = volume.range;
  const std::optional<DataTrack> track = range.disk.lastDataTrack();
  if (!track || range.firstSector != 0 || track->firstSector >= volume.sectors) return 0;
  constexpr u64 kRunOutSectors = 2;
  volume.sectors = std::min(volume.sectors, track->endSector + 1);
  std::vector<u8> last(kIsoSectorBytes);
  if (volume.readSectors(volume.sectors - 1, last))
    volume.sectors -= std::min(volume.sectors, kRunOutSectors);
  return static_cast<u32>(track->firstSector);
}

// What the volume says of its end is believed where it is less than what there is.
Failure takeOwnEnd(std::span<const u8> primary, u32 session, IsoVolume& volume) {
  const auto& descriptor = *recordAt<IsoVolumeDescriptor>(primary);
  if (!textAt(primary, offsetof(IsoVolumeDescriptor, systemIdentifier), kOwnEndSystem) ||
      descriptor.type != kIsoPrimary)
    return {};
  std::vector<u8> sector(kIsoSectorBytes);
  if (const Failure failed = volume.readSectors(u64{session} + 1, sector)) return failed;
  const u32 last = *recordAt<Le32>(std::span<const u8>(sector), kOwnEndOffset);
  if (last != 0) volume.sectors = std::min<u64>(volume.sectors, u64{last} + 1);
  return {};
}

}  // namespace

Failure IsoVolume::readSectors(u64 sector, std::span<u8> bytes) const {
  const u64 count = bytes.size() / kIsoSectorBytes;
  if (sector > sectors || count > sectors - sector) return Error::corrupt;
  const u64 own = kIsoSectorBytes / range.disk.sectorSize();
  return range.disk.readSectors(range.firstSector + sector * own, bytes.data(), count * own);
}

Failure openIso(const SectorRange& range, std::optional<IsoVolume>& volume) {
  const u32 own = range.disk.sectorSize();
  if (own > kIsoSectorBytes || kIsoSectorBytes % own != 0) return Error::invalidVolume;
  IsoVolume found{.range = range, .sectors = range.sectorCount / (kIsoSectorBytes / own)};
  const u32 session = takeTrack(found);
  const u32 first = session + kIsoFirstDescriptor;
  bool hasRoot = false;
  std::vector<u8> sector(kIsoSectorBytes);
  std::vector<u8> primary;
  for (u32 at = first; at < first + kIsoMostDescriptors && at < found.sectors; ++at) {
    if (const Failure failed = found.readSectors(at, sector)) return failed;
    if (!textAt(sector, offsetof(IsoVolumeDescriptor, identifier), "CD001") ||
        sector[0] == kIsoLastDescriptor)
      break;
    if (sector[0] == kIsoPrimary && primary.empty()) primary = sector;
    takeDescriptor(sector, found, hasRoot);
  }
  if (!hasRoot) return Error::invalidVolume;
  if (!primary.empty())
    if (const Failure failed = takeOwnEnd(primary, session, found)) return failed;
  if (!found.isInside(found.root)) return Error::invalidVolume;
  volume.emplace(std::move(found));
  return {};
}

std::u16string isoNameOf(std::span<const u8> bytes, bool isJoliet) {
  std::u16string name;
  const std::size_t width = isJoliet ? 2 : 1;
  for (std::size_t at = 0; at + width <= bytes.size(); at += width) {
    const auto unit = static_cast<char16_t>(isJoliet ? bytes[at] << 8 | bytes[at + 1] : bytes[at]);
    if (unit == u';' || unit == 0) break;
    name += unit;
  }
  if (name.size() > 1 && name.back() == u'.') name.pop_back();
  return name;
}

}  // namespace tallowin
