// A disk and a journal whose power is cut at the same moment.
#pragma once

#include <algorithm>
#include <cerrno>
#include <memory>
#include <random>
#include <span>
#include <vector>

#include "disk/disk_wrapper.h"
#include "disk/memory_disk.h"
#include "move/journal_storage.h"

namespace tallowin {

// So many writes and flushes are carried out, and then none any more.
struct Power {
  u64 stepsLeft = kAllOnes64;
  u64 steps = 0;  // asked for so far

  bool isOn() {
    ++steps;
    if (stepsLeft == 0) return false;
    if (stepsLeft != kAllOnes64) --stepsLeft;
    return true;
  }
};

// What was written since the last flush is there after a cut, or is not, or is half there.
enum class Fate { lost, arrived, torn };
inline Fate fateBy(std::mt19937& random) { return static_cast<Fate>(random() % 3); }

// Remembers what was written since its last flush, with what stood there before.
class CutDisk : public DiskWrapper {
 public:
  CutDisk(MemoryDisk& inner, Power& power) : DiskWrapper(inner), power_(power) {}

  Failure flush() override {
    if (!power_.isOn()) return {Error::flush, EIO};
    pending_.clear();
    return {};
  }

  // The disk as it is after the cut.
  void cut(std::mt19937& random) {
    for (auto write = pending_.rbegin(); write != pending_.rend(); ++write) {
      const Fate fate = fateBy(random);
      if (fate == Fate::arrived) continue;
      const u64 keep = fate == Fate::lost ? 0 : random() % (write->before.size() / sectorSize());
      const u64 bytes = keep * sectorSize();
      static_cast<void>(inner_.writeSectors(write->lba + keep, write->before.data() + bytes,
                                            (write->before.size() - bytes) / sectorSize()));
    }
    pending_.clear();
  }

 protected:
  Failure transferOut(u64 lba, const void* buffer, u32 count) override {
    if (!power_.isOn()) return {Error::write, EIO, lba};
    Write write{lba, std::vector<u8>(std::size_t{count} * sectorSize())};
    if (const Failure failed = inner_.readSectors(lba, write.before.data(), count)) return failed;
    pending_.push_back(std::move(write));
    return inner_.writeSectors(lba, buffer, count);
  }

 private:
  struct Write {
    u64 lba;
    std::vector<u8> before;
  };
  Power& power_;
  std::vector<Write> pending_;
};

// What a journal is on the medium, and what is on its way there. It outlives its storage.
struct CutBytes {
  struct Write {
    u64 offset;
    std::vector<u8> bytes;
  };
  std::vector<u8> durable;
  std::vector<u8> seen;  // by the program that writes it
  std::vector<Write> pending;

  static void put(std::vector<u8>& target, u64 offset, std::span<const u8> bytes) {
    target.resize(std::max<std::size_t>(target.size(), offset + bytes.size()));
    std::copy(bytes.begin(), bytes.end(), target.begin() + static_cast<std::ptrdiff_t>(offset));
  }
  void cut(std::mt19937& random) {
    for (const Write& write : pending) {
      const Fate fate = fateBy(random);
      if (fate == Fate::lost) continue;
      const std::size_t bytes =
          fate == Fate::torn ? random() % (write.bytes.size() + 1) : write.bytes.size();
      put(durable, write.offset, std::span(write.bytes).first(bytes));
    }
    pending.clear();
    seen = durable;
  }
};

class CutStorage : public JournalStorage {
 public:
  CutStorage(CutBytes& bytes, Power& power) : bytes_(bytes), power_(power) {}

  Failure read(u64 offset, std::span<u8> bytes) override {
    const std::vector<u8>& all = bytes_.seen;
    if (offset > all.size() || bytes.size() > all.size() - offset) return Error::seekFailed;
    std::copy_n(all.begin() + static_cast<std::ptrdiff_t>(offset), bytes.size(), bytes.begin());
    return {};
  }
  Failure write(u64 offset, std::span<const u8> bytes) override {
    if (!power_.isOn()) return {Error::write, EIO};
    bytes_.pending.push_back({offset, {bytes.begin(), bytes.end()}});
    CutBytes::put(bytes_.seen, offset, bytes);
    return {};
  }
  Failure sync() override {
    if (!power_.isOn()) return {Error::flush, EIO};
    for (const CutBytes::Write& write : bytes_.pending)
      CutBytes::put(bytes_.durable, write.offset, write.bytes);
    bytes_.pending.clear();
    return {};
  }

 private:
  CutBytes& bytes_;
  Power& power_;
};

}  // namespace tallowin
