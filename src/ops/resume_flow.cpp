#include "ops/resume_flow.h"

#include <algorithm>
#include <array>

#include "ops/copy_flow.h"
#include "ops/error_text.h"
#include "ops/resize_flow.h"
#include "ops/slide_flow.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ops/trace_log.h"
#include "ops/undoable_change.h"

namespace tallowin {
namespace {

using Step = FlowResult (*)(const OperationContext& context, Drive& drive, WorkJournal& journal);

// The operations that keep a journal, by the word in it.
struct ResumableOperation {
  std::string_view word;
  Step goOn;
  Step undo;
};
constexpr auto kOperations = std::to_array<ResumableOperation>({
    {kResizeWork, continueResize, undoByLog},
    {kCopyWork, continueCopy, undoByLog},
    {kSlideWork, continueSlide, undoSlide},
});

FlowResult refuse(const OperationContext& context, const std::string& text, Failure code) {
  context.ui.errorBox(text);
  return {FlowEnd::refused, code};
}

std::optional<FlowResult> checkDisk(const OperationContext& context, Drive& drive,
                                    const WorkRecord& record) {
  if (const Failure failed = drive.disk().checkSameDisk())
    return refuse(context, errorText(failed), failed);
  if (auto stopped = refuseWhenReadOnlyDisk(context, drive)) return stopped;
  const SectorExtent area = areaOf(record);
  return refuseWhenInUse(context, drive, area);
}

}  // namespace

FlowResult resumeFlow(const OperationContext& context, Drive& drive, Resume how) {
  const std::optional<UnfinishedWork> work = unfinishedWorkOn(context.folders, drive);
  if (!work) {
    return refuse(context,
                  "Nothing is unfinished on this disk (" + describeDisk(drive.disk()) + ").",
                  Error::noUnfinishedWork);
  }
  if (work->isUnderWay || work->isMissing)
    return refuse(context, unfinishedText(*work), Error::unfinishedWork);
  const auto operation =
      std::find_if(kOperations.begin(), kOperations.end(),
                   [&](const ResumableOperation& one) { return one.word == work->operation; });
  if (operation == kOperations.end())
    return refuse(context,
                  "This was begun by another version of this program:\n" + work->what +
                      "\nPlease use that one.",
                  Error::unsupportedForm);
  DiskChangeLock lock(drive.disk());
  if (!lock.held()) return refuse(context, errorText(Error::lockNotMade), Error::lockNotMade);
  std::unique_ptr<WorkJournal> journal;
  if (const Failure failed = WorkJournal::reopen(*work, journal))
    return refuse(context,
                  "The journal " + work->journalPath + "\ncannot be read.\n" + errorText(failed),
                  failed);
  if (auto stopped = checkDisk(context, drive, journal->record())) return *stopped;
  traceLine(context.folders, "%s: %s", how == Resume::undo ? "Undo" : "Continue",
            work->what.c_str());
  const Step step = how == Resume::undo ? operation->undo : operation->goOn;
  const FlowResult result = step(context, drive, *journal);
  traceLine(context.folders, "Resume: ended with %u", codeOf(result.code));
  return result;
}

FlowResult offerResume(const OperationContext& context, Drive& drive) {
  const std::optional<UnfinishedWork> work = unfinishedWorkOn(context.folders, drive);
  if (!work) return {};
  if (work->isUnderWay || work->isMissing)
    return refuse(context, unfinishedText(*work), Error::unfinishedWork);
  const std::size_t answer = context.ui.choiceBox(
      {"Unfinished Operation",
       MessageKind::warning,
       unfinishedText(*work) +
           "\n\nContinue brings it to its end; Undo puts everything back as it was before.",
       {"&Continue", "&Undo", "\x1BLater"}});
  if (answer > 1) return {FlowEnd::cancelled, Error::cancelled};
  return resumeFlow(context, drive, answer == 0 ? Resume::goOn : Resume::undo);
}

}  // namespace tallowin
