#include "ptable/mbr/ebr_reader.h"

#include <algorithm>
#include <unordered_set>

#include "base/text.h"
#include "probe/type_catalogue.h"
#include "ptable/mbr/slot.h"

namespace tallowin {
namespace {

// A chain has at most as many volumes as there are sequence numbers; link-only EBRs come on top.
constexpr std::size_t kMaxVolumes = 255;
constexpr std::size_t kMaxChainLength = 1024;
constexpr u8 kFirstStoredSequence = 128;
// Other programs take what these two slots hold as it stands. In the others they expect garbage,
// and the kernel passes over a volume there that leaves the reach of its EBR.
constexpr std::size_t kUsualSlots = 2;

// The name behind an optional leading NUL, up to the next one.
std::string nameIn(const EbrRecord& ebr) {
  const auto* bytes = reinterpret_cast<const char*>(&ebr) + offsetof(EbrRecord, name);
  // A name that starts one byte later reaches into the byte behind the field.
  const std::size_t skipped = bytes[0] == '\0' ? 1 : 0;
  const std::string_view field(bytes + skipped, kVolumeNameBytes);
  return std::string(trimRight(field.substr(0, field.find('\0'))));
}

bool isEmpty(const MbrSlotRecord& slot) {
  const bool namesNothing = slot.sectorCount == 0 && slot.startLba == 0;
  return namesNothing && (slot.type == types::kFree || types::isChainLink(slot.type));
}

class ChainReader {
 public:
  ChainReader(const TableContext& context, TableEntry& container)
      : context_(context),
        container_(container),
        list_(*container.volumes),
        sectors_(std::size_t{2} * context.disk.sectorSize()) {}

  void run() {
    Link link{0, container_.sectorCount()};
    u64 previous = VolumeEntry::kNoPrevious;
    for (;;) {
      if (const Failure failed = readEbr(link.position)) {
        list_.readFailure = failed;
        return fail(kChainReadError);
      }
      if (!ebr().signature.isValid()) return endWithoutSignature(link.position);
      if (!visited_.insert(link.position).second) return fail(kChainLoops);
      if (list_.chain.size() == kMaxChainLength) return fail(kChainOutOfMemory);
      list_.chain.push_back(link.position);
      const EbrSlots slots = slotsOf(ebr());
      if (list_.entries.size() + slots.volumes.size() > kMaxVolumes) return fail(kChainOutOfMemory);
      take(slots, link, previous);
      if (!slots.link) return;
      const MbrSlotRecord& next = ebr().slots[*slots.link];
      if (next.startLba == link.position) return fail(kChainLoops);
      previous = link.position;
      link = {next.startLba, next.sectorCount};
    }
  }

 private:
  struct Link {
    u64 position = 0;  // of an EBR
    u64 sectors = 0;   // the reach that the link gives it
  };

  void fail(VolumeListStatus status) { list_.status |= status; }
  const EbrRecord& ebr() const { return *recordAt<EbrRecord>(std::span<const u8>(sectors_)); }
  u8 storedSequence() const { return sectors_[context_.disk.sectorSize()]; }

  // The EBR and the sector behind it, which reads as zeros behind the end of the disk.
  Failure readEbr(u64 position) {
    const u64 lba = container_.startSector + position;
    list_.leavesContainer |= lba > container_.endSector;
    if (lba > context_.lastLba) return {Error::read, 0, lba};
    std::fill(sectors_.begin(), sectors_.end(), u8{0});
    return context_.disk.readSectors(lba, sectors_.data(), lba == context_.lastLba ? 1 : 2);
  }

  // An extended partition may begin without a chain; what a link leads to, and what fills the
  // slots of such a sector, was meant to be an EBR.
  void endWithoutSignature(u64 position) {
    if (position != 0 || !std::ranges::all_of(ebr().slots, isEmpty)) fail(kChainUnclear);
  }

  void take(const EbrSlots& slots, const Link& link, u64 previous) {
    if (!slots.isClear) fail(kChainUnclear);
    for (const std::size_t slot : slots.volumes) {
      VolumeEntry& volume = addVolume(slot, link.position, previous);
      if (!slots.isClear) volume.status |= kEntryUnclear;
      if (slot >= kUsualSlots && !isWithinReach(volume, link)) volume.tableIndex = kNoTableIndex;
    }
    if (slots.volumes.empty())
      list_.emptyEbrs.insert(std::ranges::upper_bound(list_.emptyEbrs, link.position),
                             link.position);
  }

  bool isWithinReach(const VolumeEntry& volume, const Link& link) const {
    return volume.volumeStart + volume.sectorCount() <= link.position + link.sectors &&
           volume.endSector <= container_.endSector;
  }

  VolumeEntry& addVolume(std::size_t slotIndex, u64 position, u64 previous) {
    const MbrSlotRecord& slot = ebr().slots[slotIndex];
    auto volume = std::make_unique<VolumeEntry>();
    readSlot(slot, container_.startSector + position, *volume);
    list_.leavesContainer |= volume->endSector > container_.endSector;
    volume->status = kEntryIsVolume;
    volume->previousEbr = previous;
    volume->ebr = position;
    volume->volumeStart = position + slot.startLba;
    volume->tableIndex = nextIndex_++;
    volume->mbrSlot = static_cast<u8>(slotIndex);
    if (slot.type == types::kHidden && ebr().hiddenType != 0) volume->type = ebr().hiddenType;
    volume->id = static_cast<PartitionId>(container_.id << 8 | unusedSequence());
    nameVolume(*volume);
    const auto at =
        std::upper_bound(list_.entries.begin(), list_.entries.end(), position,
                         [](u64 wanted, const auto& other) { return wanted < other->ebr; });
    return **list_.entries.insert(at, std::move(volume));
  }

  u8 unusedSequence() {
    const bool isNumbered = (context_.flags & kDriveSequentialIds) != 0;
    u8 sequence = storedSequence() != 0 ? storedSequence() : kFirstStoredSequence;
    if (isNumbered) sequence = 1;
    while (!sequences_.insert(sequence).second)
      sequence = sequence == 255 ? u8{1} : static_cast<u8>(sequence + 1);
    return sequence;
  }

  void nameVolume(VolumeEntry& volume) const {
    volume.setName(nameIn(ebr()));
    if (!volume.name.empty() && (context_.flags & kDrivePreferLabels) == 0) return;
    if (const std::string label = context_.labelOf(volume); !label.empty()) volume.setName(label);
  }

  const TableContext& context_;
  TableEntry& container_;
  VolumeList& list_;
  std::vector<u8> sectors_;
  std::unordered_set<u64> visited_;
  std::unordered_set<u8> sequences_;
  i32 nextIndex_ = 0;
};

}  // namespace

EbrSlots slotsOf(const EbrRecord& ebr) {
  EbrSlots found;
  for (std::size_t i = 0; i < ebr.slots.size(); ++i) {
    const MbrSlotRecord& slot = ebr.slots[i];
    if (isEmpty(slot)) continue;
    const bool isLink = types::isChainLink(slot.type);
    if (!isLink && slot.type != types::kFree) {
      found.volumes.push_back(i);
    } else if (isLink && slot.sectorCount != 0 && !found.link) {
      found.link = i;
    } else {
      // Sectors without a type, a link without sectors, or a second link.
      found.isClear = false;
    }
  }
  found.isClear = found.isClear && found.volumes.size() <= 1;
  return found;
}

bool mayHoldVolumes(const TableEntry& entry) {
  return types::isExtended(entry.type) && entry.startSector != 0 &&
         entry.startSector < entry.endSector;
}

void readVolumes(const TableContext& context, TableEntry& container) {
  container.volumes = std::make_unique<VolumeList>();
  ChainReader(context, container).run();
}

}  // namespace tallowin
