#include "ops/copy_operation.h"

#include "base/guid.h"
#include "disk/mbr_record.h"
#include "fs/file_system.h"
#include "ops/add_entry.h"
#include "ops/error_text.h"
#include "ops/move_words.h"
#include "probe/type_catalogue.h"
#include "ptable/embr/embr_record.h"

namespace tallowin {
namespace {

// The type byte in another table; what only a GPT can say has none.
u16 typeInTable(const PartitionEntry& source, const Drive& drive) {
  if (drive.isGpt() || source.type <= 0xFF) return source.type;
  return types::kOtherData;
}

// All that the table says of an entry, for it to come back.
NewEntry entryAgain(Drive& drive, const PartitionEntry& entry) {
  NewEntry again = newEntryIn(entry);
  again.type = drive.isEmbr() || drive.isGpt() ? entry.type : entry.mbrType;
  again.name = entry.tableName.empty() ? entry.name : entry.tableName;
  again.id = entry.id;
  again.attributes = entry.attributes;
  again.typeGuid = entry.typeGuid;
  again.uniqueGuid = entry.uniqueGuid;
  again.keepsChain = types::isExtended(entry.type);
  return again;
}

Failure setLabel(const OperationContext& context, Drive& drive, const CopyPlan& plan) {
  const SectorRange range{drive.disk(), plan.target.startSector,
                          plan.source.endSector + 1 - plan.source.startSector};
  const FileSystemKind* kind = context.fileSystems.byContent(range, plan.type);
  std::unique_ptr<FileSystem> files;
  const OpenWish wish{.writable = true, .codePage = plan.order.codePage};
  if (kind == nullptr || !kind->open || kind->open(range, plan.type, wish, files) ||
      !files->isWritable())
    return {};
  std::string label;
  if (files->label(label) || label == plan.target.name) return {};
  if (const Failure failed = files->setLabel(plan.target.name)) return failed;
  return files->sync();
}

Failure notUpdated(const Failure& failed) {
  return failed == Error::writeFailedTableUnknown ? failed : failed.as(Error::tableNotUpdated);
}

// That it can be started from is no reason to take the copy back.
void makeActive(Drive& drive, u64 startSector) {
  EntryProperties wanted;
  wanted.active = true;
  if (drive.reread()) return;
  if (const PartitionEntry* entry = findByStart(drive, startSector))
    static_cast<void>(drive.changeProperties(*entry, wanted));
}

// The copy takes the place of its source in the table; else that comes back.
Failure replaceSource(Drive& drive, const CopyPlan& plan, TrackContent content) {
  const PartitionEntry* source = findByStart(drive, plan.source.startSector);
  if (source == nullptr || source->endSector != plan.source.endSector)
    return Error::tableChangedMeanwhile;
  const NewEntry again = entryAgain(drive, *source);
  const bool isActive = source->bootIndicator == kBootActive;
  if (const Failure failed = drive.remove(*source)) return notUpdated(failed);
  if (const Failure failed = drive.reread()) return failed;
  const Failure failed = drive.add(plan.target, content);
  if (!failed) {
    if (isActive) makeActive(drive, plan.target.startSector);
    return {};
  }
  if (failed == Error::writeFailedNewTable || failed == Error::writeFailedTableUnknown)
    return failed;
  static_cast<void>(drive.reread());
  if (const Failure lost = drive.add(again, TrackContent::overwrite))
    return lost.as(Error::writeFailedTableUnknown);
  if (isActive) makeActive(drive, again.startSector);
  return failed;
}

// The step that makes the copy a partition, and its source none.
Failure enter(Drive& drive, const CopyPlan& plan, TrackContent content) {
  const bool deletes = (plan.order.flags & kMoveDeleteSource) != 0;
  return deletes ? replaceSource(drive, plan, content) : drive.add(plan.target, content);
}

Guid guidIn(const WorkRecord& record, const char* key) {
  Guid guid;
  return parseGuid(record.text(key), guid) ? guid : Guid();
}

}  // namespace

NewEntry copiedEntry(Drive& sourceDrive, const PartitionEntry& source, Drive& drive,
                     const PartitionEntry& block, const SectorExtent& extent) {
  NewEntry entry{.startSector = extent.startSector, .endSector = extent.endSector};
  if (drive.containerOf(block) != nullptr)
    entry.ebrSector = extent.startSector - drive.volumeGap(block);
  entry.type = drive.typeForEnd(typeInTable(source, drive), extent.endSector);
  entry.id = source.id;
  entry.keepsChain = types::isExtended(source.type);
  if (drive.isEmbr()) entry.attributes = kNewEmbrEntryFlags;
  if (drive.isGpt() && sourceDrive.isGpt()) {
    entry.attributes = source.attributes;
    entry.typeGuid = source.typeGuid;
  }
  return entry;
}

Failure tryCopy(const Drive& drive, const CopyPlan& plan, TrackContent content) {
  return drive.tryOut([&](Drive& copy) { return enter(copy, plan, content); });
}

FlowResult finishCopy(const OperationContext& context, Drive& drive, const CopyPlan& plan) {
  TableChange change(context, drive);
  const SectorExtent extent{plan.target.ebrSector.value_or(plan.target.startSector),
                            plan.target.endSector};
  if (auto stopped = change.begin(WriteTarget::sectors(extent))) return *stopped;
  std::vector<std::string> notes;
  Failure failed = fixCopyBoot(context.fileSystems, drive, plan, notes);
  if (!failed) failed = enter(drive, plan, TrackContent::overwrite);
  if (!failed && (plan.order.flags & kMoveSetLabel) != 0 && setLabel(context, drive, plan))
    notes.emplace_back("The volume label of the copy could not be set.");
  failed = change.end(failed);
  for (const std::string& note : notes) context.ui.noticeBox(note, "Copy");
  if (!failed) return {};
  context.ui.errorBox(moveFailedText("copy", plan.used.typeFound, failed) + "\n\n" +
                      tableErrorText(failed));
  return {FlowEnd::failed, failed};
}

WorkRecord recordOf(const CopyPlan& plan) {
  WorkRecord record;
  record.set("start", plan.source.startSector);
  record.set("end", plan.source.endSector);
  record.set("flags", plan.order.flags);
  record.set("codePage", plan.order.codePage);
  record.set("type", plan.type);
  record.set("targetStart", plan.target.startSector);
  record.set("targetEnd", plan.target.endSector);
  record.set("targetType", plan.target.type);
  record.set("targetName", plan.target.name);
  record.set("targetId", plan.target.id);
  record.set("targetAttributes", plan.target.attributes);
  record.set("targetTypeGuid", guidText(plan.target.typeGuid));
  record.set("targetUniqueGuid", guidText(plan.target.uniqueGuid));
  record.set("keepsChain", plan.target.keepsChain ? u64{1} : u64{0});
  return record;
}

CopyPlan copyPlanOf(const WorkRecord& record, Drive& drive) {
  CopyPlan plan;
  plan.source = {record.number("start"), record.number("end")};
  plan.order.flags = static_cast<u32>(record.number("flags"));
  plan.order.codePage = static_cast<u32>(record.number("codePage"));
  plan.type = static_cast<u16>(record.number("type"));
  plan.sourceBiosNumber = drive.biosNumber();
  plan.target.startSector = record.number("targetStart");
  plan.target.endSector = record.number("targetEnd");
  plan.target.type = static_cast<u16>(record.number("targetType"));
  plan.target.name = record.text("targetName");
  plan.target.id = static_cast<PartitionId>(record.number("targetId"));
  plan.target.attributes = record.number("targetAttributes");
  plan.target.typeGuid = guidIn(record, "targetTypeGuid");
  plan.target.uniqueGuid = guidIn(record, "targetUniqueGuid");
  plan.target.keepsChain = record.number("keepsChain") != 0;
  return plan;
}

}  // namespace tallowin
