#include "support/fault_loops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <random>
#include <sstream>

namespace tallowin {
namespace {

constexpr u64 kMostRequests = 2000;  // an operation with more is not made for these loops
constexpr u64 kNever = u64{1} << 62;
constexpr std::size_t kMostExhaustive = 5;
constexpr std::size_t kRandomSubsets = 24;

class RoundJob : public SilentJob {
 public:
  explicit RoundJob(FaultRound& round) : round_(round) {}
  bool shouldStop() override { return round_.shouldStop(); }

 private:
  FaultRound& round_;
};

// Which of the writes between two flushes arrived.
using Subset = std::vector<bool>;

std::vector<Subset> subsetsOf(std::size_t count) {
  std::vector<Subset> subsets;
  if (count <= kMostExhaustive) {
    for (std::size_t bits = 0; bits < std::size_t{1} << count; ++bits) {
      Subset& subset = subsets.emplace_back(count);
      for (std::size_t i = 0; i < count; ++i) subset[i] = (bits >> i & 1) != 0;
    }
    return subsets;
  }
  for (std::size_t prefix = 0; prefix <= count; ++prefix) {
    Subset& subset = subsets.emplace_back(count);
    std::fill_n(subset.begin(), prefix, true);
  }
  for (std::size_t i = 0; i < count; ++i) {
    subsets.emplace_back(count)[i] = true;
    subsets.emplace_back(count, true)[i] = false;
  }
  std::mt19937 random(static_cast<unsigned>(count));
  for (std::size_t i = 0; i < kRandomSubsets; ++i)
    for (auto&& arrived : subsets.emplace_back(count)) arrived = random() % 2 == 0;
  return subsets;
}

// Which of the writes that arrived is half done: none, each in turn, or of many the last one.
std::vector<std::size_t> tornIn(const Subset& subset) {
  std::vector<std::size_t> torn = {subset.size()};
  for (std::size_t i = subset.size(); i-- > 0;) {
    if (!subset[i]) continue;
    torn.push_back(i);
    if (subset.size() > kMostExhaustive) break;
  }
  return torn;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Fault& fault) {
  static constexpr const char* kNames[] = {"nothing",    "read",  "write",
                                           "half write", "flush", "stop"};
  return out << kNames[static_cast<std::size_t>(fault.kind)] << " " << fault.n
             << (fault.forever ? " and all later ones" : "");
}

class FaultRound::CountingFlushes : public DiskWrapper {
 public:
  CountingFlushes(DiskDevice& inner, const Fault& fault) : DiskWrapper(inner), fault_(fault) {}

  Failure flush() override {
    const u64 now = count++;
    const bool fails = fault_.kind == Fault::Kind::flush && from && now >= *from &&
                       (now - *from == fault_.n || (fault_.forever && now - *from > fault_.n));
    return fails ? Failure(Error::flush, EIO) : DiskWrapper::flush();
  }

  std::optional<u64> from;  // nothing: none fails yet
  u64 count = 0;

 private:
  Fault fault_;
};

FaultRound::FaultRound(const MemoryDisk& before, Fault fault)
    : medium_(before.copy()),
      fault_(fault),
      recording_(std::make_shared<RecordingDisk>(medium_)),
      flushes_(std::make_shared<CountingFlushes>(*recording_, fault)),
      top_(std::make_shared<FaultyDisk>(*flushes_)),
      job_(std::make_unique<RoundJob>(*this)) {}

FaultRound::~FaultRound() = default;

void FaultRound::begin() {
  hasBegun_ = true;
  if (fault_.kind == Fault::Kind::read) top_->failRead(fault_.n, fault_.forever);
  if (fault_.isWrite())
    top_->failWrite(fault_.n, fault_.forever,
                    fault_.kind == Fault::Kind::write ? FaultyDisk::After::nothingWritten
                                                      : FaultyDisk::After::halfWritten);
  firstRead_ = top_->reads();
  firstWrite_ = top_->writes();
  flushes_->from = flushes_->count;
  polls_ = 0;
}

void FaultRound::heal() {
  wasHit_ = wasHit();
  isHealed_ = true;
  top_->failRead(kNever);
  top_->failWrite(kNever);
  flushes_->from.reset();
}

bool FaultRound::shouldStop() {
  const u64 now = polls_++;
  return !isHealed_ && fault_.kind == Fault::Kind::cancel && now >= fault_.n;
}

bool FaultRound::wasHit() const {
  if (isHealed_) return wasHit_;
  switch (fault_.kind) {
    case Fault::Kind::none:
      return false;
    case Fault::Kind::read:
      return top_->reads() - firstRead_ > fault_.n;
    case Fault::Kind::write:
    case Fault::Kind::halfWrite:
      return top_->writes() - firstWrite_ > fault_.n;
    case Fault::Kind::flush:
      return flushes_->count - flushes_->from.value_or(0) > fault_.n;
    case Fault::Kind::cancel:
      return polls_ > fault_.n;
  }
  return false;
}

const WriteLog& FaultRound::log() const { return recording_->log(); }

void forEachFault(const MemoryDisk& before, std::span<const Fault::Kind> kinds,
                  const RoundTest& run) {
  {
    SCOPED_TRACE("with a sound disk");
    FaultRound sound(before, {});
    run(sound);
  }
  for (const Fault::Kind kind : kinds) {
    for (const bool forever : {false, true}) {
      if (kind == Fault::Kind::cancel && !forever) continue;
      bool goesOn = true;
      for (u64 n = 0; goesOn && !testing::Test::HasFatalFailure(); ++n) {
        ASSERT_LT(n, kMostRequests);
        std::ostringstream what;
        const Fault fault{kind, n, forever};
        what << "failing: " << fault;
        SCOPED_TRACE(what.str());
        FaultRound round(before, fault);
        run(round);
        ASSERT_TRUE(round.hasBegun());
        goesOn = round.wasHit();
      }
    }
  }
}

void forEachPowerCut(const MemoryDisk& before, const RoundTest& run,
                     const std::function<void(MemoryDisk& after)>& judge) {
  FaultRound round(before, {});
  run(round);
  if (testing::Test::HasFatalFailure()) return;
  const std::vector<WriteLog::Step>& steps = round.log().steps();
  ASSERT_FALSE(steps.empty());
  ASSERT_TRUE(steps.back().isFlush) << "what is done may not be on the medium";
  MemoryDisk flushed = before.copy();
  for (std::size_t first = 0; first < steps.size();) {
    const auto begin = steps.begin() + static_cast<std::ptrdiff_t>(first);
    const auto end =
        std::find_if(begin, steps.end(), [](const auto& step) { return step.isFlush; });
    const std::span writes(begin, end);
    for (const Subset& subset : subsetsOf(writes.size())) {
      for (const std::size_t torn : tornIn(subset)) {
        MemoryDisk after = flushed.copy();
        std::string arrived;
        for (std::size_t i = 0; i < writes.size(); ++i) {
          if (!subset[i]) continue;
          play(writes[i], after, i == torn ? Arrival::half : Arrival::whole);
          arrived += " " + std::to_string(first + i) + (i == torn ? " (half)" : "");
        }
        SCOPED_TRACE("power cut with all before step " + std::to_string(first) + " and" + arrived);
        judge(after);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
    for (const WriteLog::Step& step : writes) play(step, flushed);
    first += writes.size() + 1;
  }
}

}  // namespace tallowin
