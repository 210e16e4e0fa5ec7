#include "wipe/wipe.h"

#include <algorithm>
#include <cstring>

#include "disk/transfer_buffer.h"

namespace tallowin {
namespace {

// A group of bytes begins anew in each of these; 3 divides it, and whole pages make it up.
constexpr u64 kUnitBytes = 61440;
constexpr u64 kUnitsPerPiece = 68;
constexpr u64 kPieceBytes = kUnitsPerPiece * kUnitBytes;

class Wiper {
 public:
  Wiper(const SectorRange& range, const WipeWish& wish, RandomPool& pool, Host& host, Job& job,
        WipeReport& report)
      : range_(range),
        wish_(wish),
        pool_(pool),
        host_(host),
        job_(job),
        report_(report),
        size_(range.disk.sectorSize()),
        stream_(pool) {}

  Failure run() {
    if (!written_ || !read_) return Error::outOfMemory;
    report_ = {};
    report_.sectors = range_.sectorCount;
    job_.phase(Phase::wiping, range_.bytes());
    Failure stopped;
    const u32 count = static_cast<u32>(wish_.passes.size());
    for (u32 i = 0; i < count && !stopped; ++i) {
      if (count > 1) job_.pass(i + 1, count, range_.bytes());
      stopped = pass(wish_.passes[i]);
    }
    const Failure unflushed = range_.disk.flush();
    range_.disk.dropCachesOf(range_.firstSector, range_.sectorCount);
    return stopped && stopped != Error::cancelled ? stopped : unflushed ? unflushed : stopped;
  }

 private:
  WipePassReport& now() { return report_.passes.back(); }
  u64 sectorsPerUnit() const { return kUnitBytes / size_; }

  Failure pass(const WipePass& pass) {
    report_.passes.push_back({.kind = pass.kind});
    const bool validates = pass.kind == WipePass::Kind::validate;
    if (validates && isLeftOff_) {
      return {};
    }
    if (!validates) prepare(pass);
    // What was written is made again from the same state.
    if (validates) stream_ = atStart_;
    const u64 piece = kPieceBytes / size_;
    while (now().done < range_.sectorCount) {
      if (job_.shouldStop()) return Error::cancelled;
      const u64 count = std::min(piece, range_.sectorCount - now().done);
      if (kind_ == WipePass::Kind::fresh) stream_.fill({written_.data(), count * size_});
      if (kind_ == WipePass::Kind::stirred && !validates) fillStirred(count);
      if (const Failure failed = validates ? validatePiece(count) : writePiece(count))
        return failed;
      if (isLeftOff_ && validates) return {};
      now().done += count;
      job_.advance(count * size_);
    }
    now().isWhole = true;
    return {};
  }

  // The buffer of a pass; of `fresh` and `stirred` it is filled piece by piece.
  void prepare(const WipePass& pass) {
    kind_ = pass.kind;
    if (kind_ == WipePass::Kind::random) {
      discardSome();
      pool_.output({written_.data(), kUnitBytes});
      repeatUnit();
    }
    if (kind_ == WipePass::Kind::fresh || kind_ == WipePass::Kind::stirred) {
      discardSome();
      stream_ = RandomStream(pool_);
      atStart_ = stream_;
    }
    if (kind_ != WipePass::Kind::fixed) return;
    const u64 unit = pass.fillsSector ? size_ : kUnitBytes;
    for (u64 i = 0; i < kUnitBytes; ++i) {
      const u64 at = i % unit;
      written_.data()[i] = pass.fillsSector ? pass.bytes[std::min<u64>(at, pass.bytes.size() - 1)]
                                            : pass.bytes[at % pass.bytes.size()];
    }
    repeatUnit();
  }

  void repeatUnit() {
    for (u64 i = 1; i < kUnitsPerPiece; ++i)
      std::memcpy(written_.data() + i * kUnitBytes, written_.data(), kUnitBytes);
  }

  // Where in the pool's output a pass begins is nobody's to know.
  void discardSome() {
    std::array<u8, 2> draw{};
    pool_.output(draw);
    std::vector<u8> discarded(1 + (draw[0] | draw[1] << 8) % 511);
    pool_.output(discarded);
  }

  void fillStirred(u64 count) {
    for (u64 done = 0; done < count; done += sectorsPerUnit()) {
      const u64 bytes = std::min(sectorsPerUnit(), count - done) * size_;
      const u64 clock = host_.monotonicNanoseconds();
      pool_.addEntropy({reinterpret_cast<const u8*>(&clock), sizeof(clock)});
      stream_ = RandomStream(pool_);
      stream_.fill({written_.data() + done * size_, bytes});
    }
  }

  u64 lba() const { return range_.firstSector + report_.passes.back().done; }

  Failure writePiece(u64 count) {
    if (!range_.disk.writeSectors(lba(), written_.data(), count)) return {};
    // Which sectors of the piece failed tells only a write of each alone.
    for (u64 i = 0; i < count; ++i) {
      const Failure failed = range_.disk.writeSectors(lba() + i, written_.data() + i * size_, 1);
      if (!failed) continue;
      const Failure named(failed.code, failed.systemError, lba() + i);
      if (const Failure stopped = passOver(named, Direction::write)) {
        now().done += i;
        return stopped;
      }
    }
    return {};
  }

  Failure passOver(const Failure& failed, Direction direction) {
    bool& passesOver = direction == Direction::read ? passesOverReads_ : passesOverWrites_;
    if (!passesOver) {
      const BadSectorAnswer answer = job_.badSector(failed, direction);
      if (answer == BadSectorAnswer::stop) return failed;
      passesOver = answer == BadSectorAnswer::passOverAll;
    }
    ++now().failed;
    return {};
  }

  Failure validatePiece(u64 count) {
    if (!range_.disk.readSectors(lba(), read_.data(), count)) return compare(0, count);
    for (u64 i = 0; i < count; ++i) {
      const Failure failed = range_.disk.readSectors(lba() + i, read_.data() + i * size_, 1);
      if (failed) {
        const Failure named(Error::read, failed.systemError, lba() + i);
        if (const Failure stopped = passOver(named, Direction::read)) {
          now().done += i;
          return stopped;
        }
      } else if (const Failure differs = compare(i, 1)) {
        return differs;
      }
      if (isLeftOff_) return {};
    }
    return {};
  }

  Failure compare(u64 first, u64 count) {
    const u8* is = read_.data() + first * size_;
    const u8* was = written_.data() + first * size_;
    if (std::memcmp(is, was, count * size_) == 0) return {};
    u64 sector = 0;
    while (std::memcmp(is + sector * size_, was + sector * size_, size_) == 0) ++sector;
    ++now().mismatched;
    const u64 where = lba() + first + sector;
    if (!wish_.goesOnAfterMismatch(where)) return {Error::wipeMismatch, 0, where};
    isLeftOff_ = true;
    return {};
  }

  SectorRange range_;
  const WipeWish& wish_;
  RandomPool& pool_;
  Host& host_;
  Job& job_;
  WipeReport& report_;
  u64 size_;
  TransferBuffer written_{kPieceBytes};
  TransferBuffer read_{kPieceBytes};
  RandomStream stream_;
  RandomStream atStart_ = stream_;
  WipePass::Kind kind_ = WipePass::Kind::fixed;  // of the last pass that wrote
  bool passesOverReads_ = false;
  bool passesOverWrites_ = false;
  bool isLeftOff_ = false;  // no more validation
};

}  // namespace

bool WipeReport::isWhole() const {
  return !passes.empty() && std::all_of(passes.begin(), passes.end(),
                                        [](const WipePassReport& pass) { return pass.isWhole; });
}

u64 WipeReport::failedSectors() const {
  u64 most = 0;
  for (const WipePassReport& pass : passes) most = std::max(most, pass.failed);
  return most;
}

Failure wipeRange(const SectorRange& range, const WipeWish& wish, RandomPool& pool, Host& host,
                  Job& job, WipeReport& report) {
  return Wiper(range, wish, pool, host, job, report).run();
}

}  // namespace tallowin
