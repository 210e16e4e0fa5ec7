// copy: a partition is copied into a free block of the same or another disk.
#include "ops/copy_flow.h"

#include <filesystem>
#include <system_error>

#include "base/text.h"
#include "cli/amount.h"
#include "cli/commands.h"
#include "cli/moving_options.h"
#include "cli/target.h"
#include "cli/values.h"
#include "ops/create_model.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

struct CopyOptions {
  std::string to;
  std::optional<u32> freeBlock;  // from 1
  std::optional<std::string> name;
  std::optional<Amount> before;
  std::optional<Amount> after;
  bool dataOnly = false;
  bool deleteSource = false;
};

bool isSameTarget(const std::string& one, const std::string& other) {
  std::error_code failure;
  return one == other || std::filesystem::equivalent(one, other, failure);
}

// Fills the dialog of the flow; what it does not offer is remembered as the reason to refuse.
class CopyAnswers {
 public:
  CopyAnswers(CommandContext& context, const CopyOptions& wanted, Drive& drive, std::string source)
      : ui_(context.ui), wanted_(wanted), drive_(drive), source_(std::move(source)) {}

  const std::string& refusal() const { return refusal_; }

  void fill(DialogModel& dialog) {
    auto* model = dynamic_cast<CreateModel*>(&dialog);
    if (model == nullptr) return;
    if (!setBox(wanted_.dataOnly, model->dataOnlyControl, model->dataOnly, "--data-only") ||
        !setBox(wanted_.deleteSource, model->deleteSourceControl, model->deleteSource,
                "--delete-source") ||
        !setSpace(wanted_.before, model->freeBeforeMiB, "--before", *model) ||
        !setSpace(wanted_.after, model->freeAfterMiB, "--after", *model))
      return;
    model->nameIsOptional = true;
    if (wanted_.name) model->name = *wanted_.name;
    if (ui_.confirm(Consent::general, "", question(*model))) model->ok();
  }

 private:
  bool refuse(std::string why) {
    refusal_ = std::move(why);
    return false;
  }

  bool setBox(bool wanted, const Control& control, bool& box, const char* option) {
    if (wanted && !control.enabled)
      return refuse(std::string(option) + ": " + onOneLine(control.whyDisabled));
    box = wanted;
    return true;
  }

  bool setSpace(const std::optional<Amount>& amount, NumberField& field, const char* option,
                CreateModel& model) {
    if (!amount) return true;
    const std::optional<u32> mebibytes = amountInMiB(*amount, drive_.sectorSize());
    if (!mebibytes || *mebibytes > field.maximum)
      return refuse(format("%s is larger than what the copy leaves free; %u MiB is possible.",
                           option, field.maximum));
    field.setValue(*mebibytes);
    model.pass();
    return true;
  }

  std::string question(const CreateModel& model) const {
    return model.title + "\nThis partition is copied there" +
           (model.deleteSource ? ", and is deleted then:\n" : ":\n") + source_ +
           "\nTo the disk: " + describeDisk(drive_.disk()) + "\nAre you sure you want to continue?";
  }

  ConsoleFrontEnd& ui_;
  const CopyOptions& wanted_;
  Drive& drive_;
  std::string source_;
  std::string refusal_;
};

class CopyCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;
  CommandResult copy(CommandContext& context, Drive& sourceDrive, PartitionEntry& source,
                     Target& target);

  CopyOptions wanted_;
  MovingOptions moving_;
};

void CopyCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  declarePart(options, common);
  options
      .text("--to", "TARGET2", wanted_.to, "The disk or image that the copy goes to; may be TARGET")
      .required();
  options.value("--free", "K", wanted_.freeBlock, parseFromOne, "a free block's number, from 1",
                "The K-th free block of its list; by default the largest");
  options.text("--name", "NAME", wanted_.name, "Name of the copy; by default that of the source");
  const DeclaredOption before = options.value("--before", "SIZE", wanted_.before, parseAmount,
                                              kAmountForm, "Free space to leave before it");
  options
      .value("--after", "SIZE", wanted_.after, parseAmount, kAmountForm,
             "Free space to leave after it; 0 places it at the block's end")
      .excludes(before);
  options.flag("--data-only", wanted_.dataOnly, "Copy only the sectors that the file system uses");
  options.flag("--delete-source", wanted_.deleteSource,
               "Delete the source's entry when the copy is there");
  declareMoving(options, moving_);
  declareWriting(options, common);
}

CommandResult CopyCommand::copy(CommandContext& context, Drive& sourceDrive, PartitionEntry& source,
                                Target& target) {
  Drive& drive = *target.drive;
  PartitionEntry* block = findFreeBlock(drive, wanted_.freeBlock);
  if (block == nullptr) return noFreeBlock(context.options.target, wanted_.freeBlock, drive);
  const bool hadErrors = drive.table().hasErrors();
  CopyAnswers answers(context, wanted_, drive, describeTarget(sourceDrive, source));
  context.ui.setDialogHandler([&](DialogModel& model) { answers.fill(model); });
  MoveTold told;
  const FlowResult flow =
      copyFlow(context.session.context(context.ui), sourceDrive, source, drive, *block, &told);
  if (!answers.refusal().empty()) return refused(answers.refusal());
  CommandResult result = resultOfFlow(flow, context.ui, "The partition was not copied.");
  if (!result.succeeded()) return result;
  if (CommandResult found = endMove(context, target, told, "Copied to", result); !found.succeeded())
    return found;
  return endChange(context, target, hadErrors, std::move(result));
}

CommandResult CopyCommand::run(CommandContext& context) {
  context.ui.offerInsistence("or make the table with 'convert' first");
  const bool isSame = isSameTarget(context.options.target, wanted_.to);
  Target source;
  ListedRow row;
  if (CommandResult result =
          openPart(context, isSame ? TargetUse::change : TargetUse::read, source, row);
      !result.succeeded())
    return result;
  applyMoving(context, moving_);
  if (isSame) return copy(context, *source.drive, *row.entry, source);
  CommonOptions options = context.options;
  options.target = wanted_.to;
  CommandContext other{options, context.session, context.ui, context.json};
  Target target;
  CommandResult result = openTarget(other, TargetUse::change, target);
  if (result.succeeded()) result = copy(other, *source.drive, *row.entry, target);
  context.mayHaveChanged |= other.mayHaveChanged;
  return result;
}

}  // namespace

const CommandRow kCopyCommand = {"copy", "Copy a partition into free space of a disk",
                                 makeCommand<CopyCommand>};

}  // namespace tallowin
