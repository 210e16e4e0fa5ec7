#include "fat/fat_window_cache.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace tallowin {

bool FatWindowCache::setUp(u64 windowBytes, u32 entriesPerWindow, u32 savedWindows) {
  *this = FatWindowCache();
  const u32 count = std::max(savedWindows, u32{1});
  if (windowBytes == 0 || entriesPerWindow == 0 || windowBytes > kAllOnes32 / count) return false;
  // Not zeroed: what no window takes is never touched.
  store_.reset(new (std::nothrow) u8[windowBytes * count]);
  if (store_ == nullptr) return false;
  windowBytes_ = static_cast<u32>(windowBytes);
  entriesPerWindow_ = entriesPerWindow;
  windows_.resize(count);
  for (u32 i = 0; i < count; ++i) windows_[i].bytes = store_.get() + windowBytes * i;
  return true;
}

FatWindowCache::Window* FatWindowCache::findSaved(u64 entry) {
  const auto found = std::find_if(windows_.begin(), windows_.end(),
                                  [&](const Window& window) { return window.holds(entry); });
  if (found == windows_.end()) return nullptr;
  found->lastUse = ++uses_;
  return current_ = &*found;
}

bool FatWindowCache::hasRoom() const {
  return std::any_of(windows_.begin(), windows_.end(),
                     [](const Window& window) { return !window.inUse; });
}

FatWindowCache::Window& FatWindowCache::take(u64 entry) {
  // Unused windows were never used, or are stamped as such: they are the oldest.
  current_ =
      &*std::min_element(windows_.begin(), windows_.end(),
                         [](const Window& a, const Window& b) { return a.lastUse < b.lastUse; });
  current_->firstEntry = entry - entry % entriesPerWindow_;
  current_->lastEntry = current_->firstEntry + (entriesPerWindow_ - 1);
  current_->clean();
  current_->lastUse = ++uses_;
  current_->inUse = true;
  std::memset(current_->bytes, 0, windowBytes_);
  return *current_;
}

void FatWindowCache::discardCurrent() {
  if (current_ == nullptr) return;
  current_->inUse = false;
  current_->lastUse = 0;
  current_->clean();
  current_ = nullptr;
}

void FatWindowCache::markDirty(u64 entry) {
  const u32 index = static_cast<u32>(entry - current_->firstEntry);
  const bool wasDirty = current_->isDirty();
  current_->dirtyLow = wasDirty ? std::min(current_->dirtyLow, index) : index;
  current_->dirtyHigh = wasDirty ? std::max(current_->dirtyHigh, index) : index;
}

std::vector<FatWindowCache::Window*> FatWindowCache::dirtyWindows() {
  std::vector<Window*> dirty;
  for (Window& window : windows_)
    if (window.isDirty()) dirty.push_back(&window);
  std::sort(dirty.begin(), dirty.end(),
            [](const Window* a, const Window* b) { return a->firstEntry < b->firstEntry; });
  return dirty;
}

}  // namespace tallowin
