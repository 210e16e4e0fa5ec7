// What Format and Create share: the choice of clusters, and the format with its words.
#pragma once

#include <string>
#include <vector>

#include "ops/format_operation.h"
#include "ops/operation_context.h"

namespace tallowin {

// Three steps, so that what belongs to the table can be done between them:
//
//   FormatStep step(context, drive);
//   if (!step.ask({&kind}, type)) ...             // nothing was written yet
//   const Failure failed = step.format(target);   // the disk is locked, the table says the type
//   return step.tell(failed, name);
class FormatStep {
 public:
  FormatStep(const OperationContext& context, Drive& drive) : context_(context), drive_(drive) {}

  // Runs the Format dialog, unless a single kind leaves nothing to choose for `type`. At least one
  // kind, borrowed. False: cancelled.
  [[nodiscard]] bool ask(std::vector<const FileSystemKind*> kinds, u16 type);
  // The one that was chosen.
  const FileSystemKind& kind() const { return *kind_; }

  // An empty label: none. Errors of formatVolume.
  Failure format(const FormatTarget& target, const std::string& label, bool surfaceScan = true);
  // What the target held is known to be gone, whatever becomes of the format.
  void contentIsGone() { isGone_ = true; }
  // Says what became of it: the summary, or what is on the disk now; `tableText` is a further
  // sentence for that. doneWithLosses: the scan found bad clusters.
  FlowResult tell(const Failure& failed, const std::string& name,
                  const std::string& tableText = {});

 private:
  std::string stateText() const;
  void showSummary(const std::string& name);

  const OperationContext& context_;
  Drive& drive_;
  const FileSystemKind* kind_ = nullptr;
  u32 clusterBytes_ = 0;
  bool alignForNtfs_ = false;
  FormatTarget target_;
  FormatReport report_;
  bool isGone_ = false;
};

}  // namespace tallowin
