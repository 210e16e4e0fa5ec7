// table: keeps the partition table in a file, and puts it back.
#include <unistd.h>

#include <cstdio>

#include "cli/target.h"
#include "ops/restore_table_flow.h"
#include "ptable/table_backup.h"

namespace tallowin {
namespace {

CommandResult backup(CommandContext& context) {
  const std::string& file = context.arguments.file;
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::look, target); !result.succeeded())
    return result;
  if (::access(file.c_str(), F_OK) == 0 && !context.ui.confirm("Replace the file '" + file + "'?"))
    return refused("'" + file +
                   "' is there already; choose another name, or replace it with --yes.");
  TableBackup table;
  Error error = takeTableBackup(*target.drive, context.session.host().secondsSinceEpoch(), table);
  if (error != Error::none) return failedBecause("The table could not be kept.", error);
  error = writeTableBackup(table, file);
  if (error != Error::none) return failedBecause("'" + file + "' could not be written.", error);
  if (context.arguments.json) {
    context.json.text("file", file);
    context.json.number("sectors", table.sectors.size());
  } else {
    std::printf("Kept %zu sectors of the partition table in %s\n", table.sectors.size(),
                file.c_str());
  }
  return {};
}

CommandResult restore(CommandContext& context) {
  TableBackup table;
  if (const Error error = readTableBackup(context.arguments.file, table); error != Error::none)
    return failedBecause("'" + context.arguments.file + "' cannot be put back.", error);
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::change, target); !result.succeeded())
    return result;
  const FlowResult flow =
      restoreTableFlow(context.session.context(context.ui), *target.drive, table);
  CommandResult result = resultOfFlow(flow, context.ui, "The table was not put back.");
  if (!result.succeeded()) return result;
  if (context.arguments.json)
    context.json.number("restored_sectors", table.sectors.size());
  else
    std::printf("Put back %zu sectors of the partition table\n", table.sectors.size());
  // The table that is put back may have had errors when it was kept.
  return endChange(context, target, true, std::move(result));
}

}  // namespace

CommandResult runTable(CommandContext& context) {
  return context.arguments.tableAction == TableAction::backup ? backup(context) : restore(context);
}

}  // namespace tallowin
