#include "ops/job_of_front_end.h"

#include "base/stop_request.h"
#include "ops/disk_error_prompt.h"
#include "ops/trace_log.h"

namespace tallowin {
namespace {

struct PhaseWords {
  const char* title;
  const char* text;
  const char* button;  // empty: the phase cannot be stopped by a button
};

PhaseWords wordsOf(Phase phase) {
  switch (phase) {
    case Phase::formatting:
      return {"Format", "Formatting", ""};
    case Phase::surfaceScan:
      return {"Format", "Checking for surface defects...", "&Skip"};
    case Phase::wiping:
      return {"Wiping", "Wipe in progress...", "Cancel"};
    case Phase::copyingIn:
    case Phase::copyingOut:
      return {"Copying Files", "Copying files", "Cancel"};
    case Phase::deleting:
      return {"Deleting Files", "Deleting files", "Cancel"};
    case Phase::proving:
      return {"Reading Files", "Reading files", "Cancel"};
    case Phase::checking:
      return {"Check", "Checking for errors...", "Cancel"};
    case Phase::searching:
      return {"Undelete", "In progress...   0 Found.", "&Stop"};
    case Phase::copying:
      return {"Copying", "Copy in progress ...", "Cancel"};
    case Phase::sliding:
      return {"Sliding", "Slide in progress...", "Cancel"};
    case Phase::undoing:
      return {"Undoing", "Rollback in progress...", ""};
    case Phase::aligning:
      return {"Aligning", "Aligning...", "Cancel"};
    case Phase::preparing:
      return {"Aligning", "Preparing for Alignment...", "Cancel"};
    case Phase::gathering:
      return {"Resize", "Checking File System and Gathering Information...", "Cancel"};
    case Phase::resizing:
      return {"Resize", "Resizing...", "Cancel"};
    case Phase::resizingForGood:
      return {"Resize", "Resizing...", ""};
    case Phase::checkingAgain:
      return {"Resize", "Checking for errors...", ""};
  }
  return {"", "", ""};
}

const char* whoStops() {
  switch (stopReason()) {
    case StopReason::none:
      return "by the user";
    case StopReason::signal:
      return "by a signal";
    case StopReason::displayLost:
      return "because the display was lost";
    case StopReason::outOfMemory:
      return "because memory ran out";
  }
  return "";
}

}  // namespace

void JobOfFrontEnd::phase(Phase phase, u64 totalBytes) {
  const PhaseWords words = wordsOf(phase);
  if (progress_) {
    progress_->begin(words.text, words.button, totalBytes);
  } else {
    progress_ = std::make_unique<OperationProgress>(context_.ui, context_.host, words.title,
                                                    words.text, words.button);
    progress_->setTotalBytes(totalBytes);
  }
  phase_ = phase;
  isStopped_ = false;
  bytesDone_ = 0;
}

void JobOfFrontEnd::step(u32 number, u64 totalBytes) {
  if (progress_)
    progress_->begin(format("Phase %u...", number), wordsOf(phase_).button, totalBytes);
  bytesDone_ = 0;
}

void JobOfFrontEnd::pass(u32 number, u32 count, u64 totalBytes) {
  if (progress_)
    progress_->begin(format("Pass %u of %u in progress...", number, count), wordsOf(phase_).button,
                     totalBytes);
  bytesDone_ = 0;
}

void JobOfFrontEnd::finish(const std::string& text) {
  const bool isAwaited = !context_.options.rehearses && !stopRequested();
  if (progress_ && isAwaited) progress_->finish(text);
}

void JobOfFrontEnd::advance(u64 bytes) {
  bytesDone_ += bytes;
  if (progress_) progress_->setBytesDone(bytesDone_);
}

void JobOfFrontEnd::found(u64 count) {
  if (progress_)
    progress_->setText(
        format("In progress...   %llu Found.", static_cast<unsigned long long>(count)));
}

bool JobOfFrontEnd::shouldStop() {
  if (isStopped_ || !(stopRequested() || (progress_ && progress_->isCancelled())))
    return isStopped_;
  isStopped_ = true;
  note(format("Stopped %s", whoStops()));
  return true;
}

BadSectorAnswer JobOfFrontEnd::badSector(const Failure& failure, Direction direction) {
  note(format("Bad sector %llu, system error %d", static_cast<unsigned long long>(failure.lba),
              failure.systemError));
  // The other sectors would fail as well, and none of them is bad.
  if (failure.isOutOfSpace()) return BadSectorAnswer::stop;
  const bool goesOn = phase_ == Phase::wiping ? askToIgnoreWipeErrors(context_.ui, direction)
                                              : askDiskError(context_.ui, direction);
  return goesOn ? BadSectorAnswer::passOverAll : BadSectorAnswer::stop;
}

void JobOfFrontEnd::note(const std::string& text) {
  traceLine(context_.folders, "%s", text.c_str());
}

}  // namespace tallowin
