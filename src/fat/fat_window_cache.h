// A window cache: pieces of a long array of entries, with a dirty range for each piece.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "base/types.h"

namespace tallowin {

// Holds up to N windows of equal size in one store, one of them current. It does no I/O: its
// owner fills a window that take() handed out, and writes dirty windows before room is made.
//
// An entry is looked up with find(). When it is in no window: if !hasRoom(), write and clean all
// dirty windows; then take() a window for it, fill it, or discard() it when that failed.
class FatWindowCache {
 public:
  static constexpr u32 kClean = kAllOnes32;

  struct Window {
    u64 firstEntry = 0;
    u64 lastEntry = 0;      // inclusive
    u32 dirtyLow = kClean;  // lowest and highest changed entry, relative to firstEntry
    u32 dirtyHigh = kClean;
    u64 lastUse = 0;
    u8* bytes = nullptr;  // in the cache's store
    bool inUse = false;

    bool isDirty() const { return dirtyLow != kClean; }
    bool holds(u64 entry) const { return inUse && entry >= firstEntry && entry <= lastEntry; }
    void clean() { dirtyLow = dirtyHigh = kClean; }
  };

  // Room for `savedWindows` windows, or for the current one alone when that is 0. What was in
  // the cache is forgotten. False, with an empty cache, when there is not so much memory.
  [[nodiscard]] bool setUp(u64 windowBytes, u32 entriesPerWindow, u32 savedWindows);
  bool isSetUp() const { return !windows_.empty(); }

  u32 entriesPerWindow() const { return entriesPerWindow_; }
  u32 windowBytes() const { return windowBytes_; }

  // The window that holds `entry`, made current; null when none does.
  Window* find(u64 entry) {
    if (current_ != nullptr && current_->holds(entry)) return current_;
    return findSaved(entry);
  }
  Window* current() { return current_; }
  bool hasRoom() const;
  // A zeroed window around `entry`, made current: an unused one, else the least recently used,
  // which must be clean.
  Window& take(u64 entry);
  // Forgets the current window, whatever it holds.
  void discardCurrent();

  // Widens the dirty range of the current window by `entry`, which it holds.
  void markDirty(u64 entry);
  // In order of their first entry.
  std::vector<Window*> dirtyWindows();

 private:
  Window* findSaved(u64 entry);

  std::unique_ptr<u8[]> store_;
  std::vector<Window> windows_;
  Window* current_ = nullptr;  // in windows_
  u32 windowBytes_ = 0;
  u32 entriesPerWindow_ = 1;
  u64 uses_ = 0;
};

}  // namespace tallowin
