// Which sectors of a range hold data, in ascending order.
#pragma once

#include <span>
#include <vector>

#include "base/error.h"
#include "base/types.h"

namespace tallowin {

// What an extent holds. All but `data` belongs to the file system, and its contents need not be
// moved.
enum class ExtentClass : u8 {
  data = 0,
  pageFile = 2,
  hibernationFile = 3,
  excludedFile = 6,
  swapFile = 7,
  ntfsLog = 9,
};

// 12 bytes an entry, so that the list of a full and much divided volume stays small: a run of more
// than kMaxSectors takes several entries.
class ExtentList {
 public:
  static constexpr u32 kMaxSectors = 0x0FFFFFFF;

  struct Extent {
    u64 startSector = 0;  // of the disk
    u32 sectors = 0;
    ExtentClass kind = ExtentClass::data;

    u64 endSector() const { return startSector + sectors; }  // one past the last
    friend bool operator==(const Extent&, const Extent&) = default;
  };

  // Behind what the list has; joined with the last extent where it adjoins that and is of its
  // class. invalidName: it begins before the end of the last one; outOfMemory.
  Failure add(u64 startSector, u64 sectors, ExtentClass kind = ExtentClass::data);
  // The part of these sectors that is in the list becomes of that class; entries are split.
  Failure mark(u64 startSector, u64 sectors, ExtentClass kind);

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  Extent at(std::size_t index) const;
  // The first entry that ends behind `sector`; size() when there is none.
  std::size_t indexAt(u64 sector) const;
  // Of class data, in [startSector, startSector + sectors).
  u64 dataSectors(u64 startSector, u64 sectors) const;
  u64 dataSectors() const;

 private:
#pragma pack(push, 1)
  struct Entry {
    u64 startSector;
    u32 sectorsAndClass;  // the class in the upper 4 bits
  };
#pragma pack(pop)
  static_assert(sizeof(Entry) == 12);

  void append(u64 startSector, u64 sectors, ExtentClass kind);

  std::vector<Entry> entries_;
};

}  // namespace tallowin
