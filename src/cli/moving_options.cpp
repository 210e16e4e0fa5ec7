#include "cli/moving_options.h"

#include <cstdio>

#include "ops/rehearsal.h"
#include "ops/table_change.h"

namespace tallowin {
namespace {

std::optional<std::string> parseFile(std::string_view text) {
  return text.empty() ? std::nullopt : std::optional(std::string(text));
}

}  // namespace

void declareMoving(OptionSet& options, MovingOptions& moving) {
  const DeclaredOption journal =
      options.value("--journal", "FILE", moving.journal, parseFile, "a file",
                    "Where the journal lies that a cut is continued or undone by: on another disk");
  options
      .flag("--no-journal", moving.noJournal,
            "Keep no journal: a kill or a power cut cannot be undone then")
      .excludes(journal);
  options.flag("--proof", moving.proof, "Compare all files before and after");
  options.flag("--ignore-errors", moving.ignoreErrors,
               "Pass over sectors that cannot be read or written");
}

void applyMoving(CommandContext& context, const MovingOptions& moving) {
  Options& options = context.session.options();
  if (moving.journal) options.journalFile = *moving.journal;
  if (moving.journal) options.keepJournal = true;
  if (moving.noJournal) options.keepJournal = false;
  if (moving.proof || context.options.rehearse) options.proveContent = true;
  if (moving.ignoreErrors) context.ui.agreeTo(Consent::diskError);
}

CommandResult reportMoved(CommandContext& context, Target& target, u64 startSector,
                          const char* did) {
  Drive& drive = *target.drive;
  if (target.overlay && !target.overlay->isFull()) {
    const OperationContext operation = context.session.context(context.ui);
    const std::string checked = checkedText(operation, drive, startSector);
    if (!checked.empty()) context.ui.note(checked);
    context.ui.note(effortText(operation, *target.overlay, *target.disk));
  }
  const PartitionEntry* entry = findByStart(drive, startSector);
  for (const ListedRow& row : listedRows(drive)) {
    if (row.entry != entry) continue;
    if (context.options.json)
      writePartition(context.json, context.session.fileSystems(), drive, row);
    else
      std::printf("%s %s\n", did, rowText(drive, row).c_str());
    return {};
  }
  return refused("The partition is not where it should be any more; look at the list.",
                 Error::tableInError);
}

CommandResult endMove(CommandContext& context, Target& target, const MoveTold& told,
                      const char* did, CommandResult& result) {
  if (context.options.json) {
    context.json.number("read_errors", told.readErrors);
    context.json.number("write_errors", told.writeErrors);
  }
  if (told.readErrors != 0 || told.writeErrors != 0)
    result.message = format("Done with bad sectors - Read:%llu Write:%llu",
                            static_cast<unsigned long long>(told.readErrors),
                            static_cast<unsigned long long>(told.writeErrors));
  return reportMoved(context, target, told.startSector, did);
}

}  // namespace tallowin
