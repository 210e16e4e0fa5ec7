#include "ops/check_flow.h"

#include "base/text.h"
#include "ops/error_text.h"
#include "ops/file_systems.h"
#include "ops/job_of_front_end.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ops/trace_log.h"

namespace tallowin {
namespace {

FlowResult refuse(const OperationContext& context, const std::string& text, Failure code) {
  context.ui.errorBox(text);
  return {FlowEnd::refused, code};
}

FlowResult cancelled() { return {FlowEnd::cancelled, Error::cancelled}; }

std::optional<FlowResult> look(const OperationContext& context, Drive& drive,
                               const PartitionEntry& entry, const FileSystemKind& kind,
                               CheckReport& report) {
  JobOfFrontEnd job(context);
  const Failure failed = kind.check(rangeOf(drive, entry), entry.type, job, report);
  if (!failed) return std::nullopt;
  if (failed == Error::cancelled) return cancelled();
  context.ui.errorBox("The file system could not be checked.\n" + errorText(failed));
  return FlowResult{FlowEnd::failed, failed};
}

std::optional<FlowResult> findKind(const OperationContext& context, Drive& drive,
                                   const PartitionEntry& entry, const FileSystemKind*& kind) {
  if (entry.isInError())
    return refuse(context, errorText(Error::tableInError), Error::tableInError);
  kind = kindIn(context.fileSystems, drive, entry);
  if (kind != nullptr && kind->check != nullptr) return std::nullopt;
  return refuse(context,
                "What this partition holds cannot be checked by this version.\n"
                "Please use the program that belongs to its file system.",
                Error::unsupportedFileSystem);
}

// One run of the repair.
class Repairing {
 public:
  Repairing(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
            LostClusters lost, RepairReport& report)
      : context_(context), drive_(drive), entry_(entry), lost_(lost), report_(report) {}

  FlowResult run() {
    if (auto stopped = refuseWhenReadOnlyDisk(context_, drive_)) return *stopped;
    if (auto stopped = findKind(context_, drive_, entry_, kind_)) return *stopped;
    if (auto stopped = refuseWhenInUse(context_, drive_, {entry_.startSector, entry_.endSector}))
      return *stopped;
    if (auto stopped = look(context_, drive_, entry_, *kind_, found_)) return *stopped;
    report_.after = found_;
    const std::vector<Mend> mends = mendsFor(found_, lost_);
    if (mends.empty()) return nothingToMend();
    if (auto stopped = refuseWhatHasNoRoom(mends)) return *stopped;
    ask(mends);
    if (wish_.mends.empty()) return cancelled();

    DiskWriteScope scope(context_, drive_);
    if (auto stopped = scope.begin(WriteTarget::sectors({entry_.startSector, entry_.endSector})))
      return *stopped;
    CheckReport now;
    if (auto stopped = look(context_, drive_, entry_, *kind_, now)) return *stopped;
    if (now.mends != found_.mends || now.fault != found_.fault)
      return refuse(context_, errorText(Error::volumeChangedMeanwhile),
                    Error::volumeChangedMeanwhile);
    return tell(repair());
  }

 private:
  FlowResult nothingToMend() {
    if (found_.isSound) {
      context_.ui.noticeBox("There is nothing to mend. " + found_.faultText + ".");
      return {};
    }
    return refuse(context_,
                  format("%s.\nThis cannot be mended without a choice between files, and nothing "
                         "was changed.\nPlease copy what you need, and format the volume anew.",
                         found_.faultText.c_str()),
                  Error::corrupt);
  }

  std::optional<FlowResult> refuseWhatHasNoRoom(const std::vector<Mend>& mends) const {
    for (const Mend& mend : mends)
      if (mend.whyNot != Error::none)
        return refuse(context_,
                      mend.fault + "\n" + mend.remedy + "\nNothing was changed.\n" + kMakeRoom,
                      mend.whyNot);
    return std::nullopt;
  }

  // What comes later rests on boot sector and FAT.
  void ask(const std::vector<Mend>& mends) {
    for (const Mend& mend : mends) {
      const bool isFundament =
          mend.kind == Mend::Kind::bootSector || mend.kind == Mend::Kind::tableCopies;
      // To give up lost clusters was asked for.
      const bool isWished = mend.kind == Mend::Kind::freeLostClusters || !mend.givesUp;
      if (context_.ui.confirm(isWished ? Consent::general : Consent::insist, "Repair",
                              mend.fault + "\n" + mend.remedy + "\n\nDo you want that?\n\n" +
                                  describeTarget(drive_, entry_),
                              MessageKind::question))
        wish_.mends.push_back(mend);
      else if (isFundament)
        return;
    }
  }

  Failure repair() {
    traceLine(context_.folders, "Repair: %s, start %llu, fault %u",
              describeDisk(drive_.disk()).c_str(),
              static_cast<unsigned long long>(entry_.startSector), found_.fault);
    wish_.secondsSinceEpoch = context_.host.secondsSinceEpoch();
    JobOfFrontEnd job(context_);
    const SectorRange range = rangeOf(drive_, entry_);
    const Failure failed = kind_->repair(range, entry_.type, wish_, job, report_);
    drive_.disk().dropCachesOf(range.firstSector, range.sectorCount);
    traceLine(context_.folders, "Repair: ended with %u, %zu of %zu done", codeOf(failed),
              report_.done.size(), wish_.mends.size());
    return failed;
  }

  std::string doneText() const {
    if (!report_.touched) return "Nothing was changed.";
    if (report_.done.empty()) return "The first of the changes may have been made in part.";
    std::string text = "This was mended:";
    for (const Mend& mend : report_.done) text += "\n" + mend.fault + " " + mend.remedy;
    return text;
  }

  FlowResult tell(const Failure& failed) {
    if (failed == Error::cancelled) {
      context_.ui.noticeBox("The repair was stopped.\n" + doneText());
      return cancelled();
    }
    if (failed) {
      context_.ui.errorBox("The repair did not come to its end.\n" + errorText(failed) + "\n" +
                           doneText());
      return {FlowEnd::failed, failed};
    }
    if (report_.after.isSound) return {};
    context_.ui.errorBox(doneText() + "\nThis is still wrong: " + report_.after.faultText + ".");
    return {FlowEnd::failed, Error::corrupt};
  }

  const OperationContext& context_;
  Drive& drive_;
  const PartitionEntry& entry_;
  LostClusters lost_;
  RepairReport& report_;
  const FileSystemKind* kind_ = nullptr;
  CheckReport found_;
  RepairWish wish_;
};

}  // namespace

FlowResult checkFlow(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                     CheckReport& report) {
  report = {};
  const FileSystemKind* kind = nullptr;
  if (auto stopped = findKind(context, drive, entry, kind)) return *stopped;
  if (auto stopped = look(context, drive, entry, *kind, report)) return *stopped;
  if (!report.isSound && partitionUse(context.host, drive.disk(), entry.startSector,
                                      entry.endSector - entry.startSector + 1))
    context.ui.noticeBox(
        "The partition is in use: what is not written yet may look like a fault.\n"
        "Please umount it and check it again.");
  return {};
}

std::vector<Mend> mendsFor(const CheckReport& report, LostClusters lost) {
  const Mend::Kind other =
      lost == LostClusters::keep ? Mend::Kind::freeLostClusters : Mend::Kind::keepLostClusters;
  std::vector<Mend> mends = report.mends;
  std::erase_if(mends, [other](const Mend& mend) { return mend.kind == other; });
  return mends;
}

FlowResult repairFlow(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                      LostClusters lost, RepairReport& report) {
  report = {};
  return Repairing(context, drive, entry, lost, report).run();
}

}  // namespace tallowin
