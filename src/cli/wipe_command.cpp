// wipe: overwrites a partition, a free block or a whole disk.
#include <cstdio>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/target.h"
#include "cli/values.h"
#include "cli/wipe_options.h"
#include "ops/operation_progress.h"
#include "ops/target_text.h"
#include "ops/wipe_flow.h"

namespace tallowin {
namespace {

class WipeCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override;
  CommandResult run(CommandContext& context) override;
  CommandResult findTarget(CommandContext& context, Drive& drive, WipeOrder& order) const;
  void report(CommandContext& context, Drive& drive, const WipeRecord& record) const;

  bool whole_ = false;
  std::optional<u32> freeBlock_;
  WipeMethodChoice method_;
  std::optional<std::string> passes_;
  bool verify_ = false;
  bool ignoreErrors_ = false;
  std::optional<std::string> certificate_;
};

void WipeCommand::declare(OptionSet& options, CommonOptions& common) {
  declareTarget(options, common);
  const DeclaredOption part = declareOptionalPart(options, common);
  DeclaredOption whole =
      options.flag("--whole", whole_, "All of the disk, with its tables").excludes(part);
  options
      .value("--free", "K", freeBlock_, parseFromOne, "a free block's number, from 1",
             "The K-th free block of the list")
      .excludes(part)
      .excludes(whole);
  options.check([&] {
    return common.part || whole_ || freeBlock_ ? std::string()
                                               : std::string("--whole, --part or --free is needed");
  });
  const DeclaredOption pattern =
      options.value("--pattern", "P", method_, parseWipePattern, kWipePatternForm,
                    "zero (the default), random1, random4, mfm, rll17, rll27 or gutmann");
  options
      .text("--passes", "TEXT", passes_,
            "Passes of your own: r random, n new random bytes, s stirred, v validate, or bytes as "
            "0x55&0xAA, with > to fill the sector")
      .excludes(pattern);
  options.flag("--verify", verify_, "Read back and compare after the last pass");
  options.text("--certificate", "FILE", certificate_, "Write down what was done");
  options.flag("--ignore-errors", ignoreErrors_,
               "Pass over sectors that cannot be overwritten; --yes does not answer that");
  declareWriting(options, common);
}

CommandResult WipeCommand::findTarget(CommandContext& context, Drive& drive,
                                      WipeOrder& order) const {
  if (whole_) return {};
  if (freeBlock_) {
    const PartitionEntry* block = findFreeBlock(drive, freeBlock_);
    if (!block) return noFreeBlock(context.options.target, freeBlock_, drive);
    order.extent = SectorExtent{block->startSector, block->endSector};
    order.what = format("Free block %u", *freeBlock_);
    return {};
  }
  ListedRow row;
  CommandResult result = findPart(context, drive, row);
  if (!result.succeeded()) return result;
  if (row.entry->isInError())
    return refused(
        "The partition overlaps another one or is not possible, so none of its sectors "
        "may be overwritten.",
        Error::tableInError);
  order.extent = SectorExtent{row.entry->startSector, row.entry->endSector};
  order.what = rowText(drive, row);
  return {};
}

void WipeCommand::report(CommandContext& context, Drive& drive, const WipeRecord& record) const {
  const u64 sectors = record.extent.endSector + 1 - record.extent.startSector;
  if (context.options.json) {
    context.json.number("start", record.extent.startSector);
    context.json.number("sectors", sectors);
    context.json.text("method", methodText(record.method));
    context.json.number("passes", record.report.passes.size());
    context.json.number("failed_sectors", record.report.failedSectors());
    return;
  }
  std::printf("Wiped %llu sectors (%s), %s\n", static_cast<unsigned long long>(sectors),
              bytesText(sectors * drive.sectorSize()).c_str(), methodText(record.method).c_str());
}

CommandResult WipeCommand::run(CommandContext& context) {
  if (ignoreErrors_) context.ui.agreeTo(Consent::diskError);
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::change, target); !result.succeeded())
    return result;
  Drive& drive = *target.drive;
  WipeOrder order;
  order.method = method_;
  if (passes_) order.method = WipeMethodChoice{WipeType::userDefined, *passes_, false};
  order.method->verifies = verify_;
  order.certificateFile = certificate_;
  if (CommandResult result = findTarget(context, drive, order); !result.succeeded()) return result;
  const bool hadErrors = drive.table().hasErrors();
  WipeRecord record;
  const FlowResult flow = wipeFlow(context.session.context(context.ui), drive, order, record);
  CommandResult result = resultOfFlow(flow, context.ui, "Nothing was wiped.");
  if (!result.succeeded()) return result;
  report(context, drive, record);
  return endChange(context, target, hadErrors, std::move(result));
}

}  // namespace

const CommandRow kWipeCommand = {"wipe", "Overwrite a partition, free space or a whole disk",
                                 makeCommand<WipeCommand>};

}  // namespace tallowin
