#include "ptable/lost_chain.h"

#include <algorithm>

#include "probe/identify.h"
#include "probe/type_catalogue.h"
#include "ptable/mbr/ebr_reader.h"
#include "ptable/scheme.h"

namespace tallowin {
namespace {

// Each volume lies behind its EBR, and nothing that the chain names meets anything else of it.
bool isInOrder(const VolumeList& list, const TableEntry& container) {
  std::vector<std::pair<u64, u64>> runs;
  for (const u64 ebr : list.emptyEbrs) runs.emplace_back(ebr, ebr);
  for (const auto& volume : list.entries) {
    if (volume->ebr >= volume->volumeStart || volume->startSector > volume->endSector) return false;
    runs.emplace_back(volume->ebr, volume->ebr);
    runs.emplace_back(volume->volumeStart, volume->endSector - container.startSector);
  }
  std::ranges::sort(runs);
  return std::ranges::adjacent_find(
             runs, [](const auto& a, const auto& b) { return b.first <= a.second; }) == runs.end();
}

}  // namespace

bool ChainSearch::isUsualStart(u64 sectors) const {
  constexpr u64 kTrack = 63;
  return sectors == kTrack || sectors == kMiB / drive_.sectorSize() ||
         sectors == firstAlignedSector(drive_.alignment());
}

bool ChainSearch::mayBeFirst(const EbrRecord& ebr) const {
  if (!ebr.signature.isValid() || ebr.slots[2].type != 0 || ebr.slots[3].type != 0) return false;
  return std::ranges::any_of(std::span(ebr.slots).first(2), [this](const MbrSlotRecord& slot) {
    if (types::isChainLink(slot.type)) return slot.startLba != 0 && slot.sectorCount != 0;
    return slot.type != types::kFree && isUsualStart(slot.startLba);
  });
}

// The sectors of what the volume holds, 0 when that is not recognised. Areas that may be larger
// than what they lie in count as one.
u64 ChainSearch::sizeOfContent(const VolumeEntry& volume) const {
  Content content;
  if (identify(drive_.disk(), volume.startSector, content) == Error::none &&
      content.code != ContentCode::unknownVolume) {
    // Swap areas have the size of the disk.
    if (content.code == ContentCode::linuxSwap) return 1;
    return std::max<u64>(1, content.sectorCount);
  }
  const auto found = recogniser_.volumeAt(volume.startSector);
  if (!found || found->confidence == Confidence::doubtful) return 0;
  return std::max<u64>(1, found->sectorCount);
}

// Volumes that hold what fits into them say that the chain is the one by which they were used.
Confidence ChainSearch::confidenceOf(const VolumeList& list, bool isClean) const {
  bool isRecognised = false;
  for (const auto& volume : list.entries) {
    const u64 size = sizeOfContent(*volume);
    if (size > volume->sectorCount()) isClean = false;
    isRecognised = isRecognised || size != 0;
  }
  if (!isClean) return Confidence::doubtful;
  return isRecognised ? Confidence::sure : Confidence::likely;
}

std::optional<LostChain> ChainSearch::examine(u64 lba, const u8* sector) const {
  if (search_.isInsideExtended || drive_.isGpt()) return std::nullopt;
  const auto& ebr = *recordAt<EbrRecord>({sector, drive_.sectorSize()});
  if (!mayBeFirst(ebr)) return std::nullopt;
  TableEntry container;
  container.type = types::kExtended;
  container.startSector = lba;
  container.endSector = search_.lastSector;
  if (!mayHoldVolumes(container)) return std::nullopt;
  const LabelReader noLabels;
  const TableContext all = drive_.tableContext();
  readVolumes({all.disk, all.geometry, all.lastLba, all.flags, all.biosNumber, all.host, noLabels},
              container);
  const VolumeList& list = *container.volumes;
  if (list.status != 0 || list.leavesContainer || list.entries.empty() ||
      !isInOrder(list, container))
    return std::nullopt;
  LostChain chain;
  LostPartition& found = chain.partition;
  found.kind = "Extended";
  found.startSector = lba;
  for (const u64 position : list.chain) found.endSector = std::max(found.endSector, lba + position);
  for (const auto& volume : list.entries)
    found.endSector = std::max(found.endSector, volume->endSector);
  found.type = drive_.typeForEnd(types::kExtended, found.endSector);
  found.volumeCount = static_cast<u32>(list.entries.size());
  // The boot sector of a disk looks much the same, but it has code.
  const bool isClean =
      isAllZero(ebr.unused) && isAllZero(bytesOf(ebr.slots[2])) && isAllZero(bytesOf(ebr.slots[3]));
  found.confidence = confidenceOf(list, isClean);
  for (const u64 position : list.chain) chain.places.push_back(lba + position);
  for (const auto& volume : list.entries) chain.places.push_back(volume->startSector);
  return chain;
}

}  // namespace tallowin
