// The boot sector edited as a whole: four slots, boot code and disk signature of any disk with a
// table, whatever its scheme.
#pragma once

#include <string>
#include <vector>

#include "disk/mbr_record.h"
#include "ptable/drive.h"
#include "ptable/mbr/boot_code.h"

namespace tallowin {

// One slot, as it is shown.
struct MbrSlotRow {
  std::string name;  // of the partition that starts where the slot says; may be empty
  bool isActive = false;
  u8 type = 0;
  ChsAddress start;
  ChsAddress end;
  u32 startLba = 0;
  u32 sectorCount = 0;
};

// Works on a copy of the first 512 bytes of the disk; only apply() writes, and only these. Slots
// are counted 0..3. The drive is borrowed for the editor's life; its entries are looked up anew by
// each call, so it may be read again in between.
class MbrEditor {
 public:
  explicit MbrEditor(Drive& drive) : drive_(drive) {}

  // Takes the copy. read: there is none, and nothing else may be called.
  Failure load();

  std::vector<MbrSlotRow> rows() const;
  u32 diskSignature() const { return now_.diskSignature; }
  // Whether what apply() would write differs from what was read.
  bool isChanged() const;

  // What slots named when the copy was taken and name no more; [first, last].
  std::vector<SectorRegion> givenUp() const;

  // Makes the slot the only active one.
  void setActive(std::size_t slot);
  // Switches one slot; several, or none, may then be active.
  void toggleActive(std::size_t slot);
  void remove(std::size_t slot) { now_.slots[slot].clear(); }
  void swap(std::size_t slot, std::size_t other);
  // A disk whose last such slot goes is an MBR disk from then on.
  bool holdsGptPlaceHolder(std::size_t slot) const;

  // The partitions of the top level that may be put into the slot: those that are in no other.
  std::vector<const TableEntry*> candidates(std::size_t slot) const;
  // Writes the partition into the slot; the slot's boot indicator stays. False, and nothing is
  // changed: a volume or free space; an extent or a type that no slot can hold.
  [[nodiscard]] bool insert(std::size_t slot, const PartitionEntry& entry);

  void installBootCode(BootCode code) { tallowin::installBootCode(code, now_); }
  // With the two bytes behind it.
  void clearSignature();
  void setSignature(u32 signature) { now_.diskSignature = signature; }
  // The largest address there is, as the end of every slot in use.
  void fillEndChs();

  // Writes the copy as one sector; see TableSectorImage::store for what a failure leaves.
  // tableChangedMeanwhile: the disk holds neither what was read nor the copy, and nothing was
  // written. After any failure the copy is as it was and apply() may be called again. The drive
  // still has the old table: reread() it.
  Failure apply();

 private:
  const TableEntry* partitionAt(u64 startSector) const;

  Drive& drive_;
  MbrRecord read_{};
  MbrRecord now_{};
};

}  // namespace tallowin
