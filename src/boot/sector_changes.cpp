#include "boot/sector_changes.h"

#include <algorithm>

namespace tallowin {

const SectorChange* SectorChanges::find(u64 lba) const {
  const auto found = std::ranges::find(changes_, lba, &SectorChange::lba);
  return found != changes_.end() ? &*found : nullptr;
}

Failure SectorChanges::read(u64 lba, std::vector<u8>& sector) const {
  if (const SectorChange* change = find(lba)) {
    sector = change->after;
    return {};
  }
  sector.assign(disk_.sectorSize(), 0);
  return disk_.readSectors(lba, sector.data(), 1).as(Error::read);
}

Failure SectorChanges::change(u64 lba, const std::vector<u8>& sector) {
  if (const SectorChange* known = find(lba)) {
    changes_[static_cast<std::size_t>(known - changes_.data())].after = sector;
    return {};
  }
  SectorChange made{lba, {}, sector};
  if (const Failure failed = read(lba, made.before)) return failed;
  if (made.before != sector) changes_.push_back(std::move(made));
  return {};
}

Failure SectorChanges::checkBefore() const {
  std::vector<u8> now(disk_.sectorSize());
  for (const SectorChange& change : changes_) {
    if (const Failure failed = disk_.readSectors(change.lba, now.data(), 1))
      return failed.as(Error::read);
    if (now != change.before && now != change.after) return Error::tableChangedMeanwhile;
  }
  return {};
}

Failure SectorChanges::apply() const {
  if (changes_.empty()) return {};
  if (const Failure failed = checkBefore()) return failed;
  Failure failed;
  for (const SectorChange& change : changes_) {
    failed = disk_.writeSectors(change.lba, change.after.data(), 1);
    // Of two copies one is always right.
    if (!failed) failed = disk_.flush();
    if (failed) break;
  }
  if (failed) static_cast<void>(takeBack());
  return failed;
}

Failure SectorChanges::takeBack() const {
  Failure first;
  for (std::size_t i = changes_.size(); i-- > 0;) {
    const Failure failed = disk_.writeSectors(changes_[i].lba, changes_[i].before.data(), 1);
    if (failed && !first) first = failed;
  }
  const Failure unflushed = disk_.flush();
  return first ? first : unflushed;
}

}  // namespace tallowin
