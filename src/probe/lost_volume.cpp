#include "probe/lost_volume.h"

#include <algorithm>

#include "probe/volume_forms.h"

namespace tallowin {
namespace {

// Calls visit(form) for all of them.
template <typename Visit>
void forEachForm(Visit visit) {
  for (const auto forms : {bootSectorForms(), superblockForms(), containerForms()})
    for (const VolumeForm& form : forms) visit(form);
}

}  // namespace

bool SuspectedVolume::read(u64 offset, std::span<u8> bytes) {
  const u64 first = offset / sectorSize();
  const u64 inFirst = offset % sectorSize();
  const u64 count = (inFirst + bytes.size() + sectorSize() - 1) / sectorSize();
  if (startSector_ >= diskSectors_ || first >= diskSectors_ - startSector_ ||
      count > diskSectors_ - startSector_ - first)
    return false;
  sectors_.resize(count * sectorSize());
  if (disk_.readSectors(startSector_ + first, sectors_.data(), count)) return false;
  std::copy_n(sectors_.begin() + static_cast<std::ptrdiff_t>(inFirst), bytes.size(), bytes.begin());
  return true;
}

bool SuspectedVolume::hasText(u64 offset, std::string_view text) {
  std::vector<u8> found(text.size());
  return read(offset, found) && textAt(found, 0, text);
}

u64 SuspectedVolume::sectorsOf(u64 count, u64 unitBytes) const {
  const u64 sectorBytes = sectorSize();
  if (unitBytes == 0 || count > kAllOnes64 / unitBytes) return kAllOnes64;
  const u64 bytes = count * unitBytes;
  return bytes / sectorBytes + (bytes % sectorBytes != 0 ? 1 : 0);
}

VolumeRecogniser::VolumeRecogniser(DiskDevice& disk, const VolumePlace& place)
    : disk_(disk), place_(place), sectorCount_(disk.sectorCount().value_or(0)) {
  forEachForm([this](const VolumeForm& form) {
    const u32 sectorSize = disk_.sectorSize();
    const u64 inSector = form.magicByte(sectorSize) % sectorSize;
    Hint hint;
    hint.offset = std::min<u64>(inSector, sectorSize - sizeof(u64));
    const u64 inWord = inSector - hint.offset;
    std::memset(reinterpret_cast<u8*>(&hint.mask) + inWord, 0xFF, form.magic.size());
    std::memcpy(reinterpret_cast<u8*>(&hint.value) + inWord, form.magic.data(), form.magic.size());
    const bool isKnown = std::ranges::any_of(hints_, [&](const Hint& other) {
      return other.offset == hint.offset && other.mask == hint.mask && other.value == hint.value;
    });
    if (!isKnown) hints_.push_back(hint);
  });
}

std::optional<LostVolume> VolumeRecogniser::examine(u64 lba, const u8* sector) {
  const u32 sectorSize = disk_.sectorSize();
  const std::span<const u8> bytes(sector, sectorSize);
  std::optional<LostVolume> best;
  forEachForm([&](const VolumeForm& form) {
    const u64 magicByte = form.magicByte(sectorSize);
    const u64 before = magicByte / sectorSize;
    if (before >= lba || !textAt(bytes, magicByte % sectorSize, form.magic)) return;
    SuspectedVolume suspect(disk_, sectorCount_, lba - before, place_);
    std::optional<LostVolume> found = form.examine(suspect, form.headerByte(sectorSize));
    if (!found || found->sectorCount > sectorCount_ - suspect.startSector()) return;
    found->startSector = suspect.startSector();
    if (!best || found->confidence < best->confidence) best = std::move(found);
  });
  return best;
}

std::optional<LostVolume> VolumeRecogniser::volumeAt(u64 start) {
  const u32 sectorSize = disk_.sectorSize();
  std::vector<u8> sector(sectorSize);
  std::optional<LostVolume> best;
  forEachForm([&](const VolumeForm& form) {
    const u64 before = form.magicByte(sectorSize) / sectorSize;
    if (start >= sectorCount_ || before >= sectorCount_ - start ||
        disk_.readSectors(start + before, sector.data(), 1) || !hasMagic(sector.data()))
      return;
    const auto found = examine(start + before, sector.data());
    if (found && found->startSector == start && (!best || found->confidence < best->confidence))
      best = found;
  });
  return best;
}

}  // namespace tallowin
