#include "ptable/shown_only_scheme.h"

#include <algorithm>

#include "ptable/mbr_record.h"
#include "ptable/type_catalogue.h"

namespace tallowin {
namespace {

// "EMBR", version; "MPT", version. Versions use the lower five bits.
bool isExtendedMbrHeader(std::span<const u8> track, std::size_t offset) {
  constexpr std::size_t kVersion = 4;
  constexpr std::size_t kTable = 18;
  constexpr std::size_t kTableVersion = 21;
  constexpr u8 kVersionMustBeZero = 0xE0;
  if (!textAt(track, offset, "EMBR") || !textAt(track, offset + kTable, "MPT")) return false;
  if (track.size() - offset <= kTableVersion) return false;
  return (track[offset + kVersion] & kVersionMustBeZero) == 0 &&
         (track[offset + kTableVersion] & kVersionMustBeZero) == 0;
}

// In the sector behind the boot sector, or one later when that one belongs to somebody else.
bool hasExtendedMbr(std::span<const u8> track, u32 sectorSizeBytes) {
  const bool isShifted = textAt(track, sectorSizeBytes + 2, "IBM ");
  return isExtendedMbrHeader(track, std::size_t{sectorSizeBytes} * (isShifted ? 2 : 1));
}

bool hasProtectiveSlot(std::span<const u8> track) {
  const auto& mbr = *recordAt<MbrRecord>(track);
  return mbr.signature.isValid() &&
         std::any_of(mbr.slots.begin(), mbr.slots.end(),
                     [](const MbrSlotRecord& slot) { return slot.type == types::kGptReserved; });
}

}  // namespace

bool ShownOnlyScheme::isOn(std::span<const u8> track, u32 sectorSizeBytes) const {
  return hasExtendedMbr(track, sectorSizeBytes) || hasProtectiveSlot(track);
}

const char* ShownOnlyScheme::changeRefusal() const {
  return "This disk has a GPT or an EMBR, which can be shown but not yet changed.";
}

Error ShownOnlyScheme::add(const TableContext&, TableEntry&) const {
  return Error::schemeNotYetSupported;
}

Error ShownOnlyScheme::remove(const TableContext&, const TableEntry&) const {
  return Error::schemeNotYetSupported;
}

Error ShownOnlyScheme::changeType(const TableContext&, TableEntry&, u16) const {
  return Error::schemeNotYetSupported;
}

}  // namespace tallowin
