// `Job`: how a long operation tells how far it is, and asks what can only be asked while it runs.
#pragma once

#include <string>

#include "base/error.h"
#include "base/types.h"

namespace tallowin {

// What an operation is doing; the words for it belong to whoever shows them.
enum class Phase : u8 {
  formatting,
  surfaceScan,
  wiping,
  checking,
  searching,
  copyingIn,   // files of the host into a volume
  copyingOut,  // and out of one
  deleting,    // files
  proving,     // reading what files hold
  copying,     // sectors of a partition to another place
  sliding,     // within its free space
  undoing,     // what was moved is put back; cannot be stopped
  aligning,
  preparing,  // for an alignment
  gathering,  // what a resize has to know
  resizing,
  resizingForGood,  // without a way back, so that it cannot be stopped
  checkingAgain,    // after a change
};

enum class Direction { read, write };

enum class BadSectorAnswer {
  stop,         // the operation ends with the failure
  skip,         // this one is passed over; the next one is asked about
  passOverAll,  // this and all further ones are passed over
};

// One for all operations, so that percent, speed and time left are reckoned in one place. An
// operation asks nobody else and shows nothing.
class Job {
 public:
  virtual ~Job() = default;
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  // Begins a phase of `totalBytes`, 0 when the amount is not known.
  virtual void phase(Phase phase, u64 totalBytes) = 0;
  // Which step of the phase begins, from 1 on, where it has several; each of so many bytes.
  virtual void step(u32 number, u64 totalBytes) {
    static_cast<void>(number);
    static_cast<void>(totalBytes);
  }
  // Which of several passes over the same begins, from 1 on; each of so many bytes.
  virtual void pass(u32 number, u32 count, u64 totalBytes) {
    static_cast<void>(number);
    static_cast<void>(count);
    static_cast<void>(totalBytes);
  }
  // So many bytes more of the phase are done.
  virtual void advance(u64 bytes) = 0;
  // So many things of what the phase looks for were found by now.
  virtual void found(u64 count) { static_cast<void>(count); }
  // Whether the user, a signal or a lost display wants the operation to end. Asked where stopping
  // is safe; serves events, and stays true once it was true within a phase.
  virtual bool shouldStop() = 0;
  // `failure.lba` could not be read or written.
  virtual BadSectorAnswer badSector(const Failure& failure, Direction direction) = 0;
  // A line for the trace.
  virtual void note(const std::string& text) = 0;

 protected:
  Job() = default;
};

// Never stops, and stops at the first bad sector.
class SilentJob : public Job {
 public:
  void phase(Phase, u64) override {}
  void advance(u64) override {}
  bool shouldStop() override { return false; }
  BadSectorAnswer badSector(const Failure&, Direction) override { return BadSectorAnswer::stop; }
  void note(const std::string&) override {}
};

}  // namespace tallowin
