// format: a new, empty file system in a partition.
#include "ops/format_flow.h"

#include <cstdio>

#include "cli/commands.h"
#include "cli/fat_facts.h"
#include "cli/target.h"
#include "cli/values.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

struct FormatWish {
  std::optional<FormatKind> fileSystem;
  std::optional<u32> clusterBytes;
  std::optional<std::string> label;
  bool scan = false;
  bool alignNtfs = false;
};

std::optional<FormatKind> parseFormatKind(std::string_view text) {
  if (equalsIgnoreCase(text, "fat12")) return FormatKind::fat12;
  if (equalsIgnoreCase(text, "fat16")) return FormatKind::fat16;
  if (equalsIgnoreCase(text, "fat32")) return FormatKind::fat32;
  return std::nullopt;
}

struct FormatAnswers {
  std::string refusal;
  std::vector<std::string> summary;
  bool scanSkipped = false;
};

void fill(const FormatWish& wanted, DialogModel& model, FormatAnswers& answers) {
  if (auto* cluster = dynamic_cast<FormatModel*>(&model)) {
    if (wanted.alignNtfs && !cluster->alignForNtfsControl.enabled) {
      answers.refusal = "--align-ntfs: " + cluster->alignForNtfsControl.whyDisabled;
      return;
    }
    cluster->alignForNtfs = wanted.alignNtfs;
    static_cast<void>(cluster->setClusterBytes(wanted.clusterBytes.value_or(0)));
    cluster->pass();
    cluster->ok();
  }
  if (auto* summary = dynamic_cast<FormatSummaryModel*>(&model)) {
    answers.summary = summary->lines;
    answers.scanSkipped = summary->scanSkipped;
    summary->ok();
  }
}

// What the type's dialog does not offer.
CommandResult checkOptions(const FormatWish& wanted, u16 type) {
  if (type == types::kGptEntry)
    return refused("Nothing says which file system this partition is to hold; name it with --fs.");
  if (!takesAutomaticClusters(type)) return {};
  if (wanted.clusterBytes)
    return refused("--cluster: this type always takes the automatic cluster size; leave it out.");
  if (wanted.alignNtfs) return refused("--align-ntfs: this type is never placed so; leave it out.");
  return {};
}

CommandResult report(CommandContext& context, Target& target, const FormatAnswers& answers) {
  // What the list says of a partition depends on what lies in it.
  static_cast<void>(target.drive->reread());
  ListedRow row;
  if (CommandResult result = findPart(context, *target.drive, row); !result.succeeded())
    return result;
  if (!context.options.json) {
    std::printf("Formatted %s\n", rowText(*target.drive, row).c_str());
    for (const std::string& line : answers.summary) std::printf("  %s\n", line.c_str());
    return {};
  }
  FatFacts facts;
  const Failure error = readFatFacts(*target.drive, *row.entry, facts);
  if (error != Error::none) return failedBecause("The new file system cannot be read back.", error);
  writePartition(context.json, *target.drive, row);
  writeFatFacts(context.json, facts);
  return {};
}

class FormatCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;

  FormatWish wanted_;
};

void FormatCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  declarePart(options, common);
  options.value("--fs", "KIND", wanted_.fileSystem, parseFormatKind,
                "a file system: fat12, fat16, fat32",
                "fat12, fat16 or fat32; the type is changed when it does not fit");
  options.value("--cluster", "SIZE", wanted_.clusterBytes, parseCluster, kClusterForm,
                kClusterHelp);
  options.text("--label", "LABEL", wanted_.label, "Volume label; by default the partition's name");
  options.flag("--scan", wanted_.scan, "Look for unreadable clusters");
  options.flag("--align-ntfs", wanted_.alignNtfs, "Place clusters for a conversion to NTFS");
  declareWriting(options, common);
}

CommandResult FormatCommand::run(CommandContext& context) {
  if (!wanted_.scan) context.ui.skipScans();
  Target target;
  ListedRow row;
  if (CommandResult result = openPart(context, TargetUse::change, target, row); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  const u16 type =
      wanted_.fileSystem ? typeForKind(drive, *row.entry, *wanted_.fileSystem) : row.entry->type;
  if (CommandResult result = checkOptions(wanted_, type); !result.succeeded()) return result;

  const bool hadErrors = drive.table().hasErrors();
  FormatAnswers answers;
  context.ui.setDialogHandler([&](DialogModel& model) { fill(wanted_, model, answers); });
  const FormatOptions options{.surfaceScan = wanted_.scan, .label = wanted_.label, .type = type};
  const FlowResult flow =
      formatFlow(context.session.context(context.ui), drive, *row.entry, options);
  if (!answers.refusal.empty()) return refused(answers.refusal);
  CommandResult result = resultOfFlow(flow, context.ui, "The partition was not formatted.");
  if (result.status == ExitStatus::stopped && answers.scanSkipped)
    result.message =
        "Stopped; the partition is formatted, but not all of it was checked for surface defects.";
  if (!result.succeeded()) return result;
  if (CommandResult told = report(context, target, answers); !told.succeeded()) return told;
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kFormatCommand = {"format", "Make a new, empty file system",
                                   makeCommand<FormatCommand>};

}  // namespace tallowin
