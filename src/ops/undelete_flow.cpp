#include "ops/undelete_flow.h"

#include <algorithm>

#include "disk/mbr_record.h"
#include "fs/file_system.h"
#include "ops/add_entry.h"
#include "ops/convert_flow.h"
#include "ops/error_text.h"
#include "ops/file_systems.h"
#include "ops/job_of_front_end.h"
#include "ops/operation_progress.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ops/undelete_model.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr const char* kTitle = "Undelete";
// What is added has no name of its own: a label is that of its file system.
constexpr const char* kName = "unnamed";

// Whether a boot loader of the firmware lies in the volume.
bool isEfiSystem(const FileSystemKind& kind, const SectorRange& range, u16 type) {
  std::unique_ptr<FileSystem> files;
  return kind.open && !kind.open(range, type, {}, files) && files->exists("/EFI/BOOT");
}

// Labels, and what only the files in it tell.
void complete(const OperationContext& context, Drive& drive, LostPartition& found) {
  const SectorRange range{drive.disk(), found.startSector, found.endSector + 1 - found.startSector};
  const FileSystemKind* kind = context.fileSystems.byContent(range, found.type);
  if (kind == nullptr) return;
  if (found.label.empty())
    found.label = labelIn(*kind, range, found.type, context.options.codePage());
  if (drive.isGpt() && isEfiSystem(*kind, range, found.type)) found.type = types::kEfiSystem;
}

class Recovery {
 public:
  Recovery(const OperationContext& context, Drive& drive, const PartitionEntry& block, u32& added)
      : context_(context),
        drive_(drive),
        isInsideExtended_(drive.containerOf(block) != nullptr),
        extent_(searchExtent(drive, block)),
        added_(added) {}

  FlowResult run(u64 firstSector) {
    LostReport report;
    if (const Failure failed = search(firstSector, report)) {
      context_.ui.errorBox(errorText(failed));
      return {FlowEnd::failed, failed};
    }
    if (report.found.empty()) return tellNothingFound(report);
    for (LostPartition& one : report.found) complete(context_, drive_, one);
    UndeleteModel model(report, drive_.sectorSize(), isInsideExtended_,
                        describeDisk(drive_.disk()));
    model.add = [&](const std::vector<std::size_t>& picked) { return tryToAdd(model, picked); };
    context_.ui.run(model);
    return result_;
  }

 private:
  Failure search(u64 firstSector, LostReport& report) {
    JobOfFrontEnd job(context_);
    return findLostPartitions(drive_, {firstSector, extent_.endSector, isInsideExtended_}, job,
                              report);
  }

  FlowResult tellNothingFound(const LostReport& report) {
    std::string text = "Completed - 0 Recovered.\nNo lost partition was found in this free space.";
    if (report.isStopped) text += "\nThe search was stopped before its end.";
    if (report.unreadableSectors != 0)
      text +=
          "\n" + bytesText(report.unreadableSectors * drive_.sectorSize()) + " could not be read.";
    context_.ui.noticeBox(text, kTitle);
    if (report.isStopped) return {FlowEnd::cancelled, Error::cancelled};
    return {FlowEnd::refused, Error::none};
  }

  // The buttons of the dialog: true when it is to close, because the table was changed. False, with
  // the reason told, leaves it open and the disk as it is.
  bool tryToAdd(const UndeleteModel& model, const std::vector<std::size_t>& picked) {
    if (const auto refusal = refuseWhenReadOnlyTable(context_, drive_)) return refuse(*refusal);
    if (!isInsideExtended_ && !hasRoomFor(picked.size())) return false;
    SectorExtent hull = extentOf(model.found()[picked.front()]);
    for (const std::size_t row : picked) {
      const SectorExtent extent = extentOf(model.found()[row]);
      hull = {std::min(hull.startSector, extent.startSector),
              std::max(hull.endSector, extent.endSector)};
    }
    TableChange change(context_, drive_);
    if (const auto stopped = change.begin(WriteTarget::sectors(hull))) return refuse(*stopped);
    Failure failed;
    for (const std::size_t row : picked) {
      // The table has another entry by now.
      if (added_ != 0) failed = drive_.reread();
      if (!failed) failed = addEntry(context_, change, drive_, entryOf(model.found()[row]), kTitle);
      if (failed) break;
      ++added_;
    }
    failed = change.end(failed);
    if (failed == Error::sectorsInUse && added_ == 0)
      return refuse({FlowEnd::cancelled, Error::cancelled});
    tell(failed, model.leftOutText());
    return true;
  }

  bool refuse(const FlowResult& result) {
    result_ = result;
    return false;
  }

  static SectorExtent extentOf(const LostPartition& found) {
    return {found.ebrSector.value_or(found.startSector), found.endSector};
  }

  // As Create has it: a table without a free slot may become one with more.
  bool hasRoomFor(std::size_t count) {
    const u32 room = drive_.table().slots - drive_.table().usedSlots;
    if (count <= room) return true;
    const FlowResult offered = offerEmbr(context_, drive_);
    if (offered.succeeded()) return true;
    result_ = offered;
    if (offered.end == FlowEnd::cancelled)
      context_.ui.noticeBox(
          format("The table has room for %u more partitions, and %zu were chosen.\n"
                 "Nothing was changed. Please choose fewer, or change the disk type to GPT first.",
                 room, count),
          kTitle);
    return false;
  }

  NewEntry entryOf(const LostPartition& found) const {
    NewEntry entry{.startSector = found.startSector,
                   .endSector = found.endSector,
                   .ebrSector = found.ebrSector,
                   .type = found.type,
                   .name = kName};
    entry.keepsChain = found.volumeCount != 0;
    if (drive_.isEmbr() && !isInsideExtended_) entry.attributes = kNewEmbrEntryFlags;
    return entry;
  }

  void tell(const Failure& failed, const std::string& leftOut) {
    result_ = failed ? FlowResult{FlowEnd::failed, failed}
                     : FlowResult{leftOut.empty() ? FlowEnd::done : FlowEnd::doneWithLosses};
    if (failed)
      context_.ui.messageBox(
          {MessageKind::error, kTitle, "Unable to add entry\n\n" + tableErrorText(failed)});
    context_.ui.noticeBox(
        format("Completed - %u Recovered.", added_) + (leftOut.empty() ? "" : "\n" + leftOut),
        kTitle);
  }

  const OperationContext& context_;
  Drive& drive_;
  bool isInsideExtended_;
  SectorExtent extent_;
  u32& added_;
  FlowResult result_{FlowEnd::cancelled, Error::cancelled};
};

// Whether a partition may begin behind the first alignment unit, and something before it.
bool mayStartOnUnit(Drive& drive, const SectorExtent& extent, u64 unit) {
  if (extent.startSector >= unit || extent.endSector <= unit) return false;
  std::vector<u8> sector(drive.sectorSize());
  return !drive.disk().readSectors(unit, sector.data(), 1) &&
         recordAt<MbrRecord>(std::span(sector))->signature.isValid();
}

}  // namespace

SectorExtent searchExtent(Drive& drive, const PartitionEntry& block) {
  const SectorRegion region = drive.freeRegionAround(block);
  SectorExtent extent{region.first, region.last};
  if (drive.containerOf(block) != nullptr && extent.startSector < block.startSector)
    ++extent.startSector;
  return extent;
}

FlowResult recoverPartitions(const OperationContext& context, Drive& drive,
                             const PartitionEntry& block, u64 firstSector, u32& added) {
  added = 0;
  return Recovery(context, drive, block, added).run(firstSector);
}

FlowResult undeleteFlow(const OperationContext& context, Drive& drive,
                        const PartitionEntry& block) {
  const auto answer =
      context.ui.messageBox({MessageKind::question, kTitle,
                             "This option recovers missing FAT, HPFS, NTFS, Ext2fs,\n"
                             "ReiserFS and Extended partitions or volumes.",
                             ButtonSet::okCancel});
  if (answer != MessageResult::ok) return {FlowEnd::cancelled, Error::cancelled};
  const SectorExtent asked{block.startSector, block.endSector};
  if (const Failure failed = drive.reread()) {
    context.ui.errorBox(errorText(failed));
    return {FlowEnd::failed, failed};
  }
  const PartitionEntry* now = findFreeBlock(drive, asked);
  if (now == nullptr) {
    context.ui.noticeBox("The free space is gone.\nLook at the new table and try again.");
    return {FlowEnd::refused, Error::tableChangedMeanwhile};
  }
  const SectorExtent extent = searchExtent(drive, *now);
  const u64 unit = alignmentUnit(drive.alignment());
  const bool skipsUnit =
      mayStartOnUnit(drive, extent, unit) &&
      context.ui.confirm(Consent::none, kTitle, "Start on cylinder two?", MessageKind::question);
  u32 added = 0;
  return recoverPartitions(context, drive, *now, skipsUnit ? unit : extent.startSector, added);
}

}  // namespace tallowin
