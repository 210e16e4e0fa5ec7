#include "ops/target_check.h"

#include "base/text.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

FlowResult refused(Failure code) { return {FlowEnd::refused, code}; }

}  // namespace

std::string useText(const DiskUse& use) {
  switch (use.kind) {
    case UseKind::mounted:
      return format(
          "Error: The partition is mounted in Linux as %s.  Please umount it and try again.",
          use.where.c_str());
    case UseKind::swap:
      return format("Error: %s is in use as swap space.  Please turn it off and try again.",
                    use.node.c_str());
    case UseKind::held:
      return format("Error: %s is a part of %s.  Please release it there and try again.",
                    use.node.c_str(), use.where.c_str());
    case UseKind::openedBy:
      break;
  }
  return format("Error: %s is in use by another program.  Please end that and try again.",
                use.node.c_str());
}

std::optional<FlowResult> refuseWhenInUse(const OperationContext& context, Drive& drive,
                                          const SectorExtent& extent) {
  const auto use = partitionUse(context.host, drive.disk(), extent.startSector,
                                extent.endSector - extent.startSector + 1);
  if (!use) return std::nullopt;
  context.ui.errorBox(useText(*use));
  return refused(Error::targetInUse);
}

std::optional<FlowResult> refuseWhenDriveInUse(const OperationContext& context, Drive& drive) {
  if (driveUse(context.host, drive.disk()).empty()) return std::nullopt;
  context.ui.errorBox(
      "Error: This drive contains mounted partitions.  Please umount them and try again.");
  return refused(Error::targetInUse);
}

std::optional<FlowResult> refuseWhenReadOnlyDisk(const OperationContext& context, Drive& drive) {
  if (!drive.disk().traits().readOnly) return std::nullopt;
  context.ui.errorBox(
      format("This disk can only be read (%s).\n"
             "Nothing was changed. Please get the right to write to it, or remove its write\n"
             "protection, and open it again.",
             describeDisk(drive.disk()).c_str()));
  return refused(Error::deviceNotOpened);
}

std::optional<FlowResult> refuseWhenReadOnlyTable(const OperationContext& context, Drive& drive) {
  if (auto stopped = refuseWhenReadOnlyDisk(context, drive)) return stopped;
  const Failure error = drive.changesAllowed();
  if (error == Error::none) return std::nullopt;
  context.ui.noticeBox(drive.changeRefusal());
  return refused(error);
}

std::optional<FlowResult> askAboutBootManager(const OperationContext& context, Drive& drive,
                                              const PartitionEntry& entry) {
  if (entry.isVolume() || !entry.holdsBootManager()) return std::nullopt;
  const std::string text = format("*Warning* This partition contains Strandel!\n\n%s",
                                  "Are you sure you want to continue?") +
                           "\n\n" + describeTarget(drive, entry);
  if (context.ui.confirm(Consent::general, "", text)) return std::nullopt;
  return FlowResult{FlowEnd::cancelled, Error::cancelled};
}

}  // namespace tallowin
