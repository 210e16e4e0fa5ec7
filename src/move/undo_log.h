// A disk that keeps in a journal what is overwritten, so that all of it can be put back.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "disk/disk_wrapper.h"
#include "disk/sector_range.h"
#include "move/extent_list.h"
#include "move/journal_file.h"

namespace tallowin {

// A set of sectors, as ranges that neither touch nor overlap.
class SectorSet {
 public:
  // One past the last of each, by its first.
  using Ranges = std::map<u64, u64>;

  void add(u64 first, u64 end);
  // What of [first, end) is not in the set, ascending.
  std::vector<std::pair<u64, u64>> missing(u64 first, u64 end) const;

 private:
  Ranges ranges_;
};

// Before a sector is overwritten for the first time its contents are durable in the journal. Of a
// volume only the sectors in use are kept: what a free one holds is nobody's loss.
class UndoLogDisk : public DiskWrapper {
 public:
  // Disk and journal are borrowed. The log begins at `bodyOffset` of the journal's body and takes
  // all behind it.
  UndoLogDisk(DiskDevice& inner, JournalFile& journal, u64 bodyOffset)
      : DiskWrapper(inner), journal_(journal), offset_(bodyOffset) {}

  // Of these sectors only those of the list are kept.
  void keepOnly(u64 firstSector, u64 sectorCount, const ExtentList& inUse);

  // These are overwritten soon: they are kept now, and made durable all at once when the first of
  // them is written.
  Failure keepAhead(u64 lba, u64 count);

  // Whether anything was kept so far.
  bool isEmpty() const { return isEmpty_; }

 protected:
  Failure transferOut(u64 lba, const void* buffer, u32 count) override;

 private:
  Failure keepRange(u64 first, u64 end);
  Failure keepPiece(u64 first, u64 end);

  JournalFile& journal_;
  u64 offset_;
  bool isSynced_ = true;
  bool isEmpty_ = true;
  SectorSet kept_;  // and what need not be
  std::vector<u8> buffer_;
};

// Puts back what a log holds; all is on the medium then. What a cut left of
// a last record is passed over: none of its sectors was overwritten yet. read, write, flush,
// seekFailed, sectorSizeDiffers (the disk has become smaller), outOfMemory.
Failure playUndoLog(JournalFile& journal, u64 bodyOffset, DiskDevice& disk);

}  // namespace tallowin
