// What a drive makes of the tables that are on disks, sound ones and others.
#include <gtest/gtest.h>

#include <algorithm>

#include "disk/faulty_disk.h"
#include "disk/mbr_record.h"
#include "ptable/table_bench.h"

namespace tallowin {
namespace {

constexpr u64 kMiBSectors = 2048;

// Tables that sfdisk made are read as sfdisk reads them.
TEST(DriveRead, AgreesWithSfdiskOnEveryKindOfTable) {
  std::string many = "label: dos\n2048,20480,83\n,,5\n";
  for (int i = 0; i < 56; ++i)
    many += std::to_string(i + 5) + ":size=2048,type=" + (i % 2 == 0 ? "83" : "7") + "\n";
  const std::string scripts[] = {"label: dos\n", "label: dos\n2048,4096,83,*\n10000,5000,c\n",
                                 R"(label: dos
1:start=100000,size=4096,type=83
2:start=2048,size=4096,type=7
4:start=50000,size=100,type=82
)",
                                 R"(label: dos
2048,2048,83
10240,200000,f
5:start=20480,size=2048,type=83
6:start=150000,size=4096,type=b
7:start=40960,size=2048,type=82
)",
                                 many};
  for (const std::string& script : scripts) {
    TableBench bench(diskFromScript(400 * kMiBSectors, script));
    const SfdiskTable judged = readTable(bench.disk());
    EXPECT_EQ(judged.problems, "") << script;
    EXPECT_EQ(rowsOf(bench.drive()), judged.rows) << script;
    EXPECT_EQ(bench.drive().diskSignature(), judged.diskSignature);
    EXPECT_FALSE(bench.drive().table().hasErrors()) << pictureOf(bench.drive());
  }
}

struct Slot {
  u8 type;
  u32 start;
  u32 count;
  u8 indicator = 0;
};

void putSlots(std::array<MbrSlotRecord, kMbrSlots>& slots, const std::vector<Slot>& wanted) {
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    slots[i].type = wanted[i].type;
    slots[i].startLba = wanted[i].start;
    slots[i].sectorCount = wanted[i].count;
    slots[i].bootIndicator = wanted[i].indicator;
  }
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
      {"no sectors", {{0x83, 4096, 0}}, "free 2048..4095\n1: 4096..4095 83h !\n"},
      {"neither start nor sectors", {{0x83, 0, 0}}, "1: 0..-1 83h !\n"},
      {"an extended partition over the whole disk",
       {{0x05, 0, 204800}, {0x83, 4096, 2048}},
       "1: 0..204799 05h !\n2: 4096..6143 83h\n"},
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
  MemoryDisk fat(204800);
  std::vector<u8> boot(512);
  std::ranges::copy(std::string_view("\xEB\x3C\x90MSDOS5.0"), boot.begin());
  std::ranges::copy(std::string_view("FAT32   "), boot.begin() + 82);
  boot[28] = 1;
  boot[510] = 0x55;
  boot[511] = 0xAA;
  fat.setSector(0, boot);
  TableBench whole(std::move(fat));
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

}  // namespace
}  // namespace tallowin
