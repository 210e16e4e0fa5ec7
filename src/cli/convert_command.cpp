// `convert`: another kind of partition table.
#include <cstdio>

#include "cli/command.h"
#include "cli/target.h"
#include "ops/convert_flow.h"

namespace tallowin {
CommandResult runConvert(CommandContext& context) {
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::change, target); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  const bool hadErrors = drive.table().hasErrors();
  FlowResult flow =
      convertFlow(context.session.context(context.ui), drive, *context.arguments.convertTo);
  // The flow has said what the code means here; other families use the same numbers.
  const Error code = flow.code;
  if (flow.end == FlowEnd::refused || flow.end == FlowEnd::failed) flow.code = Error::none;
  CommandResult result = resultOfFlow(flow, context.ui, "The disk was not converted.");
  if (!result.succeeded()) {
    result.code = code;
    return result;
  }
  if (context.arguments.json)
    context.json.text("scheme", drive.schemeName());
  else
    std::printf("The partition table is now: %s\n", drive.schemeName());
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace tallowin
