#include "fs/mount_table.h"

#include <algorithm>
#include <utility>

namespace tallowin {

Mount::~Mount() { static_cast<void>(unmount()); }

Mount& Mount::operator=(Mount&& other) noexcept {
  if (this == &other) return *this;
  static_cast<void>(unmount());
  table_ = std::exchange(other.table_, nullptr);
  slot_ = other.slot_;
  return *this;
}

FileSystem& Mount::files() const { return *table_->entries_[slot_].files; }

Failure Mount::unmount() {
  if (!isMounted()) return {};
  return std::exchange(table_, nullptr)->release(slot_);
}

Failure MountTable::mount(const SectorRange& range, u16 type, const OpenWish& wish, Mount& mount) {
  if (const Failure failed = mount.unmount()) return failed;
  const auto isIt = [&](const Entry& entry) {
    return entry.users != 0 && entry.disk == &range.disk && entry.firstSector == range.firstSector;
  };
  const auto isFree = [](const Entry& entry) { return entry.users == 0; };
  auto found = std::ranges::find_if(entries_, isIt);
  if (found != entries_.end()) {
    if (wish.writable && !found->files->isWritable()) return Error::accessDenied;
  } else {
    found = std::ranges::find_if(entries_, isFree);
    if (found == entries_.end()) return Error::tooManyMounts;
    Entry made{&range.disk, range.firstSector, 0, nullptr, nullptr};
    if (const Failure failed = open(range, type, wish, made)) return failed;
    *found = std::move(made);
  }
  share(static_cast<std::size_t>(found - entries_.begin()), mount);
  return {};
}

Failure MountTable::open(const SectorRange& range, u16 type, const OpenWish& wish,
                         Entry& entry) const {
  if (wish.writable) {
    entry.lock = std::make_unique<DiskChangeLock>(range.disk);
    if (!entry.lock->held()) return Error::lockNotMade;
  }
  const FileSystemKind* kind = kinds_.byContent(range, type);
  if (kind == nullptr) kind = kinds_.byType(type);
  if (kind == nullptr) return Error::fileSystemUnreadable;
  if (kind->open == nullptr) return Error::unsupportedFileSystem;
  return kind->open(range, type, wish, entry.files);
}

void MountTable::share(std::size_t slot, Mount& mount) {
  ++entries_[slot].users;
  mount.table_ = this;
  mount.slot_ = slot;
}

Failure MountTable::release(std::size_t slot) {
  Entry& entry = entries_[slot];
  if (--entry.users != 0) return {};
  const Failure failed = entry.files->isWritable() ? entry.files->sync() : Failure();
  // Before the lock is let go.
  entry.files.reset();
  entry = {};
  return failed;
}

}  // namespace tallowin
