// resize: another size for a partition and the file system in it.
#include "ops/resize_flow.h"

#include <cstdio>
#include <variant>

#include "base/text.h"
#include "cli/amount.h"
#include "cli/commands.h"
#include "cli/moving_options.h"
#include "cli/target.h"
#include "cli/values.h"
#include "ops/resize_model.h"

namespace tallowin {
namespace {

enum class Limit { min, max };
using WantedSize = std::variant<Limit, Amount>;

std::optional<WantedSize> parseSize(std::string_view text) {
  if (text == "min") return Limit::min;
  if (text == "max") return Limit::max;
  const std::optional<Amount> amount = parseAmount(text);
  return amount ? std::optional<WantedSize>(*amount) : std::nullopt;
}

struct ResizeOptions {
  std::optional<WantedSize> size;
  std::optional<std::string> form;  // "fat16", "fat32"
  std::optional<u32> clusterBytes;
  bool limits = false;
  bool noCache = false;
};

std::string sectorsText(u64 sectors, u32 sectorSize) {
  return format("%llu sectors (%llu MiB)", static_cast<unsigned long long>(sectors),
                static_cast<unsigned long long>(sectors * sectorSize / kMiB));
}

// Fills the dialog of the flow; what it does not offer is remembered as the reason to refuse.
class ResizeAnswers {
 public:
  ResizeAnswers(const ResizeOptions& wanted, u32 sectorSize)
      : wanted_(wanted), sectorSize_(sectorSize) {}

  const std::string& refusal() const { return refusal_; }

  void fill(DialogModel& dialog) {
    auto* model = dynamic_cast<ResizeModel*>(&dialog);
    if (!model) return;
    // A wish that was refused does not get better.
    if (model->refusal.empty() && !isAsked_ && setSize(*model) && setForm(*model)) {
      isAsked_ = true;
      return model->ok();
    }
    model->cancel();
  }

 private:
  bool refuse(std::string why) {
    refusal_ = std::move(why);
    return false;
  }

  bool setSize(ResizeModel& model) {
    if (!wanted_.size) return true;
    const EndRange& range = model.range();
    const u64 minimum = range.minimumEnd + 1 - range.startSector;
    const u64 maximum = range.maximumEnd + 1 - range.startSector;
    if (const auto* limit = std::get_if<Limit>(&*wanted_.size)) {
      model.exactSectors = *limit == Limit::min ? minimum : maximum;
      model.pass();
      return true;
    }
    const auto bytes = std::get<Amount>(*wanted_.size).bytes(sectorSize_);
    const u64 sectors = bytes ? *bytes / sectorSize_ + (*bytes % sectorSize_ != 0 ? 1 : 0) : 0;
    const bool isPresent = sectors == range.endSector + 1 - range.startSector;
    if (!bytes || (!isPresent && (sectors < minimum || sectors > maximum)))
      return refuse("--size: it can be from " + sectorsText(minimum, sectorSize_) + " to " +
                    sectorsText(maximum, sectorSize_) + ".");
    model.exactSectors = sectors;
    model.pass();
    return true;
  }

  bool setForm(ResizeModel& model) {
    if (model.forms.empty() && (wanted_.form || wanted_.clusterBytes))
      return refuse("--fs and --cluster: this file system keeps its form; leave them out.");
    if (wanted_.form && !model.setForm(*wanted_.form))
      return refuse("--fs: a volume of this size cannot become " + *wanted_.form +
                    "; choose another size.");
    if (!model.setClusterBytes(wanted_.clusterBytes.value_or(0)))
      return refuse("--cluster: this file system has no such cluster size.");
    model.pass();
    return true;
  }

  const ResizeOptions& wanted_;
  u32 sectorSize_;
  bool isAsked_ = false;
  std::string refusal_;
};

std::optional<std::string> parseForm(std::string_view text) {
  return text == "fat16" || text == "fat32" ? std::optional(std::string(text)) : std::nullopt;
}

class ResizeCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;
  CommandResult showLimits(CommandContext& context, Target& target, const PartitionEntry& entry);

  ResizeOptions wanted_;
  MovingOptions moving_;
};

void ResizeCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  declarePart(options, common);
  options.value("--size", "S", wanted_.size, parseSize,
                "a size, or min or max: a number with B, s (sectors), KiB, MiB, GiB or TiB; alone "
                "it is MiB",
                "The new size, or min or max; by default the present one");
  options.flag("--limits", wanted_.limits, "Say which sizes are possible, and change nothing");
  options.value("--fs", "KIND", wanted_.form, parseForm, "fat16 or fat32",
                "What a FAT file system becomes: fat16 or fat32");
  options.value("--cluster", "SIZE", wanted_.clusterBytes, parseCluster, kClusterForm,
                kClusterHelp);
  options.flag("--no-cache", wanted_.noCache, "Write every small change at once");
  declareMoving(options, moving_);
  declareWriting(options, common);
}

CommandResult ResizeCommand::showLimits(CommandContext& context, Target& target,
                                        const PartitionEntry& entry) {
  ResizeOffer offer;
  const FlowResult flow =
      resizeOffer(context.session.context(context.ui), *target.drive, entry, offer);
  CommandResult result = resultOfFlow(flow, context.ui, "The limits could not be found out.");
  if (!result.succeeded()) return result;
  if (context.options.json) {
    context.json.number("minimum_sectors", offer.minimumSectors);
    context.json.number("maximum_sectors", offer.maximumSectors);
    context.json.number("sectors", offer.presentSectors);
    context.json.number("used_sectors", offer.usedSectors);
    context.json.number("cluster_bytes", offer.clusterBytes);
    return result;
  }
  const u32 size = target.drive->sectorSize();
  std::printf("Minimum  %s\nPresent  %s\nMaximum  %s\nUsed     %s\n",
              sectorsText(offer.minimumSectors, size).c_str(),
              sectorsText(offer.presentSectors, size).c_str(),
              sectorsText(offer.maximumSectors, size).c_str(),
              sectorsText(offer.usedSectors, size).c_str());
  return result;
}

CommandResult ResizeCommand::run(CommandContext& context) {
  Target target;
  ListedRow row;
  const TargetUse use = wanted_.limits ? TargetUse::look : TargetUse::change;
  if (CommandResult result = openPart(context, use, target, row); !result.succeeded())
    return result;
  if (wanted_.limits) return showLimits(context, target, *row.entry);
  applyMoving(context, moving_);
  if (wanted_.noCache) context.session.options().cacheResize = false;

  Drive& drive = *target.drive;
  const bool hadErrors = drive.table().hasErrors();
  const u64 start = row.entry->startSector;
  ResizeAnswers answers(wanted_, drive.sectorSize());
  context.ui.setDialogHandler([&](DialogModel& model) { answers.fill(model); });
  const FlowResult flow = resizeFlow(context.session.context(context.ui), drive, *row.entry);
  if (!answers.refusal().empty()) return refused(answers.refusal());
  CommandResult result = resultOfFlow(flow, context.ui, "The partition was not resized.");
  if (!result.succeeded()) return result;
  if (CommandResult found = reportMoved(context, target, start, "Resized"); !found.succeeded())
    return found;
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kResizeCommand = {"resize", "Change the size of a partition and its file system",
                                   makeCommand<ResizeCommand>};

}  // namespace tallowin
