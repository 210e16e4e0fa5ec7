// What the search for lost partitions makes of headers that no program of ours writes, of bad
// sectors and of a stop; tests/cli has disks made by other programs.
#include "ptable/lost_partitions.h"

#include <gtest/gtest.h>

#include <cstring>

#include "disk/faulty_disk.h"
#include "probe/content_record.h"
#include "ptable/table_bench.h"

namespace tallowin {
namespace {

constexpr u64 kSectors = 65536;

class CountingJob : public SilentJob {
 public:
  void phase(Phase, u64 totalBytes) override { total = totalBytes; }
  void advance(u64 bytes) override { done += bytes; }
  bool shouldStop() override { return polls++ >= stopAt; }

  u64 total = 0;
  u64 done = 0;
  u64 polls = 0;
  u64 stopAt = kAllOnes64;
};

class LostPartitionsTest : public testing::Test {
 protected:
  template <typename Record>
  void put(u64 byte, const Record& record) {
    std::vector<u8> sector = disk_.sector(byte / 512);
    std::memcpy(sector.data() + byte % 512, &record, sizeof record);
    disk_.setSector(byte / 512, sector);
  }
  // With FATs that begin as they should.
  void putFat(u64 lba, u32 hiddenSectors, u16 sectors = 4096) {
    VolumeBootRecord boot{};
    boot.jump[0] = 0xEB;
    boot.sectorSizeBytes = 512;
    boot.sectorsPerCluster = 4;
    boot.reservedSectors = 1;
    boot.fatCount = 2;
    boot.rootEntries = 512;
    boot.sectorCount16 = sectors;
    boot.media = 0xF8;
    boot.sectorsPerFat = 8;
    boot.hiddenSectors = hiddenSectors;
    put(lba * 512, boot);
    put(lba * 512 + 510, Le16(0xAA55));
    for (const u64 fat : {lba + 1, lba + 9}) put(fat * 512, std::array<u8, 3>{0xF8, 0xFF, 0xFF});
  }
  void putEbr(u64 lba, u32 volume, u32 sectors, u32 next = 0) {
    EbrRecord ebr{};
    ebr.slots[0] = slot(0x83, volume, sectors);
    if (next != 0) ebr.slots[1] = slot(0x05, next, sectors + volume);
    ebr.signature.set();
    put(lba * 512, ebr);
  }

  void putLuks(u64 lba) {
    LuksHeaderRecord luks{};
    luks.magic = {'L', 'U', 'K', 'S', '\xBA', '\xBE'};
    luks.version = 2;
    luks.headerBytes = 16384;
    luks.uuid[0] = 'u';
    put(lba * 512, luks);
    put(lba * 512 + 16384, std::array<char, 6>{'S', 'K', 'U', 'L', '\xBA', '\xBE'});
  }

  // "FAT16 2048+4096 sure", one a line.
  std::string search(DiskDevice& disk, bool isInsideExtended = false) {
    std::unique_ptr<Drive> drive;
    std::shared_ptr<DiskDevice> shared(&disk, [](DiskDevice*) {});
    EXPECT_FALSE(Drive::open(shared, host_, {}, drive));
    report_ = {};
    EXPECT_FALSE(findLostPartitions(*drive, {1, kSectors - 1, isInsideExtended}, job_, report_));
    const char* const words[] = {"sure", "likely", "doubtful"};
    std::string text;
    for (const LostPartition& one : report_.found)
      text += one.kind + " " + std::to_string(one.startSector) + "+" +
              std::to_string(one.endSector + 1 - one.startSector) + " " +
              words[static_cast<std::size_t>(one.confidence)] + "\n";
    return text;
  }
  std::string search() { return search(disk_); }

  MemoryDisk disk_{kSectors};
  FakeHost host_;
  CountingJob job_;
  LostReport report_;
};

TEST_F(LostPartitionsTest, ABootSectorOfAnotherPlaceIsInDoubtOrNothing) {
  putFat(2048, 2048);
  putFat(16384, 63);  // its FATs are there
  putFat(32768, 63);
  put(32769 * 512, u8{0});  // and these are not
  putFat(40960, 40960);
  put(40961 * 512, u8{0});
  putFat(61442, 61442);  // leaves the disk
  EXPECT_EQ(search(), "FAT12 2048+4096 sure\nFAT12 16384+4096 doubtful\nFAT12 40960+4096 likely\n");
  EXPECT_EQ(job_.done, job_.total);
  EXPECT_EQ(job_.done, (kSectors - 1) * 512);
}

TEST_F(LostPartitionsTest, InAnExtendedPartitionEachVolumeHasAPlaceForItsEbr) {
  putFat(63, 63);
  putFat(8192, 63);
  putFat(12288, 12288);  // nothing lies between it and the one before
  EXPECT_EQ(search(disk_, true),
            "FAT12 63+4096 sure\nFAT12 8192+4096 sure\nFAT12 12288+4096 sure\n");
  EXPECT_EQ(report_.found[0].ebrSector, 1U);
  EXPECT_EQ(report_.found[1].ebrSector, 8192U - 63);
  EXPECT_EQ(report_.found[2].ebrSector, std::nullopt);
}

TEST_F(LostPartitionsTest, AnEbrIsPlacedWhereNothingLies) {
  putFat(16384, 7);  // in doubt, up to 20479
  putFat(20500, 63);
  putFat(28672, 63);
  put((28672 - 63) * 512, u8{1});
  putFat(40960, 63);
  putEbr(40950, 10, 4096);
  EXPECT_EQ(search(disk_, true),
            "FAT12 16384+4096 doubtful\nFAT12 20500+4096 sure\nFAT12 28672+4096 sure\n"
            "FAT12 40960+4096 sure\n");
  EXPECT_EQ(report_.found[1].ebrSector, 20480U) << "not in the volume before it";
  EXPECT_EQ(report_.found[2].ebrSector, 28672U - 62) << "over zeros";
  EXPECT_EQ(report_.found[3].ebrSector, 40950U) << "over the old one";
}

TEST_F(LostPartitionsTest, AChainIsOneFindUnlessItIsNone) {
  putEbr(4096, 63, 4000, 8192);
  putFat(4096 + 63, 63, 4000);
  putEbr(12288, 2048, 1000);
  EXPECT_EQ(search(), "Extended 4096+11240 sure\n");
  EXPECT_EQ(report_.found[0].volumeCount, 2U);
  // Another program deleted its first volume, and one was made in that place.
  putEbr(4096, 8192, 4000, 63);
  putEbr(4159, 63, 4000);
  putFat(12288, 8192, 4000);
  EXPECT_EQ(search(), "Extended 4096+12192 sure\n");
  EXPECT_EQ(report_.found[0].volumeCount, 2U);
  // The boot sector of a disk has code; a chain that loops, or that leads nowhere, is none.
  putEbr(20480, 63, 100);
  put(20480 * 512, u8{0xFA});
  putEbr(24576, 63, 100, 63);
  putEbr(28672, 63, 100, 5000);
  EXPECT_EQ(search(), "Extended 4096+12192 sure\nExtended 20480+163 doubtful\n");
}

TEST_F(LostPartitionsTest, ACertainFindDoubtsWhatItContradicts) {
  putFat(2048, 2048, 20000);
  put(2049 * 512, u8{0});
  putFat(8192, 8192);
  EXPECT_EQ(search(), "FAT16 2048+20000 doubtful\nFAT12 8192+4096 sure\n");
  put(8193 * 512, u8{0});
  EXPECT_EQ(search(), "FAT16 2048+20000 likely\n") << "what lies in it is a file of it";
}

// Of the time when partitions began on a track.
TEST_F(LostPartitionsTest, AnOlderPartitionDoesNotHideTheOnesOfNow) {
  putFat(63, 63, 30000);
  putFat(2048, 2048);
  putFat(8192, 8192);
  EXPECT_EQ(search(), "FAT16 63+30000 doubtful\nFAT12 2048+4096 sure\nFAT12 8192+4096 sure\n");
}

// Which of two that begin alike was made last, nobody can tell: none is chosen, none is lost.
TEST_F(LostPartitionsTest, PartitionsInsideAnotherOneThatSayTheirPlaceAreOffered) {
  putFat(2048, 2048, 40000);
  putFat(8192, 8192);
  putFat(16384, 63);  // an image in a file of it
  putFat(20480, 20480);
  putFat(49152, 49152);
  EXPECT_EQ(search(),
            "FAT16 2048+40000 doubtful\nFAT12 8192+4096 doubtful\n"
            "FAT12 20480+4096 doubtful\nFAT12 49152+4096 sure\n");
  EXPECT_TRUE(report_.found[0].isContested && report_.found[1].isContested);
  EXPECT_FALSE(report_.found.at(3).isContested);
  EXPECT_EQ(job_.done, job_.total);
}

TEST_F(LostPartitionsTest, OfTwoThatWereUsedOnDifferentDaysTheLaterOneIsSure) {
  const auto putLabel = [this](u64 lba, u32 year) {
    std::array<u8, 32> entry{'L', 'A', 'B', 'E', 'L', ' ', ' ', ' ', ' ', ' ', ' ', 8};
    entry[24] = 0x21;  // the first of January
    entry[25] = static_cast<u8>((year - 1980) << 1);
    put((lba + 17) * 512, entry);
  };
  putFat(2048, 2048, 40000);
  putFat(8192, 8192);
  putFat(20480, 20480);
  for (const u64 lba : {8192U, 20480U}) putLabel(lba, 2010);
  putLabel(2048, 2020);
  EXPECT_EQ(search(),
            "FAT16 2048+40000 sure\nFAT12 8192+4096 doubtful\nFAT12 20480+4096 doubtful\n");
  EXPECT_TRUE(report_.found[1].isEarlier);
  putLabel(2048, 2000);
  EXPECT_EQ(search(), "FAT16 2048+40000 doubtful\nFAT12 8192+4096 sure\nFAT12 20480+4096 sure\n");
  EXPECT_TRUE(report_.found[0].isEarlier);
}

TEST_F(LostPartitionsTest, AnImageInAFileIsNoPartition) {
  putFat(2048, 2048, 40000);
  putFat(8192, 2048);
  putFat(10000, 63);
  EXPECT_EQ(search(), "FAT16 2048+40000 sure\n");
}

// What does not say where it belongs is offered too, for the other may be an old remain.
TEST_F(LostPartitionsTest, WhatLiesInAnotherOneAndNamesNoPlaceIsOfferedInDoubt) {
  putFat(2048, 2048, 60000);
  putLuks(32768);
  const std::string found = search();
  EXPECT_EQ(found.find("FAT16 2048+60000 sure\nLUKS2 32768+"), 0U) << found;
  EXPECT_EQ(report_.found.at(1).confidence, Confidence::doubtful);
}

TEST_F(LostPartitionsTest, AChainInsideAnotherOneIsOffered) {
  constexpr u64 kCylinder = 16065;
  putFat(2048, 2048, 60000);
  putEbr(kCylinder, 63, 4000);
  putFat(kCylinder + 63, 63, 4000);
  EXPECT_EQ(search(), "FAT16 2048+60000 doubtful\nExtended 16065+4063 doubtful\n");
  // The same as volumes of an extended partition.
  EXPECT_EQ(search(disk_, true), "FAT16 2048+60000 doubtful\nFAT12 16128+4000 doubtful\n");
  // What a chain has of its own is none inside another one.
  putEbr(kCylinder, 63, 40000);
  putFat(kCylinder + 63, kCylinder + 63, 40000);
  disk_.setSector(2048, std::vector<u8>(512));
  EXPECT_EQ(search(), "Extended 16065+40063 sure\n");
}

TEST_F(LostPartitionsTest, HeadersOfFormsThatNoProgramHereMakes) {
  HfsPlusHeaderRecord hfs{};
  hfs.signature = {'H', '+'};
  hfs.version = 4;
  hfs.blockBytes = 4096;
  hfs.blockCount = 1000;
  hfs.catalogBlock = 10;
  put(2048 * 512 + 1024, hfs);
  put(2048 * 512 + 1000 * 4096 - 1024, hfs);  // the copy, whose catalogue is not there
  put(2048 * 512 + 10 * 4096 + 8, u8{1});
  VolumeBootRecord hpfs{};
  hpfs.oemName = {'O', 'S', '2', ' ', '2', '0', '.', '0'};
  hpfs.sectorSizeBytes = 512;
  hpfs.sectorCount16 = 8192;
  hpfs.hiddenSectors = 16384;
  put(16384 * 512, hpfs);
  put(16384 * 512 + 54, std::array<char, 8>{'H', 'P', 'F', 'S', ' ', ' ', ' ', ' '});
  put(16384 * 512 + 510, Le16(0xAA55));
  putLuks(32768);
  putFat(49152, 49152);
  EXPECT_EQ(search(),
            "HFS+ 2048+8000 sure\nHPFS 16384+8192 sure\nLUKS2 32768+16384 sure\n"
            "FAT12 49152+4096 sure\n");
  EXPECT_EQ(report_.found[0].type, 0xAF);
  EXPECT_EQ(report_.found[1].type, 0x07);
  EXPECT_FALSE(report_.found[2].isSizeKnown);
  search(disk_, true);
  EXPECT_EQ(report_.found[2].endSector, 49152U - 64) << "and leaves room for the next one's EBR";
  EXPECT_EQ(report_.found[3].ebrSector, 49152U - 63);
}

TEST_F(LostPartitionsTest, SectorsThatCannotBeReadArePassedOver) {
  putFat(2048, 2048);
  putFat(16384, 16384);
  putFat(32768, 32768);
  FaultyDisk faulty(disk_);
  faulty.failReadsOf({16400, 16400});
  EXPECT_EQ(search(faulty), "FAT12 2048+4096 sure\nFAT12 32768+4096 sure\n");
  EXPECT_EQ(report_.unreadableSectors, 128U);
}

TEST_F(LostPartitionsTest, AStopKeepsWhatWasFound) {
  putFat(2048, 2048);
  putFat(60000, 60000, 4000);
  job_.stopAt = 4;
  EXPECT_EQ(search(), "FAT12 2048+4096 sure\n");
  EXPECT_TRUE(report_.isStopped);
  EXPECT_LT(job_.done, job_.total);
}

}  // namespace
}  // namespace tallowin
