// `SectorMover`: moves a range of sectors, and undoes it when it cannot be finished.
#pragma once

#include <memory>

#include "base/job.h"
#include "disk/sector_range.h"
#include "move/extent_list.h"
#include "move/move_journal.h"

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
// sector that has not been read. All that was moved is on the medium when an answer is given,
// unless that is `flush`.
//
// The job's phase is the caller's, of 2 x sectorsToMove() x sector size bytes: each sector counts
// when it is read and when it is written. A stop (the job's wish, or a sector that is not passed
// over) ends the move: where sectors of the source were overwritten they are put back first, in a
// phase of its own that cannot be stopped, so that the source is whole again; else nothing has
// happened to it. The answer is then cancelled, read or write.
class SectorMover {
 public:
  // The disks and the job are borrowed for the life of the object. Moves all of the range, or of it
  // what `extents`, borrowed too, has with class data.
  SectorMover(const SectorRange& source, DiskDevice& target, u64 targetStart, Job& job,
              const ExtentList* extents = nullptr);
  ~SectorMover();
  SectorMover(const SectorMover&) = delete;
  SectorMover& operator=(const SectorMover&) = delete;

  // Before anything is moved. outOfMemory; sectorSizeDiffers.
  Failure whyUnusable() const;
  u64 sectorsToMove() const;

  // What is done next outlives a kill and a power cut: see MoveJournal, which is borrowed.
  void keepJournal(MoveJournal& journal);

  // With a journal of a move that was cut short it goes on where that was; one that was being
  // undone begins anew when that is done.
  Failure run();
  // What a journal says was moved is put back; cannot be stopped.
  Failure undo();

  const MoveReport& report() const;

 private:
  class Engine;
  std::unique_ptr<Engine> engine_;
};

}  // namespace tallowin
