#include "ops/resize_flow.h"

#include <algorithm>

#include "base/text.h"
#include "ops/error_text.h"
#include "ops/files_at_sectors.h"
#include "ops/job_of_front_end.h"
#include "ops/proof_step.h"
#include "ops/rehearsal.h"
#include "ops/resize_model.h"
#include "ops/resize_operation.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ops/trace_log.h"
#include "ops/undoable_change.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u32 kTooLargeToCheckAll = 250;  // the fault of a check that left something out

FlowResult cancelled() { return {FlowEnd::cancelled, Error::cancelled}; }

FlowResult refuse(const OperationContext& context, const std::string& text, Failure code,
                  ResizePhase phase = ResizePhase::planning) {
  context.ui.errorBox(text);
  return {FlowEnd::refused, code.inPhase(static_cast<u32>(phase))};
}

// The words for what a plan or a resize was refused for; another size may help.
std::string refusalText(const Failure& failure) {
  switch (failure.code) {
    case Error::invalidSizeForType:
    case Error::invalidVolume:
      return "FAT converison is not available for the size chosen";
    case Error::outOfMemory:
      return "Insufficent memory to complete operation";
    case Error::sizeNotPossible:
      return "Calculations based on the new size you have entered indicates that\n"
             "the size is not possible.  This can be due to insufficient free space\n"
             "and/or cluster expansion.  However, it may be possible eventually\n"
             "resize to that value by preforming multiple resizes.  Please try a\n"
             "different value.";
    default:
      return errorText(failure);
  }
}

bool mayHelpToAskAgain(const Failure& failure) {
  return failure == Error::invalidSizeForType || failure == Error::invalidVolume ||
         failure == Error::outOfMemory || failure == Error::sizeNotPossible;
}

// A check that belongs to a resize.
class GatheringJob : public JobOfFrontEnd {
 public:
  using JobOfFrontEnd::JobOfFrontEnd;
  void phase(Phase, u64 totalBytes) override { JobOfFrontEnd::phase(Phase::gathering, totalBytes); }
};

// Whether what was changed can be put back, by a journal.
enum class CanGoBack { no, yes };

// Without a way back the volume is not left half done.
class ResizeJob : public JobOfFrontEnd {
 public:
  ResizeJob(const OperationContext& context, CanGoBack canGoBack)
      : JobOfFrontEnd(context), canGoBack_(canGoBack) {}
  void phase(Phase phase, u64 totalBytes) override {
    if (phase == Phase::checking) phase = Phase::gathering;
    isForGood_ = phase == Phase::resizing && canGoBack_ == CanGoBack::no;
    JobOfFrontEnd::phase(isForGood_ ? Phase::resizingForGood : phase, totalBytes);
  }
  bool shouldStop() override { return !isForGood_ && JobOfFrontEnd::shouldStop(); }

 private:
  CanGoBack canGoBack_;
  bool isForGood_ = false;
};

std::optional<FlowResult> findKind(const OperationContext& context, Drive& drive,
                                   const PartitionEntry& entry, const FileSystemKind*& kind) {
  if (entry.isInError())
    return refuse(context, tableErrorText(Error::tableInError), Error::tableInError);
  kind = kindIn(context.fileSystems, drive, entry);
  if (kind != nullptr && kind->resize != nullptr) return std::nullopt;
  return refuse(context, "Abort: The file system is unsupported or unformatted.",
                Error::unsupportedFileSystem);
}

// The room that the partition has, from its first sector on.
u64 roomOf(Drive& drive, const PartitionEntry& entry) {
  return std::max(drive.freeRegionAround(entry).last, entry.endSector) + 1 - entry.startSector;
}

std::optional<FlowResult> findLimits(const OperationContext& context, Drive& drive,
                                     const PartitionEntry& entry, const FileSystemKind& kind,
                                     ResizeLimits& limits) {
  const Failure failed =
      kind.resizeLimits(rangeOf(drive, entry), entry.type, roomOf(drive, entry), limits);
  if (!failed) return std::nullopt;
  const char* const what = failed == Error::outOfMemory ? "Insufficent memory to complete operation"
                                                        : "File system corrupt or not formatted.";
  return refuse(context, std::string(what) + "\n\n" + errorText(failed), failed);
}

EndRange endRangeOf(Drive& drive, const PartitionEntry& entry, const ResizeLimits& limits) {
  // A volume without a table has no other end than that of its disk.
  const u64 regionEnd = drive.scheme() == Scheme::wholeDisk
                            ? entry.endSector
                            : std::min(drive.freeRegionAround(entry).last,
                                       entry.startSector + limits.maximumSectors - 1);
  return endRangeFor(drive.alignment(), entry.startSector, entry.endSector, limits.minimumSectors,
                     regionEnd);
}

// One run of the flow.
class Resizing {
 public:
  Resizing(const OperationContext& context, Drive& drive, PartitionEntry& entry)
      : context_(context),
        drive_(drive),
        entry_(entry),
        start_(entry.startSector),
        oldEnd_(entry.endSector),
        type_(entry.type) {}

  // What a journal says was wished for.
  FlowResult runAgain(const WorkRecord& record) {
    if (auto stopped = checkTarget()) return *stopped;
    order_ = {.endSector = record.number("end"),
              .clusterBytes = static_cast<u32>(record.number("cluster")),
              .forcedType = static_cast<u16>(record.number("forced")),
              .useCache = context_.options.cacheResize};
    if (const Failure failed = planEntryResize(drive_, entry_, *kind_, order_, plan_))
      return *refusePlan(failed);
    return perform();
  }

  FlowResult run() {
    if (auto stopped = checkTarget()) return *stopped;
    if (!askForCheck()) return cancelled();
    if (auto stopped = checkFileSystem()) return *stopped;
    if (auto stopped = findLimits(context_, drive_, entry_, *kind_, limits_)) return *stopped;
    if (auto stopped = settleWish()) return *stopped;
    return perform();
  }

 private:
  std::optional<FlowResult> checkTarget() {
    if (auto stopped = refuseWhenReadOnlyDisk(context_, drive_)) return stopped;
    if (drive_.scheme() != Scheme::wholeDisk)
      if (auto stopped = refuseWhenReadOnlyTable(context_, drive_)) return stopped;
    if (auto stopped = findKind(context_, drive_, entry_, kind_)) return stopped;
    if (auto stopped = refuseWhenInUse(context_, drive_, {start_, entry_.endSector}))
      return stopped;
    target_ = describeTarget(drive_, entry_);
    return askAboutBootManager(context_, drive_, entry_);
  }

  bool askForCheck() {
    return context_.ui.messageBox({MessageKind::question, "Resize",
                                   "Click OK to error check the file system.", ButtonSet::okCancel,
                                   Consent::general}) == MessageResult::ok;
  }

  std::optional<FlowResult> checkFileSystem() {
    CheckReport report;
    GatheringJob job(context_);
    const Failure failed = kind_->check(rangeOf(drive_, entry_), type_, job, report);
    if (failed == Error::cancelled) return cancelled();
    if (failed)
      return refuse(context_, "The file system could not be checked.\n" + errorText(failed), failed,
                    ResizePhase::check);
    if (report.fault == kTooLargeToCheckAll)
      return context_.ui.confirm(Consent::general, "",
                                 "The file system was too large to perform ALL checks")
                 ? std::nullopt
                 : std::optional(cancelled());
    if (report.isSound) return std::nullopt;
    return refuse(context_, faultText(report.fault, report.faultText), Error::corrupt,
                  ResizePhase::check);
  }

  static std::string faultText(u32 fault, const std::string& meaning) {
    return format(
               "Error %u found on file system.  Use a tool such\n"
               "as scandisk or chkdsk/f to correct this error",
               fault) +
           (meaning.empty() ? "" : "\n\n" + meaning + ".");
  }

  ResizeFacts facts() {
    return {.summary = summaryOf(drive_, entry_),
            .targetText = target_,
            .isVolume = entry_.isVolume(),
            .range = endRangeOf(drive_, entry_, limits_),
            .rules = drive_.alignment(),
            .sectorSizeBytes = drive_.sectorSize(),
            .kind = kind_};
  }

  // The rounds of the dialog, until a plan is made and wanted.
  std::optional<FlowResult> settleWish() {
    ResizeModel model(facts());
    for (;;) {
      context_.ui.run(model);
      if (!model.confirmed) return cancelled();
      if (const std::string problem = model.newSizeMiB.problem("New Size"); !problem.empty()) {
        again(model, problem);
        continue;
      }
      order_ = {.endSector = model.newEndSector(),
                .clusterBytes = model.clusterBytes(),
                .forcedType = model.forcedType(),
                .useCache = context_.options.cacheResize};
      const Failure failed = planEntryResize(drive_, entry_, *kind_, order_, plan_);
      if (failed && !mayHelpToAskAgain(failed)) return refusePlan(failed);
      if (failed) {
        again(model, refusalText(failed));
        continue;
      }
      if (isWanted(model)) return std::nullopt;
      model.again({});
    }
  }

  void again(ResizeModel& model, const std::string& why) {
    context_.ui.messageBox({MessageKind::error, "Resize", why});
    model.again(why);
  }

  std::optional<FlowResult> refusePlan(const Failure& failed) {
    switch (failed.code) {
      case Error::outsideUsableArea:
        return refuse(context_, "The values entered overlap an existing item", failed);
      case Error::unsupportedFileSystem:
        return refuse(context_, "Abort: The file system is unsupported or unformatted.", failed);
      default:
        return refuse(context_, "File system corrupt or not formatted.\n\n" + errorText(failed),
                      failed);
    }
  }

  // The question, with what would come of it, as often as it is rehearsed.
  bool isWanted(const ResizeModel& model) {
    const u64 mib = (order_.endSector + 1 - start_) / (kMiB / drive_.sectorSize());
    std::string text;
    if (!model.forms.empty())
      text = format("Resulting cluster size will be %u bytes", plan_.clusterBytes) + "\n\n";
    text += format("New size: %llu MiB\n", static_cast<unsigned long long>(mib)) + target_;
    for (;;) {
      const MessageResult answer = context_.ui.messageBox({.kind = MessageKind::question,
                                                           .title = "Resize",
                                                           .text = text,
                                                           .buttons = ButtonSet::yesNo,
                                                           .consent = Consent::general,
                                                           .extraButton = "&Rehearse"});
      if (answer != MessageResult::extra) return answer == MessageResult::yes;
      rehearse(context_, drive_, {"Resize", start_, start_},
               [this](const OperationContext& context, Drive& drive) {
                 return change(context, drive, CanGoBack::no);
               });
    }
  }

  FlowResult perform() {
    ProofStep proof(context_);
    if (auto stopped = proof.before(drive_, start_)) return *stopped;
    traceLine(context_.folders, "Resize: %s, start %llu, new end %llu",
              describeDisk(drive_.disk()).c_str(), static_cast<unsigned long long>(start_),
              static_cast<unsigned long long>(order_.endSector));
    const FlowResult result = runUndoable(context_, drive_, undoableWish(), [this](Drive& drive) {
      const bool isLogged = context_.options.keepJournal && !isRehearsal(drive_);
      return change(context_, drive, isLogged ? CanGoBack::yes : CanGoBack::no);
    });
    traceLine(context_.folders, "Resize: ended with %u", codeOf(result.code));
    return result.succeeded() ? proof.after(drive_, start_, result) : result;
  }

  UndoableWish undoableWish() const {
    UndoableWish wish;
    wish.operation = kResizeWork;
    wish.what = format("Resizing a partition to %llu sectors. ",
                       static_cast<unsigned long long>(order_.endSector + 1 - start_)) +
                target_;
    wish.record.set("start", start_);
    wish.record.set("end", order_.endSector);
    wish.record.set("cluster", order_.clusterBytes);
    wish.record.set("forced", order_.forcedType);
    const u64 end = std::max(oldEnd_, order_.endSector);
    wish.target = WriteTarget::sectors({start_, end});
    wish.volume = SectorExtent{start_, end};
    wish.inUse = [this](Drive& drive, ExtentList& inUse) {
      const PartitionEntry* entry = findByStart(drive, start_);
      if (!entry) return Failure(Error::tableChangedMeanwhile);
      return kind_->usedExtents(rangeOf(drive, *entry), type_, {}, inUse);
    };
    return wish;
  }

  // All of the change, on a drive that may be one that keeps a log, or a rehearsal's.
  FlowResult change(const OperationContext& context, Drive& drive, CanGoBack canGoBack) {
    TableChange table(context, drive);
    const u64 end = std::max(oldEnd_, order_.endSector);
    if (auto stopped = table.begin(WriteTarget::sectors({start_, end}))) return *stopped;
    ResizeJob job(context, canGoBack);
    const ResizeOutcome outcome = resizeEntry(table, drive, start_, *kind_, order_, job);
    for (const std::string& note : outcome.report.notes) context.ui.noticeBox(note);
    if (outcome.failure) return tell(context, drive, outcome, canGoBack);
    job.finish("Completed");
    return {};
  }

  FlowResult tell(const OperationContext& context, Drive& drive, const ResizeOutcome& outcome,
                  CanGoBack canGoBack) {
    const Failure code = outcome.failure.inPhase(static_cast<u32>(outcome.phase));
    if (outcome.failure == Error::cancelled) return cancelled();
    if (outcome.failure == Error::outOfMemory)
      return fail(context, "Insufficent memory to complete operation", code);
    const std::string reason = "\n\n" + errorText(outcome.failure);
    switch (outcome.phase) {
      case ResizePhase::planning:
        return fail(context, refusalText(outcome.failure), code);
      case ResizePhase::check:
        return fail(context, faultText(outcome.report.fault, outcome.report.faultText), code);
      case ResizePhase::resize:
        return fail(
            context,
            format("Error #%u has occurred during the resize process!", codeOf(outcome.failure)) +
                reason,
            code);
      case ResizePhase::writeBack:
        return fail(context, lostText(context, drive, outcome, canGoBack) + reason, code);
      case ResizePhase::finalCheck:
        context.ui.errorBox(
            "Resize has completed but the file system now contains\n"
            "errors.  If you are using a MS OS; Run chkdsk/f or\n"
            "scandisk on the file system to try and repair it.\n\n" +
            outcome.report.faultText + ".");
        return {FlowEnd::doneWithLosses, code};
    }
    return {FlowEnd::failed, code};
  }

  std::string lostText(const OperationContext& context, Drive& drive, const ResizeOutcome& outcome,
                       CanGoBack canGoBack) const {
    const SectorRange volume{drive.disk(), start_, order_.endSector + 1 - start_};
    const std::string files =
        filesAtSectorsText(context, volume, outcome.report.type, outcome.lostSectors);
    if (canGoBack == CanGoBack::yes)
      return "The resize is not complete due to a lazy-write disk error." + files;
    return "Data has been lost due to a lazy-write disk error.\n"
           "It is recommended that you delete the partition and restore it from your "
           "latest backup." +
           files;
  }

  static FlowResult fail(const OperationContext& context, const std::string& text, Failure code) {
    context.ui.errorBox(text);
    return {FlowEnd::failed, code};
  }

  const OperationContext& context_;
  Drive& drive_;
  PartitionEntry& entry_;  // stale after the change
  u64 start_;
  u64 oldEnd_;
  u16 type_;
  const FileSystemKind* kind_ = nullptr;
  ResizeLimits limits_;
  ResizeOrder order_;
  ResizePlan plan_;
  std::string target_;
};

}  // namespace

FlowResult resizeFlow(const OperationContext& context, Drive& drive, PartitionEntry& entry) {
  return Resizing(context, drive, entry).run();
}

FlowResult continueResize(const OperationContext& context, Drive& drive, WorkJournal& journal) {
  const WorkRecord record = journal.record();
  if (const FlowResult undone = undoByLog(context, drive, journal, UndoTold::onFailure);
      !undone.succeeded())
    return undone;
  PartitionEntry* entry = findByStart(drive, record.number("start"));
  if (!entry)
    return refuse(context, errorText(Error::tableChangedMeanwhile), Error::tableChangedMeanwhile);
  return Resizing(context, drive, *entry).runAgain(record);
}

FlowResult resizeOffer(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                       ResizeOffer& offer) {
  const FileSystemKind* kind = nullptr;
  if (auto stopped = findKind(context, drive, entry, kind)) return *stopped;
  ResizeLimits limits;
  if (auto stopped = findLimits(context, drive, entry, *kind, limits)) return *stopped;
  const EndRange range = endRangeOf(drive, entry, limits);
  offer = {.minimumSectors = range.minimumEnd + 1 - range.startSector,
           .maximumSectors = range.maximumEnd + 1 - range.startSector,
           .presentSectors = entry.sectorCount(),
           .usedSectors = limits.usedSectors,
           .clusterBytes = limits.clusterBytes};
  return {};
}

}  // namespace tallowin
