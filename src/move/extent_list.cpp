#include "move/extent_list.h"

#include <algorithm>
#include <new>

namespace tallowin {
namespace {

constexpr u32 kClassShift = 28;

}  // namespace

ExtentList::Extent ExtentList::at(std::size_t index) const {
  const Entry& entry = entries_[index];
  return {entry.startSector, entry.sectorsAndClass & kMaxSectors,
          static_cast<ExtentClass>(entry.sectorsAndClass >> kClassShift)};
}

Failure ExtentList::add(u64 startSector, u64 sectors, ExtentClass kind) {
  if (!empty() && startSector < at(size() - 1).endSector()) return Error::invalidName;
  try {
    append(startSector, sectors, kind);
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
  return {};
}

void ExtentList::append(u64 startSector, u64 sectors, ExtentClass kind) {
  if (!empty()) {
    const Extent last = at(size() - 1);
    if (last.kind == kind && last.endSector() == startSector && last.sectors < kMaxSectors) {
      const u32 joined = static_cast<u32>(std::min<u64>(sectors, kMaxSectors - last.sectors));
      entries_.back().sectorsAndClass += joined;
      startSector += joined;
      sectors -= joined;
    }
  }
  while (sectors != 0) {
    const u32 piece = static_cast<u32>(std::min<u64>(sectors, kMaxSectors));
    entries_.push_back({startSector, piece | static_cast<u32>(kind) << kClassShift});
    startSector += piece;
    sectors -= piece;
  }
}

Failure ExtentList::mark(u64 startSector, u64 sectors, ExtentClass kind) {
  const u64 end = startSector + sectors;
  ExtentList marked;
  try {
    marked.entries_.reserve(size() + 2);
    for (std::size_t index = 0; index < size(); ++index) {
      const Extent extent = at(index);
      const u64 from = std::clamp(startSector, extent.startSector, extent.endSector());
      const u64 to = std::clamp(end, from, extent.endSector());
      marked.append(extent.startSector, from - extent.startSector, extent.kind);
      marked.append(from, to - from, kind);
      marked.append(to, extent.endSector() - to, extent.kind);
    }
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
  *this = std::move(marked);
  return {};
}

std::size_t ExtentList::indexAt(u64 sector) const {
  std::size_t low = 0;
  std::size_t high = size();
  while (low < high) {
    const std::size_t middle = (low + high) / 2;
    if (at(middle).endSector() > sector)
      high = middle;
    else
      low = middle + 1;
  }
  return low;
}

u64 ExtentList::dataSectors(u64 startSector, u64 sectors) const {
  const u64 end = startSector + sectors;
  u64 count = 0;
  for (std::size_t index = indexAt(startSector); index < size(); ++index) {
    const Extent extent = at(index);
    if (extent.startSector >= end) break;
    if (extent.kind == ExtentClass::data)
      count += std::min(end, extent.endSector()) - std::max(startSector, extent.startSector);
  }
  return count;
}

u64 ExtentList::dataSectors() const { return dataSectors(0, kAllOnes64); }

}  // namespace tallowin
