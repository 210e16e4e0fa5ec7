#include "ptable/mbr/mbr_editor.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "probe/type_catalogue.h"
#include "ptable/mbr/slot.h"
#include "ptable/scheme.h"
#include "ptable/sector_swap.h"

namespace tallowin {
namespace {

constexpr u64 kMbrLba = 0;
constexpr std::array<u8, 3> kLargestChs = {0xFE, 0xFF, 0xFF};  // 1023, 254, 63

bool isSame(const MbrRecord& a, const MbrRecord& b) {
  return std::memcmp(&a, &b, sizeof(MbrRecord)) == 0;
}

}  // namespace

Failure MbrEditor::load() {
  TableSectorImage image(drive_.disk(), kMbrLba);
  if (const Failure error = image.load(); error != Error::none) return error;
  read_ = now_ = image.as<MbrRecord>();
  return Error::none;
}

const TableEntry* MbrEditor::partitionAt(u64 startSector) const {
  for (const auto& entry : drive_.table().entries)
    if (!entry->isFree() && entry->startSector == startSector) return entry.get();
  return nullptr;
}

std::vector<MbrSlotRow> MbrEditor::rows() const {
  std::vector<MbrSlotRow> rows;
  for (const MbrSlotRecord& slot : now_.slots) {
    MbrSlotRow& row = rows.emplace_back();
    if (const TableEntry* entry = partitionAt(slot.startLba))
      row.name = entry->name;
    else if (slot.type == types::kGptReserved)
      row.name = "GPT Reserved";
    row.isActive = slot.bootIndicator != 0;
    row.type = slot.type;
    row.start = unpackedChs(slot.startChs);
    row.end = unpackedChs(slot.endChs);
    row.startLba = slot.startLba;
    row.sectorCount = slot.sectorCount;
  }
  return rows;
}

bool MbrEditor::isChanged() const { return !isSame(read_, now_); }

std::vector<SectorRegion> MbrEditor::givenUp() const {
  std::vector<SectorRegion> regions;
  for (const MbrSlotRecord& old : read_.slots) {
    if (old.sectorCount == 0) continue;
    const bool isKept = std::ranges::any_of(now_.slots, [&](const MbrSlotRecord& slot) {
      return slot.startLba == old.startLba && slot.sectorCount == old.sectorCount &&
             slot.type == old.type;
    });
    if (!isKept) regions.push_back({old.startLba, u64{old.startLba} + old.sectorCount - 1});
  }
  return regions;
}

void MbrEditor::setActive(std::size_t slot) {
  for (MbrSlotRecord& other : now_.slots) other.bootIndicator = 0;
  now_.slots[slot].bootIndicator = kBootActive;
}

void MbrEditor::toggleActive(std::size_t slot) {
  u8& indicator = now_.slots[slot].bootIndicator;
  indicator = indicator == 0 ? kBootActive : u8{0};
}

void MbrEditor::swap(std::size_t slot, std::size_t other) {
  std::swap(now_.slots[slot], now_.slots[other]);
}

bool MbrEditor::holdsGptPlaceHolder(std::size_t slot) const {
  return now_.slots[slot].type == types::kGptReserved;
}

std::vector<const TableEntry*> MbrEditor::candidates(std::size_t slot) const {
  const auto isInAnother = [&](u64 startSector) {
    for (std::size_t other = 0; other < kMbrSlots; ++other)
      if (other != slot && now_.slots[other].type != types::kFree &&
          now_.slots[other].startLba == startSector)
        return true;
    return false;
  };
  std::vector<const TableEntry*> found;
  for (const auto& entry : drive_.table().entries)
    if (!entry->isFree() && !isInAnother(entry->startSector)) found.push_back(entry.get());
  return found;
}

bool MbrEditor::insert(std::size_t slot, const PartitionEntry& entry) {
  const u8 type = static_cast<u8>(entry.type);
  if (entry.isVolume() || type == types::kFree || !fitsSlot(0, entry.startSector, entry.endSector))
    return false;
  writeSlot(drive_.tableContext(), 0, entry.startSector, entry.endSector, type, now_.slots[slot]);
  return true;
}

void MbrEditor::clearSignature() {
  now_.diskSignature = 0;
  now_.reserved.fill(0);
}

void MbrEditor::fillEndChs() {
  for (MbrSlotRecord& slot : now_.slots)
    if (slot.type != types::kFree) slot.endChs = kLargestChs;
}

Failure MbrEditor::apply() {
  TableSectorImage image(drive_.disk(), kMbrLba);
  if (const Failure error = image.load(); error != Error::none) return error;
  auto& mbr = image.as<MbrRecord>();
  // After a failure that left the new table, or either one, the copy may be there already.
  if (!isSame(mbr, read_) && !isSame(mbr, now_)) return Error::tableChangedMeanwhile;
  mbr = now_;
  const Failure error = image.store();
  if (error == Error::none) read_ = now_;
  return error;
}

}  // namespace tallowin
