// `convert`: another kind of partition table.
#include <cstdio>

#include "cli/command.h"
#include "cli/target.h"
#include "ops/convert_flow.h"

namespace tallowin {
namespace {

void reportTable(CommandContext& context, Drive& drive, const std::string& keptTable) {
  if (context.arguments.json) {
    context.json.text("scheme", drive.schemeName());
    if (!keptTable.empty()) context.json.text("kept_table", keptTable);
    return;
  }
  std::printf("The partition table is now: %s\n", drive.schemeName());
  if (!keptTable.empty())
    std::printf("%s\n", undoText(context.arguments.target, keptTable).c_str());
}

}  // namespace

CommandResult runConvert(CommandContext& context) {
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::change, target); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  const bool hadErrors = drive.table().hasErrors();
  std::string keptTable;
  FlowResult flow = convertFlow(context.session.context(context.ui), drive,
                                *context.arguments.convertTo, keptTable);
  // The flow has said what the code means here; other families use the same numbers.
  const Failure code = flow.code;
  if (flow.end == FlowEnd::refused || flow.end == FlowEnd::failed) flow.code = Error::none;
  CommandResult result = resultOfFlow(flow, context.ui, "The disk was not converted.");
  if (!result.succeeded()) {
    result.code = code;
    return result;
  }
  reportTable(context, drive, context.arguments.rehearse ? std::string() : keptTable);
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace tallowin
