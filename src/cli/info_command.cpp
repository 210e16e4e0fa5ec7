// info: one partition, and the file system in it.
#include <cstdio>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/fat_facts.h"
#include "cli/target.h"
#include "ops/target_text.h"
#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_types.h"

namespace tallowin {
namespace {

struct PartitionFacts {
  ChsAddress start;  // by the drive's geometry
  ChsAddress end;    // as it stands in the table
  std::optional<FatFacts> fat;
};

CommandResult gather(Drive& drive, const PartitionEntry& entry, PartitionFacts& facts) {
  facts.start = lbaToChs(entry.startSector, drive.geometry(), kChsBeyondGeometry);
  facts.end = unpackedChs(entry.endChs);
  FatFacts fat;
  const bool mayBeFat = types::isFat(entry.type) && !entry.isInError();
  const Failure error = mayBeFat ? readFatFacts(drive, entry, fat) : Error::invalidVolume;
  if (error == Error::none) facts.fat = fat;
  if (error == Error::none || error == Error::invalidVolume) return {};
  return failedBecause("The FAT of the partition cannot be counted.", error);
}

std::string gptFactsText(const PartitionEntry& entry) {
  const char* kind = gptTypeName(entry.typeGuid);
  return format(
      "Stored name    %s\nType GUID      %s %s\nUnique GUID    %s\nAttributes     0x%016llX\n",
      entry.tableName.c_str(), guidText(entry.typeGuid).c_str(), kind ? kind : "",
      guidText(entry.uniqueGuid).c_str(), static_cast<unsigned long long>(entry.attributes));
}

std::string factsText(Drive& drive, const ListedRow& row, const PartitionFacts& facts) {
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
  if (facts.fat) return text + fatFactsText(*facts.fat);
  return text + "File system    " + contentName(drive, entry).value_or("not known") + "\n";
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
  if (CommandResult result = gather(*target.drive, *row.entry, facts); !result.succeeded())
    return result;
  if (!context.options.json) {
    std::fputs(factsText(*target.drive, row, facts).c_str(), stdout);
    if (const std::string problem = tableProblemText(*target.drive); !problem.empty())
      std::printf("Table          %s\n", problem.c_str());
    return {};
  }
  context.json.text("path", context.options.target);
  writeRow(context.json, *target.drive, row);
  context.json.textOrNull("gpt_health", gptHealthFor(*target.drive));
  writeChs(context.json, "start_chs", facts.start);
  writeChs(context.json, "end_chs", facts.end);
  if (facts.fat)
    writeFatFacts(context.json, *facts.fat);
  else
    context.json.null("file_system");
  return {};
}

}  // namespace

const CommandRow kInfoCommand = {"info", "Show one partition and its file system",
                                 makeCommand<InfoCommand>};

}  // namespace tallowin
