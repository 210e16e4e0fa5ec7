// delete: removes a partition or volume.
#include "ops/delete_flow.h"

#include <cstdio>

#include "cli/target.h"
#include "ops/delete_model.h"

namespace tallowin {
namespace {

std::string questionOf(const DeleteModel& model) {
  std::string text = model.title + "\n" + model.targetText + "\n" + model.typeLine;
  if (model.warningLine.shown) text += "\n" + model.warning;
  return text + "\n" + model.question;
}

// Whether the dialog can do what the command line asks for; said when it cannot.
std::string fillDelete(const Arguments& arguments, ConsoleFrontEnd& ui, DeleteModel& model) {
  if (arguments.clearBootSector && !model.clearBootSectorControl.enabled)
    return "--clear-boot: " + model.clearBootSectorControl.whyDisabled;
  if (arguments.wipe && !model.wipePartitionControl.enabled)
    return "--wipe: " + model.wipePartitionControl.whyDisabled;
  model.clearBootSector = arguments.clearBootSector;
  model.wipePartition = arguments.wipe;
  model.pass();
  if (ui.confirm(Consent::general, "", questionOf(model))) model.ok();
  return {};
}

}  // namespace

CommandResult runDelete(CommandContext& context) {
  Target target;
  ListedRow row;
  if (CommandResult result = openPart(context, TargetUse::change, target, row); !result.succeeded())
    return result;
  Drive& drive = *target.drive;

  const std::string deleted = rowText(drive, row);
  const bool hadErrors = drive.table().hasErrors();
  std::string refusal;
  context.ui.setDialogHandler([&](DialogModel& model) {
    if (auto* question = dynamic_cast<DeleteModel*>(&model))
      refusal = fillDelete(context.arguments, context.ui, *question);
  });
  const FlowResult flow = deleteFlow(context.session.context(context.ui), drive, *row.entry);
  if (!refusal.empty()) return refused(refusal);
  CommandResult result = resultOfFlow(flow, context.ui, "The partition was not deleted.");
  if (!result.succeeded()) return result;
  if (context.arguments.json)
    context.json.number("deleted", *context.arguments.part);
  else
    std::printf("Deleted %s\n", deleted.c_str());
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace tallowin
