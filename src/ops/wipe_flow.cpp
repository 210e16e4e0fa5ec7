#include "ops/wipe_flow.h"

#include "base/text.h"
#include "files/host_file.h"
#include "ops/error_text.h"
#include "ops/operation_progress.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ops/wipe_model.h"

namespace tallowin {
namespace {

FlowResult cancelled() { return {FlowEnd::cancelled, Error::cancelled}; }

class Wiping {
 public:
  Wiping(const OperationContext& context, Drive& drive, const WipeOrder& order, WipeRecord& record)
      : context_(context), drive_(drive), order_(order), record_(record) {
    extent_ = order.extent.value_or(SectorExtent{0, drive.lastLba()});
  }

  FlowResult run() {
    if (auto stopped = checkTarget()) return *stopped;
    std::optional<WipeMethodChoice> method = order_.method;
    if (!method) method = chooseWipePattern(context_);
    if (!method) return cancelled();
    std::vector<WipePass> passes;
    if (const Failure failed = passesFor(*method, drive_.sectorSize(), passes)) {
      context_.ui.errorBox("Invalid wipe pattern");
      return {FlowEnd::refused, failed};
    }
    if (!confirm(*method)) return cancelled();
    DiskWriteScope scope(context_, drive_);
    if (auto stopped = scope.begin(target())) return *stopped;
    static_cast<void>(wipeExtent(context_, drive_, extent_, *method, record_));
    if (isWhole()) endOfTables();
    const FlowResult result = tellWipe(context_, isWhole() ? "The drive" : "What was chosen",
                                       record_, drive_.sectorSize());
    return keepCertificate(result);
  }

 private:
  bool isWhole() const { return !order_.extent; }
  WriteTarget target() const {
    return isWhole() ? WriteTarget::wholeDisk() : WriteTarget::sectors(extent_);
  }

  std::optional<FlowResult> checkTarget() {
    if (auto stopped = refuseWhenReadOnlyDisk(context_, drive_)) return stopped;
    return isWhole() ? refuseWhenDriveInUse(context_, drive_)
                     : refuseWhenInUse(context_, drive_, extent_);
  }

  bool confirm(const WipeMethodChoice& method) {
    const u64 sectors = extent_.endSector + 1 - extent_.startSector;
    const std::string what =
        isWhole() ? "ALL of this drive will be overwritten, with every partition and table on it."
                  : "All of it will be overwritten.";
    return context_.ui.confirm(Consent::general, "Wipe",
                               what + "\n\nDisk: " + describeDisk(drive_.disk()) +
                                   (order_.what.empty() ? "" : "\n" + order_.what) +
                                   format("\nSectors %llu to %llu, %s\nMethod: ",
                                          static_cast<unsigned long long>(extent_.startSector),
                                          static_cast<unsigned long long>(extent_.endSector),
                                          bytesText(sectors * drive_.sectorSize()).c_str()) +
                                   methodText(method) + "\n\nAre you sure you want to continue?");
  }

  // The kernel's picture and ours are those of the disk as it is now.
  void endOfTables() {
    const Settled settled = drive_.settle();
    static_cast<void>(drive_.reread());
    if (settled.kernel == KernelTable::restartNeeded)
      context_.ui.noticeBox(
          "Linux still uses the old partition table of this drive.\n"
          "Please restart the computer before you use it.");
  }

  FlowResult keepCertificate(const FlowResult& result) {
    if (order_.certificateFile) return writeCertificate(*order_.certificateFile, result);
    const bool isWanted =
        result.succeeded() &&
        context_.ui.messageBox({.kind = MessageKind::notice,
                                .title = "Wipe",
                                .text = "The wipe is done.",
                                .extraButton = "&Certificate"}) == MessageResult::extra;
    if (!isWanted) return result;
    FileChoice choice;
    choice.patterns = "*.txt";
    choice.flags = FileChoice::save | FileChoice::askOverwrite;
    const auto file = context_.ui.chooseFile(choice);
    return file ? writeCertificate(*file, result) : result;
  }

  // That it could not be written changes nothing of what was wiped.
  FlowResult writeCertificate(const std::string& path, const FlowResult& result) {
    if (const Failure failed = replaceFileDurably(path, wipeCertificate(drive_, record_)))
      context_.ui.errorBox("The certificate could not be written.\n" + errorText(failed));
    return result;
  }

  const OperationContext& context_;
  Drive& drive_;
  const WipeOrder& order_;
  WipeRecord& record_;
  SectorExtent extent_;
};

}  // namespace

std::optional<WipeMethodChoice> chooseWipePattern(const OperationContext& context) {
  WipeModel model;
  model.refuse = [&](const std::string& why) { context.ui.errorBox(why); };
  context.ui.run(model);
  return model.confirmed ? std::optional(model.method()) : std::nullopt;
}

FlowResult wipeFlow(const OperationContext& context, Drive& drive, const WipeOrder& order,
                    WipeRecord& record) {
  return Wiping(context, drive, order, record).run();
}

FlowResult tellWipe(const OperationContext& context, const std::string& what,
                    const WipeRecord& record, u32 sectorSizeBytes) {
  const WipeReport& report = record.report;
  const std::size_t passes = report.passes.size();
  const std::string done = bytesText(report.sectorsDone() * sectorSizeBytes);
  if (record.ended == Error::cancelled) {
    context.ui.noticeBox(
        format("%s is not wiped: it was stopped in pass %zu.\n"
               "Its first %s were overwritten once at least.",
               what.c_str(), passes, done.c_str()));
    return {FlowEnd::cancelled, Error::cancelled};
  }
  if (record.ended) {
    context.ui.errorBox(
        format("%s is not wiped: an error stopped it in pass %zu.\n"
               "At most its first %s were overwritten once at least.\n\n%s",
               what.c_str(), passes, done.c_str(), errorText(record.ended).c_str()));
    return {FlowEnd::failed, record.ended};
  }
  if (report.failedSectors() == 0 && report.isWhole()) return {};
  context.ui.noticeBox(
      report.failedSectors() == 0
          ? std::string("The passes were written, but not all of them were validated.")
          : format("%llu sectors could not be overwritten or read back.",
                   static_cast<unsigned long long>(report.failedSectors())));
  return {FlowEnd::doneWithLosses, Error::write};
}

}  // namespace tallowin
