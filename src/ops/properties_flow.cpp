#include "ops/properties_flow.h"

#include <algorithm>

#include "disk/disk_handles.h"
#include "ops/boot_sector.h"
#include "ops/error_text.h"
#include "ops/file_systems.h"
#include "ops/property_rules.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "probe/identify.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

bool isConfirmed(const OperationContext& context, const char* title, const std::string& text) {
  return context.ui.confirm(Consent::general, title,
                            text + "\n\nAre you sure you want to continue?");
}

// Whether the file system ends where the partition is to end, or before; not when it is not known.
bool holdsWhole(Drive& drive, const PartitionEntry& entry, u64 endSector) {
  Content content;
  if (identify(drive.disk(), entry.startSector, content)) return false;
  if (content.code == ContentCode::unknownVolume || content.code == ContentCode::linuxSwap)
    return false;
  return content.sectorCount <= endSector + 1 - entry.startSector;
}

// What lies behind a new end belongs to nobody any more. The volumes of an extended partition are
// never cut.
bool insistsOnEnd(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                  const EntryProperties& wanted) {
  if (!wanted.endSector || *wanted.endSector >= entry.endSector || types::isExtended(entry.type) ||
      holdsWhole(drive, entry, *wanted.endSector))
    return true;
  return context.ui.confirm(
      Consent::insist, "Properties",
      "The partition becomes smaller, and what it holds does not: files that lie behind the\n"
      "new end are lost, and the file system may not be usable any more.\n" +
          describeTarget(drive, entry) + "\n\nAre you sure you want to continue?");
}

FlowResult failWith(const OperationContext& context, const std::string& what, Failure error) {
  context.ui.errorBox(what + tableErrorText(error));
  return {FlowEnd::failed, error};
}

}  // namespace

FlowResult changePropertiesFlow(const OperationContext& context, Drive& drive,
                                const PartitionEntry& entry, const EntryProperties& wanted) {
  if (const auto refused = refuseWhenReadOnlyTable(context, drive)) return *refused;
  if (const auto refusal = refusedProperty(drive, entry, wanted)) {
    context.ui.noticeBox(refusal->why);
    return {FlowEnd::refused, Error::unsupportedForm};
  }
  if (!isConfirmed(context, "Properties",
                   "The entry of this partition is changed.\n" + describeTarget(drive, entry)) ||
      !insistsOnEnd(context, drive, entry, wanted))
    return {FlowEnd::cancelled, Error::cancelled};

  TableChange change(context, drive);
  const u64 end = std::max(wanted.endSector.value_or(0), entry.endSector);
  const WriteTarget target =
      wanted.endSector ? WriteTarget::sectors({entry.startSector, end}) : WriteTarget::tableOnly();
  if (const auto stopped = change.begin(target)) return *stopped;
  const Failure error = change.end(drive.changeProperties(entry, wanted));
  return error == Error::none ? FlowResult{} : failWith(context, "Update Failed!\n\n", error);
}

FlowResult repairBootSectorFlow(const OperationContext& context, Drive& drive,
                                const PartitionEntry& entry) {
  BootSector boot;
  if (const Failure failed = boot.read(rangeOf(drive, entry), entry.type))
    return failWith(context, "The boot sector cannot be read.\n\n", failed);
  const std::string target = "\n\n" + describeTarget(drive, entry);
  if (boot.hasOtherGeometry(drive.geometry()) &&
      context.ui.confirm(Consent::general, "",
                         "Invalid Head and SPT values exist in the BPB.  Fix it?" + target))
    boot.setGeometry(drive.geometry());
  const auto number =
      context.options.useHd0InBpb ? std::optional(kFirstBiosDisk) : drive.biosNumber();
  if (number && boot.hasOtherDriveNumber(*number) &&
      context.ui.confirm(Consent::general, "", "Correct BPB HDNum (Y/N)?" + target,
                         MessageKind::notice))
    boot.setDriveNumber(*number);
  if (!boot.isChanged()) return {};
  if (const auto refused = refuseWhenReadOnlyDisk(context, drive)) return *refused;
  DiskWriteScope scope(context, drive);
  if (const auto stopped = scope.begin(WriteTarget::sectors({entry.startSector, entry.endSector})))
    return *stopped;
  const Failure failed = boot.write(rangeOf(drive, entry));
  drive.disk().dropCachesOf(entry.startSector, entry.sectorCount());
  if (!failed) return {};
  if (failed == Error::tableChangedMeanwhile) {
    context.ui.noticeBox(
        "The boot sector is not the one that was looked at any more.\n"
        "Nothing was changed. Please look at it again.");
    return {FlowEnd::refused, failed};
  }
  context.ui.errorBox("The boot sector could not be written.\n\n" + errorText(failed));
  return {FlowEnd::failed, failed};
}

FlowResult repairGptFlow(const OperationContext& context, Drive& drive) {
  if (const auto refused = refuseWhenReadOnlyTable(context, drive)) return *refused;
  if (!drive.gptHealth() || drive.gptHealth()->isSound()) return {};
  if (!isConfirmed(context, "Repair Partition Table",
                   gptHealthText(*drive.gptHealth()) +
                       "\nBoth copies of the GPT are written anew from the one that was read;\n"
                       "partitions and data stay as they are.\n\nDisk: " +
                       describeDisk(drive.disk())))
    return {FlowEnd::cancelled, Error::cancelled};
  TableChange change(context, drive);
  if (const auto stopped = change.begin(WriteTarget::tableOnly())) return *stopped;
  const Failure error = change.end(drive.repairGpt());
  return error == Error::none ? FlowResult{} : failWith(context, "", error);
}

}  // namespace tallowin
