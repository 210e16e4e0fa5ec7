#include "ops/synchronize_flow.h"

#include "base/text.h"
#include "ops/table_change.h"
#include "ptable/embr/embr_sync.h"

namespace tallowin {

void synchronizeFlow(const OperationContext& context, Drive& drive, int index) {
  if (drive.disk().traits().readOnly) return;
  TableChange change(context, drive);
  bool began = false;
  EmbrSync done;
  Failure error = synchronizeEmbr(
      drive, [&] { return began = !change.begin(WriteTarget::tableOnly()).has_value(); }, done);
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
