// What a drive makes of the tables that are on disks, sound ones and others, and what flows ask it.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "disk/faulty_disk.h"
#include "disk/mbr_record.h"
#include "ptable/table_bench.h"
#include "support/oracle.h"

namespace tallowin {
namespace {

constexpr u64 kMiBSectors = 2048;

// Tables that other programs made are read as sfdisk reads them.
TEST(DriveRead, AgreesWithSfdiskOnTheTablesOfEveryMaker) {
  const auto volumes = [](int count) {
    std::string script = "label: dos\n2048,20480,83\n,,5\n";
    for (int i = 0; i < count; ++i)
      script += std::to_string(i + 5) + ":size=2048,type=" + (i % 2 == 0 ? "83" : "7") + "\n";
    return script;
  };
  struct Made {
    u64 mib;
    std::string script;   // for sfdisk; empty: it makes no table
    const char* command;  // what another program then does; empty: nothing
  };
  const Made tables[] = {
      {10, "label: dos\nstart=2048,size=18432,type=83,bootable\n", ""},
      {100, "label: dos\nstart=2048,size=2048,type=16\nstart=8192,size=77,type=1b\n",
       "sfdisk --delete IMAGE 1"},
      {100,
       "label: dos\n1:start=100000,size=4096,type=83\n2:start=2048,size=4096,type=27\n"
       "4:start=50000,size=100,type=ef\n",
       ""},
      {400,
       "label: dos\n2048,2048,83\n10240,200000,f\n5:start=20480,size=2048,type=83\n"
       "6:start=150000,size=4096,type=1b\n7:start=40960,size=2048,type=82\n",
       ""},
      {400, volumes(56), ""},
      {400, volumes(5), "sfdisk --delete IMAGE 7"},
      {400, "",
       "parted -s -a cylinder IMAGE mklabel msdos unit cyl mkpart primary fat16 0 10 "
       "mkpart extended 11 40 mkpart logical fat32 12 20"},
      {100, "",
       "parted -s -a none IMAGE mklabel msdos unit s mkpart primary ext4 63 10000 "
       "mkpart extended 10001 150000 mkpart logical ext4 10064 60000 mkpart logical ext4 60101 "
       "150000 set 1 boot on"},
      {3 * 1024 * 1024,
       "label: dos\nstart=2048,size=4294965247,type=f\nv5: size=1T,type=7\n"
       "v6: size=500G,type=83\n",
       ""},
  };
  for (const Made& made : tables) {
    SCOPED_TRACE(made.script + made.command);
    std::vector<std::vector<std::string>> commands;
    if (!made.script.empty()) commands.push_back(words("sfdisk -q IMAGE"));
    if (*made.command != '\0') commands.push_back(words(made.command));
    TableBench bench(diskFromCommands(made.mib * kMiB, 512, commands, made.script));
    const SfdiskTable judged = readTable(bench.disk());
    EXPECT_EQ(rowsOf(bench.drive()), judged.rows);
    EXPECT_EQ(bench.drive().diskSignature(), judged.diskSignature);
    EXPECT_FALSE(bench.drive().table().hasErrors()) << pictureOf(bench.drive());
  }
}

struct Slot {
  u8 type;
  u64 start;
  u64 count;
};

void putSlots(std::array<MbrSlotRecord, kMbrSlots>& slots, const std::vector<Slot>& wanted) {
  for (std::size_t i = 0; i < wanted.size(); ++i)
    slots[i] = slot(wanted[i].type, wanted[i].start, wanted[i].count);
}

void putMbr(MemoryDisk& disk, const std::vector<Slot>& slots) {
  MbrRecord mbr{};
  putSlots(mbr.slots, slots);
  mbr.signature.set();
  disk.setSector(0, bytesOf(mbr));
}

// `number` is the byte behind the EBR.
void putEbr(MemoryDisk& disk, u64 lba, const std::vector<Slot>& slots, u8 number = 0,
            std::string_view name = {}) {
  EbrRecord ebr{};
  putSlots(ebr.slots, slots);
  std::ranges::copy(name, ebr.name.begin());
  ebr.signature.set();
  disk.setSector(lba, bytesOf(ebr));
  disk.setSector(lba + 1, std::vector<u8>{number});
}

// The default unit is a cylinder of 255 x 63 sectors; the first block starts at 63.
TEST(DriveRead, FreeBlocksFollowTheUnitOfTheDrive) {
  MemoryDisk disk(100 * 16065 + 5);
  TableBench bench(std::move(disk));
  EXPECT_EQ(pictureOf(bench.drive()), "free 63..1606499\n");
  bench.reopen(alignedTo(kMiBSectors));
  EXPECT_EQ(pictureOf(bench.drive()), "free 2048..1605631\n");
  putMbr(bench.disk(), {{0x83, 63, 16065 - 63}, {0x83, 20000, 1000}, {0x83, 21000, 100}});
  bench.reopen();
  // The 3935 sectors before slot 2 and the rest of the cylinder of slot 3 make no block.
  EXPECT_EQ(pictureOf(bench.drive()),
            "1: 63..16064 83h\n2: 20000..20999 83h\n3: 21000..21099 83h\nfree 32130..1606499\n");
}

TEST(DriveRead, DamagedTablesAreShownWithTheirErrors) {
  struct Case {
    const char* what;
    std::vector<Slot> slots;
    const char* picture;
  };
  const Case cases[] = {
      {"overlap: both marked, nothing free behind",
       {{0x83, 4096, 8192}, {0x83, 8192, 8192}, {0x83, 40960, 2048}},
       "free 2048..4095\n1: 4096..12287 83h !\n2: 8192..16383 83h !\n3: 40960..43007 83h\n"},
      {"overlaps behind an overlap",
       {{0x83, 2048, 4096}, {0x83, 4096, 4096}, {0x83, 20000, 10000}, {6, 25000, 10000}},
       "1: 2048..6143 83h !\n2: 4096..8191 83h !\n3: 20000..29999 83h !\n"
       "4: 25000..34999 06h !\n"},
      {"two in a larger one",
       {{0x83, 2048, 60000}, {0x83, 4096, 2048}, {0x83, 30000, 2048}, {0x83, 65536, 2048}},
       "1: 2048..62047 83h !\n2: 4096..6143 83h !\n3: 30000..32047 83h !\n4: 65536..67583 83h\n"},
      {"an overlap behind an entry without sectors",
       {{0x83, 2048, 0}, {0x83, 20000, 10000}, {0x83, 25000, 10000}},
       "1: 2048..2047 83h !\n2: 20000..29999 83h !\n3: 25000..34999 83h !\n"},
      {"no sectors", {{0x83, 4096, 0}}, "free 2048..4095\n1: 4096..4095 83h !\n"},
      {"neither start nor sectors", {{0x83, 0, 0}}, "1: 0..-1 83h !\n"},
      {"an extended partition over the whole disk",
       {{0x05, 0, 204800}, {0x83, 4096, 2048}},
       "1: 0..204799 05h !\n2: 4096..6143 83h !\n"},
      {"sectors without a type", {{0, 4096, 8192}}, "free 2048..4095\n1: 4096..12287 100h !\n"},
      {"ends behind the disk",
       {{0x83, 4096, 0xFFFFFFFF}},
       "free 2048..4095\n1: 4096..4294971390 83h !\n"},
      {"starts behind the disk",
       {{0x83, 0xFFFFFFF0, 0xFFFFFFFF}},
       "free 2048..204799\n1: 4294967280..8589934574 83h !\n"},
  };
  for (const Case& c : cases) {
    MemoryDisk disk(204800);
    putMbr(disk, c.slots);
    TableBench bench(std::move(disk), alignedTo(kMiBSectors));
    EXPECT_EQ(pictureOf(bench.drive()), c.picture) << c.what;
    EXPECT_TRUE(bench.drive().table().hasErrors()) << c.what;
  }
}

// Where a volume shares sectors it must not be formatted or wiped, whatever else is wrong.
TEST(DriveRead, VolumesThatShareSectorsAreMarkedAll) {
  MemoryDisk disk(204800);
  putMbr(disk, {{0x05, 2048, 40960}, {0x83, 10000, 8192}});
  putEbr(disk, 2048, {{6, 2048, 16384}});
  TableBench bench(disk.copy(), alignedTo(kMiBSectors));
  EXPECT_EQ(pictureOf(bench.drive()),
            "1: 2048..43007 05h !\n  5: 4096..20479 06h !\n2: 10000..18191 83h !\n");
  for (const u32 last : {0U, 4096U}) {  // a chain that ends, and one that turns back
    putMbr(disk, {{0x05, 2048, 102400}});
    putEbr(disk, 2048, {{6, 2048, 8192}, {5, 4096, 8192}});
    putEbr(disk, 2048 + 4096, {{6, 2048, 2048}, {5, 20480, 8192}});
    putEbr(disk, 2048 + 20480, {{6, 2048, 8192}, {5, 24576, 8192}});
    putEbr(disk, 2048 + 24576, {{6, 2048, 8192}, {last != 0 ? u8{5} : u8{0}, last, last}});
    TableBench chain(disk.copy(), alignedTo(kMiBSectors));
    std::size_t marked = 0;
    for (const PartitionEntry* entry : entriesOf(chain.drive()))
      if (entry->isVolume() && entry->isInError()) ++marked;
    EXPECT_EQ(marked, 4U) << pictureOf(chain.drive());
  }
}

TEST(DriveRead, ChainsThatDoNotEndAreCutWhereTheyTurn) {
  constexpr u32 kStart = 10240;
  const auto chainOn = [](auto fill) {
    MemoryDisk disk(204800);
    putMbr(disk, {{0x05, kStart, 102400}});
    fill(disk);
    return TableBench(std::move(disk), alignedTo(kMiBSectors));
  };
  const auto statusOf = [](TableBench& bench) {
    return dynamic_cast<TableEntry*>(bench.drive().findByKernelNumber(1))->volumes->status;
  };

  auto back = chainOn([](MemoryDisk& disk) {
    putEbr(disk, kStart, {{0x83, 2048, 2048}, {0x05, 8192, 4096}});
    putEbr(disk, kStart + 8192, {{0x83, 2048, 2048}, {0x05, 0, 4096}});
  });
  EXPECT_EQ(statusOf(back), u32{kChainLoops});
  EXPECT_EQ(back.drive().partitionCount(), 3U);

  auto self = chainOn([](MemoryDisk& disk) {
    putEbr(disk, kStart, {{0x83, 2048, 2048}, {0x05, 0, 9}});
  });
  EXPECT_EQ(statusOf(self), u32{kChainLoops});

  // Thousands of EBRs, of which the ids suffice for 255, or which hold nothing at all.
  for (const u8 type : {u8{0x83}, u8{0}}) {
    auto endless = chainOn([type](MemoryDisk& disk) {
      for (u32 i = 0; i < 4000; ++i)
        putEbr(disk, kStart + i * 16,
               {{type, 2U * (type != 0), 8U * (type != 0)}, {0x05, (i + 1) * 16, 16}});
    });
    EXPECT_EQ(statusOf(endless), u32{kChainOutOfMemory});
    EXPECT_EQ(endless.drive().partitionCount(), type == 0 ? 1U : 256U);
  }

  auto outside = chainOn([](MemoryDisk& disk) {
    putEbr(disk, kStart, {{0x83, 2048, 2048}, {0x05, 150000, 4096}});
    putEbr(disk, kStart + 150000, {{0x83, 2048, 2048}, {0x05, 0xFFFFFF00, 4096}});
  });
  EXPECT_EQ(statusOf(outside), u32{kChainReadError});
  EXPECT_EQ(pictureOf(outside.drive()),
            "free 2048..10239\n1: 10240..112639 05h !\n  5: 12288..14335 83h\n"
            "  6: 162288..164335 83h !\n");
}

TEST(DriveRead, VolumesKeepTheirNumbersNamesAndHiddenTypes) {
  constexpr u32 kStart = 10240;
  const auto fill = [](MemoryDisk& disk) {
    putMbr(disk, {{0x0F, kStart, 102400}});
    putEbr(disk, kStart, {{0x83, 2048, 2048}, {0x05, 8192, 4096}}, 0, "first   ");
    putEbr(disk, kStart + 8192, {{0x05, 16384, 4096}, {0xED, 1, 2048}}, 0, "second");
    auto second = disk.sector(kStart + 8192);
    recordAt<EbrRecord>(std::span(second))->hiddenType = 0x0B;
    disk.setSector(kStart + 8192, second);
    putEbr(disk, kStart + 16384, {{0x83, 2048, 2048}}, 128, std::string_view("\0behind", 7));
  };
  MemoryDisk disk(204800);
  fill(disk);
  MemoryDisk before = disk.copy();
  TableBench bench(std::move(disk), alignedTo(kMiBSectors));
  Drive& drive = bench.drive();
  EXPECT_EQ(drive.findById(0x180)->name, "first");
  EXPECT_EQ(drive.findById(0x181)->name, "second");
  EXPECT_EQ(drive.findById(0x181)->type, 0x0B);
  EXPECT_EQ(drive.findById(0x181)->mbrType, 0xED);
  EXPECT_EQ(drive.findById(0x182)->name, "behind");
  EXPECT_TRUE(bench.disk().sameContent(before));

  MemoryDisk counted(204800);
  fill(counted);
  DriveOpenOptions options = alignedTo(kMiBSectors);
  options.flags |= kDriveSequentialIds | kDrivePreferLabels;
  options.labelReader = [](DiskDevice&, const PartitionEntry& e) {
    return e.type == 0x0B ? std::string("LABEL") : std::string();
  };
  TableBench sequential(std::move(counted), options);
  EXPECT_EQ(sequential.drive().findById(0x101)->name, "first");
  EXPECT_EQ(sequential.drive().findById(0x102)->name, "LABEL");
}

TEST(DriveRead, ReadErrorsHideNoMoreThanTheyMust) {
  MemoryDisk disk =
      diskFromScript(204800,
                     "label: dos\n2048,2048,83\n10240,102400,5\n"
                     "5:size=2048,type=83\n6:size=2048,type=83\n7:size=2048,type=83\n");
  FakeHost host;
  const auto openWith = [&](FaultyDisk::SectorRange bad) {
    auto faulty = std::make_shared<FaultyDisk>(disk);
    faulty->failReadsOf(bad);
    return TableBench::openOn(faulty, host);
  };
  auto boot = openWith({0, 0});
  EXPECT_EQ(boot->table().status, u32{kTableUnreadable});
  EXPECT_EQ(pictureOf(*boot), "");
  EXPECT_EQ(openWith({20, 30})->partitionCount(), 5U);
  const u64 secondEbr =
      10240 + dynamic_cast<VolumeEntry&>(*openWith({9, 9})->findByKernelNumber(6)).ebr;
  auto chain = openWith({secondEbr, secondEbr});
  EXPECT_EQ(chain->partitionCount(), 3U);
  EXPECT_TRUE(chain->table().hasErrors());
}

TEST(DriveRead, WholeDisksForeignSchemesAndHugeDisks) {
  TableBench whole(diskFromCommands(204800 * 512, 512, {words("mkfs.fat -F 32 IMAGE")}));
  EXPECT_STREQ(whole.drive().schemeName(), "VOL");
  EXPECT_EQ(pictureOf(whole.drive()), "0: 0..204799 0Bh\n");
  EXPECT_EQ(whole.drive().findByKernelNumber(0)->name, "----->");
  EXPECT_EQ(whole.drive().ensureDiskSignature(), Error::unsupportedForm);
  EXPECT_EQ(whole.drive().checkUnchanged(), Error::none);
  DriveOpenOptions tablesOnly;
  tablesOnly.flags = kDriveReadVolumes;
  EXPECT_EQ(whole.reopen(tablesOnly).table().status, u32{kTableNone});
  whole.reopen();
  whole.disk().setSector(0, std::vector<u8>(512));
  EXPECT_EQ(whole.drive().checkUnchanged(), Error::tableChangedMeanwhile);

  TableBench huge(MemoryDisk(u64{6} * 1024 * kMiBSectors * 1024), alignedTo(kMiBSectors));
  EXPECT_EQ(huge.drive().lastUsableSector(), u64{0xFFFFFFFF});
  EXPECT_EQ(pictureOf(huge.drive()), "free 2048..4294967295\n");
}

TEST(DriveQuery, AlignmentIsAPowerOfTwoBelowTheDisk) {
  TableBench bench{MemoryDisk(204800)};
  Drive& drive = bench.drive();
  EXPECT_EQ(alignmentUnit(drive.alignment()), 16065U);
  EXPECT_EQ(firstAlignedSector(drive.alignment()), 63U);
  EXPECT_TRUE(drive.setAlignment(-4096));
  EXPECT_EQ(alignmentUnit(drive.alignment()), 8U);
  for (const i64 bad : {i64{-3000}, i64{3}, i64{262144}, std::numeric_limits<i64>::min()})
    EXPECT_FALSE(drive.setAlignment(bad)) << bad;
  EXPECT_EQ(alignmentUnit(drive.alignment()), 8U);
  EXPECT_TRUE(drive.setAlignment(AlignmentRules::kDefaultUnit));
  EXPECT_TRUE(drive.setGeometry({99, 15, 0}));
  EXPECT_FALSE(drive.setGeometry({99, 15, 63}));
  EXPECT_EQ(drive.lastChsSector(), 100U * 16 * 63 - 1);
}

TEST(DriveQuery, RegionsIdsAndContainers) {
  TableBench bench(
      diskFromScript(204800,
                     "label: dos\n1:start=2048,size=4096,type=83\n"
                     "2:start=20480,size=102400,type=f\n5:start=22528,size=8192,type=83\n"
                     "6:start=61440,size=8192,type=b\n"),
      alignedTo(2048));
  Drive& drive = bench.drive();
  EXPECT_NE(drive.flags() & kDriveAligned1MiB, 0U);
  const SectorRegion used = *drive.usedRegion();
  EXPECT_EQ(used.first, 2048U);
  EXPECT_EQ(used.last, 122879U);

  const auto regionIs = [&](const PartitionEntry& entry, u64 first, u64 last) {
    const SectorRegion region = drive.freeRegionAround(entry);
    EXPECT_EQ(region.first, first);
    EXPECT_EQ(region.last, last);
  };
  regionIs(*drive.findByKernelNumber(1), 1, 20479);
  regionIs(*drive.findByKernelNumber(2), 6144, 204799);
  const auto& sixth = dynamic_cast<VolumeEntry&>(*drive.findByKernelNumber(6));
  regionIs(sixth, 30720, 122879);
  regionIs(*drive.findByKernelNumber(5), 20480, 20480 + sixth.ebr - 1);
  EXPECT_EQ(drive.volumeGap(*drive.findByKernelNumber(5)), 2048U);
  EXPECT_EQ(drive.volumeGap(*drive.findByKernelNumber(1)), 0U);
  EXPECT_EQ(drive.containerOf(sixth), drive.findByKernelNumber(2));
  EXPECT_EQ(drive.containerOf(*drive.findByKernelNumber(1)), nullptr);

  std::vector<PartitionId> ids;
  for (const PartitionEntry* entry : entriesOf(drive)) ids.push_back(entry->id);
  std::ranges::sort(ids);
  EXPECT_EQ(std::ranges::adjacent_find(ids), ids.end());
}

TEST(DriveQuery, TypesFollowTheEndOfTheChsArea) {
  TableBench bench{MemoryDisk(u64{40} * 1024 * 2048)};
  Drive& drive = bench.drive();
  const u64 inside = drive.lastChsSector();
  struct Variant {
    u16 type;
    u16 inside;
    u16 beyond;
  };
  for (const Variant& v :
       {Variant{0x01, 0x01, 0x01}, Variant{0x04, 0x04, 0x0E}, Variant{0x0E, 0x06, 0x0E},
        Variant{0x0B, 0x0B, 0x0C}, Variant{0x0C, 0x0B, 0x0C}, Variant{0x05, 0x05, 0x0F},
        Variant{0x0F, 0x05, 0x0F}, Variant{0x16, 0x16, 0x1E}, Variant{0x83, 0x83, 0x83}}) {
    EXPECT_EQ(drive.typeForEnd(v.type, inside), v.inside) << v.type;
    EXPECT_EQ(drive.typeForEnd(v.type, inside + 1), v.beyond) << v.type;
  }
}

}  // namespace
}  // namespace tallowin
