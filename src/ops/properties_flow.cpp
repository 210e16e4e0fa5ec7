#include "ops/properties_flow.h"

#include "ops/error_text.h"
#include "ops/property_rules.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

bool isConfirmed(const OperationContext& context, const char* title, const std::string& text) {
  return context.ui.confirm(Consent::general, title,
                            text + "\n\nAre you sure you want to continue?");
}

FlowResult failWith(const OperationContext& context, const std::string& what, Failure error) {
  context.ui.errorBox(what + tableErrorText(error));
  return {FlowEnd::failed, error};
}

}  // namespace

FlowResult changePropertiesFlow(const OperationContext& context, Drive& drive,
                                const PartitionEntry& entry, const EntryProperties& wanted) {
  if (const auto refused = refuseWhenReadOnlyTable(context, drive)) return *refused;
  if (const auto refusal = refusedProperty(drive, entry, wanted)) {
    context.ui.noticeBox(refusal->why);
    return {FlowEnd::refused, Error::unsupportedForm};
  }
  if (!isConfirmed(context, "Properties",
                   "The entry of this partition is changed.\n" + describeTarget(drive, entry)))
    return {FlowEnd::cancelled, Error::cancelled};

  TableChange change(context, drive);
  if (const auto stopped = change.begin(WriteTarget::tableOnly())) return *stopped;
  const Failure error = change.end(drive.changeProperties(entry, wanted));
  return error == Error::none ? FlowResult{} : failWith(context, "Update Failed!\n\n", error);
}

FlowResult repairGptFlow(const OperationContext& context, Drive& drive) {
  if (const auto refused = refuseWhenReadOnlyTable(context, drive)) return *refused;
  if (!drive.gptHealth() || drive.gptHealth()->isSound()) return {};
  if (!isConfirmed(context, "Repair Partition Table",
                   gptHealthText(*drive.gptHealth()) +
                       "\nBoth copies of the GPT are written anew from the one that was read;\n"
                       "partitions and data stay as they are.\n\nDisk: " +
                       describeDisk(drive.disk())))
    return {FlowEnd::cancelled, Error::cancelled};
  TableChange change(context, drive);
  if (const auto stopped = change.begin(WriteTarget::tableOnly())) return *stopped;
  const Failure error = change.end(drive.repairGpt());
  return error == Error::none ? FlowResult{} : failWith(context, "", error);
}

}  // namespace tallowin
