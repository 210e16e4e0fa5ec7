// Layouts that no tool of ours would make, and what other programs see on them: it is never
// offered as free, and never lost by a change of something else.
#include "ptable/layouts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "disk/disk_wrapper.h"
#include "disk/mbr_record.h"
#include "ptable/embr/embr_sync.h"
#include "ptable/layout_judges.h"
#include "ptable/table_bench.h"

namespace tallowin {
namespace {

// The variables of a longer run: how many layouts, from which seed on.
unsigned numberFrom(const char* variable, unsigned otherwise) {
  const char* text = std::getenv(variable);
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

template <typename Asked>
bool isSlot(MemoryDisk& disk, const SectorRun& run, Asked asked) {
  return std::ranges::any_of(mbrOf(disk).slots, [&](const MbrSlotRecord& slot) {
    return slot.startLba == run.start && asked(slot.type);
  });
}

// What the disk's own slots call a container of volumes, whoever lists it.
bool isContainer(MemoryDisk& disk, const SectorRun& run) {
  return isSlot(disk, run, [](u8 type) {
    return (type & 0xEF) == 0x05 || (type & 0xEF) == 0x0F || type == 0x85;
  });
}

// The slot over a whole disk that tells of a GPT: no data where the GPT is gone.
bool isPlaceHolder(MemoryDisk& disk, const SectorRun& run) {
  return isSlot(disk, run, [](u8 type) { return type == 0xEE; });
}

struct Free {
  PartitionEntry* entry = nullptr;
  SectorRun run;  // of a block for a volume with its EBR
  bool isInner = false;
};

std::vector<Free> freeBlocksOf(Drive& drive) {
  std::vector<Free> blocks;
  for (const auto& entry : drive.table().entries) {
    if (entry->isFree())
      blocks.push_back({entry.get(), {entry->startSector, entry->endSector + 1}, false});
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries)
      if (volume->isFree())
        blocks.push_back(
            {volume.get(), {entry->startSector + volume->ebr, volume->endSector + 1}, true});
  }
  return blocks;
}

std::vector<PartitionEntry*> usedRowsOf(Drive& drive) {
  std::vector<PartitionEntry*> rows = entriesOf(drive);
  std::erase_if(rows, [](const PartitionEntry* row) { return row->isFree(); });
  return rows;
}

class LayoutRound {
 public:
  LayoutRound(unsigned seed, Layout& layout, const Judgement& seen)
      : random_(seed), layout_(layout), seen_(seen) {
    shared_ = std::make_shared<DiskWrapper>(layout_.disk);
    drive_ = TableBench::openOn(shared_, host_);
    // Before and after its entries follow the slots.
    if (drive_->isEmbr() && seed % 2 == 0) {
      const auto yes = [] { return true; };
      EmbrSync done;
      static_cast<void>(synchronizeEmbr(*drive_, yes, done));
      static_cast<void>(drive_->reread());
    }
    before_.emplace(layout_.disk.copy());
  }

  void expectNothingSeenIsOffered() {
    if (drive_->changesAllowed()) return;
    for (const Free& block : freeBlocksOf(*drive_))
      for (const auto& [program, rows] : seen_.rows)
        for (const SectorRun& row : rows)
          EXPECT_FALSE(row.meets(block.run) && !isPlaceHolder(*before_, row) &&
                       !(block.isInner && isContainer(*before_, row)))
              << program << " sees " << row << ", offered is " << block.run << "\n"
              << pictureOf(*drive_);
  }

  // One change that the drive allows, or refuses without a write.
  void change() {
    if (drive_->table().status != 0) return;
    const u64 kind = pick(100);
    const Failure failed = kind < 45   ? add()
                           : kind < 70 ? remove()
                           : kind < 90 ? changeProperties()
                                       : drive_->repairGpt();
    changed_ = !failed;
    if (failed) {
      EXPECT_TRUE(layout_.disk.sameContent(*before_)) << what_ << ": " << codeOf(failed);
    }
  }

  void expectNothingIsLost(const Judgement& now) {
    if (!changed_) return;
    for (const auto& [program, rows] : seen_.rows) {
      for (const SectorRun& row : rows) {
        if (isRemoved(row)) continue;
        const auto found = now.rows.find(program);
        const bool isThere =
            found != now.rows.end() && std::ranges::find(found->second, row) != found->second.end();
        EXPECT_TRUE(isThere) << program << " does not see " << row << " after: " << what_ << "\n"
                             << pictureBefore_;
        if (!isContainer(*before_, row) && !isPlaceHolder(*before_, row))
          expectUntouched(program, row);
      }
    }
    for (const SectorRun& kept : layout_.kept) expectUntouched("a loader", kept);
  }

 private:
  u64 pick(u64 below) { return below == 0 ? 0 : random_() % below; }

  // Volumes go with their container, those too that leave it.
  bool isRemoved(const SectorRun& row) {
    return removed_ && removed_->start <= row.start &&
           (row.end <= removed_->end ||
            (row.start < removed_->end && isContainer(*before_, *removed_)));
  }

  Failure add() {
    const std::vector<Free> blocks = freeBlocksOf(*drive_);
    pictureBefore_ = pictureOf(*drive_);
    if (blocks.empty()) return Error::noFreeEntry;
    PartitionEntry& block = *blocks[pick(blocks.size())].entry;
    const u64 room = block.sectorCount();
    const u64 gap = pick(2) == 0 ? 0 : pick(room / 2);
    const u64 sectors = pick(2) == 0 ? room - gap : 1 + pick(room - gap);
    const bool hasContainer = std::ranges::any_of(
        drive_->table().entries, [](const auto& entry) { return entry->volumes != nullptr; });
    const u16 type = !block.isVolume() && !hasContainer && pick(5) == 0 ? 0x0F : 0x83;
    what_ = "add " + std::to_string(block.startSector + gap) + "+" + std::to_string(sectors);
    return addAt(*drive_, block.startSector + gap, sectors, type, "NEW");
  }

  Failure remove() {
    const std::vector<PartitionEntry*> rows = usedRowsOf(*drive_);
    pictureBefore_ = pictureOf(*drive_);
    if (rows.empty()) return Error::noTable;
    const PartitionEntry& row = *rows[pick(rows.size())];
    removed_ = {row.startSector, row.endSector + 1};
    what_ = "remove " + std::to_string(row.startSector);
    return drive_->remove(row);
  }

  Failure changeProperties() {
    const std::vector<PartitionEntry*> rows = usedRowsOf(*drive_);
    pictureBefore_ = pictureOf(*drive_);
    if (rows.empty()) return Error::noTable;
    const PartitionEntry& row = *rows[pick(rows.size())];
    EntryProperties wanted;
    if (isContainer(*before_, {row.startSector, row.endSector + 1}) || pick(2) == 0) {
      if (drive_->isGpt()) wanted.name = "other";
      if (!drive_->isGpt()) wanted.active = true;
    } else {
      wanted.type = u16{0x07};
    }
    what_ = "properties of " + std::to_string(row.startSector);
    return drive_->changeProperties(row, wanted);
  }

  void expectUntouched(const std::string& whose, const SectorRun& run) {
    const u32 sectorSize = before_->sectorSize();
    layout_.disk.forEachData([&](u64 byteOffset, std::span<const u8> bytes) {
      const u64 first = std::max(run.start, byteOffset / sectorSize);
      const u64 end = std::min(run.end, (byteOffset + bytes.size()) / sectorSize);
      for (u64 lba = first; lba < end; ++lba)
        EXPECT_EQ(layout_.disk.sector(lba), before_->sector(lba))
            << "sector " << lba << " of " << whose << " at " << run << ", by: " << what_ << "\n"
            << pictureBefore_;
    });
  }

  std::mt19937_64 random_;
  Layout& layout_;
  Judgement seen_;
  std::optional<MemoryDisk> before_;
  FakeHost host_;
  std::shared_ptr<DiskDevice> shared_;
  std::unique_ptr<Drive> drive_;
  bool changed_ = false;
  std::optional<SectorRun> removed_;
  std::string what_ = "repair";
  std::string pictureBefore_;
};

TEST(Layouts, WhatOtherProgramsSeeIsNeverOfferedAndNeverLost) {
  const unsigned first = numberFrom("TALLOWIN_LAYOUT_SEED", 1);
  const unsigned end = first + numberFrom("TALLOWIN_LAYOUTS", 200);
  constexpr unsigned kAtOnce = 100;
  for (unsigned from = first; from < end; from += kAtOnce) {
    std::vector<Layout> layouts;
    std::vector<Layout*> pointers;
    for (unsigned seed = from; seed < std::min(end, from + kAtOnce); ++seed)
      layouts.push_back(makeLayout(seed));
    for (Layout& layout : layouts) pointers.push_back(&layout);
    const std::vector<Judgement> seen = judge(pointers);
    std::vector<std::unique_ptr<LayoutRound>> rounds;
    for (std::size_t i = 0; i < layouts.size(); ++i) {
      SCOPED_TRACE(layouts[i].what);
      rounds.push_back(std::make_unique<LayoutRound>(from + i, layouts[i], seen[i]));
      rounds.back()->expectNothingSeenIsOffered();
      rounds.back()->change();
    }
    const std::vector<Judgement> now = judge(pointers);
    for (std::size_t i = 0; i < layouts.size(); ++i) {
      SCOPED_TRACE(layouts[i].what);
      rounds[i]->expectNothingIsLost(now[i]);
    }
  }
}

}  // namespace
}  // namespace tallowin
