// Changes of a table behind the boot sector: they work, each transfer fails in turn, and the power
// is cut.
#include "ptable/embr/embr_scheme.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "disk/faulty_disk.h"
#include "disk/mbr_record.h"
#include "probe/type_catalogue.h"
#include "ptable/convert.h"
#include "ptable/table_bench.h"
#include "support/fault_loops.h"

namespace tallowin {
namespace {

constexpr u64 kSectors = 100'000;
constexpr u32 kEntriesOfOneSector = (kEmbrSectorBytes - 28 - 6) / 28;

MemoryDisk embrDisk(bool limitPrimaries, u8 sectorsPerTrack = 63, u32 sectorSizeBytes = 512) {
  MemoryDisk disk(kSectors, sectorSizeBytes);
  disk.setGeometry({1023, 254, sectorsPerTrack});
  std::vector<u8> sector(sectorSizeBytes);
  recordAt<MbrRecord>(std::span(sector))->signature.set();
  disk.setSector(0, sector);
  TableBench bench(std::move(disk));
  EXPECT_EQ(convertToEmbr(bench.drive(), limitPrimaries), Error::none);
  MemoryDisk made = bench.disk().copy();
  made.setGeometry({1023, 254, sectorsPerTrack});
  return made;
}

Failure create(Drive& drive, u64 start, u64 sectors = 16) {
  return addAt(drive, start, sectors, 0x83, "name " + std::to_string(start));
}

void createMany(Drive& drive, u32 count) {
  for (u32 i = 0; i < count; ++i) ASSERT_EQ(create(drive, 2048 + u64{i} * 64), Error::none) << i;
}

void expectRefusal(TableBench& bench, Failure expected) {
  MemoryDisk before = bench.disk().copy();
  EXPECT_EQ(create(bench.drive(), 90'000), expected);
  EXPECT_TRUE(bench.disk().sameContent(before));
}

EmbrImage imageOf(MemoryDisk& disk) {
  EmbrImage image;
  EXPECT_EQ(EmbrImage::read(disk, image), Error::none);
  return image;
}

std::string picture(MemoryDisk& disk) {
  TableBench bench(disk.copy());
  std::ostringstream text;
  text << bench.drive().schemeName() << " " << bench.drive().table().slots << "\n";
  for (const auto& entry : bench.drive().table().entries) {
    if (!entry->isFree())
      text << entry->startSector << ".." << entry->endSector << " " << entry->type << " "
           << entry->tableName << " " << entry->attributes << "\n";
  }
  return text.str();
}

// Items of a boot manager, of random content, behind the entries of a table without any.
std::vector<u8> addItems(MemoryDisk& disk, std::mt19937& random, u32 mbftItems, u32 mdtItems) {
  std::vector<u8> tables = {'M', 'B', 'F', 'T', 2, static_cast<u8>(mbftItems)};
  const auto addBytes = [&](std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) tables.push_back(static_cast<u8>(random()));
  };
  const auto addItem = [&](std::size_t fixedBytes) {
    const std::size_t more = random() % 40;
    addBytes(fixedBytes - 1);
    tables.push_back(static_cast<u8>(more));
    addBytes(more);
  };
  for (u32 i = 0; i < mbftItems; ++i) addItem(kMbftItemFixedBytes);
  if (mdtItems != 0) {
    const std::vector<u8> header = {'M', 'D', 'T', 1, static_cast<u8>(mdtItems)};
    tables.insert(tables.end(), header.begin(), header.end());
    addBytes(11);
    for (u32 i = 0; i < mdtItems; ++i) addItem(kMdtItemFixedBytes);
  }
  std::vector<u8> sector = disk.sector(1);
  std::ranges::copy(tables, sector.begin() + sizeof(EmbrHeaderRecord));
  disk.setSector(1, sector);
  return tables;
}

TEST(EmbrScheme, HoldsAsManyPrimariesAsIdsReach) {
  TableBench bench(embrDisk(false));
  createMany(bench.drive(), kMaxMptEntries);
  EXPECT_EQ(bench.drive().table().usedSlots, kMaxMptEntries);
  EXPECT_FALSE(bench.drive().table().hasErrors());
  EXPECT_EQ(bench.drive().firstUsableSector(), 16U);
  expectRefusal(bench, Error::noFreeEntry);
  // Four of them are seen by others.
  const SfdiskTable seen = readTable(bench.disk());
  EXPECT_EQ(seen.problems, "");
  ASSERT_EQ(seen.rows.size(), kMbrSlots);
  EXPECT_EQ(seen.rows[3].start, 2048U + 3 * 64);
}

TEST(EmbrScheme, TheAreaGrowsUpToTheFirstTrackAndNotBeyond) {
  TableBench bench(embrDisk(false, 4));
  const u32 most = (3 * kEmbrSectorBytes - 28 - 6) / 28;
  u64 last = 2;
  for (u32 i = 0; i < most; ++i) {
    ASSERT_EQ(create(bench.drive(), 2048 + u64{i} * 64), Error::none) << i;
    EXPECT_LE(bench.drive().firstUsableSector() - last, 1U);
    last = bench.drive().firstUsableSector();
  }
  EXPECT_EQ(last, 4U);
  expectRefusal(bench, Error::noFreeEntry);
}

TEST(EmbrScheme, TheAreaDoesNotGrowIntoAPartition) {
  TableBench bench(embrDisk(false));
  createMany(bench.drive(), kEntriesOfOneSector - 1);
  ASSERT_EQ(create(bench.drive(), 2, 1), Error::none);
  expectRefusal(bench, Error::noFreeEntry);
}

TEST(EmbrScheme, TheAreaDoesNotGrowOverWhatIsNotItsOwnUnlessTheUserInsists) {
  TableBench bench(embrDisk(false));
  createMany(bench.drive(), kEntriesOfOneSector);
  bench.disk().setSector(2, std::vector<u8>(512, 0x5A));
  expectRefusal(bench, Error::sectorsInUse);
  EXPECT_EQ(bench.drive().add(newEntryAt(bench.drive(), 90'000, 16, 0x83), TrackContent::overwrite),
            Error::none);
  bench.reopen();
  EXPECT_EQ(bench.drive().table().usedSlots, kEntriesOfOneSector + 1);
  EXPECT_EQ(bench.drive().firstUsableSector(), 3U);
}

TEST(EmbrScheme, TheBootManagersItemsComeThroughEveryChangeByteForByte) {
  for (const unsigned seed : {1U, 2U, 3U, 4U, 5U, 6U}) {
    std::mt19937 random(seed);
    MemoryDisk disk = embrDisk(seed % 2 == 0);
    const std::vector<u8> items = addItems(disk, random, seed % 4, seed % 3);
    TableBench bench(std::move(disk));
    ASSERT_TRUE(bench.drive().isEmbr()) << seed;
    const auto expectItems = [&] {
      const EmbrImage image = imageOf(bench.disk());
      EXPECT_TRUE(std::ranges::equal(image.bootManagerTables(), items)) << seed;
    };
    for (u64 i = 0; i < 30; ++i) {
      const u32 used = bench.drive().table().usedSlots;
      if (used == 4 && bench.drive().table().slots == 4) {
        ASSERT_EQ(setEmbrLimit(bench.drive().tableContext(), false, false), Error::none);
      } else if (used > 3 && random() % 3 == 0) {
        ASSERT_EQ(bench.drive().remove(*bench.drive().findById(
                      imageOf(bench.disk()).entry(static_cast<u32>(random() % used)).id)),
                  Error::none);
      } else {
        ASSERT_EQ(create(bench.drive(), 2048 + i * 64), Error::none) << seed;
      }
      const EntryProperties wanted{.name = "item " + std::to_string(i), .attributes = kMptMultiOs};
      bench.reopen();
      ASSERT_EQ(bench.drive().changeProperties(
                    *bench.drive().findById(imageOf(bench.disk()).entry(0).id), wanted),
                Error::none);
      bench.reopen();
      expectItems();
    }
  }
}

TEST(EmbrScheme, LimitedTablesHaveASlotForEachOfTheirPartitions) {
  TableBench bench(embrDisk(true));
  createMany(bench.drive(), kMbrSlots);
  EXPECT_EQ(create(bench.drive(), 90'000), Error::noFreeEntry);
  EXPECT_EQ(rowsOf(bench.drive()), readTable(bench.disk()).rows);
  for (const auto& entry : bench.drive().table().entries) {
    EXPECT_EQ(entry->isFree(), entry->mbrSlot == kNoMbrSlot);
  }
  ASSERT_EQ(bench.drive().remove(*bench.drive().table().entries.at(1)), Error::none);
  bench.reopen();
  EXPECT_EQ(readTable(bench.disk()).rows.size(), 3U);
  EXPECT_EQ(create(bench.drive(), 90'000), Error::none);
  EXPECT_EQ(readTable(bench.disk()).rows.size(), 4U);
}

// A partition without a slot would be dropped at the next start of a limited table.
TEST(EmbrScheme, ALimitGivesEveryPartitionItsSlot) {
  TableBench bench(embrDisk(false));
  createMany(bench.drive(), 5);
  EXPECT_EQ(bench.drive().setLimitPrimaries(true, false), Error::tooManyPartitions);
  EXPECT_EQ(bench.reopen().table().slots, kMaxMptEntries);
  ASSERT_EQ(bench.drive().remove(*bench.drive().table().entries.at(1)), Error::none);
  bench.reopen();
  EXPECT_EQ(readTable(bench.disk()).rows.size(), 3U);
  const TableChange limit{
      "limit", [](Drive& d) { return d.setLimitPrimaries(true, true); }, picture, {}};
  expectFaultsAreTold(bench.disk(), limit);
  expectCutsLeaveOldOrNew(bench.disk(), limit);
  ASSERT_EQ(bench.drive().setLimitPrimaries(true, true), Error::none);
  EXPECT_EQ(bench.reopen().table().slots, kMbrSlots);
  EXPECT_EQ(rowsOf(bench.drive()), readTable(bench.disk()).rows);
  EXPECT_EQ(readTable(bench.disk()).rows.size(), 4U);
  EXPECT_EQ(recordAt<MbrRecord>(imageOf(bench.disk()).mbr())->slots[0].bootIndicator, kBootActive);
}

PartitionEntry& used(Drive& drive, std::size_t index) {
  for (const auto& entry : drive.table().entries)
    if (!entry->isFree() && index-- == 0) return *entry;
  ADD_FAILURE() << pictureOf(drive);
  return *drive.table().entries.front();
}

std::vector<TableChange> changes() {
  return {
      {"add", [](Drive& d) { return create(d, 50'000); }, picture, {}},
      {"remove", [](Drive& d) { return d.remove(used(d, 1)); }, picture, {}},
      {"properties",
       [](Drive& d) {
         return d.changeProperties(
             used(d, 1),
             {.type = 0x07, .name = "another name", .attributes = kMptMultiOs, .active = true});
       },
       picture,
       {}},
  };
}

TEST(EmbrScheme, EachFailedTransferLeavesTheTableThatTheErrorNames) {
  for (const bool limited : {false, true}) {
    TableBench bench(embrDisk(limited));
    createMany(bench.drive(), 3);
    for (const TableChange& change : changes()) expectFaultsAreTold(bench.disk(), change);
  }
}

TEST(EmbrScheme, APowerCutLeavesTheOldTableOrTheNewOne) {
  for (const bool limited : {false, true}) {
    TableBench bench(embrDisk(limited));
    createMany(bench.drive(), 3);
    for (const TableChange& change : changes()) expectCutsLeaveOldOrNew(bench.disk(), change);
  }
}

// A change that fails once leaves nothing behind, also where the table was to grow: else the next
// one would find its way blocked.
TEST(EmbrScheme, AfterOneFailedWriteTheDiskIsAsItWas) {
  TableBench bench(embrDisk(false));
  createMany(bench.drive(), kEntriesOfOneSector);
  std::vector<TableChange> all = changes();
  for (const TableChange& change : all) {
    u32 failed = 0;
    forEachFault(bench.disk(), kFailedFlushes, [&](FaultRound& round) {
      FakeHost host;
      const auto drive = TableBench::openOn(round.sharedDisk(), host);
      round.begin();
      const Failure error = change.run(*drive);
      if (!round.wasHit() || round.fault().forever) return;
      ++failed;
      EXPECT_EQ(error, Error::write) << change.what;
      EXPECT_TRUE(round.medium().sameContent(bench.disk())) << change.what;
      round.heal();
      EXPECT_EQ(create(*TableBench::openOn(round.sharedDisk(), host), 90'000), Error::none)
          << change.what;
    });
    EXPECT_GE(failed, 2U) << change.what;
  }
}

TEST(EmbrScheme, NoCountOrLengthIsBelieved) {
  struct Damage {
    const char* what;
    std::size_t at;  // from the header
    u8 value;
    Failure expected = Error::notThisFormat;
  };
  const Damage damages[] = {
      {"signature", 0, 'X'},
      {"version", 4, 0x20},
      {"no area", 6, 0},
      {"area beyond the track", 6, 200},
      {"end before the area", 5, 1},
      {"end beyond the track", 5, 64},
      {"MPT version", 21, 0x80},
      {"entries beyond the area", 22, 255},
      {"MBFT signature", 28 + 28, 'X'},
      {"MBFT items beyond the area", 28 + 28 + 5, 200},
      {"nothing that is believed", 13, 0, Error::none},
  };
  MptEntryRecord entry{};
  entry.firstLba = 1000;
  entry.lastLba = 1999;
  entry.id = 1;
  entry.type = 0x83;
  for (const Damage& damage : damages) {
    MemoryDisk disk = MemoryDisk(kSectors);
    EmbrImage image;
    EXPECT_EQ(EmbrImage::read(disk, image), Error::notThisFormat);
    image.create({1023, 254, 63}, false);
    ASSERT_EQ(image.insert(0, entry), Error::none);
    ASSERT_EQ(image.write(disk), Error::none);
    std::vector<u8> sector = disk.sector(1);
    sector[damage.at] = damage.value;
    disk.setSector(1, sector);
    EXPECT_EQ(EmbrImage::read(disk, image), damage.expected) << damage.what;
  }
}

}  // namespace
}  // namespace tallowin
