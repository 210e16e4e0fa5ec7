// `convert`: another kind of partition table.
#include <cstdio>

#include "cli/commands.h"
#include "cli/target.h"
#include "ops/convert_flow.h"

namespace tallowin {
namespace {

void reportTable(CommandContext& context, Drive& drive, const std::string& keptTable) {
  if (context.options.json) {
    context.json.text("scheme", drive.schemeName());
    if (!keptTable.empty()) context.json.text("kept_table", keptTable);
    return;
  }
  std::printf("The partition table is now: %s\n", drive.schemeName());
  if (!keptTable.empty()) std::printf("%s\n", undoText(context.options.target, keptTable).c_str());
}

std::optional<Scheme> parseScheme(std::string_view text) {
  if (text == "mbr") return Scheme::mbr;
  if (text == "gpt") return Scheme::gpt;
  if (text == "embr") return Scheme::embr;
  return std::nullopt;
}

class ConvertCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override {
    declareTarget(options, common);
    options
        .value("--to", "KIND", to_, parseScheme, "a kind of table: mbr, gpt, embr",
               "The kind of partition table to change to: mbr, gpt or embr")
        .required();
    options.flag("--overwrite", overwrite_,
                 "Give up a boot loader that lies where the new table goes");
    declareWriting(options, common);
  }
  CommandResult run(CommandContext& context) override;

  Scheme to_ = Scheme::mbr;
  bool overwrite_ = false;
};

CommandResult ConvertCommand::run(CommandContext& context) {
  context.ui.offerInsistence("or with --overwrite");
  if (overwrite_) context.ui.agreeTo(Consent::insist);
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::change, target); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  if (drive.gptHealth() && !drive.gptHealth()->isSound() && drive.scheme() != to_)
    return refused(gptHealthText(*drive.gptHealth()) +
                       " Nothing was changed. Run 'tallowinctl table "
                       "repair " +
                       context.options.target + "' first.",
                   Error::gptTableCheck);
  const bool hadErrors = drive.table().hasErrors();
  std::string keptTable;
  FlowResult flow = convertFlow(context.session.context(context.ui), drive, to_, keptTable);
  // The flow has said what the code means here; other families use the same numbers.
  const Failure code = flow.code;
  if (flow.end == FlowEnd::refused || flow.end == FlowEnd::failed) flow.code = Error::none;
  CommandResult result = resultOfFlow(flow, context.ui, "The disk was not converted.");
  if (!result.succeeded()) {
    result.code = code;
    return result;
  }
  reportTable(context, drive, context.options.rehearse ? std::string() : keptTable);
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kConvertCommand = {
    "convert", "Change the kind of partition table; partitions stay", makeCommand<ConvertCommand>};

}  // namespace tallowin
