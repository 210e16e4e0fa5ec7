// set: changes the properties of a partition where it lies.
#include <cstdio>

#include "cli/commands.h"
#include "cli/property_plan.h"
#include "cli/target.h"
#include "cli/values.h"
#include "ops/properties_flow.h"

namespace tallowin {
namespace {

void reportPart(CommandContext& context, Drive& drive) {
  ListedRow row;
  if (!findPart(context, drive, row).succeeded()) return;
  if (context.options.json) {
    writePartition(context.json, context.session.fileSystems(), drive, row);
  } else {
    std::printf("%s\n", rowText(drive, row).c_str());
  }
}

// A number alone is a sector's, not MiB as for sizes.
std::optional<Amount> parseSector(std::string_view text) {
  u64 number = 0;
  return parseAmount(parseDecimal(text, number) ? std::string(text) + "s" : std::string(text));
}

class SetCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;

  PropertyWish wanted_;
  bool fixesBootSector_ = false;
};

void SetCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  declarePart(options, common);
  options.text("--name", "NAME", wanted_.name, "Name; entries of an MBR have none");
  options.value("--type", "TYPE", wanted_.type, parseType, kTypeForm,
                "Number, or fat12 fat16 fat32 ntfs linux swap efi");
  options.value("--type-guid", "GUID", wanted_.typeGuid, parseTypeGuid,
                "a GUID or the name of a type, as \"Linux Data\"",
                "GPT: type GUID, or the name of the type");
  const DeclaredOption active =
      options.choice("--active", wanted_.active, true, "Make it the only active one");
  options.choice("--inactive", wanted_.active, false, "Take its active mark").excludes(active);
  const DeclaredOption hide =
      options.choice("--hide", wanted_.hide, true, "Hide it: by its type, on a GPT by a flag");
  options.choice("--unhide", wanted_.hide, false, "Show it again").excludes(hide);
  options.list(
      "--flag", "FLAG=0/1", wanted_.flags, parseFlagChange, "FLAG=0 or FLAG=1",
      "GPT: 0 to 63, required no-block-io legacy-boot read-only shadow-copy hidden no-mount; "
      "EMBR: boot manager bootable multi-os hd0-only; may be repeated");
  options.value("--end", "LBA", wanted_.end, parseSector, "a sector, as 4095",
                "Its last sector; of a partition of the top level");
  options.flag("--fix-boot-sector", fixesBootSector_,
               "Make geometry and drive number in its boot sector those of the disk");
  declareWriting(options, common);
}

CommandResult SetCommand::run(CommandContext& context) {
  Target target;
  ListedRow row;
  if (CommandResult result = openPart(context, TargetUse::change, target, row); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  const bool hadErrors = drive.table().hasErrors();
  EntryProperties change;
  const std::string refusal = planProperties(drive, *row.entry, wanted_, change);
  if (!refusal.empty()) return refused(refusal + " Nothing was changed.", Error::unsupportedForm);
  CommandResult result;
  if (change != EntryProperties{}) {
    const FlowResult flow =
        changePropertiesFlow(context.session.context(context.ui), drive, *row.entry, change);
    result = resultOfFlow(flow, context.ui, "The partition was not changed.");
    if (!result.succeeded()) return result;
  }
  if (fixesBootSector_) {
    if (CommandResult fixed = findPart(context, drive, row); !fixed.succeeded()) return fixed;
    const FlowResult flow =
        repairBootSectorFlow(context.session.context(context.ui), drive, *row.entry);
    result = resultOfFlow(flow, context.ui, "The boot sector was not changed.");
    if (!result.succeeded()) return result;
  }
  reportPart(context, drive);
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kSetCommand = {"set", "Change name, type, marks and flags of a partition",
                                makeCommand<SetCommand>};

}  // namespace tallowin
