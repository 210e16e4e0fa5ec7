#include "move/move_journal.h"

#include <cstring>

#include "base/crc32.h"

namespace tallowin {
namespace {

// How much a cut costs at most, where nothing else asks for a position.
constexpr u64 kPositionEveryBytes = 64 * kMiB;

std::span<const u8> bytesOf(const MoveStateRecord& state) {
  return {reinterpret_cast<const u8*>(&state), sizeof(state)};
}

}  // namespace

std::vector<u8> MoveJournal::initialState() {
  const MoveStateRecord state;
  const std::span<const u8> bytes = bytesOf(state);
  return {bytes.begin(), bytes.end()};
}

Failure MoveJournal::read() {
  if (file_.state().size() != sizeof(state_)) return Error::corrupt;
  std::memcpy(&state_, file_.state().data(), sizeof(state_));
  return state_.stage <= static_cast<u8>(MoveStage::moved) && state_.ringSlot < 2
             ? Failure()
             : Failure(Error::corrupt);
}

Failure MoveJournal::ring(u32 sectorSize, u64& start, std::vector<u8>& bytes) {
  bytes.clear();
  const u64 size = u64{state_.ringSectors} * sectorSize;
  if (size > kPieceBytes) return Error::corrupt;
  if (size == 0) return {};
  start = state_.ringStart;
  bytes.resize(size);
  const Failure failed = file_.readBody(state_.ringSlot * kPieceBytes, bytes);
  if (failed && failed != Error::seekFailed) return failed;
  if (failed || crc32(bytes) != state_.ringChecksum) bytes.clear();
  return {};
}

Failure MoveJournal::store() { return file_.setState(bytesOf(state_)).as(Error::journalFailed); }

Failure MoveJournal::beforeWrite(u64 from, u64 to, u64 start, std::span<const u8> bytes,
                                 u64 distance, DiskDevice& disk) {
  const bool isUndo = stage() == MoveStage::undoing;
  const u64 every = kPositionEveryBytes / disk.sectorSize();
  // What the piece overwrites, in the positions of the data that has to be safe elsewhere: up to
  // `to - distance` at the target, or from `from + distance` on at the source.
  const bool isSafe =
      isUndo ? from + distance >= state_.boundary : to <= state_.boundary + distance;
  const u64 gone = isUndo ? state_.boundary - from : to - state_.boundary;
  if (distance == 0 ? gone <= every : isSafe && state_.ringSectors == 0 && gone <= every) return {};
  if (const Failure failed = disk.flush()) return failed;
  state_.boundary = isUndo ? to : from;
  state_.ringSectors = 0;
  if (distance != 0 && to - from > distance) {
    state_.ringSlot ^= 1;
    state_.ringSectors = static_cast<u32>(to - from);
    state_.ringStart = start;
    state_.ringChecksum = crc32(bytes);
    if (const Failure failed = file_.writeBody(state_.ringSlot * kPieceBytes, bytes))
      return failed.as(Error::journalFailed);
  }
  return store();
}

Failure MoveJournal::beginUndo(u64 top) {
  state_.stage = static_cast<u8>(MoveStage::undoing);
  state_.top = top;
  state_.boundary = top;
  state_.ringSectors = 0;
  return store();
}

Failure MoveJournal::moved() {
  state_.stage = static_cast<u8>(MoveStage::moved);
  state_.ringSectors = 0;
  return store();
}

Failure MoveJournal::restart() {
  state_ = {};
  return store();
}

}  // namespace tallowin
