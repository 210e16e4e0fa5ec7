#include "fat/fat_surface_scan.h"

#include <algorithm>

namespace tallowin {
namespace {

constexpr u32 kPieceBytes = 4 * kMiB;
constexpr u32 kChunkBytes = 64 * kKiB;

}  // namespace

FatSurfaceScan::FatSurfaceScan(const SectorRange& range, FatTable& table, Job& job)
    : range_(range),
      table_(table),
      job_(job),
      disk_(range.disk),
      firstLba_(range.firstSector + table.layout().firstDataSector()),
      nextLba_(firstLba_),
      pieceSectors_(std::max(
          u32{1}, std::min(kPieceBytes, disk_.traits().maxTransferBytes) / disk_.sectorSize())),
      chunkSectors_(kChunkBytes / disk_.sectorSize()) {}

Failure FatSurfaceScan::prepare() {
  const u32 sectors = std::max(pieceSectors_, table_.layout().sectorsPerCluster);
  for (Piece& piece : pieces_)
    piece.buffer = TransferBuffer(std::size_t{sectors} * disk_.sectorSize());
  return pieces_[0].buffer && pieces_[1].buffer ? Error::none : Error::outOfMemory;
}

Failure FatSurfaceScan::run() {
  job_.phase(Phase::surfaceScan, (range_.endSector() - firstLba_) * disk_.sectorSize());
  Failure ended = job_.shouldStop() ? Error::cancelled : Error::none;
  bool underWay = !ended && begin(pieces_[0]);
  for (std::size_t now = 0; underWay; now = 1 - now) {
    const bool nextUnderWay = !ended && begin(pieces_[1 - now]);
    const Piece& piece = pieces_[now];
    const bool ok = !disk_.finish(pieces_[now].transfer);
    // A piece that was still under way when the scan was stopped does not count.
    if (!ended) ended = ok ? advance(piece.transfer.count) : narrow(piece);
    underWay = nextUnderWay;
  }
  return ended;
}

bool FatSurfaceScan::begin(Piece& piece) {
  if (nextLba_ >= range_.endSector()) return false;
  piece.transfer = {};
  piece.transfer.lba = nextLba_;
  piece.transfer.buffer = piece.buffer.data();
  piece.transfer.count =
      static_cast<u32>(std::min<u64>(pieceSectors_, range_.endSector() - nextLba_));
  nextLba_ += piece.transfer.count;
  disk_.begin(piece.transfer);
  return true;
}

Failure FatSurfaceScan::narrow(const Piece& piece) {
  const u64 end = piece.transfer.lba + piece.transfer.count;
  for (u64 lba = piece.transfer.lba; lba < end;) {
    const u64 count = std::min<u64>(chunkSectors_, end - lba);
    if (disk_.readSectors(lba, piece.buffer.data(), count))
      if (const Failure failed = testClusters(lba, count, piece.buffer.data())) return failed;
    lba += count;
    if (const Failure stopped = advance(count)) return stopped;
  }
  return {};
}

Failure FatSurfaceScan::testClusters(u64 firstLba, u64 count, u8* buffer) {
  const FatLayout& layout = table_.layout();
  const u64 first = firstLba - range_.firstSector;
  const u32 last = std::min(layout.sectorToCluster(first + count - 1), layout.highestCluster());
  // A cluster larger than a chunk is met more than once.
  for (u32 cluster = std::max(nextCluster_, layout.sectorToCluster(first)); cluster <= last;
       ++cluster) {
    nextCluster_ = cluster + 1;
    if (!disk_.readSectors(range_.firstSector + layout.clusterToSector(cluster), buffer,
                           layout.sectorsPerCluster))
      continue;
    if (const Failure failed = table_.markBad(cluster)) return failed;
    ++badClusters_;
  }
  return {};
}

Failure FatSurfaceScan::advance(u64 sectors) {
  job_.advance(sectors * disk_.sectorSize());
  return job_.shouldStop() ? Error::cancelled : Error::none;
}

}  // namespace tallowin
