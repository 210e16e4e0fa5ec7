// What can go wrong while an operation works on a disk, one thing after the other: each request
// that fails, each moment in which it is stopped, each power cut.
#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <span>

#include "base/job.h"
#include "disk/faulty_disk.h"
#include "disk/memory_disk.h"
#include "disk/recording_disk.h"

namespace tallowin {

struct Fault {
  enum class Kind : u8 { none, read, write, halfWrite, flush, cancel };
  Kind kind = Kind::none;
  u64 n = 0;             // counted from 0
  bool forever = false;  // and all later ones of the kind

  bool isWrite() const { return kind == Kind::write || kind == Kind::halfWrite; }
};
std::ostream& operator<<(std::ostream& out, const Fault& fault);

// One run of the operation, on a disk of its own.
class FaultRound {
 public:
  FaultRound(const MemoryDisk& before, Fault fault);
  ~FaultRound();
  FaultRound(const FaultRound&) = delete;
  FaultRound& operator=(const FaultRound&) = delete;

  // What the operation works on, and what is on the medium below it.
  DiskDevice& disk() { return *top_; }
  std::shared_ptr<DiskDevice> sharedDisk() { return top_; }
  MemoryDisk& medium() { return medium_; }

  const Fault& fault() const { return fault_; }
  bool isSound() const { return fault_.kind == Fault::Kind::none; }
  // Whether the operation came as far as its fault.
  bool wasHit() const;

  // The operation begins here: nothing fails before, and nothing before is counted. Every round
  // has to call it.
  void begin();
  bool hasBegun() const { return hasBegun_; }
  // Nothing fails from here on: the operation is tried again.
  void heal();
  // For an operation with a job, or a user who may press Cancel: whether to stop now.
  bool shouldStop();
  Job& job() { return *job_; }

  // All that was written and flushed.
  const WriteLog& log() const;

 private:
  class CountingFlushes;

  MemoryDisk medium_;
  Fault fault_;
  std::shared_ptr<RecordingDisk> recording_;
  std::shared_ptr<CountingFlushes> flushes_;
  std::shared_ptr<FaultyDisk> top_;
  std::unique_ptr<Job> job_;
  bool hasBegun_ = false;
  bool isHealed_ = false;
  bool wasHit_ = false;  // before it was healed
  u64 firstRead_ = 0;
  u64 firstWrite_ = 0;
  u64 polls_ = 0;
};

using RoundTest = std::function<void(FaultRound& round)>;

// Calls `run` once with a sound disk, and then with the n-th request of each kind failing, once
// and from then on, until n is beyond what the operation does. `run` starts the operation and
// judges what it left.
inline constexpr Fault::Kind kFailedRequests[] = {Fault::Kind::read, Fault::Kind::write,
                                                  Fault::Kind::halfWrite, Fault::Kind::flush};
inline constexpr Fault::Kind kFailedFlushes[] = {Fault::Kind::flush};
inline constexpr Fault::Kind kCancels[] = {Fault::Kind::cancel};
void forEachFault(const MemoryDisk& before, std::span<const Fault::Kind> kinds,
                  const RoundTest& run);

// Calls `run` once, which need not begin(), and then `judge` for each disk that a power cut may
// leave: all is there that came before a flush, and of the writes between it and the next one any
// subset, one of which may be half done. Many writes without a flush are judged by samples. What
// `run` did has to end with a flush.
void forEachPowerCut(const MemoryDisk& before, const RoundTest& run,
                     const std::function<void(MemoryDisk& after)>& judge);

}  // namespace tallowin
