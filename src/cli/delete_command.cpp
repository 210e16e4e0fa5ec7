// delete: removes a partition or volume.
#include "ops/delete_flow.h"

#include <cstdio>

#include "cli/commands.h"
#include "cli/target.h"
#include "cli/wipe_options.h"
#include "ops/delete_model.h"

namespace tallowin {
namespace {

class DeleteCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;
  std::string fill(ConsoleFrontEnd& ui, DeleteModel& model) const;

  bool clearBootSector_ = false;
  bool wipe_ = false;
  WipeMethodChoice method_;
  bool ignoreErrors_ = false;
};

void DeleteCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  declarePart(options, common);
  options.flag("--clear-boot", clearBootSector_, "Clear its boot sectors");
  const DeclaredOption wipe = options.flagOrValue(
      "--wipe", "[PATTERN]",
      [this](const std::string& pattern) {
        wipe_ = true;
        const auto method = pattern.empty() ? WipeMethodChoice() : parseWipePattern(pattern);
        if (method) method_ = *method;
        return method.has_value();
      },
      kWipePatternForm, "Overwrite all of it; by default with zeros");
  options
      .flag("--ignore-errors", ignoreErrors_,
            "Pass over sectors that cannot be overwritten; --yes does not answer that")
      .needs(wipe);
  declareWriting(options, common);
}

std::string questionOf(const DeleteModel& model) {
  std::string text = model.title + "\n" + model.targetText + "\n" + model.typeLine;
  if (model.warningLine.shown) text += "\n" + model.warning;
  return text + "\n" + model.question;
}

// Whether the dialog can do what the command line asks for; said when it cannot.
std::string DeleteCommand::fill(ConsoleFrontEnd& ui, DeleteModel& model) const {
  if (clearBootSector_ && !model.clearBootSectorControl.enabled)
    return "--clear-boot: " + model.clearBootSectorControl.whyDisabled;
  if (wipe_ && !model.wipePartitionControl.enabled)
    return "--wipe: " + model.wipePartitionControl.whyDisabled;
  model.clearBootSector = clearBootSector_;
  model.wipePartition = wipe_;
  model.chooseMethod = [this] { return std::optional(method_); };
  model.pass();
  model.secureWipe = wipe_ && method_.type != WipeType::zeros;
  if (ui.confirm(Consent::general, "", questionOf(model))) model.ok();
  return {};
}

CommandResult DeleteCommand::run(CommandContext& context) {
  if (ignoreErrors_) context.ui.agreeTo(Consent::diskError);
  Target target;
  ListedRow row;
  if (CommandResult result = openPart(context, TargetUse::change, target, row); !result.succeeded())
    return result;
  Drive& drive = *target.drive;

  const std::string deleted = rowText(drive, row);
  const bool hadErrors = drive.table().hasErrors();
  std::string refusal;
  context.ui.setDialogHandler([&](DialogModel& model) {
    if (auto* question = dynamic_cast<DeleteModel*>(&model)) refusal = fill(context.ui, *question);
  });
  const FlowResult flow = deleteFlow(context.session.context(context.ui), drive, *row.entry);
  if (!refusal.empty()) return refused(refusal);
  CommandResult result = resultOfFlow(flow, context.ui, "The partition was not deleted.");
  if (!result.succeeded()) return result;
  if (context.options.json)
    context.json.number("deleted", *context.options.part);
  else
    std::printf("Deleted %s\n", deleted.c_str());
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kDeleteCommand = {"delete", "Delete a partition or a volume",
                                   makeCommand<DeleteCommand>};

}  // namespace tallowin
