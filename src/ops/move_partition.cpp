#include "ops/move_partition.h"

#include <algorithm>

#include "ops/bootsect_dos.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u8 kFirstBiosDisk = 0x80;

// What is wrong with the finishing stage has a number of its own; the others say which table is on
// the disk.
Failure notUpdated(const Failure& failure) {
  const bool saysMore = failure == Error::writeFailedNewTable ||
                        failure == Error::writeFailedTableUnknown ||
                        failure == Error::tableChangedMeanwhile || failure == Error::outOfMemory ||
                        failure == Error::noFreeEntry || failure == Error::sectorsInUse;
  return saysMore ? failure : failure.as(Error::tableNotUpdated);
}

void setDrive(u32 flags, Drive& drive, BootMove& move) {
  move.flags = flags & (kFixBackup | kFixDriveNumber | kFixFirstSector);
  move.geometry = drive.geometry();
  move.newBiosNumber = drive.biosNumber();
  move.driveNumber =
      (flags & kMoveBiosNumber) != 0 ? drive.biosNumber().value_or(kFirstBiosDisk) : kFirstBiosDisk;
}

u64 hiddenSectors(u32 flags, Drive& drive, u64 start, u64 volumeGap) {
  if (volumeGap != 0 && (flags & kMoveAbsoluteHidden) == 0) return volumeGap;
  return start + drive.disk().traits().startOffset;
}

BootMove bootMoveOf(Drive& drive, const SlidePlan& plan) {
  BootMove move;
  setDrive(plan.flags, drive, move);
  move.type = plan.type;
  move.oldStart = plan.entry.oldStart;
  move.newStart = plan.entry.newStart;
  move.sectorCount = plan.entry.sectorCount;
  move.hiddenSectors = hiddenSectors(plan.flags, drive, plan.entry.newStart, plan.volumeGap);
  move.oldBiosNumber = drive.biosNumber();
  return move;
}

BootMove bootMoveOf(Drive& drive, const CopyPlan& plan) {
  BootMove move;
  setDrive(plan.order.flags, drive, move);
  move.type = plan.type;
  move.oldStart = plan.source.startSector;
  move.newStart = plan.target.startSector;
  move.sectorCount = plan.source.endSector + 1 - plan.source.startSector;
  const u64 gap = plan.target.ebrSector ? plan.target.startSector - *plan.target.ebrSector : u64{0};
  move.hiddenSectors = hiddenSectors(plan.order.flags, drive, plan.target.startSector, gap);
  move.oldBiosNumber = plan.sourceBiosNumber;
  return move;
}

// What the file system's driver has to put right when the rest is done.
void fixFiles(const FileSystemKinds& kinds, DiskDevice& disk, const BootMove& move, u32 codePage,
              std::vector<std::string>& notes) {
  if (!types::isFat(move.type)) return;
  const SectorRange range{disk, move.newStart, move.sectorCount};
  const FileSystemKind* kind = kinds.byContent(range, move.type);
  if (kind != nullptr && fixBootsectDos(*kind, range, move, codePage))
    notes.emplace_back(
        "The file BOOTSECT.DOS could not be changed: what it starts may not find its partition.");
}

void noteLoader(const BootFixReport& report, std::vector<std::string>& notes) {
  if (report.mustReinstallLoader)
    notes.emplace_back(
        "LILO finds its files by sector numbers, which are others now. It has to be installed\n"
        "again before this partition can be started from: its boot sector says so.");
}

// The CHS addresses in a chain, which nobody goes by.
void refreshChain(Drive& drive, u64 startSector) {
  if (drive.reread()) return;
  for (const auto& entry : drive.table().entries)
    if (entry->startSector == startSector && entry->volumes)
      return static_cast<void>(drive.refreshChain(*entry));
}

}  // namespace

SectorExtent SlidePlan::area() const {
  // With the EBRs.
  const u64 first = std::min(entry.oldStart, entry.newStart) - volumeGap;
  const u64 last = std::max(entry.oldStart, entry.newStart) + entry.sectorCount - 1;
  return {first, last};
}

Failure planSlide(const FileSystemKinds& kinds, Drive& drive, const PartitionEntry& entry,
                  u64 newStart, const MoveOrder& order, SlidePlan& plan) {
  plan = {};
  plan.type = entry.type;
  plan.volumeGap = drive.volumeGap(entry);
  plan.flags = order.flags | kMoveAlways;
  plan.codePage = order.codePage;
  if (const Failure failed = drive.planMove(entry, newStart, plan.entry)) return failed;
  return findUsedExtents(kinds, drive, entry, order.sectors, BootArea::yes, plan.used);
}

Failure finishSlide(const FileSystemKinds& kinds, Drive& drive, const SlidePlan& plan,
                    std::vector<std::string>& notes) {
  const BootMove move = bootMoveOf(drive, plan);
  SectorChanges changes(drive.disk());
  BootFixReport report;
  if (const Failure failed = planBootFix(drive.disk(), move, changes, report))
    return notUpdated(failed);
  if (const Failure failed = changes.apply()) return notUpdated(failed);
  const Failure failed = drive.finishMove(plan.entry);
  const bool isDone = !failed || failed == Error::writeFailedNewTable;
  if (!isDone && failed != Error::writeFailedTableUnknown && changes.takeBack())
    notes.emplace_back("What the boot records said before could not be put back.");
  if (!isDone) return notUpdated(failed);
  noteLoader(report, notes);
  fixFiles(kinds, drive.disk(), move, plan.codePage, notes);
  if (!failed && types::isExtended(plan.type)) refreshChain(drive, plan.entry.newStart);
  return failed;
}

Failure planCopy(const FileSystemKinds& kinds, Drive& sourceDrive, const PartitionEntry& source,
                 Drive& targetDrive, const NewEntry& target, const MoveOrder& order,
                 CopyPlan& plan) {
  plan = {};
  plan.order = order;
  plan.order.flags |= kMoveAlways;
  plan.source = {source.startSector, source.endSector};
  plan.type = source.type;
  plan.target = target;
  plan.sourceBiosNumber = sourceDrive.biosNumber();
  if (sourceDrive.sectorSize() != targetDrive.sectorSize()) return Error::sectorSizeDiffers;
  if (source.isInError() || source.isFree()) return Error::tableInError;
  if (target.endSector < target.startSector ||
      target.endSector - target.startSector != source.endSector - source.startSector)
    return Error::sizeNotPossible;
  if (target.startSector < targetDrive.firstUsableSector() ||
      target.endSector > targetDrive.lastUsableSector())
    return Error::outsideUsableArea;
  return findUsedExtents(kinds, sourceDrive, source, order.sectors, BootArea::no, plan.used);
}

Failure moveCopyData(Drive& sourceDrive, Drive& targetDrive, const CopyPlan& plan, Job& job,
                     MoveReport& report) {
  const SectorRange source{sourceDrive.disk(), plan.source.startSector,
                           plan.source.endSector + 1 - plan.source.startSector};
  SectorMover mover(source, targetDrive.disk(), plan.target.startSector, job, &plan.used.list);
  if (const Failure failed = mover.whyUnusable()) return failed;
  job.phase(Phase::copying, 2 * mover.sectorsToMove() * sourceDrive.sectorSize());
  const Failure failed = mover.run();
  report = mover.report();
  return failed;
}

Failure fixCopyBoot(const FileSystemKinds& kinds, Drive& targetDrive, const CopyPlan& plan,
                    std::vector<std::string>& notes) {
  const BootMove move = bootMoveOf(targetDrive, plan);
  SectorChanges changes(targetDrive.disk());
  BootFixReport report;
  if (const Failure failed = planBootFix(targetDrive.disk(), move, changes, report))
    return notUpdated(failed);
  if (const Failure failed = changes.apply()) return notUpdated(failed);
  noteLoader(report, notes);
  fixFiles(kinds, targetDrive.disk(), move, plan.order.codePage, notes);
  return {};
}

}  // namespace tallowin
