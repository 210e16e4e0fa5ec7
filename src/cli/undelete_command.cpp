// undelete: partitions whose entries were lost come back into the table.
#include <algorithm>
#include <cstdio>

#include "base/stop_request.h"
#include "base/text.h"
#include "cli/commands.h"
#include "cli/target.h"
#include "cli/values.h"
#include "ops/target_text.h"
#include "ops/undelete_flow.h"
#include "ops/undelete_model.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

// What is to be added of what is found.
struct UndeleteWish {
  std::optional<u32> freeBlock;
  bool dryRun = false;
  bool all = false;
  std::vector<u32> picks;  // from 1
};

std::string foundText(const UndeleteModel& model) {
  std::string text = model.intro + "\n\n";
  text += format("%-4s%-22s%14s%14s  %-18s%-10s%s\n", "No", "Kind", "Start", "End", "Size",
                 "How sure", "Label");
  for (std::size_t row = 0; row < model.rows.size(); ++row) {
    const UndeleteModel::Row& shown = model.rows[row];
    const std::string line =
        format("%-4zu%-22s%14s%14llu  %-18s%-10s%s", row + 1, shown.kind.c_str(),
               shown.start.c_str(), static_cast<unsigned long long>(model.found()[row].endSector),
               shown.size.c_str(), shown.confidence.c_str(), shown.label.c_str());
    text += std::string(trimRight(line)) + "\n";
  }
  for (std::size_t row = 0; row < model.rows.size(); ++row)
    if (model.found()[row].confidence == Confidence::doubtful)
      text += format("\n%zu: %s\n", row + 1, confidenceSentence(model.found()[row]));
  return text;
}

void writeFound(JsonWriter& json, const UndeleteModel& model) {
  json.beginArray("found");
  for (std::size_t row = 0; row < model.found().size(); ++row) {
    const LostPartition& found = model.found()[row];
    json.beginObject();
    json.number("number", row + 1);
    json.text("kind", found.kind);
    json.number("type", found.type);
    json.text("type_name", types::name(found.type));
    json.number("start", found.startSector);
    json.number("end", found.endSector);
    json.number("sectors", found.endSector + 1 - found.startSector);
    json.boolean("size_known", found.isSizeKnown);
    json.number("volumes", found.volumeCount);
    json.text("label", found.label);
    json.text("confidence", confidenceWord(found.confidence));
    json.text("why", confidenceSentence(found));
    json.endObject();
  }
  json.endArray();
}

class UndeleteCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;

  void fill(CommandContext& context, Drive& drive, UndeleteModel& model);
  std::string choose(CommandContext& context, UndeleteModel& model);
  std::string question(Drive& drive, const UndeleteModel& model) const;

  UndeleteWish wanted_;
  std::string refusal_;
  bool wantsAll_ = false;
  bool wasFound_ = false;
};

void UndeleteCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  options.value("--free", "K", wanted_.freeBlock, parseFromOne, "a free block's number, from 1",
                "The K-th free block of the list; by default the largest");
  const DeclaredOption dryRun =
      options.flag("--dry-run", wanted_.dryRun, "List what would be recovered, and change nothing");
  const DeclaredOption all =
      options.flag("--all", wanted_.all, "Add everything that is not in doubt").excludes(dryRun);
  options
      .list("--pick", "N", wanted_.picks, parseFromOne, "a number of the list, from 1",
            "Add the N-th of what is found; may be repeated")
      .excludes(dryRun)
      .excludes(all);
  declareWriting(options, common);
}

// Ticks what is wanted; else why that is not possible.
std::string UndeleteCommand::choose(CommandContext& context, UndeleteModel& model) {
  std::vector<u32> picks = wanted_.picks;
  if (picks.empty() && !wanted_.all) {
    TextInput input{"Undelete", "Numbers to add, or 'all':", 255, ""};
    if (!context.ui.textInput(input))
      return "Choose what to add with --all or --pick N; --dry-run lists what there is.";
    for (const std::string& word : split(input.text, ' ')) {
      if (word.empty() || word == "all") continue;
      const auto number = parseFromOne(word);
      if (!number) return "'" + word + "' is no number of the list.";
      picks.push_back(*number);
    }
    if (picks.empty() && input.text.find("all") == std::string::npos)
      return "Nothing was chosen, and nothing was changed.";
  }
  for (const u32 pick : picks)
    if (pick > model.rows.size())
      return format("There is no number %u; choose from 1 to %zu.", pick, model.rows.size());
  const std::vector<std::size_t> notInDoubt = model.notInDoubt();
  for (std::size_t row = 0; row < model.rows.size(); ++row)
    model.rows[row].isPicked = picks.empty()
                                   ? std::ranges::count(notInDoubt, row) != 0
                                   : std::ranges::count(picks, static_cast<u32>(row + 1)) != 0;
  model.pass();
  wantsAll_ = picks.empty();
  const Control& control = wantsAll_ ? model.addAllControl : model.addControl;
  return control.enabled ? std::string() : control.whyDisabled;
}

std::string UndeleteCommand::question(Drive& drive, const UndeleteModel& model) const {
  std::string numbers;
  for (std::size_t row = 0; row < model.rows.size(); ++row)
    if (model.rows[row].isPicked)
      numbers += (numbers.empty() ? "" : ", ") + std::to_string(row + 1);
  return "An entry is added to the partition table for each of these: " + numbers +
         ".\nDisk: " + describeDisk(drive.disk()) + "\nAre you sure you want to continue?";
}

void UndeleteCommand::fill(CommandContext& context, Drive& drive, UndeleteModel& model) {
  wasFound_ = true;
  if (context.options.json)
    writeFound(context.json, model);
  else
    std::fputs(foundText(model).c_str(), stdout);
  std::fflush(stdout);
  if (wanted_.dryRun) return;
  refusal_ = choose(context, model);
  if (!refusal_.empty()) return;
  if (!context.ui.confirm(Consent::general, "", question(drive, model))) return;
  if (wantsAll_)
    model.addAll();
  else
    model.ok();
}

CommandResult UndeleteCommand::run(CommandContext& context) {
  const TargetUse use = wanted_.dryRun ? TargetUse::look : TargetUse::change;
  Target target;
  if (CommandResult result = openTarget(context, use, target); !result.succeeded()) return result;
  Drive& drive = *target.drive;
  const PartitionEntry* block = findFreeBlock(drive, wanted_.freeBlock);
  if (!block) return noFreeBlock(context.options.target, wanted_.freeBlock, drive);

  const bool hadErrors = drive.table().hasErrors();
  context.ui.setDialogHandler([&](DialogModel& model) {
    if (auto* undelete = dynamic_cast<UndeleteModel*>(&model)) fill(context, drive, *undelete);
  });
  u32 added = 0;
  const FlowResult flow = recoverPartitions(context.session.context(context.ui), drive, *block,
                                            searchExtent(drive, *block).startSector, added);
  if (!refusal_.empty()) return refused(refusal_);
  // A list without rows answers the question, too.
  const bool isEmptyList = !wasFound_ && flow.end == FlowEnd::refused && !flow.code;
  if (context.options.json && isEmptyList) {
    context.json.beginArray("found");
    context.json.endArray();
  }
  if (wanted_.dryRun && (wasFound_ || isEmptyList) && !stopRequested()) return {};
  CommandResult result = resultOfFlow(flow, context.ui, "Nothing was recovered.");
  if (!result.succeeded()) return result;
  if (context.options.json) {
    context.json.number("recovered", added);
    if (!context.options.rehearse) writeRows(context.json, context.session.fileSystems(), drive);
  } else if (!context.options.rehearse) {
    std::printf("\n%s", listingText(context.session.fileSystems(), drive).c_str());
  }
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kUndeleteCommand = {"undelete", "Bring back partitions whose entries were lost",
                                     makeCommand<UndeleteCommand>};

}  // namespace tallowin
