#include "fat/fat_moves.h"

#include <algorithm>
#include <new>

#include "disk/transfer_buffer.h"

namespace tallowin {
namespace {

constexpr std::size_t kBufferBytes = 4 * kMiB;

}  // namespace

FatMoves::FatMoves(const FatResizePlan& plan, const FatLinks& links)
    : plan_(plan),
      links_(links),
      isTaken_(std::size_t{links.highestCluster()} + 1),
      searchFrom_(plan.firstOld) {
  for (u32 cluster = 2; cluster <= links.highestCluster(); ++cluster)
    isTaken_[cluster] = !links.isFree(cluster);
}

void FatMoves::dropChain(u32 first) {
  droppedHead_ = first;
  for (u32 cluster = first; cluster != 0 && isTaken_[cluster]; cluster = links_.next(cluster))
    isTaken_[cluster] = false;
}

Failure FatMoves::reserveGroups(u32 count, std::vector<u32>& firstClusters) {
  for (; count != 0; --count) {
    const u32 start = findFreeGroup();
    if (start == 0) return Error::sizeNotPossible;
    for (u32 i = 0; i < plan_.groupClusters; ++i) isTaken_[start + i] = true;
    firstClusters.push_back(start);
  }
  return {};
}

Failure FatMoves::settle() {
  try {
    for (const u32 head : links_.heads()) {
      if (head == droppedHead_) continue;
      if (const Failure failed = settleChain(head)) return failed;
    }
    if (const Failure failed = settleDeferred()) return failed;
    sortMoves();
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
  return {};
}

void FatMoves::groupFrom(u32 cluster, Group& group, u32& next) const {
  group.clear();
  for (next = cluster; next != 0 && group.size() < plan_.groupClusters; next = links_.next(next))
    group.push_back(next);
}

bool FatMoves::hasBad(u32 start) const {
  for (u32 i = 0; i < plan_.groupClusters; ++i)
    if (links_.isBad(start + i)) return true;
  return false;
}

bool FatMoves::mayStay(const Group& group) const {
  const u32 start = group.front();
  if (!isInside(start) || groupStart(start) != start || hasBad(start)) return false;
  for (std::size_t i = 0; i < group.size(); ++i)
    if (group[i] != start + i) return false;
  return true;
}

bool FatMoves::isGroupFree(u32 start, const Group* own) const {
  for (u32 i = 0; i < plan_.groupClusters; ++i) {
    if (!isTaken_[start + i]) continue;
    if (!own || std::find(own->begin(), own->end(), start + i) == own->end()) return false;
  }
  return true;
}

// Next fit, from the group that was given out last on and once around; 0: there is none.
u32 FatMoves::findFreeGroup() {
  const u32 groups = plan_.groups();
  if (groups == 0 || isFull_) return 0;
  const u32 size = plan_.groupClusters;
  u32 index = (searchFrom_ - plan_.firstOld) / size;
  for (u32 tried = 0; tried < groups; ++tried, index = (index + 1) % groups) {
    const u32 start = plan_.firstOld + index * size;
    if (!isGroupFree(start, nullptr)) continue;
    searchFrom_ = start;
    return start;
  }
  isFull_ = true;
  return 0;
}

// A place that nothing but the group itself is in the way of; 0: there is none.
u32 FatMoves::findOwnPlace(const Group& group) const {
  for (const u32 cluster : group) {
    if (!isInside(cluster)) continue;
    const u32 start = groupStart(cluster);
    if (!hasBad(start) && isGroupFree(start, &group)) return start;
  }
  return 0;
}

bool FatMoves::place(const Group& group) {
  u32 start = findFreeGroup();
  if (start == 0 && plan_.groupClusters != 1) start = findOwnPlace(group);
  if (start == 0) return false;
  moveTo(group, start);
  return true;
}

void FatMoves::moveTo(const Group& group, u32 start) {
  for (const u32 cluster : group) isTaken_[cluster] = false;
  for (std::size_t i = 0; i < group.size(); ++i) isTaken_[start + i] = true;
  for (const u32 cluster : group)
    if (isFull_ && isInside(cluster) && isGroupFree(groupStart(cluster), nullptr)) {
      isFull_ = false;
      searchFrom_ = groupStart(cluster);
    }
  std::vector<Move> pieces;
  for (std::size_t i = 0; i < group.size(); ++i) {
    const u32 to = start + static_cast<u32>(i);
    if (!pieces.empty() && pieces.back().from + pieces.back().count == group[i] &&
        pieces.back().to + pieces.back().count == to)
      ++pieces.back().count;
    else if (group[i] != to)
      pieces.push_back({group[i], to, 1, true, false});
  }
  if (pieces.empty()) return;
  pieces.back().joinsNext = false;
  pieces.back().isWholeGroups = pieces.size() == 1;
  for (const Move& piece : pieces) addMove(piece);
}

// Groups that keep their order are one move, as long as it fits into the buffer.
void FatMoves::addMove(const Move& move) {
  const u64 most = kBufferBytes / plan_.oldLayout.clusterBytes();
  if (move.isWholeGroups && !moves_.empty() && moves_.back().isWholeGroups) {
    Move& last = moves_.back();
    if (last.from + last.count == move.from && last.to + last.count == move.to &&
        u64{last.count} + move.count <= most) {
      last.count += move.count;
      return;
    }
  }
  moves_.push_back(move);
}

Failure FatMoves::settleChain(u32 head) {
  Group group;
  for (u32 at = head; at != 0;) {
    u32 next = 0;
    groupFrom(at, group, next);
    settled_ += group.size();
    if (settled_ > links_.highestCluster()) return Error::invalidVolume;
    if (!mayStay(group) && !place(group)) deferred_.push_back(at);
    at = next;
  }
  return {};
}

// What was moved since may have left room.
Failure FatMoves::settleDeferred() {
  while (!deferred_.empty()) {
    std::vector<u32> waiting;
    waiting.swap(deferred_);
    Group group;
    for (const u32 at : waiting) {
      u32 next = 0;
      groupFrom(at, group, next);
      if (!place(group)) deferred_.push_back(at);
    }
    if (deferred_.size() == waiting.size()) return Error::sizeNotPossible;
  }
  return {};
}

void FatMoves::sortMoves() {
  byFrom_ = moves_;
  byTo_ = moves_;
  std::sort(byFrom_.begin(), byFrom_.end(),
            [](const Move& a, const Move& b) { return a.from < b.from; });
  std::sort(byTo_.begin(), byTo_.end(), [](const Move& a, const Move& b) { return a.to < b.to; });
}

u64 FatMoves::clustersToMove() const {
  u64 clusters = 0;
  for (const Move& move : moves_) clusters += move.count;
  return clusters;
}

u32 FatMoves::placeOf(u32 cluster) const {
  auto move = std::upper_bound(byFrom_.begin(), byFrom_.end(), cluster,
                               [](u32 value, const Move& one) { return value < one.from; });
  if (move == byFrom_.begin()) return cluster;
  --move;
  return cluster < move->from + move->count ? move->to + (cluster - move->from) : cluster;
}

u32 FatMoves::clusterAt(u32 place) const {
  auto move = std::upper_bound(byTo_.begin(), byTo_.end(), place,
                               [](u32 value, const Move& one) { return value < one.to; });
  if (move != byTo_.begin()) {
    --move;
    if (place < move->to + move->count) return move->from + (place - move->to);
  }
  return isTaken_[place] && links_.isInUse(place) && placeOf(place) == place ? place : 0;
}

// --- Carrying them out

namespace {

// Copies clusters in batches: all of a batch is read, in the order of the disk, before any of it is
// written.
class ClusterCopy {
 public:
  ClusterCopy(const SectorRange& range, const FatLayout& layout, Job& job)
      : range_(range), layout_(layout), job_(job), buffer_(kBufferBytes) {}

  Failure run(const std::vector<FatMoves::Move>& moves) {
    if (!buffer_) return Error::outOfMemory;
    for (std::size_t first = 0; first < moves.size();) {
      std::size_t end = first;
      while (end < moves.size()) {
        const std::size_t whole = groupEnd(moves, end);
        if (end != first && clusters(moves, first, whole) > mostClusters()) break;
        end = whole;
      }
      if (job_.shouldStop()) return Error::cancelled;
      if (const Failure failed = copy(
              {moves.begin() + static_cast<i64>(first), moves.begin() + static_cast<i64>(end)}))
        return failed;
      first = end;
    }
    return {};
  }

 private:
  u64 mostClusters() const { return kBufferBytes / layout_.clusterBytes(); }
  static std::size_t groupEnd(const std::vector<FatMoves::Move>& moves, std::size_t at) {
    while (at + 1 < moves.size() && moves[at].joinsNext) ++at;
    return at + 1;
  }
  static u64 clusters(const std::vector<FatMoves::Move>& moves, std::size_t first,
                      std::size_t end) {
    u64 sum = 0;
    for (; first < end; ++first) sum += moves[first].count;
    return sum;
  }

  struct Piece {
    u32 from;
    u32 to;
    u32 count;
    std::size_t offset;  // in the buffer
  };

  Failure copy(std::vector<FatMoves::Move> batch) {
    std::sort(batch.begin(), batch.end(),
              [](const FatMoves::Move& a, const FatMoves::Move& b) { return a.to < b.to; });
    std::vector<Piece> pieces;
    std::size_t offset = 0;
    for (const FatMoves::Move& move : batch) {
      pieces.push_back({move.from, move.to, move.count, offset});
      offset += std::size_t{move.count} * layout_.clusterBytes();
    }
    std::sort(pieces.begin(), pieces.end(),
              [](const Piece& a, const Piece& b) { return a.from < b.from; });
    for (const Piece& piece : pieces)
      if (const Failure failed = read(piece)) return failed;
    std::sort(pieces.begin(), pieces.end(),
              [](const Piece& a, const Piece& b) { return a.to < b.to; });
    return write(pieces);
  }

  u64 lbaOf(u32 cluster) const { return range_.firstSector + layout_.clusterToSector(cluster); }

  Failure read(const Piece& piece) {
    const u64 sectors = u64{piece.count} * layout_.sectorsPerCluster;
    u8* const bytes = buffer_.data() + piece.offset;
    const Failure failed = range_.disk.readSectors(lbaOf(piece.from), bytes, sectors);
    if (failed)
      if (const Failure stopped = readOneByOne(lbaOf(piece.from), bytes, sectors, failed))
        return stopped;
    job_.advance(sectors * layout_.bytesPerSector);
    return {};
  }

  // What cannot be read becomes zeros, when that is wanted.
  Failure readOneByOne(u64 lba, u8* bytes, u64 sectors, const Failure& failed) {
    if (!passesOver_ && job_.badSector(failed, Direction::read) == BadSectorAnswer::stop)
      return failed;
    passesOver_ = true;
    const u32 size = layout_.bytesPerSector;
    for (u64 i = 0; i < sectors; ++i)
      if (range_.disk.readSectors(lba + i, bytes + i * size, 1))
        std::fill_n(bytes + i * size, size, u8{0});
    return {};
  }

  // Pieces that lie one behind the other go in one request.
  Failure write(const std::vector<Piece>& pieces) {
    for (std::size_t first = 0; first < pieces.size();) {
      u64 count = pieces[first].count;
      std::size_t end = first + 1;
      while (end < pieces.size() && pieces[end].to == pieces[first].to + count)
        count += pieces[end++].count;
      const u64 sectors = count * layout_.sectorsPerCluster;
      if (const Failure failed = range_.disk.writeSectors(
              lbaOf(pieces[first].to), buffer_.data() + pieces[first].offset, sectors))
        return failed;
      job_.advance(sectors * layout_.bytesPerSector);
      first = end;
    }
    return {};
  }

  const SectorRange& range_;
  const FatLayout& layout_;
  Job& job_;
  TransferBuffer buffer_;
  bool passesOver_ = false;
};

}  // namespace

Failure FatMoves::carryOut(const SectorRange& range, Job& job) const {
  return ClusterCopy(range, plan_.oldLayout, job).run(moves_);
}

}  // namespace tallowin
