#include "ptable/scheme.h"

#include <algorithm>
#include <array>

#include "ptable/embr/embr_scheme.h"
#include "ptable/gpt/gpt_scheme.h"
#include "ptable/gpt/unreadable_gpt_scheme.h"
#include "ptable/mbr/mbr_scheme.h"

namespace tallowin {
namespace {

bool isUsed(const PartitionTable& table, PartitionId id) {
  return std::any_of(table.entries.begin(), table.entries.end(), [id](const auto& entry) {
    if (entry->id == id) return true;
    if (!entry->volumes) return false;
    const auto& volumes = entry->volumes->entries;
    return std::any_of(volumes.begin(), volumes.end(),
                       [id](const auto& volume) { return volume->id == id; });
  });
}

}  // namespace

std::span<const TableScheme* const> tableSchemes() {
  static const EmbrScheme embr;
  static const GptScheme gpt;
  static const LargeGptScheme largeGpt;
  static const UnreadableGptScheme unreadableGpt;
  static const MbrScheme mbr;
  static constexpr std::array<const TableScheme*, 5> kSchemes = {&gpt, &largeGpt, &embr,
                                                                 &unreadableGpt, &mbr};
  return kSchemes;
}

TableEntry& insertSorted(PartitionTable& table, std::unique_ptr<TableEntry> entry) {
  const auto at =
      std::upper_bound(table.entries.begin(), table.entries.end(), entry->startSector,
                       [](u64 start, const auto& other) { return start < other->startSector; });
  return **table.entries.insert(at, std::move(entry));
}

PartitionId unusedId(const PartitionTable& table, PartitionId wanted) {
  constexpr PartitionId kHighestShortId = 255;
  PartitionId id = wanted;
  // Ids above the short ones are given out when all of those are in use.
  for (u32 tries = 0; tries < kAllOnes32 >> 16 && (id == 0 || isUsed(table, id)); ++tries) {
    const bool wraps = id == kHighestShortId && tries < kHighestShortId;
    id = wraps ? PartitionId{1} : static_cast<PartitionId>(id + 1);
  }
  return id;
}

}  // namespace tallowin
