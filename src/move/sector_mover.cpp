#include "move/sector_mover.h"

#include <algorithm>
#include <array>

#include "disk/transfer_buffer.h"

namespace tallowin {
namespace {

// Errors are told, and passed over, in these units.
constexpr u64 kChunkBytes = 64 * 1024;
constexpr std::size_t kPieceBytes = MoveJournal::kPieceBytes;
constexpr u64 kLeastJournalPiece = 512 * 1024;
// Free sectors between used ones are copied with them where that costs less than leaving them out.
constexpr u64 kBridgedBytes = 256 * 1024;

u64 overlapOf(const SectorRange& source, const DiskDevice& target, u64 targetStart) {
  if (&source.disk != &target || source.firstSector == targetStart) return 0;
  const u64 distance = source.firstSector > targetStart ? source.firstSector - targetStart
                                                        : targetStart - source.firstSector;
  return distance < source.sectorCount ? distance : 0;
}

}  // namespace

// Offsets count sectors from the start of the range; positions count them in the order of the move.
class SectorMover::Engine {
 public:
  Engine(const SectorRange& source, DiskDevice& target, u64 targetStart, Job& job,
         const ExtentList* extents)
      : source_(source),
        target_(target),
        targetStart_(targetStart),
        job_(job),
        extents_(extents),
        distance_(overlapOf(source, target, targetStart)),
        isBackward_(distance_ != 0 && targetStart > source.firstSector),
        buffers_{TransferBuffer(kPieceBytes), TransferBuffer(kPieceBytes)} {}

  Failure whyUnusable() const {
    if (source_.disk.sectorSize() != target_.sectorSize()) return Error::sectorSizeDiffers;
    return buffers_[0] && buffers_[1] ? Failure() : Failure(Error::outOfMemory);
  }

  u64 sectorsToMove() const {
    return extents_ ? extents_->dataSectors(source_.firstSector, source_.sectorCount)
                    : source_.sectorCount;
  }

  void keepJournal(MoveJournal& journal) { journal_ = &journal; }
  Failure run();
  Failure undo();
  const MoveReport& report() const { return report_; }

 private:
  struct Run {
    u64 first = 0;  // offset
    u64 end = 0;
    u64 count() const { return end - first; }
  };
  // One direction of the copying.
  struct Leg {
    DiskDevice& from;
    u64 fromStart;
    DiskDevice& to;
    u64 toStart;
    bool isDescending;
    bool isUndo;
  };

  Leg forward() {
    return {source_.disk, source_.firstSector, target_, targetStart_, isBackward_, false};
  }
  Leg reverse() {
    return {target_, targetStart_, source_.disk, source_.firstSector, !isBackward_, true};
  }
  u64 positionOfStart(const Run& run) const {
    return isBackward_ ? source_.sectorCount - run.end : run.first;
  }
  u64 positionOfEnd(const Run& run) const {
    return isBackward_ ? source_.sectorCount - run.first : run.end;
  }
  // The part of a run with positions in [low, high).
  Run clipped(const Run& run, u64 low, u64 high) const;

  template <typename Use>
  Failure forEachRun(u64 low, u64 high, bool isDescending, Use use) const;
  std::vector<Run> bridgedRuns(u64 low, u64 high) const;
  u64 dataIn(const Run& run) const;

  Failure replayRing(u64& replayed);
  Failure moveFrom(u64 position);
  Failure stop(const Failure& why);
  Failure putBack(u64 high);
  Failure transfer(const Leg& leg, const Run& run);
  Failure finishRead(const Leg& leg, const Run& piece, DiskTransfer& transfer);
  Failure write(const Leg& leg, const Run& piece, u8* bytes, DiskTransfer* ahead);
  Failure readChunks(const Leg& leg, const Run& piece, u8* bytes);
  Failure writeChunks(const Leg& leg, const Run& piece, const u8* bytes);
  Failure passOver(const Leg& leg, const Failure& failed, Direction direction);
  void restorePiece(const Run& piece, const u8* bytes);
  u64 chunkSectors() const { return kChunkBytes / source_.disk.sectorSize(); }
  u64 pieceSectors() const {
    const u64 most = kPieceBytes / source_.disk.sectorSize();
    const u64 least = kLeastJournalPiece / source_.disk.sectorSize();
    // A piece that overwrites nothing of itself needs no copy in the journal.
    return journal_ && distance_ >= least ? std::min(most, distance_ / least * least) : most;
  }
  u64 bytesOf(u64 sectors) const { return sectors * source_.disk.sectorSize(); }
  Failure flushAll();

  SectorRange source_;
  DiskDevice& target_;
  u64 targetStart_;
  Job& job_;
  const ExtentList* extents_;
  u64 distance_;
  bool isBackward_;
  std::array<TransferBuffer, 2> buffers_;
  MoveJournal* journal_ = nullptr;
  MoveReport report_;
  bool passesOverAll_ = false;
  bool isPieceLost_ = false;  // it could not be put back to the source
  u64 written_ = 0;           // position: what was moved lies in front of it
  u64 touched_ = 0;           // position: what may have been written at the target
};

SectorMover::Engine::Run SectorMover::Engine::clipped(const Run& run, u64 low, u64 high) const {
  const u64 all = source_.sectorCount;
  const u64 first = isBackward_ ? all - std::min(all, high) : low;
  const u64 end = isBackward_ ? all - std::min(all, low) : std::min(all, high);
  const u64 from = std::clamp(first, run.first, run.end);
  return {from, std::clamp(end, from, run.end)};
}

// What is to be moved, with positions in [low, high); ascending or descending on the disk.
template <typename Use>
Failure SectorMover::Engine::forEachRun(u64 low, u64 high, bool isDescending, Use use) const {
  const Run all{0, source_.sectorCount};
  if (!extents_) {
    const Run run = clipped(all, low, high);
    return run.count() == 0 ? Failure() : use(run);
  }
  const std::size_t count = extents_->size();
  for (std::size_t i = 0; i < count; ++i) {
    const ExtentList::Extent extent = extents_->at(isDescending ? count - 1 - i : i);
    if (extent.kind != ExtentClass::data || extent.endSector() <= source_.firstSector ||
        extent.startSector >= source_.endSector())
      continue;
    const u64 first = std::max(extent.startSector, source_.firstSector) - source_.firstSector;
    const u64 end = std::min(extent.endSector(), source_.endSector()) - source_.firstSector;
    const Run run = clipped({first, end}, low, high);
    if (run.count() == 0) continue;
    if (const Failure failed = use(run)) return failed;
  }
  return {};
}

u64 SectorMover::Engine::dataIn(const Run& run) const {
  return extents_ ? extents_->dataSectors(source_.firstSector + run.first, run.count())
                  : run.count();
}

Failure SectorMover::Engine::flushAll() {
  const Failure failed = target_.flush();
  if (&source_.disk == &target_ || !report_.touchedSource) return failed;
  const Failure other = source_.disk.flush();
  return failed ? failed : other;
}

// --- The move

Failure SectorMover::Engine::run() {
  if (source_.sectorCount == 0 ||
      (&source_.disk == &target_ && source_.firstSector == targetStart_))
    return {};
  u64 position = 0;
  if (journal_) {
    if (journal_->stage() == MoveStage::moved) return {};
    if (journal_->stage() == MoveStage::undoing) {
      if (const Failure failed = undo()) return failed;
      if (const Failure failed = journal_->restart()) return failed;
    }
    u64 replayed = 0;
    if (const Failure failed = replayRing(replayed)) return failed;
    position = journal_->boundary() + replayed;
  }
  if (const Failure failed = moveFrom(position)) return stop(failed);
  if (const Failure failed = flushAll()) return failed;
  return journal_ ? journal_->moved() : Failure();
}

// A piece that was on its way is safe in the journal alone, perhaps.
Failure SectorMover::Engine::replayRing(u64& replayed) {
  u64 start = 0;
  std::vector<u8> bytes;
  if (const Failure failed = journal_->ring(target_.sectorSize(), start, bytes)) return failed;
  if (bytes.empty()) return {};
  const Leg leg = journal_->stage() == MoveStage::undoing ? reverse() : forward();
  const u64 sectors = replayed = bytes.size() / target_.sectorSize();
  if (start > source_.sectorCount || sectors > source_.sectorCount - start) return Error::corrupt;
  if (const Failure failed = leg.to.writeSectors(leg.toStart + start, bytes.data(), sectors))
    return failed;
  return leg.to.flush();
}

Failure SectorMover::Engine::moveFrom(u64 position) {
  written_ = touched_ = position;
  report_.touchedTarget = position != 0;
  report_.touchedSource = distance_ != 0 && position > distance_;
  const Leg leg = forward();
  job_.advance(2 * bytesOf(sectorsToMove() - [&] {
                 u64 left = 0;
                 static_cast<void>(
                     forEachRun(position, source_.sectorCount, false, [&](const Run& run) {
                       left += run.count();
                       return Failure();
                     }));
                 return left;
               }()));
  if (distance_ != 0)
    return forEachRun(position, source_.sectorCount, leg.isDescending,
                      [&](const Run& run) { return transfer(leg, run); });
  for (const Run& run : bridgedRuns(position, source_.sectorCount))
    if (const Failure failed = transfer(leg, run)) return failed;
  return {};
}

// Runs that lie close to one another are copied with what is between them: it lands in free
// sectors.
std::vector<SectorMover::Engine::Run> SectorMover::Engine::bridgedRuns(u64 low, u64 high) const {
  std::vector<Run> runs;
  const u64 gap = kBridgedBytes / source_.disk.sectorSize();
  static_cast<void>(forEachRun(low, high, false, [&](const Run& run) {
    if (!runs.empty() && run.first - runs.back().end < gap)
      runs.back().end = run.end;
    else
      runs.push_back(run);
    return Failure();
  }));
  return runs;
}

// The next piece is read while one is written. A piece that is read ahead is never one that the
// piece in front of it overwrites: that would have to lie behind it.
Failure SectorMover::Engine::transfer(const Leg& leg, const Run& run) {
  const u64 most = pieceSectors();
  const u64 count = (run.count() + most - 1) / most;
  const auto piece = [&](u64 index) -> Run {
    if (!leg.isDescending)
      return {run.first + index * most, std::min(run.end, run.first + (index + 1) * most)};
    const u64 end = run.end - index * most;
    return {end - run.first > most ? end - most : run.first, end};
  };
  std::array<DiskTransfer, 2> reads;
  const auto beginRead = [&](u64 index) {
    const Run next = piece(index);
    DiskTransfer& read = reads[index % 2];
    read = {.direction = DiskTransfer::Direction::read,
            .lba = leg.fromStart + next.first,
            .buffer = buffers_[index % 2].data(),
            .count = static_cast<u32>(next.count())};
    leg.from.begin(read);
  };
  beginRead(0);
  for (u64 index = 0; index < count; ++index) {
    const Run now = piece(index);
    if (const Failure failed = finishRead(leg, now, reads[index % 2])) return failed;
    if (!leg.isUndo && job_.shouldStop()) return Error::cancelled;
    DiskTransfer* const ahead = index + 1 < count ? &reads[(index + 1) % 2] : nullptr;
    if (ahead) beginRead(index + 1);
    if (const Failure failed = write(leg, now, buffers_[index % 2].data(), ahead)) return failed;
  }
  return {};
}

Failure SectorMover::Engine::finishRead(const Leg& leg, const Run& piece, DiskTransfer& read) {
  if (leg.from.finish(read))
    if (const Failure failed = readChunks(leg, piece, static_cast<u8*>(read.buffer))) return failed;
  job_.advance(bytesOf(dataIn(piece)));
  return {};
}

// `ahead` is under way, and is finished here when the move ends.
Failure SectorMover::Engine::write(const Leg& leg, const Run& piece, u8* bytes,
                                   DiskTransfer* ahead) {
  const u64 size = bytesOf(piece.count());
  Failure failed;
  if (journal_)
    failed = journal_->beforeWrite(positionOfStart(piece), positionOfEnd(piece), piece.first,
                                   {bytes, size}, distance_, leg.to);
  if (!failed) {
    if (!leg.isUndo) {
      touched_ = positionOfEnd(piece);
      report_.touchedTarget = true;
      report_.touchedSource |= distance_ != 0 && touched_ > distance_;
    }
    DiskTransfer out{.direction = DiskTransfer::Direction::write,
                     .lba = leg.toStart + piece.first,
                     .buffer = bytes,
                     .count = static_cast<u32>(piece.count())};
    leg.to.begin(out);
    if (leg.to.finish(out)) failed = writeChunks(leg, piece, bytes);
  }
  if (failed && !leg.isUndo && touched_ == positionOfEnd(piece)) restorePiece(piece, bytes);
  if (failed) {
    if (ahead) static_cast<void>(leg.from.finish(*ahead));
    return failed;
  }
  if (!leg.isUndo) {
    written_ = positionOfEnd(piece);
    report_.moved += dataIn(piece);
  }
  job_.advance(bytesOf(dataIn(piece)));
  return {};
}

// --- What cannot be read or written

Failure SectorMover::Engine::passOver(const Leg& leg, const Failure& failed, Direction direction) {
  if (leg.isUndo || passesOverAll_) return {};
  const Failure named(direction == Direction::read ? Error::read : failed.code, failed.systemError,
                      failed.lba);
  const BadSectorAnswer answer = job_.badSector(named, direction);
  if (answer == BadSectorAnswer::stop) return named;
  passesOverAll_ = answer == BadSectorAnswer::passOverAll;
  return {};
}

Failure SectorMover::Engine::readChunks(const Leg& leg, const Run& piece, u8* bytes) {
  const u32 size = source_.disk.sectorSize();
  for (u64 first = piece.first; first < piece.end; first += chunkSectors()) {
    const Run chunk{first, std::min(piece.end, first + chunkSectors())};
    u8* const at = bytes + bytesOf(first - piece.first);
    const Failure failed = leg.from.readSectors(leg.fromStart + first, at, chunk.count());
    if (!failed) continue;
    std::fill_n(at, bytesOf(chunk.count()), u8{0});
    // Nobody misses what lies between used sectors.
    if (dataIn(chunk) == 0) continue;
    if (const Failure stopped = passOver(leg, failed, Direction::read)) return stopped;
    for (u64 i = 0; i < chunk.count(); ++i) {
      if (!leg.from.readSectors(leg.fromStart + first + i, at + i * size, 1)) continue;
      std::fill_n(at + i * size, size, u8{0});
      ++report_.readErrors;
    }
  }
  return {};
}

// In the order of the move, so that what was written is known when it is stopped.
Failure SectorMover::Engine::writeChunks(const Leg& leg, const Run& piece, const u8* bytes) {
  const u64 count = (piece.count() + chunkSectors() - 1) / chunkSectors();
  for (u64 index = 0; index < count; ++index) {
    const u64 place = leg.isDescending ? count - 1 - index : index;
    const u64 first = piece.first + place * chunkSectors();
    const Run chunk{first, std::min(piece.end, first + chunkSectors())};
    const u8* const at = bytes + bytesOf(first - piece.first);
    const Failure failed = leg.to.writeSectors(leg.toStart + first, at, chunk.count());
    if (failed) {
      if (const Failure stopped = passOver(leg, failed, Direction::write)) return stopped;
      for (u64 i = 0; i < chunk.count(); ++i)
        if (leg.to.writeSectors(leg.toStart + first + i, at + bytesOf(i), 1)) ++report_.writeErrors;
    }
    if (!leg.isUndo) written_ = positionOfEnd(chunk);
  }
  return {};
}

// --- Putting it back

// The piece whose writing failed may have been written over its own source in part.
void SectorMover::Engine::restorePiece(const Run& piece, const u8* bytes) {
  if (distance_ == 0 || touched_ <= distance_) return;
  const Run left = clipped(piece, written_, touched_);
  const u8* const at = bytes + bytesOf(left.first - piece.first);
  const u64 lba = source_.firstSector + left.first;
  if (!source_.disk.writeSectors(lba, at, left.count())) return;
  for (u64 i = 0; i < left.count(); ++i) {
    if (!source_.disk.writeSectors(lba + i, at + bytesOf(i), 1)) continue;
    ++report_.writeErrors;
    isPieceLost_ = true;
  }
}

Failure SectorMover::Engine::stop(const Failure& why) {
  if (distance_ != 0 && touched_ > distance_) {
    const u64 high = std::min(written_, touched_ - distance_);
    Failure failed = target_.flush();
    // The journal may hold the piece, and is what it is put back from later.
    if (!failed && journal_ && isPieceLost_) return why;
    if (!failed && journal_) failed = journal_->beginUndo(high);
    if (failed) return failed;
    if (const Failure undone = putBack(high)) return undone;
  }
  const Failure unflushed = flushAll();
  return unflushed ? unflushed : why;
}

// Everything in front of that position.
Failure SectorMover::Engine::putBack(u64 high) {
  u64 sectors = 0;
  static_cast<void>(forEachRun(0, high, false, [&](const Run& run) {
    sectors += run.count();
    return Failure();
  }));
  job_.phase(Phase::undoing, 2 * bytesOf(sectors));
  report_.touchedSource = true;
  const Leg leg = reverse();
  const Failure failed =
      forEachRun(0, high, leg.isDescending, [&](const Run& run) { return transfer(leg, run); });
  report_.rolledBack = !failed;
  return failed;
}

Failure SectorMover::Engine::undo() {
  u64 replayed = 0;
  if (const Failure failed = replayRing(replayed)) return failed;
  u64 high = journal_->boundary() - std::min(replayed, journal_->boundary());
  if (journal_->stage() != MoveStage::undoing) {
    // A piece that was replayed is at the target now, and may be nowhere else.
    const bool isMoved = journal_->stage() == MoveStage::moved;
    high = isMoved ? source_.sectorCount : journal_->boundary() + replayed;
    if (distance_ == 0) high = 0;
    if (const Failure failed = journal_->beginUndo(high)) return failed;
  }
  if (high != 0)
    if (const Failure failed = putBack(high)) return failed;
  return flushAll();
}

// --- SectorMover

SectorMover::SectorMover(const SectorRange& source, DiskDevice& target, u64 targetStart, Job& job,
                         const ExtentList* extents)
    : engine_(std::make_unique<Engine>(source, target, targetStart, job, extents)) {}

SectorMover::~SectorMover() = default;

Failure SectorMover::whyUnusable() const { return engine_->whyUnusable(); }
u64 SectorMover::sectorsToMove() const { return engine_->sectorsToMove(); }
void SectorMover::keepJournal(MoveJournal& journal) { engine_->keepJournal(journal); }
Failure SectorMover::run() { return engine_->run(); }
Failure SectorMover::undo() { return engine_->undo(); }
const MoveReport& SectorMover::report() const { return engine_->report(); }

}  // namespace tallowin
