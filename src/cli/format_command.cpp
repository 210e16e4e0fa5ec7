// format: a new, empty file system in a partition.
#include "ops/format_flow.h"

#include <cstdio>

#include "cli/fat_facts.h"
#include "cli/target.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

struct FormatAnswers {
  std::string refusal;
  std::vector<std::string> summary;
  bool scanSkipped = false;
};

void fill(const Arguments& arguments, DialogModel& model, FormatAnswers& answers) {
  if (auto* cluster = dynamic_cast<FormatModel*>(&model)) {
    if (arguments.alignNtfs && !cluster->alignForNtfsControl.enabled) {
      answers.refusal = "--align-ntfs: " + cluster->alignForNtfsControl.whyDisabled;
      return;
    }
    cluster->alignForNtfs = arguments.alignNtfs;
    static_cast<void>(cluster->setClusterBytes(arguments.clusterBytes.value_or(0)));
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
CommandResult checkOptions(const Arguments& arguments, u16 type) {
  if (type == types::kGptEntry)
    return refused("Nothing says which file system this partition is to hold; name it with --fs.");
  if (!takesAutomaticClusters(type)) return {};
  if (arguments.clusterBytes)
    return refused("--cluster: this type always takes the automatic cluster size; leave it out.");
  if (arguments.alignNtfs)
    return refused("--align-ntfs: this type is never placed so; leave it out.");
  return {};
}

CommandResult report(CommandContext& context, Target& target, const FormatAnswers& answers) {
  // What the list says of a partition depends on what lies in it.
  static_cast<void>(target.drive->reread());
  ListedRow row;
  if (CommandResult result = findPart(context, *target.drive, row); !result.succeeded())
    return result;
  if (!context.arguments.json) {
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

}  // namespace

CommandResult runFormat(CommandContext& context) {
  const Arguments& arguments = context.arguments;
  Target target;
  ListedRow row;
  if (CommandResult result = openPart(context, TargetUse::change, target, row); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  const u16 type = arguments.fileSystem ? typeForKind(drive, *row.entry, *arguments.fileSystem)
                                        : row.entry->type;
  if (CommandResult result = checkOptions(arguments, type); !result.succeeded()) return result;

  const bool hadErrors = drive.table().hasErrors();
  FormatAnswers answers;
  context.ui.setDialogHandler([&](DialogModel& model) { fill(arguments, model, answers); });
  const FormatOptions options{
      .surfaceScan = arguments.scan, .label = arguments.label, .type = type};
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

}  // namespace tallowin
