#include "ptable/mbr/ebr_writer.h"

#include <algorithm>
#include <cstring>

#include "base/text.h"
#include "probe/type_catalogue.h"
#include "ptable/mbr/ebr_reader.h"
#include "ptable/mbr/slot.h"
#include "ptable/sector_swap.h"

namespace tallowin {
namespace {

bool sameVolume(const VolumeEntry& a, const VolumeEntry& b) {
  return a.ebr == b.ebr && a.mbrSlot == b.mbrSlot && a.startSector == b.startSector &&
         a.endSector == b.endSector && a.mbrType == b.mbrType;
}

// Without the free blocks between them.
std::vector<const VolumeEntry*> volumesOnDisk(const VolumeList& list) {
  std::vector<const VolumeEntry*> volumes;
  for (const auto& volume : list.entries)
    if (!volume->isFree()) volumes.push_back(volume.get());
  return volumes;
}

// The room of a volume with its EBR; positions relative to the container.
struct Room {
  u64 ebr = 0;
  u64 start = 0;
  u64 end = 0;  // inclusive
};

// Whether the room lies in the container and touches no volume and no other EBR.
bool isRoomFree(const TableEntry& container, const Room& room) {
  if (room.ebr >= room.start || room.start > room.end || room.end >= container.sectorCount())
    return false;
  const VolumeList& list = *container.volumes;
  const auto volumes = volumesOnDisk(list);
  const bool touchesVolume = std::ranges::any_of(volumes, [&](const VolumeEntry* other) {
    return other->ebr == room.ebr ||
           (other->volumeStart <= room.end && room.ebr <= other->endSector - container.startSector);
  });
  const bool coversEbr =
      std::ranges::any_of(list.chain, [&](u64 ebr) { return ebr > room.ebr && ebr <= room.end; });
  return !touchesVolume && !coversEbr;
}

// Where a clear EBR links to the next one, or could: the second slot, if that is not the volume's.
MbrSlotRecord& slotForLink(EbrRecord& ebr) {
  if (const auto link = slotsOf(ebr).link) return ebr.slots[*link];
  return ebr.slots[ebr.slots[1].type == types::kFree ? 1 : 0];
}

// One change of a chain.
class ChainChange {
 public:
  ChainChange(const TableContext& context, const TableEntry& container)
      : context_(context), container_(container), list_(*container.volumes) {}

  Failure add(const NewEntry& volume, const Room& room);
  Failure remove(const VolumeEntry& volume);
  Failure change(const VolumeEntry& volume, const EntryProperties& wanted);
  Failure plan(const VolumeEntry& volume, EntryMove& move);

 private:
  TableSectorImage imageAt(u64 position) const {
    return {context_.disk, container_.startSector + position};
  }
  bool isEmptyEbr(u64 position) const {
    return std::ranges::binary_search(list_.emptyEbrs, position);
  }
  // An EBR that lies in another volume's sectors may be that volume's data.
  bool isInVolume(const TableSectorImage& ebr) const {
    return std::ranges::any_of(volumesOnDisk(list_), [&](const VolumeEntry* volume) {
      return volume->startSector <= ebr.lba() && ebr.lba() <= volume->endSector;
    });
  }
  void fillVolume(const NewEntry& volume, const Room& room, EbrRecord& ebr) const;
  Failure storeWithLink(TableSectorImage& own, const VolumeEntry& volume, u64 endSector) const;
  u8 unusedSequence(PartitionId wanted) const;
  Failure storeSequence(PartitionId wanted, const Room& room) const;
  void writeLink(const Room& room, MbrSlotRecord& link) const;
  Failure putSector(TableSectorImage& image) const;
  u64 nearestEbrBefore(u64 position) const;

  const TableContext& context_;
  const TableEntry& container_;
  const VolumeList& list_;
};

void fillName(const std::string& name, EbrRecord& ebr) {
  ebr.name.fill(0);
  std::memcpy(ebr.name.data(), name.data(), std::min(name.size(), kVolumeNameBytes));
}

void ChainChange::fillVolume(const NewEntry& volume, const Room& room, EbrRecord& ebr) const {
  MbrSlotRecord& slot = ebr.slots[ebr.slots[0].type == types::kFree ? 0 : 1];
  slot.clear();
  writeSlot(context_, container_.startSector + room.ebr, volume.startSector, volume.endSector,
            static_cast<u8>(volume.type), slot);
  fillName(printableFromUtf8(volume.name), ebr);
  ebr.hiddenType = 0;
  ebr.signature.set();
}

u8 ChainChange::unusedSequence(PartitionId wanted) const {
  const auto isTaken = [&](u8 sequence) {
    return sequence == 0 || std::ranges::any_of(list_.entries, [sequence](const auto& other) {
             return !other->isFree() && static_cast<u8>(other->id) == sequence;
           });
  };
  u8 sequence = static_cast<u8>(wanted);
  for (u32 tries = 0; tries < 256 && isTaken(sequence); ++tries) ++sequence;
  return sequence;
}

// The number lies in the sector behind the EBR, unless the volume itself begins there.
Failure ChainChange::storeSequence(PartitionId wanted, const Room& room) const {
  const u64 lba = container_.startSector + room.ebr + 1;
  if (room.start - room.ebr < kFirstVolumeAfterSequence) return Error::none;
  std::vector<u8> sector(context_.disk.sectorSize());
  if (const Failure failed = context_.disk.readSectors(lba, sector.data(), 1))
    return failed.as(Error::read);
  sector[0] = unusedSequence(wanted);
  return context_.disk.writeSectors(lba, sector.data(), 1).as(Error::write);
}

u64 ChainChange::nearestEbrBefore(u64 position) const {
  u64 nearest = 0;
  for (const u64 ebr : list_.chain)
    if (ebr < position) nearest = std::max(nearest, ebr);
  return nearest;
}

void ChainChange::writeLink(const Room& room, MbrSlotRecord& link) const {
  const u64 base = container_.startSector;
  link.clear();
  writeSlot(context_, base, base + room.ebr, base + room.end, types::kExtended, link);
}

Failure ChainChange::putSector(TableSectorImage& image) const {
  return context_.disk.writeSectors(image.lba(), image.bytes().data(), 1).as(Error::write);
}

// All that can refuse comes before the first write. The new EBR takes over the link of the one
// before it, and is on the medium when that one leads to it.
Failure ChainChange::add(const NewEntry& volume, const Room& room) {
  TableSectorImage own = imageAt(room.ebr);
  if (const Failure failed = own.load()) return failed;
  const bool isLinked = isEmptyEbr(room.ebr);
  if (!isLinked) std::ranges::fill(own.bytes(), u8{0});
  fillVolume(volume, room, own.as<EbrRecord>());
  // An EBR that the chain already leads to, or that begins the chain, becomes visible itself.
  if (isLinked || room.ebr == 0) {
    if (const Failure failed = storeSequence(volume.id, room)) return failed;
    return own.store();
  }
  TableSectorImage before = imageAt(nearestEbrBefore(room.ebr));
  if (const Failure failed = before.load()) return failed;
  auto& previous = before.as<EbrRecord>();
  if (!previous.signature.isValid()) {
    // An extended partition without a chain yet: it begins with a link-only EBR.
    std::ranges::fill(before.bytes(), u8{0});
    previous.signature.set();
  }
  MbrSlotRecord& link = slotForLink(previous);
  if (types::isChainLink(link.type)) own.as<EbrRecord>().slots[1] = link;
  writeLink(room, link);
  if (const Failure failed = storeSequence(volume.id, room)) return failed;
  if (const Failure failed = putSector(own)) return failed;
  return before.store();
}

Failure ChainChange::remove(const VolumeEntry& volume) {
  TableSectorImage own = imageAt(volume.ebr);
  if (const Failure failed = own.load()) return failed;
  auto& ebr = own.as<EbrRecord>();
  const EbrSlots slots = slotsOf(ebr);
  if (!slots.isClear) return Error::tableInError;
  const bool isFirst = volume.previousEbr == VolumeEntry::kNoPrevious;
  if (isInVolume(isFirst ? own : imageAt(volume.previousEbr))) return Error::tableInError;
  // Of a chain that loops nothing is kept behind the last volume that was reached.
  const bool loops = (list_.status & kChainLoops) != 0 && list_.chain.back() == volume.ebr;
  if (slots.link && loops) ebr.slots[*slots.link].clear();
  const MbrSlotRecord next = slots.link ? ebr.slots[*slots.link] : MbrSlotRecord{};
  if (isFirst) {
    ebr.slots[volume.mbrSlot].clear();
    ebr.name.fill(0);
    ebr.hiddenType = 0;
    return own.store();
  }
  TableSectorImage before = imageAt(volume.previousEbr);
  if (const Failure failed = before.load()) return failed;
  auto& previous = before.as<EbrRecord>();
  const EbrSlots others = slotsOf(previous);
  if (!others.isClear || !others.link) return Error::tableInError;
  previous.slots[*others.link] = next;
  return before.store();
}

Failure ChainChange::change(const VolumeEntry& volume, const EntryProperties& wanted) {
  TableSectorImage image = imageAt(volume.ebr);
  if (const Failure failed = image.load()) return failed;
  auto& ebr = image.as<EbrRecord>();
  if (!slotsOf(ebr).isClear || isInVolume(image)) return Error::tableInError;
  if (wanted.name) fillName(*wanted.name, ebr);
  if (wanted.type == types::kHidden) ebr.hiddenType = static_cast<u8>(volume.type);
  MbrSlotRecord& slot = ebr.slots[volume.mbrSlot];
  if (wanted.type) slot.type = static_cast<u8>(*wanted.type);
  if (!wanted.endSector) return image.store();
  if (!fitsSlot(image.lba(), volume.startSector, *wanted.endSector))
    return Error::outsideUsableArea;
  writeSlot(context_, image.lba(), volume.startSector, *wanted.endSector, slot.type, slot);
  return storeWithLink(image, volume, *wanted.endSector);
}

// The link that leads to the volume spans it. It is never the shorter one of the two.
Failure ChainChange::storeWithLink(TableSectorImage& own, const VolumeEntry& volume,
                                   u64 endSector) const {
  if (volume.previousEbr == VolumeEntry::kNoPrevious) return own.store();
  TableSectorImage before = imageAt(volume.previousEbr);
  if (const Failure failed = before.load()) return failed;
  auto& previous = before.as<EbrRecord>();
  const EbrSlots slots = slotsOf(previous);
  if (!slots.isClear || !slots.link || isInVolume(before)) return Error::tableInError;
  MbrSlotRecord& link = previous.slots[*slots.link];
  writeSlot(context_, container_.startSector, container_.startSector + volume.ebr, endSector,
            link.type, link);
  if (endSector > volume.endSector)
    if (const Failure failed = before.store()) return failed;
  if (const Failure failed = own.store()) return failed;
  if (endSector > volume.endSector) return {};
  // The volume is as it was wished for, whatever becomes of its link.
  const Failure unlinked = before.store();
  return unlinked ? unlinked.as(Error::writeFailedNewTable) : unlinked;
}

Failure ChainChange::plan(const VolumeEntry& volume, EntryMove& move) {
  const u64 base = container_.startSector;
  TableSectorImage own = imageAt(volume.ebr);
  if (const Failure failed = own.load()) return failed;
  if (!slotsOf(own.as<EbrRecord>()).isClear || isInVolume(own)) return Error::tableInError;
  EntryMove::Volume& chain = move.volume.emplace();
  chain.containerStart = base;
  chain.oldEbr = base + volume.ebr;
  chain.newEbr = move.newStart - (volume.volumeStart - volume.ebr);
  chain.slot = volume.mbrSlot;
  chain.ebr.assign(own.bytes().begin(), own.bytes().end());
  if (volume.previousEbr == VolumeEntry::kNoPrevious) return {};
  TableSectorImage before = imageAt(volume.previousEbr);
  if (const Failure failed = before.load()) return failed;
  const EbrSlots slots = slotsOf(before.as<EbrRecord>());
  if (!slots.isClear || !slots.link || isInVolume(before)) return Error::tableInError;
  chain.previousEbr = base + volume.previousEbr;
  return {};
}

}  // namespace

Failure checkChainUnchanged(const TableContext& context, const TableEntry& container) {
  TableEntry now;
  now.startSector = container.startSector;
  now.endSector = container.endSector;
  const LabelReader noLabels;
  const TableContext plain{context.disk,       context.geometry, context.lastLba, context.flags,
                           context.biosNumber, context.host,     noLabels};
  readVolumes(plain, now);
  const auto before = volumesOnDisk(*container.volumes);
  const auto after = volumesOnDisk(*now.volumes);
  const bool same =
      now.volumes->chain == container.volumes->chain &&
      std::ranges::equal(before, after, [](const VolumeEntry* a, const VolumeEntry* b) {
        return sameVolume(*a, *b);
      });
  if (same && now.volumes->status == container.volumes->status) return {};
  const Failure& unread = now.volumes->readFailure;
  return unread ? unread.as(Error::read) : Failure(Error::tableChangedMeanwhile);
}

Failure putFirstEbr(DiskDevice& disk, const NewEntry& entry) {
  if (entry.keepsChain) return {};
  std::vector<u8> sector(disk.sectorSize());
  recordAt<EbrRecord>(std::span(sector))->signature.set();
  return disk.writeSectors(entry.startSector, sector.data(), 1).as(Error::write);
}

Failure addVolume(const TableContext& context, const TableEntry& container, const NewEntry& entry) {
  if (container.isInError() || container.volumes->isInError()) return Error::tableInError;
  const u64 base = container.startSector;
  if (*entry.ebrSector < base || entry.startSector < base || entry.endSector < base)
    return Error::outsideUsableArea;
  const Room room{*entry.ebrSector - base, entry.startSector - base, entry.endSector - base};
  if (!isRoomFree(container, room) || !fitsSlot(base, *entry.ebrSector, entry.endSector))
    return Error::outsideUsableArea;
  return ChainChange(context, container).add(entry, room);
}

Failure removeVolume(const TableContext& context, const TableEntry& container,
                     const VolumeEntry& volume) {
  return ChainChange(context, container).remove(volume);
}

// Each EBR is written by itself: nothing in it but the CHS addresses changes, which no reader of
// the chain goes by.
Failure refreshChs(const TableContext& context, const TableEntry& container) {
  if (container.volumes->isInError()) return Error::unsupportedForm;
  const u64 base = container.startSector;
  for (const u64 position : container.volumes->chain) {
    TableSectorImage image(context.disk, base + position);
    if (const Failure failed = image.load()) return failed;
    auto& ebr = image.as<EbrRecord>();
    const EbrSlots slots = slotsOf(ebr);
    const auto rewrite = [&](MbrSlotRecord& slot, u64 from) {
      const u64 start = from + slot.startLba;
      writeSlot(context, from, start, start + slot.sectorCount - 1, slot.type, slot);
    };
    for (const std::size_t volume : slots.volumes) rewrite(ebr.slots[volume], base + position);
    if (slots.link) rewrite(ebr.slots[*slots.link], base);
    if (const Failure failed = image.store()) return failed;
  }
  return {};
}

Failure endChain(const TableContext& context, const TableEntry& container) {
  const VolumeList& list = *container.volumes;
  if (list.status == 0 || list.chain.empty()) return Error::tableInError;
  TableSectorImage image(context.disk, container.startSector + list.chain.back());
  if (const Failure failed = image.load()) return failed;
  for (MbrSlotRecord& slot : image.as<EbrRecord>().slots)
    if (types::isChainLink(slot.type)) slot.clear();
  return image.store();
}

Failure changeVolume(const TableContext& context, const TableEntry& container,
                     const VolumeEntry& volume, const EntryProperties& wanted) {
  if (wanted.typeGuid || wanted.attributes || wanted.active) return Error::unsupportedForm;
  return ChainChange(context, container).change(volume, wanted);
}

Failure planVolume(const TableContext& context, const TableEntry& container,
                   const VolumeEntry& volume, EntryMove& move) {
  return ChainChange(context, container).plan(volume, move);
}

namespace {

// Where an EBR leads to; nothing without a link.
std::optional<u64> linkIn(const EbrRecord& ebr, u64 containerStart) {
  const auto link = slotsOf(ebr).link;
  if (!link) return std::nullopt;
  return containerStart + ebr.slots[*link].startLba;
}

bool sameRecord(const EbrRecord& a, const EbrRecord& b) {
  return std::memcmp(&a, &b, sizeof(EbrRecord)) == 0;
}

// The EBR of the volume as it is to lie at its new place, with the link that it had.
void fillMoved(const TableContext& context, const EntryMove& move, TableSectorImage& own) {
  const EntryMove::Volume& volume = *move.volume;
  std::ranges::copy(volume.ebr, own.bytes().begin());
  MbrSlotRecord& slot = own.as<EbrRecord>().slots[volume.slot];
  writeSlot(context, volume.newEbr, move.newStart, move.newEnd(), move.type, slot);
}

// The EBR at the start of the container stays, with a link to the one that left it.
Failure leaveHead(const TableContext& context, const EntryMove& move, TableSectorImage& own) {
  const EntryMove::Volume& volume = *move.volume;
  TableSectorImage head(context.disk, volume.oldEbr);
  if (const Failure failed = head.load()) return failed;
  auto& ebr = head.as<EbrRecord>();
  const EbrSlots slots = slotsOf(ebr);
  if (slots.isClear && slots.volumes.empty() && linkIn(ebr, volume.containerStart) == volume.newEbr)
    return {};
  if (!sameRecord(ebr, *recordAt<EbrRecord>(std::span<const u8>(volume.ebr))))
    return Error::tableChangedMeanwhile;
  MbrSlotRecord& link = slotForLink(ebr);
  const u8 linkType = link.type == types::kFree ? u8{types::kExtended} : link.type;
  ebr.slots[volume.slot].clear();
  ebr.name.fill(0);
  ebr.hiddenType = 0;
  link.clear();
  writeSlot(context, volume.containerStart, volume.newEbr, move.newEnd(), linkType, link);
  if (const Failure failed =
          context.disk.writeSectors(own.lba(), own.bytes().data(), 1).as(Error::write))
    return failed;
  return head.store();
}

Failure relink(const TableContext& context, const EntryMove& move, TableSectorImage& own) {
  const EntryMove::Volume& volume = *move.volume;
  TableSectorImage before(context.disk, *volume.previousEbr);
  if (const Failure failed = before.load()) return failed;
  auto& previous = before.as<EbrRecord>();
  const auto link = linkIn(previous, volume.containerStart);
  const bool takesItsPlace = volume.newEbr == *volume.previousEbr;
  if (takesItsPlace ? sameRecord(previous, own.as<EbrRecord>()) : link == volume.newEbr) return {};
  const EbrSlots slots = slotsOf(previous);
  if (!slots.isClear || link != volume.oldEbr) return Error::tableChangedMeanwhile;
  // One that held a link only becomes the volume's own.
  if (takesItsPlace) return slots.volumes.empty() ? own.store() : Error::tableChangedMeanwhile;
  MbrSlotRecord& slot = previous.slots[*slots.link];
  writeSlot(context, volume.containerStart, volume.newEbr, move.newEnd(), slot.type, slot);
  if (const Failure failed =
          context.disk.writeSectors(own.lba(), own.bytes().data(), 1).as(Error::write))
    return failed;
  return before.store();
}

}  // namespace

Failure moveVolume(const TableContext& context, const EntryMove& move) {
  TableSectorImage own(context.disk, move.volume->newEbr);
  if (const Failure failed = own.load()) return failed;
  fillMoved(context, move, own);
  return move.volume->previousEbr ? relink(context, move, own) : leaveHead(context, move, own);
}

}  // namespace tallowin
