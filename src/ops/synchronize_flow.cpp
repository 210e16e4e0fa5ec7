#include "ops/synchronize_flow.h"

#include "base/text.h"
#include "disk/disk_handles.h"
#include "ops/table_change.h"
#include "ops/target_text.h"
#include "ptable/embr/embr_sync.h"

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

void synchronizeFlow(const OperationContext& context, Drive& drive, int index) {
  if (drive.disk().traits().readOnly) return;
  TableChange change(context, drive);
  bool began = false;
  const auto beforeWrite = [&] {
    began = wantsToFollow(context, drive) && !change.begin(WriteTarget::tableOnly()).has_value();
    return began;
  };
  EmbrSync done;
  Failure error = synchronizeEmbr(drive, beforeWrite, done);
  if (began) error = change.end(error);
  if (error == Error::cancelled) return;
  if (error != Error::none || done.tableFull)
    context.ui.errorBox(format("Unable to synchronize MPT on HD%i", index));
  if (error != Error::none || !done.mayOverlap) return;
  context.ui.messageBox({MessageKind::warning, "Warning",
                         format("A new or altered primary partition was found on HD%x\n"
                                "which may overlap an existing partition!  You should\n"
                                "use Tallowin to check for errors.",
                                static_cast<unsigned>(index))});
}

}  // namespace tallowin
