// create: a new partition or volume in a free block.
#include "ops/create_flow.h"

#include <algorithm>
#include <cstdio>
#include <set>

#include "base/text.h"
#include "cli/amount.h"
#include "cli/commands.h"
#include "cli/target.h"
#include "cli/values.h"
#include "ops/create_model.h"
#include "ops/format_flow.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"
#include "ops/property_rules.h"
#include "ops/target_text.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u32 kLargestType = 255;

struct CreateWish {
  Amount size;
  u32 type = 0;
  std::optional<std::string> name;
  std::optional<u32> freeBlock;  // from 1
  std::optional<Amount> before;
  std::optional<Amount> after;
  bool format = false;
  std::optional<u32> clusterBytes;
};

// Fills the dialogs of the flow; what the command line asks for and a dialog cannot give is
// remembered as the reason to refuse.
class CreateAnswers {
 public:
  CreateAnswers(CommandContext& context, const CreateWish& wanted, Drive& drive,
                const PartitionEntry& block)
      : ui_(context.ui),
        wanted_(wanted),
        drive_(drive),
        isVolume_(drive.containerOf(block) != nullptr),
        blockSectors_(block.sectorCount()) {}

  const std::string& refusal() const { return refusal_; }
  // Of the format: what is not as it was wished for.
  const std::vector<std::string>& notes() const { return notes_; }

  void fill(DialogModel& model) {
    if (auto* create = dynamic_cast<CreateModel*>(&model)) fillCreate(*create);
    if (auto* cluster = dynamic_cast<FormatModel*>(&model)) fillFormat(*cluster);
    if (auto* summary = dynamic_cast<FormatSummaryModel*>(&model)) {
      notes_ = summary->notes;
      summary->ok();
    }
  }

 private:
  void fillCreate(CreateModel& model) {
    model.fileSystem = std::to_string(wanted_.type);
    model.pass();
    if (!setSize(model) || !setSpace(wanted_.before, model.freeBeforeMiB, "--before", model) ||
        !setSpace(wanted_.after, model.freeAfterMiB, "--after", model) || !setName(model))
      return;
    if (wanted_.format && !model.formatControl.enabled) {
      refusal_ = "--format: a partition of this type cannot be formatted; leave it out.";
      return;
    }
    model.format = wanted_.format;
    if (ui_.confirm(Consent::general, "", question(model))) model.ok();
  }

  // To the sector; the field of the dialog knows no more than MiB.
  bool setSize(CreateModel& model) {
    const u32 sectorBytes = drive_.sectorSize();
    const u32 blockMiB = static_cast<u32>(sectorsToMiB(blockSectors_, sectorBytes));
    const u32 largest = model.sizeMiB.maximum;
    const std::optional<u64> bytes = wanted_.size.bytes(sectorBytes);
    const std::optional<u32> mebibytes = amountInMiB(wanted_.size, sectorBytes);
    const u64 sectors = bytes ? *bytes / sectorBytes + (*bytes % sectorBytes != 0 ? 1 : 0) : 0;
    const bool exceedsType = mebibytes && *mebibytes > largest && largest < blockMiB;
    if (!mebibytes || sectors > blockSectors_ || exceedsType) {
      refusal_ =
          format("--size is larger than the free block and the type allow; %llu MiB is possible.",
                 static_cast<unsigned long long>(
                     std::min<u64>(largest, blockSectors_ * sectorBytes / kMiB)));
      return false;
    }
    model.exactSectors = sectors;
    model.sizeMiB.setValue(*mebibytes);
    model.pass();
    return true;
  }

  // A dialog shows what is out of range; a script has to be told.
  bool setSpace(const std::optional<Amount>& amount, NumberField& field, const char* option,
                CreateModel& model) {
    if (!amount) return true;
    const std::optional<u32> mebibytes = amountInMiB(*amount, drive_.sectorSize());
    if (!mebibytes || *mebibytes > field.maximum) {
      refusal_ = format("%s is larger than what the partition leaves free; %u MiB is possible.",
                        option, field.maximum);
      return false;
    }
    field.setValue(*mebibytes);
    model.pass();
    return true;
  }

  // An entry of an MBR has no place for a name; a file system in it has one for a label.
  bool setName(CreateModel& model) {
    const bool hasNone = !drive_.isGpt() && !drive_.isEmbr() && !isVolume_;
    const bool isLabelOnly = hasNone && wanted_.format;
    if (wanted_.name) {
      const std::string why =
          isLabelOnly ? whyNoText(*wanted_.name) : whyNotNamed(drive_, isVolume_, *wanted_.name);
      if (!why.empty()) {
        refusal_ = "--name: " + why;
        if (hasNone && !isLabelOnly) refusal_ += " With --format it becomes the volume label.";
        return false;
      }
    }
    const char* usual = isVolume_ ? "Volume" : kNewMbrEntryName;
    model.nameIsOptional = true;
    model.name = wanted_.name.value_or(drive_.isGpt() ? "" : usual);
    model.label = wanted_.name.value_or("");
    return true;
  }

  std::string question(const CreateModel& model) const {
    std::string text = model.title + "\nA new " + (isVolume_ ? "volume" : "partition") +
                       " of type " + types::name(static_cast<u16>(wanted_.type)) +
                       " is made there. ";
    text += wanted_.format ? "It is formatted: everything in its place is overwritten."
                           : "Its first sectors are overwritten with zeros.";
    return text + "\nDisk: " + describeDisk(drive_.disk()) + "\nAre you sure you want to continue?";
  }

  void fillFormat(FormatModel& model) {
    // Checked before the flow began: this cannot fail for what the command line takes.
    static_cast<void>(model.setClusterBytes(wanted_.clusterBytes.value_or(0)));
    model.pass();
    model.ok();
  }

  ConsoleFrontEnd& ui_;
  const CreateWish& wanted_;
  Drive& drive_;
  bool isVolume_;
  u64 blockSectors_;
  std::string refusal_;
  std::vector<std::string> notes_;
};

std::set<u64> usedStarts(Drive& drive) {
  std::set<u64> starts;
  for (const ListedRow& row : listedRows(drive))
    if (row.kind != ListedRow::Kind::free) starts.insert(row.entry->startSector);
  return starts;
}

// The row that was not there before; nothing when there is none.
std::optional<ListedRow> newRow(Drive& drive, const std::set<u64>& before) {
  for (const ListedRow& row : listedRows(drive))
    if (row.kind != ListedRow::Kind::free && !before.contains(row.entry->startSector)) return row;
  return std::nullopt;
}

void reportCreated(CommandContext& context, Drive& drive, const std::set<u64>& before,
                   const std::vector<std::string>& notes) {
  if (const auto row = newRow(drive, before)) {
    if (context.options.json) {
      writePartition(context.json, context.session.fileSystems(), drive, *row);
    } else {
      std::printf("Created %s\n", rowText(drive, *row).c_str());
    }
  }
  for (const std::string& note : notes) context.ui.note(note);
}

bool takesAutomatic(const FileSystemKinds& kinds, u16 type) {
  const FileSystemKind* kind = kinds.byType(type);
  return kind && takesAutomaticClusters(*kind, type);
}

class CreateCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;

  CreateWish wanted_;
};

void CreateCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  options
      .value("--size", "SIZE", wanted_.size, parseAmount, kAmountForm,
             "Size; never less, and more only as far as the alignment needs")
      .required();
  options
      .value("--type", "TYPE", wanted_.type, parseType, kTypeForm,
             "Number, or fat12 fat16 fat32 ntfs linux swap extended efi")
      .required();
  options.text("--name", "NAME", wanted_.name,
               "Name; in an MBR the volume label, with --format only");
  options.value("--free", "K", wanted_.freeBlock, parseFromOne, "a free block's number, from 1",
                "The K-th free block of the list; by default the largest");
  const DeclaredOption before = options.value("--before", "SIZE", wanted_.before, parseAmount,
                                              kAmountForm, "Free space to leave before it");
  options
      .value("--after", "SIZE", wanted_.after, parseAmount, kAmountForm,
             "Free space to leave after it; 0 places it at the block's end")
      .excludes(before);
  const DeclaredOption format = options.flag("--format", wanted_.format, "Format it");
  options.value("--cluster", "SIZE", wanted_.clusterBytes, parseCluster, kClusterForm, kClusterHelp)
      .needs(format);
  declareWriting(options, common);
}

CommandResult CreateCommand::run(CommandContext& context) {
  context.ui.skipScans();
  context.ui.offerInsistence("or make the table with 'convert' first");
  if (wanted_.type > kLargestType)
    return refused(
        format("--type: %u is no type of a partition; give 1 to %u.", wanted_.type, kLargestType));
  if (wanted_.clusterBytes &&
      takesAutomatic(context.session.fileSystems(), static_cast<u16>(wanted_.type)))
    return refused("--cluster: this type always takes the automatic cluster size; leave it out.");
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::change, target); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  PartitionEntry* block = findFreeBlock(drive, wanted_.freeBlock);
  if (!block) return noFreeBlock(context.options.target, wanted_.freeBlock, drive);

  const std::set<u64> before = usedStarts(drive);
  const bool hadErrors = drive.table().hasErrors();
  CreateAnswers answers(context, wanted_, drive, *block);
  context.ui.setDialogHandler([&](DialogModel& model) { answers.fill(model); });
  const FlowResult flow = createFlow(context.session.context(context.ui), drive, *block);
  if (!answers.refusal().empty()) return refused(answers.refusal());
  CommandResult result = resultOfFlow(flow, context.ui, "The partition was not created.");
  if (!result.succeeded()) {
    // Formatting comes after the table is written.
    const auto row = flow.succeeded() ? std::nullopt : newRow(drive, before);
    if (row && wanted_.format && !context.options.rehearse)
      result.message =
          format("Partition %u was created, but not formatted. ", *row->number) + result.message;
    return result;
  }
  reportCreated(context, drive, before, answers.notes());
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kCreateCommand = {"create", "Create a partition or a volume",
                                   makeCommand<CreateCommand>};

}  // namespace tallowin
