// slide: a partition goes elsewhere within the free space around it.
#include "ops/slide_flow.h"

#include "base/text.h"
#include "cli/amount.h"
#include "cli/commands.h"
#include "cli/moving_options.h"
#include "cli/target.h"
#include "ops/slide_model.h"

namespace tallowin {
namespace {

struct SlideOptions {
  std::optional<Amount> start;
  std::optional<Amount> before;
  std::optional<Amount> after;
  bool allSectors = false;
};

// Fills the dialog of the flow; what it does not offer is remembered as the reason to refuse.
class SlideAnswers {
 public:
  SlideAnswers(const SlideOptions& wanted, u32 sectorSize)
      : wanted_(wanted), sectorSize_(sectorSize) {}

  const std::string& refusal() const { return refusal_; }

  void fill(DialogModel& dialog) {
    auto* model = dynamic_cast<SlideModel*>(&dialog);
    if (model == nullptr) return;
    if (wanted_.allSectors) model->dataOnly = false;
    if (!setStart(*model) || !setSpace(wanted_.before, model->freeBeforeMiB, "--before", *model) ||
        !setSpace(wanted_.after, model->freeAfterMiB, "--after", *model))
      return;
    model->ok();
  }

 private:
  bool refuse(std::string why) {
    refusal_ = std::move(why);
    return false;
  }

  bool setStart(SlideModel& model) {
    if (!wanted_.start) return true;
    const std::optional<u64> bytes = wanted_.start->bytes(sectorSize_);
    if (!bytes || *bytes % sectorSize_ != 0)
      return refuse(
          format("--start: this is no whole number of sectors of %u bytes.", sectorSize_));
    model.exactStart = *bytes / sectorSize_;
    return true;
  }

  bool setSpace(const std::optional<Amount>& amount, NumberField& field, const char* option,
                SlideModel& model) {
    if (!amount) return true;
    const std::optional<u32> mebibytes = amountInMiB(*amount, sectorSize_);
    if (!mebibytes || *mebibytes > field.maximum)
      return refuse(
          format("%s is larger than the free space around the partition; %u MiB is "
                 "possible.",
                 option, field.maximum));
    field.setValue(*mebibytes);
    model.pass();
    return true;
  }

  const SlideOptions& wanted_;
  u32 sectorSize_;
  std::string refusal_;
};

class SlideCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;

  SlideOptions wanted_;
  MovingOptions moving_;
};

void SlideCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  declarePart(options, common);
  const DeclaredOption start =
      options.value("--start", "LBA", wanted_.start, parseAmount,
                    "a position: sectors as 4096s, or a size from the beginning of the disk",
                    "Where it is to begin: sectors as 4096s, or a size");
  DeclaredOption before = options.value("--before", "SIZE", wanted_.before, parseAmount,
                                        kAmountForm, "Free space to leave before it");
  before.excludes(start);
  options
      .value("--after", "SIZE", wanted_.after, parseAmount, kAmountForm,
             "Free space to leave after it")
      .excludes(start)
      .excludes(before);
  options.check([this] {
    return wanted_.start || wanted_.before || wanted_.after
               ? std::string()
               : std::string("--start, --before or --after is needed");
  });
  options.flag("--all-sectors", wanted_.allSectors,
               "Move all sectors, not only those that the file system uses");
  declareMoving(options, moving_);
  declareWriting(options, common);
}

CommandResult SlideCommand::run(CommandContext& context) {
  Target target;
  ListedRow row;
  if (CommandResult result = openPart(context, TargetUse::change, target, row); !result.succeeded())
    return result;
  applyMoving(context, moving_);
  Drive& drive = *target.drive;
  const bool hadErrors = drive.table().hasErrors();
  SlideAnswers answers(wanted_, drive.sectorSize());
  context.ui.setDialogHandler([&](DialogModel& model) { answers.fill(model); });
  MoveTold told;
  const FlowResult flow = slideFlow(context.session.context(context.ui), drive, *row.entry, &told);
  if (!answers.refusal().empty()) return refused(answers.refusal());
  CommandResult result = resultOfFlow(flow, context.ui, "The partition was not moved.");
  if (!result.succeeded()) return result;
  if (CommandResult found = endMove(context, target, told, "Moved", result); !found.succeeded())
    return found;
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kSlideCommand = {"slide", "Move a partition within the free space around it",
                                  makeCommand<SlideCommand>};

}  // namespace tallowin
