#include "ops/zero_wipe.h"

#include <algorithm>

namespace tallowin {
namespace {

constexpr u64 kPieceBytes = 4 * kMiB;

class ZeroWiper {
 public:
  ZeroWiper(DiskDevice& disk, const SectorExtent& extent, Job& job, WipeReport& report)
      : disk_(disk), extent_(extent), job_(job), report_(report) {}

  Failure run() {
    const u64 total = extent_.endSector - extent_.startSector + 1;
    const u64 piece = std::max<u64>(1, kPieceBytes / disk_.sectorSize());
    job_.phase(Phase::wiping, total * disk_.sectorSize());
    Failure stopped;
    while (!stopped && report_.sectorsDone < total)
      stopped = job_.shouldStop() ? Failure(Error::cancelled)
                                  : wipePiece(std::min(piece, total - report_.sectorsDone));
    const Failure unflushed = disk_.flush();
    disk_.dropCachesOf(extent_.startSector, total);
    return stopped && stopped != Error::cancelled ? stopped : unflushed ? unflushed : stopped;
  }

 private:
  Failure wipePiece(u64 count) {
    const u64 first = extent_.startSector + report_.sectorsDone;
    if (!disk_.writeZeros(first, count)) {
      done(count);
      return {};
    }
    // Which sectors of the piece failed tells only a write of each alone.
    for (u64 lba = first; lba < first + count; ++lba) {
      if (const Failure failed = wipeSector(lba)) return failed;
      done(1);
    }
    return {};
  }

  Failure wipeSector(u64 lba) {
    const Failure failed = disk_.writeZeros(lba, 1);
    if (!failed) return {};
    if (!passesOver_) {
      const BadSectorAnswer answer = job_.badSector(failed, Direction::write);
      if (answer == BadSectorAnswer::stop) return failed;
      passesOver_ = answer == BadSectorAnswer::passOverAll;
    }
    ++report_.sectorsFailed;
    return {};
  }

  void done(u64 sectors) {
    report_.sectorsDone += sectors;
    job_.advance(sectors * disk_.sectorSize());
  }

  DiskDevice& disk_;
  SectorExtent extent_;
  Job& job_;
  WipeReport& report_;
  bool passesOver_ = false;
};

}  // namespace

Failure zeroWipe(DiskDevice& disk, const SectorExtent& extent, Job& job, WipeReport& report) {
  return ZeroWiper(disk, extent, job, report).run();
}

}  // namespace tallowin
