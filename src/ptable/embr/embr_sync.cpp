#include "ptable/embr/embr_sync.h"

#include <algorithm>

#include "base/text.h"
#include "disk/mbr_record.h"
#include "probe/type_catalogue.h"
#include "ptable/embr/embr_scheme.h"
#include "ptable/mbr/slot.h"
#include "ptable/scheme.h"

namespace tallowin {
namespace {

constexpr u8 kRebuildMark = 0x44;  // in slot 0: the boot manager wants the slots rebuilt

bool isUsed(const MbrSlotRecord& slot) { return types::unhide(slot.type) != types::kFree; }

u64 lastLbaOf(const MbrSlotRecord& slot) { return u64{slot.startLba} + slot.sectorCount - 1; }

bool hasSameType(const MbrSlotRecord& slot, const MptEntryRecord& entry) {
  return types::unhide(slot.type) == types::unhide(entry.type);
}

// Without a signature the slots hold nothing, and a place holder stands for a table elsewhere.
bool saysWhatIsThere(const MbrRecord& mbr) {
  return mbr.signature.isValid() &&
         std::ranges::find(mbr.slots, types::kGptReserved, &MbrSlotRecord::type) == mbr.slots.end();
}

class Synchronization {
 public:
  Synchronization(Drive& drive, EmbrImage& image, EmbrSync& done)
      : drive_(drive), image_(image), done_(done), isLimited_(image.limitsPrimaries()) {}

  // Whether anything was changed in the image.
  bool run() {
    if (isRebuildWanted()) {
      rebuildSlots();
      rebuilt_ = true;
      changed_ = true;
    }
    matched_.assign(image_.entryCount(), false);
    matchAll(1);
    matchAll(2);
    addNewEntries();
    if (isLimited_) removeUnmatched();
    return changed_;
  }
  bool hasRebuiltSlots() const { return rebuilt_; }

 private:
  MbrRecord& mbr() { return *recordAt<MbrRecord>(image_.mbr()); }

  bool isRebuildWanted() {
    const auto& slots = mbr().slots;
    return isLimited_ && slots[0].type == kRebuildMark && slots[1].type == types::kFree &&
           slots[2].type == types::kFree && slots[3].type == types::kFree;
  }

  void rebuildSlots() {
    for (std::size_t i = 0; i < kMbrSlots; ++i) {
      MbrSlotRecord& slot = mbr().slots[i];
      slot.clear();
      if (i >= image_.entryCount()) continue;
      const MptEntryRecord& entry = image_.entry(static_cast<u32>(i));
      if (entry.firstLba > entry.lastLba) continue;
      writeSlot(drive_.tableContext(), 0, entry.firstLba, entry.lastLba, entry.type, slot);
    }
  }

  bool matches(const MbrSlotRecord& slot, const MptEntryRecord& entry, int round) const {
    const bool sameStart = slot.startLba == entry.firstLba;
    if (!isLimited_) return sameStart;
    if (round == 2)
      return u64{slot.sectorCount} == u64{entry.lastLba} + 1 - entry.firstLba ||
             hasSameType(slot, entry);
    if (types::isExtended(slot.type) && types::isExtended(entry.type)) return true;
    return sameStart && (hasSameType(slot, entry) || slot.type == types::kHidden ||
                         (types::isHideableData(slot.type) && types::isHideableData(entry.type)));
  }

  void matchAll(int round) {
    for (std::size_t i = 0; i < kMbrSlots; ++i) {
      const MbrSlotRecord& slot = mbr().slots[i];
      if (!isUsed(slot) || slot.sectorCount == 0 || slotMatched_[i]) continue;
      for (u32 k = 0; k < matched_.size(); ++k) {
        if (matched_[k] || !matches(slot, image_.entry(k), round)) continue;
        matched_[k] = true;
        slotMatched_[i] = true;
        update(slot, image_.entry(k));
        break;
      }
    }
  }

  void update(const MbrSlotRecord& slot, MptEntryRecord& entry) {
    const MptEntryRecord before = entry;
    if (!isLimited_ && lastLbaOf(slot) - slot.startLba > u64{entry.lastLba} - entry.firstLba)
      done_.mayOverlap = true;
    entry.firstLba = slot.startLba;
    entry.lastLba = static_cast<u32>(std::min<u64>(lastLbaOf(slot), kAllOnes32));
    const bool keepsType = slot.type == types::kHidden || hasSameType(slot, entry) ||
                           (!isLimited_ && slot.type == kRebuildMark);
    if (!keepsType) entry.type = static_cast<u8>(types::unhide(slot.type));
    changed_ |= !std::ranges::equal(bytesOf(before), bytesOf(entry));
  }

  u8 newId() const {
    std::array<u8, 1> random{};
    drive_.tableContext().host.randomBytes(random);
    return image_.freeId(random[0] % 254U + 1);
  }

  void addNewEntries() {
    for (std::size_t i = 0; i < kMbrSlots; ++i) {
      const MbrSlotRecord& slot = mbr().slots[i];
      const bool isMark = slot.type == kRebuildMark && !isLimited_;
      if (!isUsed(slot) || slot.sectorCount == 0 || slotMatched_[i] || isMark) continue;
      if (image_.entryCount() >= kMaxMptEntries) {
        done_.tableFull = true;
        continue;
      }
      MptEntryRecord entry{};
      entry.firstLba = slot.startLba;
      entry.lastLba = static_cast<u32>(std::min<u64>(lastLbaOf(slot), kAllOnes32));
      entry.id = newId();
      entry.type = slot.type;
      format("MBR Entry %i", static_cast<int>(i)).copy(entry.name, sizeof entry.name - 1);
      if (image_.insert(image_.entryCount(), entry) != Error::none) {
        done_.tableFull = true;
        continue;
      }
      matched_.push_back(true);
      done_.mayOverlap = true;
      changed_ = true;
    }
  }

  void removeUnmatched() {
    for (u32 k = image_.entryCount(); k-- > 0;) {
      if (matched_[k]) continue;
      image_.remove(k);
      changed_ = true;
    }
  }

  Drive& drive_;
  EmbrImage& image_;
  EmbrSync& done_;
  bool isLimited_;
  bool changed_ = false;
  bool rebuilt_ = false;
  std::vector<bool> matched_;  // entries that a slot was found for
  std::array<bool, kMbrSlots> slotMatched_{};
};

}  // namespace

Failure synchronizeEmbr(Drive& drive, const std::function<bool()>& beforeWrite, EmbrSync& done) {
  done = {};
  if (!drive.isEmbr()) return Error::none;
  EmbrImage image;
  if (const Failure failed = EmbrImage::read(drive.disk(), image)) return failed.as(Error::read);
  if (!saysWhatIsThere(*recordAt<MbrRecord>(image.mbr()))) return Error::none;
  const EmbrImage old = image;
  Synchronization synchronization(drive, image, done);
  if (!synchronization.run()) return Error::none;
  if (const Failure failed = checkEmbrGrowth(drive.tableContext(), old, image, TrackContent::keep))
    return failed;
  if (!beforeWrite()) return Error::cancelled;
  const Failure failed = synchronization.hasRebuiltSlots() ? image.write(drive.disk())
                                                           : image.writeBehindMbr(drive.disk());
  done.wrote = !failed;
  if (done.wrote) drive.setFlags(kDriveChanged, kDriveChanged);
  return failed;
}

}  // namespace tallowin
