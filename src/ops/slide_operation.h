// Slide as an operation: its two stages with a journal or without, to the end or back.
#pragma once

#include "ops/move_partition.h"
#include "ops/unfinished_work.h"

namespace tallowin {

// All that a journal has to hold beside its state for a slide to go on, or to be undone, when
// neither the table nor the file system can be read any more.
WorkRecord recordOf(const SlidePlan& plan);
std::vector<u8> attachmentOf(const SlidePlan& plan);
// corrupt.
Failure slidePlanOf(const WorkRecord& record, std::span<const u8> attachment, SlidePlan& plan);

// One slide of a disk that is locked. All is on the medium when an answer is given.
class SlideRun {
 public:
  // All borrowed. Without a journal, null, a kill or a power cut leaves what was moved by then.
  SlideRun(const FileSystemKinds& kinds, Drive& drive, const SlidePlan& plan, JournalFile* journal)
      : kinds_(kinds), drive_(drive), plan_(plan), journal_(journal) {}

  // Moves the data and writes boot records and table; with the journal of a slide that was cut
  // short from where that was. After a failure all is as it was, unless isStuck() says else;
  // cancelled, read, write: of the data; for the others see finishSlide.
  Failure run(Job& job);
  // Puts everything back; cannot be stopped.
  Failure undo(Job& job);

  // What was done could not be undone: with a journal it can be tried again.
  bool isStuck() const { return isStuck_; }
  const MoveReport& report() const { return report_; }  // of the data
  const std::vector<std::string>& notes() const { return notes_; }

 private:
  Failure moveData(Job& job);
  Failure finish();
  Failure putBack(Job& job);
  Failure putEbrBack();
  SectorRange source() const;

  const FileSystemKinds& kinds_;
  Drive& drive_;
  const SlidePlan& plan_;
  JournalFile* journal_;
  MoveReport report_;
  bool isStuck_ = false;
  std::vector<std::string> notes_;
};

}  // namespace tallowin
