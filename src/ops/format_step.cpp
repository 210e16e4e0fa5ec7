#include "ops/format_step.h"

#include "base/text.h"
#include "ops/error_text.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"
#include "ops/job_of_front_end.h"
#include "ops/target_text.h"
#include "ops/trace_log.h"
#include "probe/type_catalogue.h"

namespace tallowin {

bool FormatStep::ask(std::vector<const FileSystemKind*> kinds, u16 type) {
  kind_ = kinds.front();
  if (kinds.size() == 1 && takesAutomaticClusters(*kind_, type)) return true;
  FormatModel model(std::move(kinds));
  context_.ui.run(model);
  kind_ = &model.kind();
  clusterBytes_ = model.clusterBytes();
  alignForNtfs_ = model.alignForNtfs;
  return model.confirmed;
}

Failure FormatStep::format(const FormatTarget& target, const std::string& label, bool surfaceScan) {
  target_ = target;
  traceLine(
      context_.folders, "Format: %s, start %llu, %llu sectors, type %Xh",
      describeDisk(drive_.disk()).c_str(),
      static_cast<unsigned long long>(target.extent.startSector),
      static_cast<unsigned long long>(target.extent.endSector + 1 - target.extent.startSector),
      target.type);
  FormatWish wish =
      formatWishFor(drive_, target, context_.options, context_.host.secondsSinceEpoch());
  wish.clusterBytes = clusterBytes_;
  wish.alignForNtfs = alignForNtfs_;
  wish.surfaceScan = surfaceScan;
  wish.label = label;
  JobOfFrontEnd job(context_);
  const Failure failed = formatVolume(drive_, target, *kind_, wish, job, report_);
  traceLine(context_.folders, "Format: ended with %u, %llu bad clusters",
            codeOf(!failed && report_.scanStopped ? Failure(Error::scanStopped) : failed),
            static_cast<unsigned long long>(report_.badClusters));
  return failed;
}

FlowResult FormatStep::tell(const Failure& failed, const std::string& name,
                            const std::string& tableText) {
  if (!failed) {
    showSummary(name);
    return {report_.badClusters != 0 ? FlowEnd::doneWithLosses : FlowEnd::done, Error::none};
  }
  std::string text = stateText();
  if (!tableText.empty()) text += "\n" + tableText;
  if (failed == Error::cancelled) {
    context_.ui.noticeBox("Formatting was stopped.\n" + text);
    return {FlowEnd::cancelled, Error::cancelled};
  }
  context_.ui.errorBox(formatErrorText(failed) + "\n\n" + text);
  return {FlowEnd::failed, failed};
}

std::string FormatStep::stateText() const {
  return report_.touched || isGone_
             ? "The partition is partly overwritten and must be formatted before it can be used."
             : "What the partition holds was not changed.";
}

void FormatStep::showSummary(const std::string& name) {
  FormatSummary summary;
  const SectorRange range{drive_.disk(), target_.extent.startSector,
                          target_.extent.endSector + 1 - target_.extent.startSector};
  if (!kind_->facts || kind_->facts(range, target_.type, CountClusters::no, summary.facts)) return;
  summary.name = name;
  summary.typeName = types::name(target_.type);
  summary.sizeText =
      sizeText(target_.extent.startSector, target_.extent.endSector, drive_.sectorSize());
  summary.report = report_;
  FormatSummaryModel model(summary);
  context_.ui.run(model);
}

}  // namespace tallowin
