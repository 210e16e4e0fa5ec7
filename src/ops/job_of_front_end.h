// The one `Job` of all flows: progress windows, the disk error question and the trace.
#pragma once

#include <memory>
#include <string>

#include "base/job.h"
#include "ops/operation_context.h"
#include "ops/operation_progress.h"

namespace tallowin {

// Shows a progress dialog from the first phase to its own end; nothing is shown before.
class JobOfFrontEnd : public Job {
 public:
  explicit JobOfFrontEnd(const OperationContext& context) : context_(context) {}

  void phase(Phase phase, u64 totalBytes) override;
  void step(u32 number, u64 totalBytes) override;
  void pass(u32 number, u32 count, u64 totalBytes) override;
  void advance(u64 bytes) override;
  void found(u64 count) override;
  // The first time that it is true within a phase, the trace says why.
  bool shouldStop() override;
  BadSectorAnswer badSector(const Failure& failure, Direction direction) override;
  void note(const std::string& text) override;

  // The operation was done: says so, until the user closes it.
  void finish(const std::string& text);

 private:
  const OperationContext& context_;
  std::unique_ptr<OperationProgress> progress_;
  Phase phase_ = Phase::formatting;
  u64 bytesDone_ = 0;
  bool isStopped_ = false;
};

}  // namespace tallowin
