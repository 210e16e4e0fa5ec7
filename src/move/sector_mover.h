// `SectorMover`: moves a range of sectors, and undoes it when it cannot be finished.
#pragma once

#include <memory>

#include "base/job.h"
#include "disk/sector_range.h"
#include "move/extent_list.h"

namespace tallowin {

// What a move came to, in sectors.
struct MoveReport {
  u64 readErrors = 0;   // could not be read even one at a time: zeros were written for them
  u64 writeErrors = 0;  // could not be written even one at a time
  u64 moved = 0;        // written, gaps not counted
  bool touchedTarget = false;
  bool touchedSource = false;  // some of its sectors were overwritten, for a time or for good
  bool rolledBack = false;     // and put back; with write errors: as far as it went
};

// Source and target may overlap on one disk: the direction is then the one that overwrites no
// sector that has not been read. What was moved is on the medium when an answer is given, unless
// that is `flush`.
//
// A stop (the job's wish, or a sector that is not passed over) ends the move: where sectors of the
// source were overwritten they are put back first, so that the source is whole again; else nothing
// has happened to it. The answer is then cancelled, read or write.
class SectorMover {
 public:
  // The disks and the job are borrowed for the life of the object.
  SectorMover(const SectorRange& source, DiskDevice& target, u64 targetStart, Job& job);
  ~SectorMover();
  SectorMover(const SectorMover&) = delete;
  SectorMover& operator=(const SectorMover&) = delete;

  // Before anything is moved. outOfMemory; sectorSizeDiffers.
  Failure whyUnusable() const;

  // How far the move may go before the source is damaged, where the caller knows it better than
  // the two ranges tell; 0: nothing is ever undone.
  void setOverlapDistance(u64 sectors);
  // What the job is told to expect; by default the whole range. Each sector counts twice.
  void setSectorsToMove(u64 sectors);

  // All of it.
  Failure run();
  // What the list has of the source with class data; gaps and other classes are passed over.
  Failure runExtents(const ExtentList& extents);

  // For callers that walk by themselves, in the order of the direction. They stop at the first
  // failure; what was moved by then has been put back.
  bool isBackward() const;
  Failure move(u64 sourceStart, u64 sectors);
  void skip(u64 sectors);
  // After the last piece: everything is on the medium.
  Failure finish();

  const MoveReport& report() const;

 private:
  class Engine;
  std::unique_ptr<Engine> engine_;
};

}  // namespace tallowin
