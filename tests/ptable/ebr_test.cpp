// Chains of volumes as other programs may have left them: anything in any slot of an EBR.
#include <gtest/gtest.h>

#include <algorithm>

#include "ptable/table_bench.h"

namespace tallowin {
namespace {

constexpr u64 kDiskSectors = 204800;
constexpr u64 kContainer = 20480;
constexpr u64 kSecondEbr = 59392;  // of volume 6

const DriveOpenOptions kAligned = alignedTo(2048);

// The volume and the link of an EBR by sfdisk go to other slots.
void moveSlots(EbrRecord& ebr, std::size_t volume, std::size_t link) {
  const auto before = ebr.slots;
  ebr.slots = {};
  ebr.slots[volume] = before[0];
  ebr.slots[link] = before[1];
}

std::vector<SfdiskRow> without(std::vector<SfdiskRow> rows, u64 start) {
  std::erase_if(rows, [start](const SfdiskRow& row) { return row.start == start; });
  for (SfdiskRow& row : rows) row.number = 0;
  return rows;
}

void expectAgreement(TableBench& bench, const std::string& what) {
  const SfdiskTable judged = readTable(bench.disk());
  EXPECT_EQ(judged.problems, "") << what;
  EXPECT_EQ(rowsOf(bench.drive()), judged.rows) << what;
  EXPECT_FALSE(bench.drive().table().hasErrors()) << what << pictureOf(bench.drive());
}

TEST(Ebr, VolumeAndLinkMayLieInAnySlot) {
  MemoryDisk plain = diskFromScript(kDiskSectors, kThreeVolumes);
  const std::string picture = pictureOf(TableBench(plain.copy(), kAligned).drive());
  for (const u64 ebr : {kContainer, kSecondEbr}) {
    for (std::size_t volume = 0; volume < kMbrSlots; ++volume) {
      for (std::size_t link = 0; link < kMbrSlots; ++link) {
        if (volume == link) continue;
        const std::string what = "EBR " + std::to_string(ebr) + ", volume " +
                                 std::to_string(volume) + ", link " + std::to_string(link);
        MemoryDisk disk = plain.copy();
        editSector<EbrRecord>(disk, ebr,
                              [&](EbrRecord& record) { moveSlots(record, volume, link); });
        TableBench bench(disk.copy(), kAligned);
        expectAgreement(bench, what);
        EXPECT_EQ(pictureOf(bench.drive()), picture) << what;

        const std::vector<SfdiskRow> before = readTable(disk).rows;
        for (const u64 start : {22528U, 61440U, 81920U}) {
          TableBench removed(disk.copy(), kAligned);
          const auto gone = std::ranges::find(before, start, &SfdiskRow::start);
          ASSERT_EQ(removed.drive().remove(*removed.drive().findByKernelNumber(gone->number)),
                    Error::none);
          removed.reopen(kAligned);
          expectAgreement(removed, what + " removed");
          EXPECT_EQ(without(rowsOf(removed.drive()), start), without(before, start)) << what;
        }
        for (const u64 start : {43008U, 75776U, 100352U}) {
          TableBench added(disk.copy(), kAligned);
          ASSERT_EQ(addAt(added.drive(), start, 2048, 0x83), Error::none) << what;
          expectAgreement(added, what + " added");
          EXPECT_EQ(without(rowsOf(added.drive()), start), without(before, start)) << what;
        }
      }
    }
  }
}

struct Unclear {
  const char* what;
  std::function<void(MemoryDisk& disk)> make;
  const char* rows;  // of the container
};

const Unclear kUnclear[] = {
    {"a second volume before the link",
     [](MemoryDisk& disk) {
       editSector<EbrRecord>(disk, kContainer, [](EbrRecord& ebr) {
         moveSlots(ebr, 1, 2);
         ebr.slots[0] = slot(0x83, 12288, 2048);
       });
     },
     "  5: 32768..34815 83h !\n  6: 22528..30719 83h !\n  7: 61440..69631 0Bh\n"
     "  8: 81920..90111 82h\n"},
    {"a second volume behind the link",
     [](MemoryDisk& disk) {
       editSector<EbrRecord>(disk, kSecondEbr,
                             [](EbrRecord& ebr) { ebr.slots[3] = slot(0x83, 12288, 2048); });
     },
     "  5: 22528..30719 83h\n  6: 61440..69631 0Bh !\n  ?: 71680..73727 83h !\n"
     "  7: 81920..90111 82h\n"},
    {"two links",
     [](MemoryDisk& disk) {
       editSector<EbrRecord>(disk, kContainer,
                             [](EbrRecord& ebr) { ebr.slots[3] = slot(0x05, 71680, 4096); });
     },
     "  5: 22528..30719 83h !\n  6: 61440..69631 0Bh\n  7: 81920..90111 82h\n"},
    {"sectors without a type",
     [](MemoryDisk& disk) {
       editSector<EbrRecord>(disk, kContainer,
                             [](EbrRecord& ebr) { ebr.slots[2] = slot(0, 12288, 2048); });
     },
     "  5: 22528..30719 83h !\n  6: 61440..69631 0Bh\n  7: 81920..90111 82h\n"},
    {"a link without sectors",
     [](MemoryDisk& disk) {
       editSector<EbrRecord>(disk, kContainer,
                             [](EbrRecord& ebr) { ebr.slots[1].sectorCount = 0; });
     },
     "  5: 22528..30719 83h !\n"},
    {"a link to no EBR",
     [](MemoryDisk& disk) {
       editSector<EbrRecord>(disk, kSecondEbr, [](EbrRecord& ebr) { ebr.signature = {}; });
     },
     "  5: 22528..30719 83h\n"},
    {"a first EBR without its mark",
     [](MemoryDisk& disk) {
       editSector<EbrRecord>(disk, kContainer, [](EbrRecord& ebr) { ebr.signature = {}; });
     },
     ""},
};

TEST(Ebr, WhatIsNotUnderstoodIsMarkedAndNeitherFreeNorChanged) {
  for (const Unclear& c : kUnclear) {
    MemoryDisk disk = diskFromScript(kDiskSectors, kThreeVolumes);
    c.make(disk);
    TableBench bench(disk.copy(), kAligned);
    EXPECT_EQ(pictureOf(bench.drive()),
              "1: 2048..6143 83h\nfree 6144..20479\n2: 20480..122879 0Fh !\n" +
                  std::string(c.rows) + "free 122880..204799\n")
        << c.what;
    for (const u64 start : {43008U, 75776U, 100352U})
      expectRefused(
          disk.copy(),
          [start](Drive& drive) {
            return drive.add({.startSector = start,
                              .endSector = start + 2047,
                              .ebrSector = start - 2048,
                              .type = 0x83});
          },
          Error::tableInError, c.what, kAligned);
    TableEntry& container = dynamic_cast<TableEntry&>(*bench.drive().findByKernelNumber(2));
    for (const auto& volume : container.volumes->entries) {
      if (!volume->isInError()) continue;
      const u64 start = volume->startSector;
      const auto found = [start](Drive& drive) -> PartitionEntry& {
        auto& top = dynamic_cast<TableEntry&>(*drive.findByKernelNumber(2));
        return **std::ranges::find(top.volumes->entries, start,
                                   [](const auto& entry) { return entry->startSector; });
      };
      expectRefused(
          disk.copy(), [&](Drive& drive) { return drive.remove(found(drive)); },
          Error::tableInError, c.what, kAligned);
      expectRefused(
          disk.copy(),
          [&](Drive& drive) { return drive.changeProperties(found(drive), {.type = 0x07}); },
          Error::tableInError, c.what, kAligned);
    }
  }
}

// The last volume goes, whatever the first EBR holds beside its volume and its link.
TEST(Ebr, WhatIsSafeIsDoneInAChainThatIsNotUnderstood) {
  MemoryDisk disk = diskFromScript(kDiskSectors, kThreeVolumes);
  kUnclear[0].make(disk);
  const std::vector<SfdiskRow> before = readTable(disk).rows;
  TableBench bench(std::move(disk), kAligned);
  ASSERT_EQ(bench.drive().remove(*bench.drive().findByKernelNumber(8)), Error::none);
  EXPECT_EQ(without(readTable(bench.disk()).rows, 0), without(before, 81920));
}

// Volumes whose container is of a hidden type are listed behind those that the kernel counts.
TEST(Ebr, TheKernelCountsNoVolumeOfAHiddenExtendedPartition) {
  MemoryDisk disk = diskFromScript(kDiskSectors, kThreeVolumes);
  editSector<MbrRecord>(disk, 0, [](MbrRecord& mbr) {
    mbr.slots[2] = mbr.slots[1];
    mbr.slots[1] = slot(0x15, 131072, 65536);
  });
  editSector<EbrRecord>(disk, 131072, [](EbrRecord& ebr) {
    ebr.slots[0] = slot(0x83, 2048, 2048);
    ebr.signature.set();
  });
  TableBench bench(std::move(disk), kAligned);
  Drive& drive = bench.drive();
  EXPECT_EQ(drive.findByKernelNumber(5)->startSector, 22528U);
  EXPECT_EQ(drive.findByKernelNumber(7)->startSector, 81920U);
  EXPECT_EQ(drive.findByKernelNumber(8), nullptr);
  for (u32 number = 5; number <= 7; ++number)
    EXPECT_EQ(drive.findByListNumber(number), drive.findByKernelNumber(number));
  PartitionEntry* hidden = drive.findByListNumber(8);
  ASSERT_NE(hidden, nullptr);
  EXPECT_EQ(hidden->startSector, 133120U);
  EXPECT_FALSE(drive.kernelNumber(*hidden));
  ASSERT_EQ(drive.remove(*hidden), Error::none);
  ASSERT_EQ(drive.reread(), Error::none);
  EXPECT_EQ(drive.findByListNumber(8), nullptr);
  EXPECT_EQ(rowsOf(drive).size(), 6U);
}

TEST(Ebr, ANewExtendedPartitionIsEmptyAndNotActive) {
  MemoryDisk disk(kDiskSectors);
  // What lay there before must not come back as volumes.
  MemoryDisk old = diskFromScript(kDiskSectors, kThreeVolumes);
  disk.setSector(kContainer, old.sector(kContainer));
  TableBench bench(std::move(disk), kAligned);
  ASSERT_EQ(addAt(bench.drive(), kContainer, 102400, 0x0F), Error::none);
  EXPECT_EQ(pictureOf(bench.drive()),
            "free 2048..20479\n1: 20480..122879 0Fh\n  free 22528..122879\n"
            "free 122880..204799\n");
  ASSERT_EQ(addAt(bench.drive(), 2048, 2048, 0x83), Error::none);
  EXPECT_EQ(mbrOf(bench.disk()).slots[0].bootIndicator, 0);
  EXPECT_EQ(mbrOf(bench.disk()).slots[1].bootIndicator, kBootActive);
}

// sfdisk lets the first EBR keep the second volume then.
TEST(Ebr, WhatADeletedFirstVolumeLeavesIsFree) {
  MemoryDisk disk = diskFromCommands(
      kDiskSectors * 512, 512,
      {{"sfdisk", "-q", "IMAGE"}, {"sfdisk", "-q", "--delete", "IMAGE", "5"}}, kThreeVolumes);
  TableBench bench(std::move(disk), kAligned);
  expectAgreement(bench, "deleted");
  EXPECT_EQ(pictureOf(bench.drive()),
            "1: 2048..6143 83h\nfree 6144..20479\n2: 20480..122879 0Fh\n  5: 61440..69631 0Bh\n"
            "  free 24576..61439\n  free 71680..79871\n  6: 81920..90111 82h\n"
            "  free 92160..122879\nfree 122880..204799\n");
  EXPECT_EQ(addAt(bench.drive(), 24576, 20480, 0x83), Error::none);
  expectAgreement(bench, "added");
  ASSERT_NE(bench.drive().findByKernelNumber(6), nullptr);
  EXPECT_EQ(bench.drive().findByKernelNumber(6)->startSector, 24576U);
  EXPECT_EQ(bench.drive().remove(*bench.drive().findByKernelNumber(5)), Error::none);
  bench.reopen(kAligned);
  expectAgreement(bench, "the other one deleted");
  EXPECT_EQ(bench.drive().findByKernelNumber(5)->startSector, 24576U);
}

}  // namespace
}  // namespace tallowin
