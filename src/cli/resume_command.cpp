// resume: what a kill or a power cut left is continued or undone.
#include "ops/resume_flow.h"

#include <cstdio>

#include "cli/commands.h"
#include "cli/target.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

class ResumeCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;

  bool goOn_ = false;
  bool undo_ = false;
  bool ignoreErrors_ = false;
};

void ResumeCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  const DeclaredOption goOn =
      options.flag("--continue", goOn_, "Bring the operation that was cut short to its end");
  options.flag("--undo", undo_, "Put everything back as it was before").excludes(goOn);
  options.check([this] {
    return goOn_ || undo_ ? std::string() : std::string("--continue or --undo is needed");
  });
  options.flag("--ignore-errors", ignoreErrors_,
               "Pass over sectors that cannot be read or written");
  declareConsent(options, common);
}

CommandResult ResumeCommand::run(CommandContext& context) {
  if (ignoreErrors_) context.ui.agreeTo(Consent::diskError);
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::change, target); !result.succeeded())
    return result;
  const auto work = unfinishedWorkOn(context.session.folders(), *target.drive);
  if (work && !context.ui.confirm(Consent::general, "",
                                  unfinishedText(*work) + "\n\n" +
                                      (goOn_ ? "It is to be continued." : "It is to be undone.") +
                                      "\nDisk: " + describeDisk(target.drive->disk())))
    return resultOfFlow({FlowEnd::cancelled, Error::cancelled}, context.ui, "Nothing was changed.");
  const FlowResult flow = resumeFlow(context.session.context(context.ui), *target.drive,
                                     goOn_ ? Resume::goOn : Resume::undo);
  CommandResult result = resultOfFlow(flow, context.ui, "It is still unfinished.");
  if (result.succeeded() && !context.options.json)
    std::printf("%s\n", goOn_ ? "Continued; it is done." : "Undone; all is as it was before.");
  return result;
}

}  // namespace

const CommandRow kResumeCommand = {"resume", "Continue or undo what was cut short",
                                   makeCommand<ResumeCommand>};

}  // namespace tallowin
