#include "ops/slide_operation.h"

#include <cstring>

#include "move/undo_log.h"

namespace tallowin {
namespace {

// In the attachment of a journal: these, for each run of sectors that is moved, and before them the
// EBR of a volume.
struct ExtentRecord {
  Le64 startSector;
  Le32 sectors;
};
static_assert(sizeof(ExtentRecord) == 12);

constexpr u64 kNoEbr = kAllOnes64;

bool holds(u64 start, u64 count, u64 sector) { return sector >= start && sector - start < count; }

Failure shifted(const ExtentList& list, u64 from, u64 to, ExtentList& moved) {
  for (std::size_t i = 0; i < list.size(); ++i) {
    const ExtentList::Extent extent = list.at(i);
    if (const Failure failed =
            moved.add(extent.startSector - from + to, extent.sectors, extent.kind))
      return failed;
  }
  return {};
}

bool isOldTable(const Failure& failed) {
  return failed && failed != Error::writeFailedNewTable && failed != Error::writeFailedTableUnknown;
}

}  // namespace

// --- What a journal holds

WorkRecord recordOf(const SlidePlan& plan) {
  WorkRecord record;
  record.set("start", plan.entry.oldStart);
  record.set("newStart", plan.entry.newStart);
  record.set("count", plan.entry.sectorCount);
  record.set("tableType", plan.entry.type);
  record.set("type", plan.type);
  record.set("gap", plan.volumeGap);
  record.set("flags", plan.flags);
  record.set("codePage", plan.codePage);
  record.set("typeFound", plan.used.typeFound);
  if (!plan.entry.volume) return record;
  const EntryMove::Volume& volume = *plan.entry.volume;
  record.set("container", volume.containerStart);
  record.set("oldEbr", volume.oldEbr);
  record.set("newEbr", volume.newEbr);
  record.set("previousEbr", volume.previousEbr.value_or(kNoEbr));
  record.set("slot", volume.slot);
  record.set("ebrBytes", volume.ebr.size());
  return record;
}

std::vector<u8> attachmentOf(const SlidePlan& plan) {
  std::vector<u8> bytes;
  if (plan.entry.volume) bytes = plan.entry.volume->ebr;
  for (std::size_t i = 0; i < plan.used.list.size(); ++i) {
    const ExtentList::Extent extent = plan.used.list.at(i);
    if (extent.kind != ExtentClass::data) continue;
    const ExtentRecord record{extent.startSector, extent.sectors};
    const std::span<const u8> raw = bytesOf(record);
    bytes.insert(bytes.end(), raw.begin(), raw.end());
  }
  return bytes;
}

Failure slidePlanOf(const WorkRecord& record, std::span<const u8> attachment, SlidePlan& plan) {
  plan = {};
  plan.entry.oldStart = record.number("start");
  plan.entry.newStart = record.number("newStart");
  plan.entry.sectorCount = record.number("count");
  plan.entry.type = static_cast<u8>(record.number("tableType"));
  plan.type = static_cast<u16>(record.number("type"));
  plan.volumeGap = record.number("gap");
  plan.flags = static_cast<u32>(record.number("flags"));
  plan.codePage = static_cast<u32>(record.number("codePage"));
  plan.used.typeFound = static_cast<u32>(record.number("typeFound"));
  if (plan.entry.sectorCount == 0 || plan.entry.oldStart <= plan.volumeGap ||
      plan.entry.newStart <= plan.volumeGap)
    return Error::corrupt;
  const u64 ebrBytes = record.number("ebrBytes");
  if (ebrBytes > attachment.size()) return Error::corrupt;
  if (ebrBytes != 0) {
    EntryMove::Volume& volume = plan.entry.volume.emplace();
    volume.containerStart = record.number("container");
    volume.oldEbr = record.number("oldEbr");
    volume.newEbr = record.number("newEbr");
    const u64 previous = record.number("previousEbr");
    if (previous != kNoEbr) volume.previousEbr = previous;
    volume.slot = static_cast<u8>(record.number("slot"));
    volume.ebr.assign(attachment.begin(),
                      attachment.begin() + static_cast<std::ptrdiff_t>(ebrBytes));
    if (volume.slot > 3) return Error::corrupt;
  }
  for (u64 at = ebrBytes; at + sizeof(ExtentRecord) <= attachment.size();
       at += sizeof(ExtentRecord)) {
    const auto& extent = *recordAt<ExtentRecord>(attachment, at);
    if (!holds(plan.runStart(), plan.runSectors(), extent.startSector)) return Error::corrupt;
    if (const Failure failed = plan.used.list.add(extent.startSector, extent.sectors))
      return failed.as(Error::corrupt);
  }
  return {};
}

// --- SlideRun

SectorRange SlideRun::source() const {
  return {drive_.disk(), plan_.runStart(), plan_.runSectors()};
}

// The EBR of a volume is no part of what is moved, and the data may have run over it.
Failure SlideRun::putEbrBack() {
  if (!plan_.entry.volume) return {};
  const EntryMove::Volume& volume = *plan_.entry.volume;
  if (!holds(plan_.runTarget(), plan_.runSectors(), volume.oldEbr)) return {};
  if (const Failure failed = drive_.disk().writeSectors(volume.oldEbr, volume.ebr.data(), 1))
    return failed;
  return drive_.disk().flush();
}

Failure SlideRun::moveData(Job& job) {
  SectorMover mover(source(), drive_.disk(), plan_.runTarget(), job, &plan_.used.list);
  if (const Failure failed = mover.whyUnusable()) return failed;
  std::optional<MoveJournal> journal;
  if (journal_ != nullptr) {
    journal.emplace(*journal_);
    if (const Failure failed = journal->read()) return failed;
    mover.keepJournal(*journal);
  }
  job.phase(Phase::sliding, 2 * mover.sectorsToMove() * drive_.sectorSize());
  Failure failed = mover.run();
  report_ = mover.report();
  if (!failed) return {};
  isStuck_ = report_.touchedSource && !report_.rolledBack;
  if (!isStuck_ && report_.touchedTarget && putEbrBack()) isStuck_ = true;
  return failed;
}

Failure SlideRun::finish() {
  if (journal_ == nullptr) return finishSlide(kinds_, drive_, plan_, notes_);
  // Of one that was begun before the cut nothing is left.
  if (const Failure failed = playUndoLog(*journal_, MoveJournal::kEndOfRing, drive_.disk()))
    return failed;
  UndoLogDisk logged(drive_.disk(), *journal_, MoveJournal::kEndOfRing);
  std::unique_ptr<Drive> onLog;
  const std::shared_ptr<DiskDevice> shared(&logged, [](DiskDevice*) {});
  if (const Failure failed = drive_.openOn(shared, onLog)) return failed;
  if (const Failure failed = finishSlide(kinds_, *onLog, plan_, notes_)) return failed;
  return logged.flush();
}

Failure SlideRun::run(Job& job) {
  if (const Failure failed = moveData(job)) return failed;
  const Failure failed = finish();
  if (!failed || (journal_ == nullptr && !isOldTable(failed))) return failed;
  // The table could not follow the data, so the data goes back.
  const MoveReport moved = report_;
  isStuck_ = static_cast<bool>(undo(job));
  report_.readErrors += moved.readErrors;
  report_.writeErrors += moved.writeErrors;
  // Whatever table was there, it is the old one now.
  return isStuck_ || isOldTable(failed) ? failed : failed.as(Error::tableNotUpdated);
}

Failure SlideRun::undo(Job& job) {
  const Failure failed = putBack(job);
  isStuck_ = static_cast<bool>(failed);
  return failed ? failed : putEbrBack();
}

Failure SlideRun::putBack(Job& job) {
  if (journal_ != nullptr) {
    MoveJournal journal(*journal_);
    if (const Failure failed = journal.read()) return failed;
    if (journal.stage() == MoveStage::moved) {
      if (const Failure failed = playUndoLog(*journal_, MoveJournal::kEndOfRing, drive_.disk()))
        return failed;
    }
    SectorMover mover(source(), drive_.disk(), plan_.runTarget(), job, &plan_.used.list);
    if (const Failure failed = mover.whyUnusable()) return failed;
    mover.keepJournal(journal);
    const Failure failed = mover.undo();
    report_ = mover.report();
    return failed;
  }
  ExtentList back;
  if (const Failure failed =
          shifted(plan_.used.list, plan_.entry.oldStart, plan_.entry.newStart, back))
    return failed;
  const SectorRange moved{drive_.disk(), plan_.runTarget(), plan_.runSectors()};
  SectorMover mover(moved, drive_.disk(), plan_.runStart(), job, &back);
  if (const Failure failed = mover.whyUnusable()) return failed;
  job.phase(Phase::undoing, 2 * mover.sectorsToMove() * drive_.sectorSize());
  const Failure failed = mover.run();
  report_ = mover.report();
  report_.touchedSource = true;
  report_.rolledBack = !failed;
  return failed;
}

}  // namespace tallowin
