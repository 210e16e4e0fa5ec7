// The content proof around an operation: its files hold afterwards what they held before.
#pragma once

#include <optional>

#include "fs/content_proof.h"
#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// The files of the partition that starts there, by its own driver. unsupportedFileSystem: it has
// none; the answers of proveContent else.
Failure proveEntry(const OperationContext& context, Drive& drive, u64 startSector,
                   ContentProof& proof);

// Does nothing unless the options want a proof (Options::proveContent).
class ProofStep {
 public:
  // The operation changes the file `mayChange` itself, when it is there; empty: none.
  explicit ProofStep(const OperationContext& context, std::string mayChange = {})
      : context_(context), mayChange_(std::move(mayChange)) {}

  // Nothing: go on; files that cannot be read by this version are told to be unproven. Else the
  // reason was told.
  std::optional<FlowResult> before(Drive& drive, u64 startSector);
  // The end of the operation, which ended with `result` and succeeded: tells the comparison. failed
  // when a file differs.
  FlowResult after(Drive& drive, u64 startSector, const FlowResult& result);

 private:
  const OperationContext& context_;
  std::string mayChange_;
  std::optional<ContentProof> before_;
};

// "12,431 files, 12,431 identical", and the paths of the first that differ.
std::string proofResultText(const ProofComparison& comparison);
// Whether each file is there and holds what it held; times may differ.
bool holdsTheSame(const ProofComparison& comparison);

}  // namespace tallowin
