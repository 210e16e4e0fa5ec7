#include "ops/copy_flow.h"

#include <algorithm>

#include "base/text.h"
#include "ops/add_entry.h"
#include "ops/bootsect_dos.h"
#include "ops/copy_operation.h"
#include "ops/create_model.h"
#include "ops/error_text.h"
#include "ops/free_block.h"
#include "ops/job_of_front_end.h"
#include "ops/move_words.h"
#include "ops/proof_step.h"
#include "ops/rehearsal.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ops/trace_log.h"
#include "ops/undoable_change.h"
#include "probe/type_catalogue.h"
#include "ptable/embr/embr_record.h"

namespace tallowin {
namespace {

constexpr u32 kSlotsOfMbr = 4;

FlowResult cancelled() { return {FlowEnd::cancelled, Error::cancelled}; }

unsigned long long wide(u64 number) { return number; }

u32 flagsFor(const Options& options, const CreateModel& model) {
  u32 flags = kMoveAlways;
  if (options.volumeLabels) flags |= kMoveSetLabel;
  if (!options.useOrgHdNum) flags |= kMoveFixDriveNumber;
  if (!options.useHd0InBpb) flags |= kMoveBiosNumber;
  if (model.deleteSource) flags |= kMoveDeleteSource;
  return flags;
}

// One run of the flow.
class Copying {
 public:
  Copying(const OperationContext& context, Drive& sourceDrive, PartitionEntry& source, Drive& drive,
          PartitionEntry& block)
      : context_(context),
        sourceDrive_(sourceDrive),
        drive_(drive),
        block_(&block),
        start_(source.startSector),
        sourceText_(describeTarget(sourceDrive, source)) {}

  FlowResult run() {
    if (auto stopped = checkTargets()) return *stopped;
    CreateModel model(facts());
    model.create = [&] { return settle(model); };
    context_.ui.run(model);
    return isWanted_ ? perform() : result_;
  }

  const MoveTold& told() const { return told_; }

 private:
  PartitionEntry* source() { return findByStart(sourceDrive_, start_); }
  bool isSameDrive() const { return &sourceDrive_ == &drive_; }
  SectorExtent extentOf(const PartitionEntry& entry) const {
    return {entry.startSector, entry.endSector};
  }

  std::optional<FlowResult> checkTargets() {
    if (auto stopped = refuseWhenReadOnlyTable(context_, drive_)) return stopped;
    PartitionEntry* entry = source();
    if (entry == nullptr || !block_->isFree())
      return refuse(errorText(Error::tableChangedMeanwhile), Error::tableChangedMeanwhile);
    if (entry->isInError()) return refuse(tableErrorText(Error::tableInError), Error::tableInError);
    if (sourceDrive_.sectorSize() != drive_.sectorSize())
      return refuse(
          format("The sectors of the two disks differ (%u and %u bytes), and a file system\n"
                 "that was made for the one cannot be used on the other.",
                 sourceDrive_.sectorSize(), drive_.sectorSize()),
          Error::sectorSizeDiffers);
    if (entry->sectorCount() > block_->sectorCount())
      return refuse(format("The partition has %llu sectors, and this free block only %llu.\n"
                           "Choose a larger one, or resize the partition first.",
                           wide(entry->sectorCount()), wide(block_->sectorCount())),
                    Error::sizeNotPossible);
    if (auto stopped = refuseWhenInUse(context_, sourceDrive_, extentOf(*entry))) return stopped;
    return refuseWhenInUse(context_, drive_, extentOf(*block_));
  }

  FlowResult refuse(const std::string& text, Failure code) {
    context_.ui.noticeBox(text, "Copy");
    return {FlowEnd::refused, code};
  }

  CreateFacts facts() {
    const PartitionEntry& entry = *source();
    CreateFacts facts;
    facts.startSector = block_->startSector;
    facts.endSector = block_->endSector;
    facts.sectorSizeBytes = drive_.sectorSize();
    facts.alignmentUnitSectors = alignmentUnit(drive_.alignment());
    facts.insideExtended = isInsideExtended();
    facts.isGpt = drive_.isGpt();
    facts.isEmbr = drive_.isEmbr();
    facts.volumeLabels = context_.options.volumeLabels;
    facts.fullPartitionList = context_.options.fullPartitionList;
    facts.fileSystems = &context_.fileSystems;
    facts.copy = CopySourceFacts{
        .type = entry.type,
        .name = isPlaceholderName(entry) ? std::string() : entry.name,
        .sectors = entry.sectorCount(),
        .sectorSizeBytes = sourceDrive_.sectorSize(),
        .isMultiOs = entry.isMultiOs(),
        .whyNotDeleted = whyNotDeleted(),
        .whyNotDataOnly = whyNotUsedOnly(context_.fileSystems, sourceDrive_, entry)};
    return facts;
  }

  std::string whyNotDeleted() {
    if (!isSameDrive()) return "The source is deleted only when the copy lies on the same disk.";
    if (isInsideExtended()) return "The source is deleted only for a copy that is a primary.";
    if (drive_.table().slots > kSlotsOfMbr)
      return "The source is deleted only where the table has four slots.";
    return sourceDrive_.scheme() == Scheme::wholeDisk ? "The source fills its disk." : "";
  }

  bool isInsideExtended() { return drive_.containerOf(*block_) != nullptr; }

  // The OK button; true when the dialog is to close.
  bool settle(const CreateModel& model) {
    for (const std::string& why : {model.freeBeforeMiB.problem("Free Space Before"),
                                   model.freeAfterMiB.problem("Free Space After")})
      if (!why.empty()) return stay(why);
    if (model.name.empty() && !model.nameIsOptional)
      return stay("You must enter a Name, File System, and Size to continue.");
    if (!hasRoom(model)) return block_ == nullptr;
    const auto extent = placePartition(placementTargetOf(drive_, *block_), source()->sectorCount(),
                                       model.placement(), endAlignment());
    if (types::isExtended(source()->type) && !admitExtended(model, extent)) return false;
    if (!extent) return stay(kCannotAlign, Error::outsideUsableArea);
    if (const Failure failed = plan(model, *extent))
      return stay(moveFailedText("copy", plan_.used.typeFound, failed), failed);
    isWanted_ = true;
    return true;
  }

  bool stay(const std::string& why, Failure code = Error::none) {
    result_ = refuse(why, code);
    return false;
  }

  bool hasRoom(const CreateModel& model) {
    if (isInsideExtended() || model.deleteSource) return true;
    result_ = makeRoomForPrimary(context_, drive_, block_);
    return block_ != nullptr && result_.succeeded() && source() != nullptr;
  }

  EndAlignment endAlignment() {
    const bool aligns = !isInsideExtended() && (drive_.flags() & kDriveAlignOnEnd) != 0;
    return aligns ? EndAlignment::yes : EndAlignment::no;
  }

  bool admitExtended(const CreateModel& model, const std::optional<SectorExtent>& extent) {
    if (isInsideExtended())
      return stay("You cannot use that file system in an extended partition.");
    const PartitionEntry* replaced = model.deleteSource ? source() : nullptr;
    if (const std::string why = whyNoExtended(drive_, replaced); !why.empty()) return stay(why);
    const u64 unit = alignmentUnit(drive_.alignment());
    if (extent && extent->startSector < unit)
      return stay("An extended partition cannot be created here.");
    return true;
  }

  Failure plan(const CreateModel& model, const SectorExtent& extent) {
    const PartitionEntry& entry = *source();
    NewEntry target = copiedEntry(sourceDrive_, entry, drive_, *block_, extent);
    target.name = model.name == kNewMbrEntryName ? std::string() : model.name;
    if (drive_.isEmbr() && model.multiOs) target.attributes |= kMptMultiOs;
    MoveOrder order;
    order.flags = flagsFor(context_.options, model);
    if (target.name.empty()) order.flags &= ~u32{kMoveSetLabel};
    order.sectors = model.dataOnly ? MovedSectorsWish::used : MovedSectorsWish::all;
    order.codePage = context_.options.codePage();
    if (model.deleteSource) {
      target.uniqueGuid = entry.uniqueGuid;
      if (drive_.isEmbr() && entry.holdsBootManager()) target.attributes |= kMptManager;
    }
    return planCopy(context_.fileSystems, sourceDrive_, entry, drive_, target, order, plan_);
  }

  FlowResult perform() {
    ProofStep proof(context_, kBootsectDos);
    if (auto stopped = proof.before(sourceDrive_, start_)) return *stopped;
    traceLine(context_.folders, "Copy: %s, from %llu to %s, %llu",
              describeDisk(sourceDrive_.disk()).c_str(), wide(start_),
              describeDisk(drive_.disk()).c_str(), wide(plan_.target.startSector));
    const FlowResult result = copy();
    traceLine(context_.folders, "Copy: ended with %u", codeOf(result.code));
    return result.succeeded() ? proof.after(drive_, plan_.target.startSector, result) : result;
  }

  FlowResult copy() {
    DiskWriteScope sourceScope(context_, sourceDrive_);
    if (auto stopped = sourceScope.begin(
            WriteTarget::sectors({plan_.source.startSector, plan_.source.endSector})))
      return *stopped;
    DiskWriteScope scope(context_, drive_);
    if (auto stopped = scope.begin(WriteTarget::sectors(extentOf(*block_)))) return *stopped;
    if (auto stopped = proveTable(scope)) return *stopped;
    JobOfFrontEnd job(context_);
    MoveReport report;
    if (const Failure failed = moveCopyData(sourceDrive_, drive_, plan_, job, report))
      return tellStopped(failed);
    const FlowResult result = finish();
    if (!result.succeeded()) return result;
    told_ = {plan_.target.startSector, report.readErrors, report.writeErrors};
    job.finish(completedText(report));
    if (!hasBadSectors(report)) return {};
    return {FlowEnd::doneWithLosses, report.readErrors != 0 ? Error::read : Error::write};
  }

  // What the table would refuse is found out before anything is written over.
  std::optional<FlowResult> proveTable(DiskWriteScope& scope) {
    Failure failed = tryCopy(drive_, plan_, TrackContent::keep);
    if (failed == Error::sectorsInUse) {
      if (!insistsOnOverwriting(context_, drive_, plan_.target, "Copy"))
        return FlowResult{FlowEnd::refused, failed};
      if (auto stopped = scope.lookAgain()) return stopped;
      failed = tryCopy(drive_, plan_, TrackContent::overwrite);
    }
    if (!failed) return std::nullopt;
    context_.ui.errorBox(moveFailedText("copy", plan_.used.typeFound, failed) +
                         "\n\nNothing was changed.");
    return FlowResult{FlowEnd::refused, failed};
  }

  // With a source that goes the table is changed twice: a log brings back what it was.
  FlowResult finish() {
    if ((plan_.order.flags & kMoveDeleteSource) == 0) return finishCopy(context_, drive_, plan_);
    UndoableWish wish;
    wish.operation = kCopyWork;
    wish.what = "Copying a partition that is deleted then. " + sourceText_;
    wish.record = recordOf(plan_);
    wish.target = WriteTarget::sectors({plan_.target.startSector, plan_.target.endSector});
    return runUndoable(context_, drive_, wish,
                       [this](Drive& drive) { return finishCopy(context_, drive, plan_); });
  }

  FlowResult tellStopped(const Failure& failed) {
    drive_.disk().dropCachesOf(plan_.target.startSector,
                               plan_.target.endSector + 1 - plan_.target.startSector);
    if (failed == Error::cancelled) return cancelled();
    context_.ui.errorBox(moveFailedText("copy", plan_.used.typeFound, failed) +
                         "\n\nThe source and the partition tables are as they were.");
    return {FlowEnd::failed, failed};
  }

  const OperationContext& context_;
  Drive& sourceDrive_;
  Drive& drive_;
  PartitionEntry* block_;  // owned by the drive's table
  u64 start_;
  std::string sourceText_;
  CopyPlan plan_;
  bool isWanted_ = false;
  FlowResult result_{FlowEnd::cancelled, Error::cancelled};
  MoveTold told_;
};

}  // namespace

FlowResult copyFlow(const OperationContext& context, Drive& sourceDrive, PartitionEntry& source,
                    Drive& drive, PartitionEntry& block, MoveTold* told) {
  Copying copying(context, sourceDrive, source, drive, block);
  const FlowResult result = copying.run();
  if (told != nullptr) *told = copying.told();
  return result;
}

// Nothing of the data was overwritten since: the tables alone are done again.
FlowResult continueCopy(const OperationContext& context, Drive& drive, WorkJournal& journal) {
  const CopyPlan plan = copyPlanOf(journal.record(), drive);
  const std::string what = journal.record().text("what");
  if (const FlowResult undone = undoByLog(context, drive, journal, UndoTold::onFailure);
      !undone.succeeded())
    return undone;
  UndoableWish wish;
  wish.operation = kCopyWork;
  wish.what = what;
  wish.record = recordOf(plan);
  wish.target = WriteTarget::sectors({plan.target.startSector, plan.target.endSector});
  return runUndoable(context, drive, wish,
                     [&](Drive& onLog) { return finishCopy(context, onLog, plan); });
}

}  // namespace tallowin
