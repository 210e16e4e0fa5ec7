// label: the name of the file system in a partition.
#include <cstdio>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/target.h"
#include "ops/volume_files.h"

namespace tallowin {
namespace {

class LabelCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;

  std::optional<std::string> text_;
  bool clear_ = false;
};

void LabelCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  const DeclaredOption text =
      options.text("TEXT", "LABEL", text_, "The new label; without it the present one is shown");
  declarePart(options, common);
  options.flag("--clear", clear_, "Take the label away").excludes(text);
  declareWriting(options, common);
  options.check([&] {
    return text_ && text_->empty() ? std::string("an empty label is none; use --clear")
                                   : std::string();
  });
}

CommandResult LabelCommand::run(CommandContext& context) {
  const bool isChange = text_ || clear_;
  Target target;
  ListedRow row;
  if (CommandResult result =
          openPart(context, isChange ? TargetUse::change : TargetUse::look, target, row);
      !result.succeeded())
    return result;
  const bool hadErrors = target.drive->table().hasErrors();
  std::string label;
  const OperationContext operation = context.session.context(context.ui);
  const auto read = [&](FileSystem& files, Job&) -> FileFailure { return {files.label(label)}; };
  const auto set = [&](FileSystem& files, Job& job) -> FileFailure {
    if (const Failure failed = files.setLabel(text_.value_or(std::string())))
      return {failed, text_.value_or(std::string())};
    return read(files, job);
  };
  const FlowResult flow = isChange ? changeFiles(operation, *target.drive, *row.entry, set)
                                   : lookAtFiles(operation, *target.drive, *row.entry, read);
  CommandResult result = resultOfFlow(flow, context.ui, "The label was not changed.");
  if (!result.succeeded()) return result;
  if (context.options.json)
    context.json.textOrNull("label", label.empty() ? std::nullopt : std::optional(label));
  else
    std::printf("%s\n", label.empty() ? "(no label)" : printableFromUtf8(label).c_str());
  return isChange ? endChange(context, target, hadErrors, std::move(result)) : result;
}

}  // namespace

const CommandRow kLabelCommand = {"label", "Show, set or clear the label of a file system",
                                  makeCommand<LabelCommand>};

}  // namespace tallowin
