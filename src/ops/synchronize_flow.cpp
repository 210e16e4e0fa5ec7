#include "ops/synchronize_flow.h"

#include "base/text.h"
#include "disk/disk_handles.h"
#include "ops/table_change.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

// An image that was only named belongs to nobody's machine: what is in its boot sector may be an
// accident that its owner does not know of.
bool wantsToFollow(const OperationContext& context, Drive& drive) {
  if (drive.driveNumber() >> 16 == static_cast<u32>(DriveClass::device)) return true;
  const std::string text = format(
      "Another program has changed the boot sector of\n%s.\n\n"
      "Shall the EMBR of this image follow? Its entries then become those of the boot\n"
      "sector. With No nothing is changed.",
      describeDisk(drive.disk()).c_str());
  return context.ui.confirm(Consent::general, "Synchronize", text, MessageKind::question);
}

}  // namespace

bool isBehindMbr(Drive& drive) {
  EmbrSync sync;
  return synchronizeEmbr(
             drive, [] { return false; }, sync) == Error::cancelled;
}

FlowResult synchronizeEmbrFlow(const OperationContext& context, Drive& drive, EmbrSync& sync) {
  TableChange change(context, drive);
  bool began = false;
  std::optional<FlowResult> stopped;
  const auto beforeWrite = [&] {
    if (!wantsToFollow(context, drive)) return false;
    stopped = change.begin(WriteTarget::tableOnly());
    began = !stopped;
    return began;
  };
  Failure error = synchronizeEmbr(drive, beforeWrite, sync);
  if (stopped) return *stopped;
  if (began) error = change.end(error);
  if (error == Error::cancelled) return {FlowEnd::cancelled, error};
  return error ? FlowResult{FlowEnd::failed, error} : FlowResult{};
}

void synchronizeFlow(const OperationContext& context, Drive& drive, int index) {
  if (drive.disk().traits().readOnly) return;
  EmbrSync done;
  const FlowResult result = synchronizeEmbrFlow(context, drive, done);
  if (result.end == FlowEnd::failed || (result.succeeded() && done.tableFull))
    context.ui.errorBox(format("Unable to synchronize MPT on HD%i", index));
  if (!result.succeeded() || !done.mayOverlap) return;
  context.ui.messageBox({MessageKind::warning, "Warning",
                         format("A new or altered primary partition was found on HD%x\n"
                                "which may overlap an existing partition!  You should\n"
                                "use Tallowin to check for errors.",
                                static_cast<unsigned>(index))});
}

}  // namespace tallowin
