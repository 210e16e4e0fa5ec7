// set: changes the properties of a partition where it lies.
#include <cstdio>

#include "cli/property_plan.h"
#include "cli/target.h"
#include "ops/properties_flow.h"

namespace tallowin {
namespace {

void reportPart(CommandContext& context, Drive& drive) {
  ListedRow row;
  if (!findPart(context, drive, row).succeeded()) return;
  if (context.arguments.json) {
    writePartition(context.json, drive, row);
  } else {
    std::printf("%s\n", rowText(drive, row).c_str());
  }
}

}  // namespace

CommandResult runSet(CommandContext& context) {
  const Arguments& arguments = context.arguments;
  Target target;
  ListedRow row;
  if (CommandResult result = openPart(context, TargetUse::change, target, row); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  const bool hadErrors = drive.table().hasErrors();
  EntryProperties change;
  const std::string refusal =
      planProperties(drive, *row.entry, arguments.name, arguments.set, change);
  if (!refusal.empty()) return refused(refusal + " Nothing was changed.", Error::unsupportedForm);
  CommandResult result;
  if (change != EntryProperties{}) {
    const FlowResult flow =
        changePropertiesFlow(context.session.context(context.ui), drive, *row.entry, change);
    result = resultOfFlow(flow, context.ui, "The partition was not changed.");
    if (!result.succeeded()) return result;
  }
  reportPart(context, drive);
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace tallowin
