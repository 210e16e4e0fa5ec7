#include "ptable/mbr/ebr_reader.h"

#include <algorithm>
#include <optional>
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

// The name behind an optional leading NUL, up to the next one.
std::string nameIn(const EbrRecord& ebr) {
  const auto* bytes = reinterpret_cast<const char*>(&ebr) + offsetof(EbrRecord, name);
  // A name that starts one byte later reaches into the byte behind the field.
  const std::size_t skipped = bytes[0] == '\0' ? 1 : 0;
  const std::string_view field(bytes + skipped, kVolumeNameBytes);
  return std::string(trimRight(field.substr(0, field.find('\0'))));
}

class ChainReader {
 public:
  ChainReader(const TableContext& context, TableEntry& container)
      : context_(context),
        container_(container),
        list_(*container.volumes),
        sectors_(std::size_t{2} * context.disk.sectorSize()) {}

  void run() {
    u64 position = 0;
    u64 previous = VolumeEntry::kNoPrevious;
    while (readEbr(position)) {
      if (!ebr().signature.isValid()) return;
      if (!visited_.insert(position).second) return fail(kChainLoops);
      if (list_.chain.size() == kMaxChainLength) return fail(kChainOutOfMemory);
      list_.chain.push_back(position);
      if (!addVolume(position, previous)) return fail(kChainOutOfMemory);
      const MbrSlotRecord& link = ebr().slots[linkSlotOf(ebr())];
      if (!types::isChainLink(link.type)) return;
      if (link.startLba == position) return fail(kChainLoops);
      previous = position;
      position = link.startLba;
    }
    fail(kChainReadError);
  }

 private:
  void fail(VolumeListStatus status) { list_.status |= status; }
  const EbrRecord& ebr() const { return *recordAt<EbrRecord>(std::span<const u8>(sectors_)); }
  u8 storedSequence() const { return sectors_[context_.disk.sectorSize()]; }

  // The EBR and the sector behind it, which reads as zeros behind the end of the disk.
  bool readEbr(u64 position) {
    const u64 lba = container_.startSector + position;
    if (lba > context_.lastLba) return false;
    list_.lastEbrLba = lba;
    std::fill(sectors_.begin(), sectors_.end(), u8{0});
    return context_.disk.readSectors(lba, sectors_.data(), lba == context_.lastLba ? 1 : 2) ==
           Error::none;
  }

  // False when there is no number left for the volume.
  bool addVolume(u64 position, u64 previous) {
    const std::size_t slotIndex = volumeSlotOf(ebr());
    const MbrSlotRecord& slot = ebr().slots[slotIndex];
    if (slot.type == types::kFree || types::isChainLink(slot.type)) {
      list_.emptyEbrs.insert(std::ranges::upper_bound(list_.emptyEbrs, position), position);
      return true;
    }
    if (list_.entries.size() == kMaxVolumes) return false;
    auto volume = std::make_unique<VolumeEntry>();
    readSlot(slot, container_.startSector + position, *volume);
    volume->status = kEntryIsVolume;
    volume->previousEbr = previous;
    volume->ebr = position;
    volume->volumeStart = position + slot.startLba;
    volume->tableIndex = static_cast<i32>(list_.entries.size());
    volume->mbrSlot = static_cast<u8>(slotIndex);
    if (slot.type == types::kHidden && ebr().hiddenType != 0) volume->type = ebr().hiddenType;
    volume->id = static_cast<PartitionId>(container_.id << 8 | unusedSequence());
    nameVolume(*volume);
    const auto at =
        std::upper_bound(list_.entries.begin(), list_.entries.end(), position,
                         [](u64 wanted, const auto& other) { return wanted < other->ebr; });
    list_.entries.insert(at, std::move(volume));
    return true;
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
};

}  // namespace

std::size_t volumeSlotOf(const EbrRecord& ebr) {
  const u8 first = ebr.slots[0].type;
  return types::isChainLink(first) || first == types::kFree ? 1 : 0;
}

std::size_t linkSlotOf(const EbrRecord& ebr) {
  return types::isChainLink(ebr.slots[0].type) ? 0 : 1;
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
