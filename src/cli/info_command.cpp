// info: one partition, and the file system in it.
#include <cstdio>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/file_system_facts.h"
#include "cli/target.h"
#include "ops/target_text.h"
#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_types.h"

namespace tallowin {
namespace {

struct PartitionFacts {
  ChsAddress start;  // by the drive's geometry
  ChsAddress end;    // as it stands in the table
  std::optional<FileSystemFacts> fileSystem;
};

CommandResult gather(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                     PartitionFacts& facts) {
  facts.start = lbaToChs(entry.startSector, drive.geometry(), kChsBeyondGeometry);
  facts.end = unpackedChs(entry.endChs);
  FileSystemFacts found;
  const Failure failed = readFileSystemFacts(context, drive, entry, found);
  if (!failed) facts.fileSystem = std::move(found);
  if (!failed || failed == Error::invalidVolume) return {};
  return failedBecause("The clusters of the partition cannot be counted.", failed);
}

std::string gptFactsText(const PartitionEntry& entry) {
  const char* kind = gptTypeName(entry.typeGuid);
  return format(
      "Stored name    %s\nType GUID      %s %s\nUnique GUID    %s\nAttributes     0x%016llX\n",
      entry.tableName.c_str(), guidText(entry.typeGuid).c_str(), kind ? kind : "",
      guidText(entry.uniqueGuid).c_str(), static_cast<unsigned long long>(entry.attributes));
}

std::string partitionText(const FileSystemKinds& kinds, Drive& drive, const ListedRow& row,
                          const PartitionFacts& facts) {
  const PartitionEntry& entry = *row.entry;
  std::string text = format(
      "Name           %s\nType           %s (%u, 0x%02X)\nSize           %s, %llu sectors\n"
      "Sectors        %llu..%llu\nCHS            %s..%s\nBoot flag      0x%02X\n",
      entry.name.c_str(), typeText(entry).c_str(), entry.type, entry.type,
      sizeText(entry.startSector, entry.endSector, drive.sectorSize()).c_str(),
      static_cast<unsigned long long>(entry.sectorCount()),
      static_cast<unsigned long long>(entry.startSector),
      static_cast<unsigned long long>(entry.endSector), chsText(facts.start).c_str(),
      chsText(facts.end).c_str(), entry.bootIndicator);
  if (!entry.typeGuid.isZero()) text += gptFactsText(entry);
  if (drive.isEmbr())
    text += format("Flags          0x%04llX\n", static_cast<unsigned long long>(entry.attributes));
  if (const auto fault = faultText(entry)) text += "Error          " + *fault + "\n";
  if (facts.fileSystem) return text + factsText(*facts.fileSystem);
  return text + "File system    " + contentName(kinds, drive, entry).value_or("not known") + "\n";
}

class InfoCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override {
    declareTarget(options, common);
    declarePart(options, common);
  }
  CommandResult run(CommandContext& context) override;
};

CommandResult InfoCommand::run(CommandContext& context) {
  Target target;
  ListedRow row;
  if (CommandResult result = openPart(context, TargetUse::look, target, row); !result.succeeded())
    return result;
  PartitionFacts facts;
  if (CommandResult result =
          gather(context.session.context(context.ui), *target.drive, *row.entry, facts);
      !result.succeeded())
    return result;
  if (!context.options.json) {
    std::fputs(partitionText(context.session.fileSystems(), *target.drive, row, facts).c_str(),
               stdout);
    if (const std::string problem = tableProblemText(*target.drive); !problem.empty())
      std::printf("Table          %s\n", problem.c_str());
    return {};
  }
  context.json.text("path", context.options.target);
  writeRow(context.json, context.session.fileSystems(), *target.drive, row);
  context.json.textOrNull("gpt_health", gptHealthFor(*target.drive));
  writeChs(context.json, "start_chs", facts.start);
  writeChs(context.json, "end_chs", facts.end);
  if (facts.fileSystem)
    writeFacts(context.json, *facts.fileSystem);
  else
    context.json.null("file_system");
  return {};
}

}  // namespace

const CommandRow kInfoCommand = {"info", "Show one partition and its file system",
                                 makeCommand<InfoCommand>};

}  // namespace tallowin
