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
#include "ops/target_text.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

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
  CreateAnswers(const CreateWish& wanted, u32 sectorSizeBytes, const char* defaultName)
      : wanted_(wanted), sectorSizeBytes_(sectorSizeBytes), defaultName_(defaultName) {}

  const std::string& refusal() const { return refusal_; }

  void fill(DialogModel& model) {
    if (auto* create = dynamic_cast<CreateModel*>(&model)) fillCreate(*create);
    if (auto* cluster = dynamic_cast<FormatModel*>(&model)) fillFormat(*cluster);
  }

 private:
  void fillCreate(CreateModel& model) {
    model.fileSystem = std::to_string(wanted_.type);
    model.pass();
    if (!setNumber(wanted_.size, model.sizeMiB, "--size", model) ||
        (wanted_.before && !setNumber(*wanted_.before, model.freeBeforeMiB, "--before", model)) ||
        (wanted_.after && !setNumber(*wanted_.after, model.freeAfterMiB, "--after", model)))
      return;
    if (wanted_.format && !model.formatControl.enabled) {
      refusal_ = "--format: a partition of this type cannot be formatted; leave it out.";
      return;
    }
    model.format = wanted_.format;
    if (model.nameControl.enabled) model.name = wanted_.name.value_or(defaultName_);
    model.ok();
  }

  // The field takes no value outside its range: a dialog shows that, a script has to be told.
  bool setNumber(const Amount& amount, NumberField& field, const char* option, CreateModel& model) {
    const std::optional<u32> mebibytes = amountInMiB(amount, sectorSizeBytes_);
    if (!mebibytes || *mebibytes > field.maximum) {
      refusal_ = format("%s is larger than the free block and the type allow; %u MiB is possible.",
                        option, field.maximum);
      return false;
    }
    field.setValue(*mebibytes);
    model.pass();
    return true;
  }

  void fillFormat(FormatModel& model) {
    // Checked before the flow began: this cannot fail for what the command line takes.
    static_cast<void>(model.setClusterBytes(wanted_.clusterBytes.value_or(0)));
    model.pass();
    model.ok();
  }

  const CreateWish& wanted_;
  u32 sectorSizeBytes_;
  const char* defaultName_;
  std::string refusal_;
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

void reportCreated(CommandContext& context, Drive& drive, const std::set<u64>& before) {
  if (const auto row = newRow(drive, before)) {
    if (context.options.json) {
      writePartition(context.json, context.session.fileSystems(), drive, *row);
    } else {
      std::printf("Created %s\n", rowText(drive, *row).c_str());
    }
  }
}

CommandResult noFreeBlock(const std::string& path, const std::optional<u32>& wanted,
                          const Drive& drive) {
  if (const std::string why = drive.changeRefusal(); !why.empty()) return refused(why);
  if (const std::string why = emptyTableText(drive); !why.empty()) return refused(why);
  if (!wanted) return refused("'" + path + "' has no free block; delete a partition first.");
  return refused(
      format("'%s' has no free block %u; see the free rows of the list.", path.c_str(), *wanted));
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
             "Size, rounded up to whole MiB")
      .required();
  options
      .value("--type", "TYPE", wanted_.type, parseType, kTypeForm,
             "Number, or fat12 fat16 fat32 ntfs linux swap extended efi")
      .required();
  options.text("--name", "NAME", wanted_.name, "Name");
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
  CreateAnswers answers(wanted_, drive.sectorSize(),
                        block->isVolume() ? "Volume" : kNewMbrEntryName);
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
  reportCreated(context, drive, before);
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kCreateCommand = {"create", "Create a partition or a volume",
                                   makeCommand<CreateCommand>};

}  // namespace tallowin
