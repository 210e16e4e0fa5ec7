#include "ops/slide_flow.h"

#include <algorithm>

#include "base/text.h"
#include "ops/bootsect_dos.h"
#include "ops/error_text.h"
#include "ops/free_block.h"
#include "ops/job_of_front_end.h"
#include "ops/move_partition.h"
#include "ops/move_words.h"
#include "ops/proof_step.h"
#include "ops/rehearsal.h"
#include "ops/slide_model.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/trace_log.h"

namespace tallowin {
namespace {

constexpr const char* kDataLossWarning =
    "There are certain events that can cause data loss during this type of\n"
    "process.  Be sure you have a current backup of all your data before\n"
    "continuing.";

FlowResult cancelled() { return {FlowEnd::cancelled, Error::cancelled}; }

unsigned long long wide(u64 number) { return number; }

// What the dialog counts as free before the partition begins where a placement may begin.
u32 freeBeforeMiB(const PlacementTarget& target) {
  const u64 base = target.entry.startSector - target.volumeGap;
  const u64 aligned = firstAlignedSector(target.rules);
  const u64 first = aligned >= target.region.startSector
                        ? aligned
                        : alignUp(target.rules, target.region.startSector);
  return first >= base ? 0 : sizeInMiB(first, base - 1, target.rules.sectorSizeBytes);
}

u32 freeAfterMiB(const PlacementTarget& target) {
  return sizeInMiB(target.entry.endSector + 1, target.region.endSector,
                   target.rules.sectorSizeBytes);
}

// One run of the flow.
class Sliding {
 public:
  Sliding(const OperationContext& context, Drive& drive, PartitionEntry& entry)
      : context_(context),
        drive_(drive),
        entry_(entry),
        start_(entry.startSector),
        target_(describeTarget(drive, entry)) {}

  FlowResult run() {
    if (auto stopped = checkTarget()) return *stopped;
    SlideModel model(facts());
    model.slide = [&] { return settle(model); };
    context_.ui.run(model);
    return isWanted_ ? perform() : result_;
  }

  const MoveTold& told() const { return told_; }

 private:
  std::optional<FlowResult> checkTarget() {
    if (auto stopped = refuseWhenReadOnlyTable(context_, drive_)) return stopped;
    if (drive_.scheme() == Scheme::wholeDisk)
      return refuse("A file system fills all of this disk: there is no free space to slide it in.",
                    Error::unsupportedForm);
    if (entry_.isInError()) return refuse(tableErrorText(Error::tableInError), Error::tableInError);
    const SectorExtent extent{start_ - drive_.volumeGap(entry_), entry_.endSector};
    if (auto stopped = refuseWhenInUse(context_, drive_, extent)) return stopped;
    return askAboutBootManager(context_, drive_, entry_);
  }

  FlowResult refuse(const std::string& text, Failure code) {
    context_.ui.noticeBox(text, "Slide");
    return {FlowEnd::refused, code};
  }

  SlideFacts facts() {
    const PlacementTarget target = placementTargetOf(drive_, entry_);
    return {.summary = summaryOf(drive_, entry_),
            .isVolume = entry_.isVolume(),
            .freeBeforeMiB = freeBeforeMiB(target),
            .freeAfterMiB = freeAfterMiB(target),
            .whyNotDataOnly = whyNotUsedOnly(context_.fileSystems, drive_, entry_)};
  }

  // The OK button; true when the dialog is to close.
  bool settle(const SlideModel& model) {
    for (const std::string& why : {model.freeBeforeMiB.problem("Free Space Before"),
                                   model.freeAfterMiB.problem("Free Space After")})
      if (!why.empty()) return stay(why, Error::none);
    result_ = {};
    if (!model.isPlaceChanged()) return true;
    const std::optional<u64> newStart = startFor(model);
    if (!newStart) return stay(kCannotAlign, Error::outsideUsableArea);
    if (*newStart == start_) return true;
    newStart_ = *newStart;
    order_.flags = kSlideFlags;
    order_.sectors = model.dataOnly ? MovedSectorsWish::used : MovedSectorsWish::all;
    order_.codePage = context_.options.codePage();
    SlidePlan plan;
    const Failure failed = planSlide(context_.fileSystems, drive_, entry_, newStart_, order_, plan);
    if (failed)
      return stay(moveFailedText("slide", plan.used.typeFound, failed) + whereText(failed), failed);
    isWanted_ = confirm(plan);
    if (!isWanted_) result_ = cancelled();
    return true;
  }

  std::string whereText(const Failure& failed) {
    if (failed != Error::outsideUsableArea) return {};
    const SectorRegion region = drive_.freeRegionAround(entry_);
    return format("\nIt can begin from sector %llu to sector %llu.",
                  wide(region.first + drive_.volumeGap(entry_)),
                  wide(region.last + 1 - entry_.sectorCount()));
  }

  bool stay(const std::string& why, Failure code) {
    result_ = refuse(why, code);
    return false;
  }

  std::optional<u64> startFor(const SlideModel& model) {
    if (model.exactStart) return model.exactStart;
    const PlacementTarget target = placementTargetOf(drive_, entry_);
    const bool alignsEnd = !target.insideExtended && (drive_.flags() & kDriveAlignOnEnd) != 0;
    const auto found = placePartition(target, entry_.sectorCount(), model.freeBeforeMiB.value,
                                      alignsEnd ? EndAlignment::yes : EndAlignment::no);
    return found ? std::optional(found->startSector) : std::nullopt;
  }

  // The question, as often as it is rehearsed.
  bool confirm(const SlidePlan& plan) {
    const u64 moved = plan.used.list.dataSectors();
    const std::string text =
        std::string(kDataLossWarning) + "\n\n" + target_ +
        format("\nFrom sector %llu to sector %llu; %llu MiB are moved%s.", wide(start_),
               wide(newStart_), wide(sectorsToMiB(moved, drive_.sectorSize())),
               plan.used.isWhole ? ": all of its sectors" : ": the sectors in use");
    for (;;) {
      const MessageResult answer = context_.ui.messageBox({.kind = MessageKind::warning,
                                                           .title = "Slide",
                                                           .text = text,
                                                           .buttons = ButtonSet::continueCancel,
                                                           .consent = Consent::general,
                                                           .extraButton = "&Rehearse"});
      if (answer != MessageResult::extra) return answer == MessageResult::goOn;
      rehearse(
          context_, drive_, {"Slide", start_, newStart_},
          [this](const OperationContext& context, Drive& drive) { return change(context, drive); });
    }
  }

  FlowResult perform() {
    ProofStep proof(context_, kBootsectDos);
    if (auto stopped = proof.before(drive_, start_)) return *stopped;
    traceLine(context_.folders, "Slide: %s, from %llu to %llu", describeDisk(drive_.disk()).c_str(),
              wide(start_), wide(newStart_));
    const FlowResult result = change(context_, drive_);
    traceLine(context_.folders, "Slide: ended with %u", codeOf(result.code));
    return result.succeeded() ? proof.after(drive_, newStart_, result) : result;
  }

  // All of it, on a drive that may be a rehearsal's.
  FlowResult change(const OperationContext& context, Drive& drive) {
    const PartitionEntry* entry = findByStart(drive, start_);
    if (entry == nullptr)
      return refuse(errorText(Error::tableChangedMeanwhile), Error::tableChangedMeanwhile);
    const u64 gap = drive.volumeGap(*entry);
    const u64 first = std::min(start_, newStart_) - gap;
    const u64 last = std::max(start_, newStart_) + entry->sectorCount() - 1;
    TableChange table(context, drive);
    if (auto stopped = table.begin(WriteTarget::sectors({first, last}))) return *stopped;
    SlidePlan plan;
    if (const Failure failed =
            planSlide(context.fileSystems, drive, *entry, newStart_, order_, plan)) {
      context.ui.errorBox(moveFailedText("slide", plan.used.typeFound, failed));
      return {FlowEnd::refused, failed};
    }
    JobOfFrontEnd job(context);
    MoveReport report;
    std::vector<std::string> notes;
    Failure failed = moveSlideData(drive, plan, job, report);
    if (!failed) {
      failed = finishSlide(context.fileSystems, drive, plan, notes);
      if (isOldTable(failed)) carryBack(drive, plan, job, report);
    }
    const Failure ended = table.end(failed);
    for (const std::string& note : notes) context.ui.noticeBox(note, "Slide");
    if (ended) return tell(context, plan, report, ended);
    return done(job, report);
  }

  static bool isOldTable(const Failure& failed) {
    return failed && failed != Error::writeFailedNewTable &&
           failed != Error::writeFailedTableUnknown;
  }

  // The table could not follow the data, so the data goes back.
  void carryBack(Drive& drive, const SlidePlan& plan, Job& job, MoveReport& report) {
    MoveReport back;
    const Failure failed = moveSlideBack(drive, plan, job, back);
    report.touchedSource = true;
    report.rolledBack = !failed;
    report.readErrors += back.readErrors;
    report.writeErrors += back.writeErrors;
  }

  FlowResult done(JobOfFrontEnd& job, const MoveReport& report) {
    told_ = {newStart_, report.readErrors, report.writeErrors};
    job.finish(completedText(report));
    if (!hasBadSectors(report)) return {};
    return {FlowEnd::doneWithLosses, report.readErrors != 0 ? Error::read : Error::write};
  }

  static FlowResult tell(const OperationContext& context, const SlidePlan& plan,
                         const MoveReport& report, const Failure& failed) {
    const std::string left = leftBehindText(report);
    if (failed == Error::cancelled) {
      if (!left.empty()) context.ui.errorBox(left);
      return cancelled();
    }
    std::string text = moveFailedText("slide", plan.used.typeFound, failed);
    if (!left.empty())
      text += "\n\n" + left;
    else if (isOldTable(failed))
      text += "\n\nThe partition lies where it lay before.";
    else
      text += format("\n\nThe data of the partition begins at sector %llu now.",
                     wide(plan.entry.newStart));
    context.ui.errorBox(text);
    return {FlowEnd::failed, failed};
  }

  const OperationContext& context_;
  Drive& drive_;
  PartitionEntry& entry_;  // stale after the change
  u64 start_;
  u64 newStart_ = 0;
  std::string target_;
  MoveOrder order_;
  bool isWanted_ = false;
  FlowResult result_{FlowEnd::cancelled, Error::cancelled};
  MoveTold told_;
};

}  // namespace

FlowResult slideFlow(const OperationContext& context, Drive& drive, PartitionEntry& entry,
                     MoveTold* told) {
  Sliding sliding(context, drive, entry);
  const u64 start = entry.startSector;
  const FlowResult result = sliding.run();
  if (told != nullptr) {
    *told = sliding.told();
    if (told->startSector == 0) told->startSector = start;
  }
  return result;
}

}  // namespace tallowin
