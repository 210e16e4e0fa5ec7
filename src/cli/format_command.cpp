// format: a new, empty file system in a partition.
#include "ops/format_flow.h"

#include <cstdio>

#include "cli/commands.h"
#include "cli/file_system_facts.h"
#include "cli/target.h"
#include "cli/values.h"
#include "ops/format_model.h"
#include "ops/format_operation.h"
#include "ops/format_summary_model.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

struct WantedFormat {
  const FileSystemKind* fileSystem = nullptr;
  std::optional<u32> clusterBytes;
  std::optional<std::string> label;
  bool scan = false;
  bool alignNtfs = false;
  bool whole = false;
};

std::optional<const FileSystemKind*> parseFileSystem(std::string_view text) {
  const FileSystemKind* kind = registeredFileSystems().byWord(text);
  if (kind && kind->format) return kind;
  return std::nullopt;
}

struct FormatAnswers {
  std::string refusal;
  std::vector<std::string> summary;
  std::vector<std::string> notes;
  bool scanSkipped = false;
};

void fill(const WantedFormat& wanted, DialogModel& model, FormatAnswers& answers) {
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
    answers.notes = summary->notes;
    answers.scanSkipped = summary->scanSkipped;
    summary->ok();
  }
}

// What the type's dialog does not offer.
CommandResult checkOptions(const WantedFormat& wanted, const FileSystemKind* kind, u16 type) {
  if (!kind && (wanted.whole || type == types::kGptEntry))
    return refused("Nothing says which file system is to be made; name it with --fs.");
  if (!kind || !takesAutomaticClusters(*kind, type)) return {};
  if (wanted.clusterBytes)
    return refused("--cluster: this type always takes the automatic cluster size; leave it out.");
  if (wanted.alignNtfs) return refused("--align-ntfs: this type is never placed so; leave it out.");
  return {};
}

u16 typeOfTarget(Drive& drive, const PartitionEntry* entry, const FileSystemKind* kind) {
  if (!entry) return kind ? wholeDiskTarget(drive, *kind).type : u16{0};
  return kind ? typeForKind(drive, *entry, *kind) : entry->type;
}

// Of a whole disk its only row.
std::optional<ListedRow> formattedRow(CommandContext& context, Drive& drive) {
  ListedRow row;
  if (context.options.part)
    return findPart(context, drive, row).succeeded() ? std::optional(row) : std::nullopt;
  return drive.table().isWholeDisk() ? std::optional(listedRows(drive).front()) : std::nullopt;
}

void reportInWords(Drive& drive, const ListedRow* row, const FormatAnswers& answers) {
  std::printf("Formatted%s\n", row ? (" " + rowText(drive, *row)).c_str()
                                   : "; the disk could not be read again afterwards.");
  for (const std::string& line : answers.summary) std::printf("  %s\n", line.c_str());
}

// The format was done: that it cannot be read back now is no failure of it.
void report(CommandContext& context, Target& target, const FormatAnswers& answers) {
  for (const std::string& note : answers.notes) context.ui.note(note);
  Drive& drive = *target.drive;
  // What the list says of a partition depends on what lies in it.
  static_cast<void>(drive.reread());
  const std::optional<ListedRow> row = formattedRow(context, drive);
  if (!context.options.json) return reportInWords(drive, row ? &*row : nullptr, answers);
  const FileSystemKinds& kinds = context.session.fileSystems();
  FileSystemFacts facts;
  if (row)
    writePartition(context.json, kinds, drive, *row);
  else
    context.json.null("partition");
  if (row && !readFileSystemFacts(context.session.context(context.ui), drive, *row->entry, facts))
    writeFacts(context.json, facts);
  else
    context.json.null("file_system");
}

class FormatCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;
  CommandResult open(CommandContext& context, Target& target, PartitionEntry*& entry);

  WantedFormat wanted_;
};

void FormatCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  const DeclaredOption part = declareOptionalPart(options, common);
  options
      .flag("--whole", wanted_.whole,
            "All of a disk without partitions: a volume without a table, as sticks and floppies "
            "have; needs --fs unless it is one already")
      .excludes(part);
  options.check([&] {
    return common.part || wanted_.whole ? std::string()
                                        : std::string("--part or --whole is needed");
  });
  options.value("--fs", "KIND", wanted_.fileSystem, parseFileSystem,
                "a file system: fat12, fat16, fat32",
                "fat12, fat16 or fat32; the type is changed when it does not fit");
  options.value("--cluster", "SIZE", wanted_.clusterBytes, parseCluster, kClusterForm,
                kClusterHelp);
  options.text("--label", "LABEL", wanted_.label, "Volume label; by default the partition's name");
  options.flag("--scan", wanted_.scan, "Look for unreadable clusters");
  options.flag("--align-ntfs", wanted_.alignNtfs, "Place clusters for a conversion to NTFS");
  declareWriting(options, common);
}

// The partition, or the volume that the disk is; a disk that is to become one has no entry.
CommandResult FormatCommand::open(CommandContext& context, Target& target, PartitionEntry*& entry) {
  if (!wanted_.whole) {
    ListedRow row;
    CommandResult result = openPart(context, TargetUse::change, target, row);
    entry = row.entry;
    return result;
  }
  CommandResult result = openTarget(context, TargetUse::change, target);
  if (result.succeeded() && target.drive->table().isWholeDisk())
    entry = target.drive->table().entries.front().get();
  return result;
}

CommandResult FormatCommand::run(CommandContext& context) {
  if (!wanted_.scan) context.ui.skipScans();
  Target target;
  PartitionEntry* entry = nullptr;
  if (CommandResult result = open(context, target, entry); !result.succeeded()) return result;
  Drive& drive = *target.drive;
  const FileSystemKind* kind = wanted_.fileSystem;
  if (!kind && entry) kind = kindOf(context.session.fileSystems(), *entry);
  if (CommandResult result = checkOptions(wanted_, kind, typeOfTarget(drive, entry, kind));
      !result.succeeded())
    return result;

  const bool hadErrors = drive.table().hasErrors();
  FormatAnswers answers;
  context.ui.setDialogHandler([&](DialogModel& model) { fill(wanted_, model, answers); });
  const FormatOptions options{
      .surfaceScan = wanted_.scan, .label = wanted_.label, .kind = wanted_.fileSystem};
  const OperationContext operation = context.session.context(context.ui);
  const FlowResult flow = entry ? formatFlow(operation, drive, *entry, options)
                                : formatWholeFlow(operation, drive, options);
  if (!answers.refusal.empty()) return refused(answers.refusal);
  CommandResult result = resultOfFlow(flow, context.ui, "The partition was not formatted.");
  if (result.status == ExitStatus::stopped && answers.scanSkipped)
    result.message =
        "Stopped; the partition is formatted, but not all of it was checked for surface defects.";
  if (!result.succeeded()) return result;
  report(context, target, answers);
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kFormatCommand = {"format", "Make a new, empty file system",
                                   makeCommand<FormatCommand>};

}  // namespace tallowin
