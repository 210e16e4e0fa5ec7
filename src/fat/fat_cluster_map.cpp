#include "fat/fat_cluster_map.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace tallowin {
namespace {

constexpr std::size_t kPieceBytes = 128 * kKiB;  // of a FAT in a read: it stays in the cache
constexpr u32 kPiecesAhead = 8;                  // that are fetched meanwhile
constexpr std::size_t kMostJumps = 96 * 1024;    // that are held in memory
constexpr std::size_t kPartBytes = 4 * kKiB;     // that are often free as a whole
constexpr u32 kBlock = 16;                       // entries that are looked at together

u32 load16(const u8* bytes) { return u32{bytes[0]} | u32{bytes[1]} << 8; }

u32 load32(const u8* bytes) {
  return u32{bytes[0]} | u32{bytes[1]} << 8 | u32{bytes[2]} << 16 | u32{bytes[3]} << 24;
}

std::unique_ptr<u8[]> memory(std::size_t bytes) {
  return std::unique_ptr<u8[]>(new (std::nothrow) u8[bytes]);
}

}  // namespace

// --- Reading

Failure FatClusterMap::setUp() {
  const std::size_t count = std::size_t{highestCluster_} + 1;
  // Pages of free clusters are never touched so.
  bytes_.reset(static_cast<u8*>(std::calloc(count, 1)));
  isFreePart_.assign(count / kPartClusters + 1, false);
  jumps_.clear();
  table_.reset();
  freeClusters_ = badClusters_ = 0;
  return bytes_ ? Error::none : Error::outOfMemory;
}

Failure FatClusterMap::read(u32 copy, u32 other, Job& job, bool& same) {
  same = true;
  copy_ = copy;
  if (const Failure failed = setUp()) return failed;
  const u32 sectorBytes = layout().bytesPerSector;
  const u32 pieceSectors =
      std::min(static_cast<u32>(kPieceBytes / sectorBytes), layout().sectorsPerFat);
  const std::size_t pieceBytes = std::size_t{pieceSectors} * sectorBytes;
  const auto piece = memory(pieceBytes);
  const auto otherPiece = memory(other == kNoCopy ? 0 : pieceBytes);
  if (!piece || !otherPiece) return Error::outOfMemory;
  DiskDevice& disk = volume_.range.disk;
  const auto copyLba = [&](u32 number) {
    return volume_.range.firstSector + layout().reservedSectors +
           u64{number} * layout().sectorsPerFat;
  };
  const u32 aheadSectors = kPiecesAhead * pieceSectors;
  const auto announce = [&](u32 sector) {
    if (sector >= layout().sectorsPerFat) return;
    const u32 sectors = std::min(aheadSectors, layout().sectorsPerFat - sector);
    disk.willRead(copyLba(copy) + sector, sectors);
    if (other != kNoCopy) disk.willRead(copyLba(other) + sector, sectors);
  };
  announce(0);
  for (u32 sector = 0; sector < layout().sectorsPerFat; sector += pieceSectors) {
    if (job.shouldStop()) return Error::cancelled;
    if (sector % aheadSectors == 0) announce(sector + aheadSectors);
    const u32 sectors = std::min(pieceSectors, layout().sectorsPerFat - sector);
    const std::size_t bytes = std::size_t{sectors} * sectorBytes;
    if (const Failure failed = disk.readSectors(copyLba(copy) + sector, piece.get(), sectors))
      return failed;
    if (other != kNoCopy) {
      if (const Failure failed =
              disk.readSectors(copyLba(other) + sector, otherPiece.get(), sectors))
        return failed;
      same = std::memcmp(piece.get(), otherPiece.get(), bytes) == 0;
      if (!same) return {};
    }
    take({piece.get(), bytes}, u64{sector} * sectorBytes);
    job.advance(bytes);
  }
  return {};
}

// A FAT12 is no longer than its first piece, as far as it has clusters.
void FatClusterMap::take(std::span<const u8> piece, u64 firstByte) {
  const u32 end = highestCluster_ + 1;
  if (layout().kind == FatKind::fat12) {
    if (firstByte != 0) return;
    const u32 entries = static_cast<u32>(std::min<u64>(end, piece.size() * 2 / 3));
    takeEntries(0, entries, [piece](u32 index) {
      const u32 word = load16(&piece[index * 3 / 2]);
      return index % 2 != 0 ? word >> 4 : word & 0xFFF;
    });
    return;
  }
  const u32 entryBytes = layout().isFat32() ? 4 : 2;
  for (u64 at = 0; at < piece.size() && (firstByte + at) / entryBytes < end; at += kPartBytes) {
    const u8* part = &piece[at];
    const std::size_t bytes = std::min<u64>(kPartBytes, piece.size() - at);
    const auto first = static_cast<u32>((firstByte + at) / entryBytes);
    const u32 last = static_cast<u32>(std::min<u64>(end, first + bytes / entryBytes));
    if (first >= 2 && part[0] == 0 && std::memcmp(part, part + 1, bytes - 1) == 0) {
      freeClusters_ += last - first;
      isFreePart_[first / kPartClusters] = true;
    } else if (layout().isFat32())
      takeEntries(first, last, [part, first](u32 index) {
        return load32(part + std::size_t{index - first} * 4) & 0x0FFFFFFF;
      });
    else
      takeEntries(first, last, [part, first](u32 index) {
        return load16(part + std::size_t{index - first} * 2);
      });
  }
}

// Most entries are free or lead to the cluster behind them, and lie beside others of their kind.
template <typename Load>
void FatClusterMap::takeEntries(u32 first, u32 end, Load load) {
  u32 cluster = first;
  for (; cluster < end && cluster < 2; ++cluster)
    (cluster == 0 ? firstEntry_ : secondEntry_) = load(cluster);
  while (cluster < end) {
    if (end - cluster > kBlock) {
      u32 used = 0;
      u32 notFollowing = 0;
      for (u32 i = 0; i < kBlock; ++i) {
        const u32 value = load(cluster + i);
        used |= value;
        notFollowing |= value ^ (cluster + i + 1);
      }
      if (used == 0 || notFollowing == 0) {
        if (used == 0) freeClusters_ += kBlock;
        std::memset(bytes_.get() + cluster, used == 0 ? 0 : static_cast<u8>(Entry::following),
                    kBlock);
        cluster += kBlock;
        continue;
      }
    }
    for (const u32 stop = std::min(end, cluster + kBlock); cluster < stop; ++cluster)
      takeEntry(cluster, load(cluster));
  }
}

void FatClusterMap::takeEntry(u32 cluster, u32 value) {
  Entry entry = Entry::elsewhere;
  if (value == 0) {
    entry = Entry::free;
    ++freeClusters_;
  } else if (value >= badMark_) {
    entry = value == badMark_ ? Entry::bad : Entry::end;
    if (entry == Entry::bad) ++badClusters_;
  } else if (!isCluster(value)) {
    entry = Entry::broken;
  } else if (value == cluster + 1) {
    entry = Entry::following;
  } else if (jumps_.size() < kMostJumps) {
    jumps_.push_back({cluster, value});
  }
  bytes_[cluster] = static_cast<u8>(entry);
}

// --- Chains

Failure FatClusterMap::jumpFrom(u32 cluster, u32& to) {
  if (!jumps_.empty() && cluster <= jumps_.back().from) {
    to = std::ranges::lower_bound(jumps_, cluster, {}, &Jump::from)->to;
    return {};
  }
  if (!table_) {
    table_ = std::make_unique<FatTable>(volume_.range, layout());
    FatTable::Options options;
    options.elsewhereLba =
        volume_.range.firstSector + layout().reservedSectors + u64{copy_} * layout().sectorsPerFat;
    if (const Failure failed = table_->setUp(options)) return failed;
  }
  if (const Failure failed = table_->get(cluster, to)) return failed;
  return isCluster(to) ? Failure() : Failure(Error::corrupt);
}

Failure FatClusterMap::next(u32 cluster, u32& following) {
  switch (entryOf(cluster)) {
    case Entry::following:
      following = cluster + 1;
      return {};
    case Entry::elsewhere:
      return jumpFrom(cluster, following);
    case Entry::end:
    case Entry::bad:
      following = 0;
      return {};
    case Entry::free:
    case Entry::broken:
      break;
  }
  return Error::corrupt;
}

u32 FatClusterMap::runFrom(u32 cluster, u32 most) const {
  u32 count = 1;
  while (count < most && entryOf(cluster + count - 1) == Entry::following) ++count;
  return count;
}

Failure FatClusterMap::mark(u32 first, Chain& chain) {
  chain = {};
  for (u32 at = first; at != 0;) {
    u8& byte = bytes_[at];
    const u8 was = byte;
    chain.last = at;
    chain.highest = std::max(chain.highest, at);
    ++chain.clusters;
    if ((was & kMarked) != 0) {
      chain.end = Chain::End::crossed;
      return {};
    }
    byte = was | kMarked;
    if (was == static_cast<u8>(Entry::following)) {
      ++at;
      continue;
    }
    if (const Failure failed = next(at, at)) {
      if (failed != Error::corrupt) return failed;
      chain.end = Chain::End::broken;
      return {};
    }
  }
  return {};
}

// Eight at a time: the entries of those in use have one of the low three bits. Parts that are free
// as a whole are not touched.
u32 FatClusterMap::unmarkedFrom(u32 from) const {
  constexpr u64 kLow = 0x0707070707070707;
  constexpr u64 kCarry = 0x7F7F7F7F7F7F7F7F;
  constexpr u64 kHigh = 0x8080808080808080;
  const u32 end = highestCluster_ + 1;
  for (u32 cluster = from; cluster < end;) {
    const u32 partEnd = std::min(end, (cluster / kPartClusters + 1) * kPartClusters);
    if (isFreePart_[cluster / kPartClusters]) cluster = partEnd;
    for (; cluster < partEnd; ++cluster) {
      u64 eight = 0;
      for (; partEnd - cluster > 8; cluster += 8) {
        std::memcpy(&eight, bytes_.get() + cluster, sizeof(eight));
        if ((((eight & kLow) + kCarry) & ~eight & kHigh) != 0) break;
      }
      const Entry entry = entryOf(cluster);
      if (entry != Entry::free && entry != Entry::bad && !isMarked(cluster)) return cluster;
    }
  }
  return 0;
}

}  // namespace tallowin
