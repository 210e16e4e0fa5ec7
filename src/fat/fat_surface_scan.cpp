#include "fat/fat_surface_scan.h"

#include <algorithm>

namespace tallowin {
namespace {

constexpr u32 kPieceBytes = 4 * kMiB;
constexpr u32 kChunkBytes = 64 * kKiB;

}  // namespace

FatSurfaceScan::FatSurfaceScan(FatVolume& volume, Progress progress)
    : volume_(volume),
      disk_(volume.disk()),
      progress_(std::move(progress)),
      firstLba_(volume.dataStartLba()),
      endLba_(volume.startSector() + volume.lengthSectors()),
      nextLba_(firstLba_),
      pieceSectors_(std::max(
          u32{1}, std::min(kPieceBytes, disk_.traits().maxTransferBytes) / disk_.sectorSize())),
      chunkSectors_(kChunkBytes / disk_.sectorSize()) {}

bool FatSurfaceScan::prepare() {
  const u32 sectors = std::max(pieceSectors_, volume_.sectorsPerCluster());
  for (Piece& piece : pieces_)
    piece.buffer = TransferBuffer(std::size_t{sectors} * disk_.sectorSize());
  return pieces_[0].buffer && pieces_[1].buffer;
}

bool FatSurfaceScan::run() {
  bool going = true;
  bool underWay = begin(pieces_[0]);
  for (std::size_t now = 0; underWay; now = 1 - now) {
    const bool nextUnderWay = going && begin(pieces_[1 - now]);
    const Piece& piece = pieces_[now];
    const bool ok = disk_.finish(pieces_[now].transfer) == Error::none;
    // A piece that was still under way when the scan was stopped does not count.
    if (going) going = ok ? report(piece.transfer.lba + piece.transfer.count) : narrow(piece);
    underWay = nextUnderWay;
  }
  return going;
}

bool FatSurfaceScan::begin(Piece& piece) {
  if (nextLba_ >= endLba_) return false;
  piece.transfer = {};
  piece.transfer.lba = nextLba_;
  piece.transfer.buffer = piece.buffer.data();
  piece.transfer.count = static_cast<u32>(std::min<u64>(pieceSectors_, endLba_ - nextLba_));
  nextLba_ += piece.transfer.count;
  disk_.begin(piece.transfer);
  return true;
}

bool FatSurfaceScan::narrow(const Piece& piece) {
  const u64 end = piece.transfer.lba + piece.transfer.count;
  for (u64 lba = piece.transfer.lba; lba < end;) {
    const u64 count = std::min<u64>(chunkSectors_, end - lba);
    if (disk_.readSectors(lba, piece.buffer.data(), count) != Error::none)
      testClusters(lba, count, piece.buffer.data());
    lba += count;
    if (!report(lba)) return false;
  }
  return true;
}

void FatSurfaceScan::testClusters(u64 firstLba, u64 count, u8* buffer) {
  const u32 last = std::min(volume_.lbaToCluster(firstLba + count - 1), volume_.highestCluster());
  // A cluster larger than a chunk is met more than once.
  for (u32 cluster = std::max(nextCluster_, volume_.lbaToCluster(firstLba)); cluster <= last;
       ++cluster) {
    nextCluster_ = cluster + 1;
    if (disk_.readSectors(volume_.clusterToLba(cluster), buffer, volume_.sectorsPerCluster()) ==
        Error::none)
      continue;
    volume_.markBad(cluster);
    ++badClusters_;
  }
}

bool FatSurfaceScan::report(u64 doneLba) const {
  return progress_(static_cast<u32>((doneLba - firstLba_) * 100 / (endLba_ - firstLba_)));
}

}  // namespace tallowin
