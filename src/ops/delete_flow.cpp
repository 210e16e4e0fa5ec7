#include "ops/delete_flow.h"

#include <algorithm>

#include "base/text.h"
#include "ops/delete_model.h"
#include "ops/error_text.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ops/wipe_flow.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u64 kGptRequired = 1;  // attribute bit 0 of a GPT entry
constexpr std::string_view kMicrosoftReserved = "{E3C9E316-0B5C-4DB8-817D-F92DF00215AE}";

std::string warningFor(const Drive& drive, const PartitionEntry& entry) {
  if (drive.isGpt()) {
    if ((entry.attributes & kGptRequired) != 0)
      return "*WARNING* This partition is marked as REQUIRED.";
    if (guidText(entry.typeGuid) == kMicrosoftReserved)
      return "*WARNING* Windows requires a reserved partition.";
    return {};
  }
  const auto* table = dynamic_cast<const TableEntry*>(&entry);
  const bool hasVolumes =
      table && table->volumes &&
      std::any_of(table->volumes->entries.begin(), table->volumes->entries.end(),
                  [](const auto& volume) { return !volume->isFree(); });
  return hasVolumes ? "*WARNING* Volumes will also be deleted." : "";
}

DeleteFacts deleteFacts(Drive& drive, const PartitionEntry& entry) {
  const EntrySummary summary = summaryOf(drive, entry);
  return {entry.isVolume(),
          entry.isInError(),
          summary.name,
          summary.type,
          summary.size,
          describeTarget(drive, entry),
          warningFor(drive, entry)};
}

// The sectors that Clear Boot Sector takes, from the entry's first on.
u64 bootSectors(const FileSystemKinds& kinds, u16 type, bool shiftHeld) {
  if (const FileSystemKind* kind = kinds.byType(type)) return shiftHeld ? 1 : kind->bootSectors;
  const u16 plain = types::unhide(type);
  if (plain == types::kLinuxSwap) return 8;
  return plain == types::kLinux ? 129 : 1;
}

// What Yes overwrites; nothing when no box is ticked.
std::optional<SectorExtent> extentToWipe(const FileSystemKinds& kinds, const DeleteModel& model,
                                         const PartitionEntry& entry) {
  if (model.wipePartition) return SectorExtent{entry.startSector, entry.endSector};
  if (!model.clearBootSector) return std::nullopt;
  const u64 count = std::min(bootSectors(kinds, entry.type, model.shiftHeld), entry.sectorCount());
  return SectorExtent{entry.startSector, entry.startSector + count - 1};
}

// The entry goes first, and the disk stays locked until its sectors are overwritten.
FlowResult removeEntry(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                       const DeleteModel& model) {
  const auto wiped = extentToWipe(context.fileSystems, model, entry);
  TableChange change(context, drive);
  if (const auto stopped = change.begin(WriteTarget::sectors({entry.startSector, entry.endSector})))
    return *stopped;
  if (const Failure failed = change.end(drive.remove(entry))) {
    context.ui.errorBox(deleteErrorText(failed));
    return {FlowEnd::failed, failed};
  }
  if (!wiped) return {};
  WipeRecord record;
  const bool isSecure = model.wipePartition && model.secureWipe;
  static_cast<void>(
      wipeExtent(context, drive, *wiped, isSecure ? model.wipeMethod : WipeMethodChoice(), record));
  return tellWipe(context, "The partition was deleted, but it", record, drive.sectorSize());
}

}  // namespace

FlowResult deleteFlow(const OperationContext& context, Drive& drive, PartitionEntry& entry) {
  if (const auto refused = refuseWhenReadOnlyTable(context, drive)) return *refused;
  if (const auto refused = refuseWhenInUse(context, drive, {entry.startSector, entry.endSector}))
    return *refused;
  if (const auto stopped = askAboutBootManager(context, drive, entry)) return *stopped;

  DeleteModel model(deleteFacts(drive, entry));
  model.chooseMethod = [&] { return chooseWipePattern(context); };
  context.ui.run(model);
  if (!model.confirmed) return {FlowEnd::cancelled, Error::cancelled};
  return removeEntry(context, drive, entry, model);
}

}  // namespace tallowin
