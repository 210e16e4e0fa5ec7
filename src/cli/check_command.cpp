// check: whether a file system is sound, and what can be mended.
#include "ops/check_flow.h"

#include <algorithm>
#include <cstdio>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/target.h"

namespace tallowin {
namespace {

std::optional<LostClusters> parseLost(std::string_view text) {
  if (text == "keep") return LostClusters::keep;
  if (text == "free") return LostClusters::free;
  return std::nullopt;
}

const char* wordOf(Mend::Kind kind) {
  switch (kind) {
    case Mend::Kind::bootSector:
      return "boot-sector";
    case Mend::Kind::tableCopies:
      return "fat-copies";
    case Mend::Kind::keepLostClusters:
      return "keep-lost";
    case Mend::Kind::freeLostClusters:
      return "free-lost";
    case Mend::Kind::freeCount:
      return "free-count";
    case Mend::Kind::backupBootSector:
      return "backup-boot-sector";
    case Mend::Kind::inUseMark:
      return "in-use-mark";
  }
  return "";
}

bool isPossible(const Mend& mend) { return mend.whyNot == Error::none; }

void writeMends(JsonWriter& json, const char* key, const std::vector<Mend>& mends) {
  json.beginArray(key);
  for (const Mend& mend : mends) {
    json.beginObject();
    json.text("kind", wordOf(mend.kind));
    json.text("fault", mend.fault);
    json.text("remedy", mend.remedy);
    if (!isPossible(mend)) json.number("why_not", codeOf(mend.whyNot));
    json.endObject();
  }
  json.endArray();
}

void writeReport(JsonWriter& json, const CheckReport& report) {
  json.number("fault", report.fault);
  json.text("meaning", report.faultText);
  json.number("files", report.files);
  json.number("directories", report.directories);
  json.number("used_clusters", report.usedClusters);
  json.number("free_clusters", report.freeClusters);
  json.number("bad_clusters", report.badClusters);
}

std::string reportText(const CheckReport& report) {
  const auto number = [](u64 value) { return static_cast<unsigned long long>(value); };
  return format(
      "%s.\nFiles          %llu\nDirectories    %llu\nUsed clusters  %llu\nFree clusters  %llu\n"
      "Bad clusters   %llu\n",
      report.faultText.c_str(), number(report.files), number(report.directories),
      number(report.usedClusters), number(report.freeClusters), number(report.badClusters));
}

std::string mendsText(const char* what, const std::vector<Mend>& mends) {
  std::string text;
  for (const Mend& mend : mends)
    text +=
        format("%s%s %s\n", isPossible(mend) ? what : "", mend.fault.c_str(), mend.remedy.c_str());
  if (!std::ranges::all_of(mends, isPossible)) text.append(kMakeRoom) += "\n";
  return text;
}

// "Fault 27: ...", with what `check --repair` would do.
CommandResult faulty(const CheckReport& report, const std::vector<Mend>& mends,
                     const ConsoleFrontEnd& ui) {
  std::string message = format("Fault %u: %s.", report.fault, report.faultText.c_str());
  for (const std::string& told : ui.told()) message += " " + told;
  if (mends.empty())
    message += " Copy what you need, and format the volume anew.";
  else if (std::ranges::all_of(mends, isPossible))
    message += " 'check --repair' would mend it: " + mendsText("", mends);
  else
    message += " 'check --repair' cannot mend it: " + mendsText("", mends);
  CommandResult result = refused(onOneLine(message), Error::corrupt);
  result.number = report.fault;
  return result;
}

class CheckCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;
  CommandResult check(CommandContext& context, Target& target, const PartitionEntry& entry) const;
  CommandResult repair(CommandContext& context, Target& target, const PartitionEntry& entry) const;

  bool repair_ = false;
  bool dryRun_ = false;
  LostClusters lost_ = LostClusters::keep;
};

void CheckCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  declarePart(options, common);
  const DeclaredOption repair = options.flag(
      "--repair", repair_, "Mend what needs no choice between files; each is asked about before");
  options.flag("--dry-run", dryRun_, "Say what would be mended, and change nothing").needs(repair);
  options
      .value("--lost", "keep/free", lost_, parseLost, "keep or free",
             "Clusters that belong to no file: keep them as files (the default), or free them")
      .needs(repair);
  declareWriting(options, common);
}

CommandResult CheckCommand::check(CommandContext& context, Target& target,
                                  const PartitionEntry& entry) const {
  CheckReport report;
  const FlowResult flow =
      checkFlow(context.session.context(context.ui), *target.drive, entry, report);
  CommandResult result = resultOfFlow(flow, context.ui, "The partition was not checked.");
  if (!result.succeeded() && report.fault != 0) result.number = report.fault;
  if (!result.succeeded()) return result;
  const std::vector<Mend> mends = mendsFor(report, lost_);
  if (!report.isSound && (!dryRun_ || mends.empty())) return faulty(report, mends, context.ui);
  if (context.options.json) {
    writeReport(context.json, report);
    writeMends(context.json, "would_mend", mends);
  } else {
    std::fputs((reportText(report) + mendsText("Would mend: ", mends)).c_str(), stdout);
  }
  return result;
}

CommandResult CheckCommand::repair(CommandContext& context, Target& target,
                                   const PartitionEntry& entry) const {
  const bool hadErrors = target.drive->table().hasErrors();
  RepairReport report;
  const FlowResult flow =
      repairFlow(context.session.context(context.ui), *target.drive, entry, lost_, report);
  CommandResult result = resultOfFlow(flow, context.ui, "Nothing was mended.");
  if (!result.succeeded()) {
    if (result.code == Error::corrupt) result.number = report.after.fault;
    return result;
  }
  if (context.options.json) {
    writeReport(context.json, report.after);
    writeMends(context.json, "mended", report.done);
  } else {
    std::fputs((mendsText("Mended: ", report.done) + reportText(report.after)).c_str(), stdout);
  }
  return endChange(context, target, hadErrors, std::move(result));
}

CommandResult CheckCommand::run(CommandContext& context) {
  const bool writes = repair_ && !dryRun_;
  Target target;
  ListedRow row;
  if (CommandResult result =
          openPart(context, writes ? TargetUse::change : TargetUse::look, target, row);
      !result.succeeded())
    return result;
  return writes ? repair(context, target, *row.entry) : check(context, target, *row.entry);
}

}  // namespace

const CommandRow kCheckCommand = {"check", "Check a file system, and mend it",
                                  makeCommand<CheckCommand>};

}  // namespace tallowin
