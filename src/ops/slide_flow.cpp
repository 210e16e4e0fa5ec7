#include "ops/slide_flow.h"

#include <algorithm>

#include "base/text.h"
#include "ops/bootsect_dos.h"
#include "ops/error_text.h"
#include "ops/free_block.h"
#include "ops/job_of_front_end.h"
#include "ops/move_words.h"
#include "ops/proof_step.h"
#include "ops/rehearsal.h"
#include "ops/slide_model.h"
#include "ops/slide_operation.h"
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

// The slide itself and its words, from a plan or from a journal.
class SlideEnding {
 public:
  using Settle = std::function<Failure(const Failure& failed)>;

  SlideEnding(const OperationContext& context, Drive& drive, const SlidePlan& plan,
              WorkJournal* journal)
      : context_(context),
        plan_(plan),
        journal_(journal),
        job_(context),
        slide_(context.fileSystems, drive, plan, journal != nullptr ? &journal->file() : nullptr) {}

  // `settle` makes the end of the change known; see TableChange::end.
  FlowResult run(const Settle& settle) {
    Failure failed = settle(slide_.run(job_));
    const std::string left = endJournal();
    for (const std::string& note : slide_.notes()) context_.ui.noticeBox(note, "Slide");
    return failed ? tell(failed, left) : done();
  }

  FlowResult undo(const Settle& settle) {
    const Failure failed = settle(slide_.undo(job_));
    const std::string left = endJournal();
    if (failed || slide_.isStuck()) {
      context_.ui.errorBox("What was moved could not be put back.\n" + errorText(failed) + left);
      return {FlowEnd::failed, failed};
    }
    context_.ui.noticeBox("What was moved was put back: all is as it was before." + left);
    return {};
  }

  const MoveTold& told() const { return told_; }

 private:
  // What has to be said of the journal.
  std::string endJournal() {
    if (journal_ == nullptr) return {};
    if (slide_.isStuck())
      return "\n\nThe journal " + journal_->path() +
             "\nis kept. Continue or undo the operation when the disk can be written again.";
    const Failure failed = journal_->end();
    return failed ? "\n\nThe journal could not be removed.\n" + errorText(failed) : "";
  }

  FlowResult done() {
    const MoveReport& report = slide_.report();
    told_ = {plan_.entry.newStart, report.readErrors, report.writeErrors};
    job_.finish(completedText(report));
    if (!hasBadSectors(report)) return {};
    return {FlowEnd::doneWithLosses, report.readErrors != 0 ? Error::read : Error::write};
  }

  FlowResult tell(const Failure& failed, const std::string& journal) {
    const std::string left = leftBehindText(slide_.report());
    if (failed == Error::cancelled) {
      if (!left.empty() || !journal.empty()) context_.ui.errorBox(left + journal);
      return cancelled();
    }
    std::string text = moveFailedText("slide", plan_.used.typeFound, failed);
    if (!left.empty()) {
      text += "\n\n" + left;
    } else if (slide_.isStuck()) {
      text += "\n\nWhat was done could not be put back.";
    } else if (journal_ != nullptr || isOldTable(failed)) {
      text += "\n\nThe partition lies where it lay before.";
    } else {
      text += format("\n\nThe data of the partition begins at sector %llu now.",
                     wide(plan_.entry.newStart));
    }
    context_.ui.errorBox(text + journal);
    return {FlowEnd::failed, failed};
  }

  static bool isOldTable(const Failure& failed) {
    return failed != Error::writeFailedNewTable && failed != Error::writeFailedTableUnknown;
  }

  const OperationContext& context_;
  const SlidePlan& plan_;
  WorkJournal* journal_;  // null: none
  JobOfFrontEnd job_;
  SlideRun slide_;
  MoveTold told_;
};

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
        format("%s\n\n%s", kDataLossWarning, target_.c_str()) +
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
    std::unique_ptr<WorkJournal> journal;
    if (auto stopped = beginJournal(context, drive, plan, journal)) return *stopped;
    SlideEnding ending(context, drive, plan, journal.get());
    const FlowResult result =
        ending.run([&table](const Failure& failed) { return table.end(failed); });
    told_ = ending.told();
    return result;
  }

  // Nothing: go on, with a journal or, where none is wanted, without.
  std::optional<FlowResult> beginJournal(const OperationContext& context, Drive& drive,
                                         const SlidePlan& plan,
                                         std::unique_ptr<WorkJournal>& journal) {
    if (!context.options.keepJournal || isRehearsal(drive)) return std::nullopt;
    WorkRecord record = recordOf(plan);
    setArea(plan.area(), record);
    const Failure failed = WorkJournal::begin(
        context, drive, kSlideWork,
        format("Sliding a partition from sector %llu to sector %llu. ", wide(start_),
               wide(newStart_)) +
            target_,
        std::move(record), attachmentOf(plan), MoveJournal::initialState(), journal);
    if (!failed) return std::nullopt;
    context.ui.errorBox(errorText(failed) + "\n\nNothing was changed.");
    return FlowResult{FlowEnd::refused, failed};
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

namespace {

// Other programs see what is on the disk now.
Failure settled(Drive& drive, const Failure& failed) {
  const Settled now = drive.settle();
  const Failure unread = drive.reread();
  if (failed) return failed;
  return now.failure ? now.failure.as(Error::writeFailedNewTable) : unread;
}

FlowResult resumeSlide(const OperationContext& context, Drive& drive, WorkJournal& journal,
                       bool isUndone) {
  SlidePlan plan;
  if (const Failure failed = slidePlanOf(journal.record(), journal.file().attachment(), plan)) {
    context.ui.errorBox("The journal " + journal.path() + "\ncannot be used.\n" +
                        errorText(failed));
    return {FlowEnd::refused, failed};
  }
  SlideEnding ending(context, drive, plan, &journal);
  const auto settle = [&drive](const Failure& failed) { return settled(drive, failed); };
  return isUndone ? ending.undo(settle) : ending.run(settle);
}

}  // namespace

FlowResult continueSlide(const OperationContext& context, Drive& drive, WorkJournal& journal) {
  return resumeSlide(context, drive, journal, false);
}

FlowResult undoSlide(const OperationContext& context, Drive& drive, WorkJournal& journal) {
  return resumeSlide(context, drive, journal, true);
}

}  // namespace tallowin
