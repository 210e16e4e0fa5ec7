// A disk that fails where a test wants it to.
#pragma once

#include <vector>

#include "disk/disk_wrapper.h"

namespace tallowin {

class FaultyDisk : public DiskWrapper {
 public:
  enum class After { nothingWritten, halfWritten };
  struct SectorRange {
    u64 first = 0;
    u64 last = 0;  // inclusive
  };

  using DiskWrapper::DiskWrapper;

  // Fails the n-th read or write from now on, counted from 0; with `forever` all later ones too.
  // Sectors that are cleared count as one write, and overlapped transfers where they are finished.
  void failRead(u64 n, bool forever = false) { readFault_ = {reads_ + n, forever}; }
  void failWrite(u64 n, bool forever = false, After after = After::nothingWritten) {
    writeFault_ = {writes_ + n, forever};
    afterWriteFault_ = after;
  }
  void failFlush(bool fail) { failFlush_ = fail; }
  // Every read, or every access, that touches the range fails.
  void failReadsOf(SectorRange range) { badReads_.push_back(range); }
  void failAccessTo(SectorRange range) {
    badReads_.push_back(range);
    badWrites_.push_back(range);
  }

  u64 reads() const { return reads_; }
  u64 writes() const { return writes_; }
  u64 flushes() const { return flushes_; }

  Failure flush() override;

 protected:
  Failure transferIn(u64 lba, void* buffer, u32 count) override;
  Failure transferOut(u64 lba, const void* buffer, u32 count) override;
  std::optional<Failure> zeroFast(u64 lba, u64 count) override;

 private:
  struct Fault {
    u64 at = kAllOnes64;
    bool forever = false;
    bool hits(u64 n) const { return n == at || (forever && n > at); }
  };
  static bool touches(const std::vector<SectorRange>& ranges, u64 lba, u64 count);
  bool failsWrite(u64 lba, u64 count);

  Fault readFault_;
  Fault writeFault_;
  After afterWriteFault_ = After::nothingWritten;
  bool failFlush_ = false;
  std::vector<SectorRange> badReads_;
  std::vector<SectorRange> badWrites_;
  u64 reads_ = 0;
  u64 writes_ = 0;
  u64 flushes_ = 0;
};

}  // namespace tallowin
