// `MoveJournal`: how far a move of sectors has come, so that a cut can be continued or undone.
#pragma once

#include <optional>
#include <span>

#include "base/bytes.h"
#include "disk/disk_device.h"
#include "move/journal_file.h"

namespace tallowin {

enum class MoveStage : u8 {
  moving = 0,
  undoing = 1,
  moved = 2,  // all of it, and it is on the medium
};

// The state of the journal. Positions count sectors in the order of the move: from the start of the
// range when that goes up the disk, else from its end.
struct MoveStateRecord {
  u8 stage = 0;
  u8 ringSlot = 0;
  Le16 reserved;
  Le32 ringSectors;   // 0: none
  Le32 ringChecksum;  // CRC-32 of its contents
  Le32 reserved2;
  Le64 boundary;   // moving: all in front of it is durable at the target; undoing: all from it to
                   // the top is durable at the source again
  Le64 top;        // undoing: where that began
  Le64 ringStart;  // the first sector of the range that the ring holds, counted from its start
};
static_assert(sizeof(MoveStateRecord) == 40);

// At every moment each sector of the range is durable at the source, or at the target, or in the
// journal: what a piece overwrites was made so before. Where source and target are at least a piece
// apart, a position now and then does it; where they are closer the piece itself goes into the
// journal first (a ring of two).
class MoveJournal {
 public:
  static constexpr u64 kPieceBytes = 4 * kMiB;  // at most, in one call of beforeWrite
  // What lies in the body behind the ring belongs to others.
  static constexpr u64 kEndOfRing = 2 * kPieceBytes;

  // `file` is borrowed; a new one begins with initialState().
  explicit MoveJournal(JournalFile& file) : file_(file) {}
  static std::vector<u8> initialState();

  // What the file says. corrupt.
  Failure read();
  MoveStage stage() const { return static_cast<MoveStage>(state_.stage); }
  u64 boundary() const { return state_.boundary; }
  u64 top() const { return state_.top; }

  // The piece that was on its way at the cut, when there was one: its first sector, counted from
  // the start of the range, and its contents.
  // Where the contents did not arrive in the journal its writing had not begun.
  Failure ring(u32 sectorSize, u64& start, std::vector<u8>& bytes);

  // A piece is about to be written. `from`, `to`: its positions; `start`: its first sector of the
  // range; `distance`: of source and target, 0 when they do not overlap. journalFailed, flush.
  Failure beforeWrite(u64 from, u64 to, u64 start, std::span<const u8> bytes, u64 distance,
                      DiskDevice& disk);
  // What is in front of `top` is put back from now on. What was moved was flushed.
  Failure beginUndo(u64 top);
  // The stage is over, and all is on the medium.
  Failure moved();
  // As if nothing had been moved.
  Failure restart();

 private:
  Failure store();

  JournalFile& file_;
  MoveStateRecord state_;
};

}  // namespace tallowin
