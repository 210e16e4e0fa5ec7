#include "fat/fat_format.h"

#include <set>

#include "disk/faulty_disk.h"
#include "disk/memory_disk.h"
#include "fat/fat_requests.h"
#include "move/move_callback.h"

namespace tallowin {
namespace {

constexpr u64 kStart = 256;
constexpr u64 kBehind = 256;
constexpr u64 kOldContent = 1500;

// Bytes that are never 0 and differ from sector to sector.
std::vector<u8> pattern(DiskDevice& disk, u64 first, u64 count) {
  std::vector<u8> bytes(count * disk.sectorSize());
  for (u64 i = 0; i < count; ++i)
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(i * disk.sectorSize()),
                disk.sectorSize(), static_cast<u8>(1 + (first + i) % 251));
  return bytes;
}

void fillWithPattern(DiskDevice& disk, u64 first, u64 count) {
  ASSERT_EQ(disk.writeSectors(first, pattern(disk, first, count).data(), count), Error::none);
}

bool holdsPattern(DiskDevice& disk, u64 first, u64 count) {
  return readAll(disk, first, count) == pattern(disk, first, count);
}

TEST(FatLabelTest, IsStoredInElevenAllowedCharacters) {
  EXPECT_EQ("MY DISK_   ", fatLabelText("my disk?"));
  EXPECT_EQ("LONGER THAN", fatLabelText("Longer than eleven"));
  EXPECT_EQ("!#$%&()-^_{", fatLabelText("!#$%&()-^_{}~"));
  EXPECT_EQ("__________9", fatLabelText("\xE4.,;:+=[]*9"));
  EXPECT_EQ("           ", fatLabelText("  "));
}

struct LayoutCase {
  const char* what;
  u16 type;
  u32 sectors;
  u32 wanted;  // sectors per cluster
  FatKind kind;
  u32 sectorsPerCluster, reserved, sectorsPerFat;
  u8 media = 0xF8;
  u16 rootEntries = 512;
};

TEST(FatFormatTest, ChoosesTheLayout) {
  constexpr auto k12 = FatKind::fat12, k16 = FatKind::fat16, k32 = FatKind::fat32;
  MemoryDisk disk(u64{1} << 32);
  for (const LayoutCase& c : std::initializer_list<LayoutCase>{
           {"720 KiB floppy", 0x01, 1440, 0, k12, 1, 1, 5, 0xF9, 224},
           {"1.44 MB floppy", 0x01, 2880, 0, k12, 1, 1, 9, 0xF0, 224},
           {"2.88 MB floppy doubles once", 0x06, 5760, 0, k12, 2, 1, 9, 0xF0, 224},
           {"FAT12 on a hard disk", 0x01, 20000, 0, k12, 8, 1, 8},
           {"a small FAT16 type is FAT12", 0x06, 32717, 1, k12, 8, 1, 12},
           {"the smallest FAT16", 0x06, 32718, 0, k16, 4, 1, 32},
           {"the largest FAT16 stays below 65525 clusters", 0x06, 8387840, 0, k16, 128, 97, 256},
           {"type 4 keeps FAT16 by smaller clusters", 0x04, 5000, 0, k16, 1, 1, 20},
           {"too few clusters for FAT16 however small", 0x04, 3000, 0, k12, 8, 1, 2},
           {"no power of two is automatic", 0x06, 300000, 7, k16, 8, 1, 147},
           {"FAT32 from 33554432 sectors has 16 KiB", 0x0B, 33554432, 0, k32, 32, 32, 8189},
           {"asked for a sector a cluster", 0x0C, 70000, 1, k32, 1, 32, 539},
           {"too large for so many clusters", 0x0C, 70000, 64, k32, 1, 32, 539},
           {"at most 64", 0x0C, 0xFFFFFF80, 128, k32, 64, 32, 524161},
           {"a hidden type is as the plain one", 0x1B, 1000, 0, k32, 1, 32, 8},
       }) {
    SCOPED_TRACE(c.what);
    auto volume = formatAndOpen(disk, 0, c.sectors, c.type, c.wanted);
    EXPECT_EQ(c.kind, volume->kind());
    EXPECT_EQ(c.sectorsPerCluster, volume->sectorsPerCluster());
    EXPECT_EQ(c.reserved, volume->reservedSectors());
    EXPECT_EQ(c.sectorsPerFat, volume->sectorsPerFat());
    EXPECT_EQ(c.media, volume->bpb().media);
    EXPECT_EQ(volume->isFat32() ? 0 : c.rootEntries, volume->bpb().rootEntries);
    EXPECT_EQ(c.media == 0xF8 ? 0x80 : 0, volume->identity().driveNumber);
  }
}

TEST(FatFormatTest, WritesTheFieldsOfTheBootArea) {
  MemoryDisk disk(100000);
  FatFormatRequest request = formatRequest(disk, kStart, 70000, 0x0C, 0, kFatAlignForNtfs);
  request.driveNumber = 0x81;
  request.label = "my disk?";
  request.secondsSinceEpoch = 0x112345678;
  ASSERT_EQ(Error::none, formatFat(request));
  auto volume = openVolume(disk, kStart, 70000);
  EXPECT_EQ(0U, volume->firstDataSector() % 8);
  EXPECT_EQ("STRANDXX", std::string(volume->bpb().oemName, 8));
  EXPECT_EQ(kStart, volume->bpb().hiddenSectors);
  EXPECT_EQ(63, volume->bpb().sectorsPerTrack);
  EXPECT_EQ(255, volume->bpb().heads);
  EXPECT_EQ(0, volume->bpb().totalSectors16);
  EXPECT_EQ(0x81, volume->identity().driveNumber);
  EXPECT_EQ(0x12345678U, volume->identity().serial);
  EXPECT_EQ("MY DISK_   ", volume->label());
  EXPECT_EQ("FAT32   ", volume->typeText());
  ASSERT_NE(nullptr, volume->fsInfo());
  EXPECT_EQ(kFreeClustersUnknown, volume->fsInfo()->freeClusters);
  EXPECT_EQ(4U, volume->fsInfo()->nextFreeCluster);
  EXPECT_EQ(readAll(disk, kStart, 2), readAll(disk, kStart + 6, 2));
  const std::vector<u8> root = readAll(disk, volume->clusterToLba(2), 1);
  EXPECT_TRUE(textAt(root, 0, "MY DISK_   \x08"));
  EXPECT_TRUE(std::all_of(root.begin() + 12, root.end(), [](u8 byte) { return byte == 0; }));

  // The same request makes the same volume, but for what it says of its place.
  MemoryDisk other(100000);
  request.device = &other;
  request.hiddenSectors = 63;
  ASSERT_EQ(Error::none, formatFat(request));
  EXPECT_EQ(63U, openVolume(other, kStart, 70000)->bpb().hiddenSectors);
  for (const u64 copy : {kStart, kStart + 6}) {
    std::vector<u8> sector = other.sector(copy);
    recordAt<FatBpbRecord>(std::span(sector))->hiddenSectors = kStart;
    other.setSector(copy, sector);
  }
  EXPECT_EQ(readAll(disk, 0, 100000), readAll(other, 0, 100000));

  request.device = &disk;
  request.label = "   ";
  ASSERT_EQ(Error::none, formatFat(request));
  EXPECT_EQ(kFatNoName, openVolume(disk, kStart, 70000)->label());
  EXPECT_EQ(std::vector<u8>(512), readAll(disk, volume->clusterToLba(2), 1));
}

TEST(FatFormatTest, ARebuiltBootSectorKeepsCodeLabelAndSerial) {
  MemoryDisk disk(100000);
  auto volume = formatAndOpen(disk, 0, 40000, 0x06);
  volume->setLabel("KEEP ME    ");
  volume->identity().serial = 0x12345678;
  volume->bootArea()[300] = 0x5A;
  volume->setTypeId(0x0B);
  ASSERT_TRUE(buildBootSector(*volume, BootSectorOrigin::existing, 70000, kKeepClusterSize, 0x80));
  EXPECT_TRUE(volume->isValid() && volume->isFat32());
  EXPECT_EQ("KEEP ME    ", volume->label());
  EXPECT_EQ(0x12345678U, volume->identity().serial);
  EXPECT_EQ(0x5A, volume->bootArea()[300]);
  EXPECT_EQ(1U, volume->sectorsPerCluster()) << "so that it has the clusters of a FAT32";
  EXPECT_NE(nullptr, volume->fsInfo());
  EXPECT_FALSE(buildBootSector(*volume, BootSectorOrigin::existing, 5000, kKeepClusterSize, 0x80));

  volume = FatVolume::createEmpty(disk, FatPlacement());
  volume->setTypeId(0x0B);
  const auto sizeFor = [&](i32 wanted) {
    volume->bpb().sectorsPerCluster = 8;
    EXPECT_TRUE(buildBootSector(*volume, BootSectorOrigin::existing, 0x4000000, wanted, 0x80));
    return volume->sectorsPerCluster();
  };
  EXPECT_EQ(64U, sizeFor(0));
  EXPECT_EQ(64U, sizeFor(kKeepClusterSize));
  EXPECT_EQ(8U, sizeFor(kKeepClusterSizeExactly));
  EXPECT_EQ(8U, sizeFor(-5));
}

TEST(FatFormatTest, RefusesASizeBeforeAnythingIsWritten) {
  MemoryDisk memory(u64{1} << 24);
  FaultyDisk disk(memory);
  for (const auto& [type, sectors] : std::initializer_list<std::pair<u16, u32>>{
           {0x06, 8388608}, {0x0C, 2000}, {0x0C, 33}, {0x01, 20}, {0x01, 0}, {0x04, 65536}}) {
    FatFormatRequest request = formatRequest(disk, 0, sectors, type);
    EXPECT_EQ(Error::invalidSizeForType, formatFat(request)) << type << " " << sectors;
  }
  EXPECT_EQ(0U, disk.writes());
}

struct Target {
  u16 type;
  u32 sectors;
  u32 sectorSize = 512;
};

class FatFormatFaultTest : public testing::TestWithParam<Target> {
 protected:
  // A partition between two neighbours; these and its beginning are filled with a pattern.
  MemoryDisk patterned() {
    MemoryDisk disk(kStart + GetParam().sectors + kBehind, GetParam().sectorSize);
    fillWithPattern(disk, 0, kStart + kOldContent);
    fillWithPattern(disk, kStart + GetParam().sectors, kBehind);
    return disk;
  }
  FatFormatRequest request(DiskDevice& disk) {
    FatFormatRequest made =
        formatRequest(disk, kStart, GetParam().sectors, GetParam().type, 0, kFatScanSurface);
    made.label = "label";
    return made;
  }
  bool neighboursAreUntouched(DiskDevice& disk) {
    return holdsPattern(disk, 0, kStart) &&
           holdsPattern(disk, kStart + GetParam().sectors, kBehind);
  }
  std::unique_ptr<FatVolume> open(DiskDevice& disk) {
    return openVolume(disk, kStart, GetParam().sectors, static_cast<u8>(GetParam().type));
  }
};

INSTANTIATE_TEST_SUITE_P(Kinds, FatFormatFaultTest,
                         testing::Values(Target{0x01, 20000}, Target{0x06, 40000},
                                         Target{0x0B, 70000}, Target{0x01, 4000, 4096}));

TEST_P(FatFormatFaultTest, EveryCancelEndsWithItsCode) {
  for (u32 stopAt = 0;; ++stopAt) {
    MemoryDisk disk = patterned();
    FatFormatRequest format = request(disk);
    u32 calls = 0, phase = 0, percent = 0;
    bool finished = false;
    format.callback = [&](FatFormatRequest&, u32 id, u32 value) {
      if (id == CALLBACKidStatus) {
        EXPECT_EQ(phase + 1, value);
        phase = value;
        percent = 0;
      } else {
        EXPECT_EQ(u32{CALLBACKidProgress}, id);
        EXPECT_TRUE(value >= percent && value <= 100);
        finished = phase == kFatScanBegins && value == 100;
        percent = value;
      }
      return calls++ != stopAt;
    };
    const Failure result = formatFat(format);
    ASSERT_TRUE(neighboursAreUntouched(disk)) << "stopped at call " << stopAt;
    if (calls <= stopAt) {
      EXPECT_EQ(Error::none, result);
      EXPECT_TRUE(finished);
      EXPECT_GE(calls, 5U);
      break;
    }
    EXPECT_EQ(phase == kFatScanBegins ? Error::scanStopped : Error::cancelled, result);
    if (result == Error::scanStopped) {
      EXPECT_TRUE(open(disk)->isValid());
    }
    if (stopAt == 0) {
      EXPECT_TRUE(holdsPattern(disk, kStart, kOldContent));
    }
  }
}

TEST_P(FatFormatFaultTest, EveryFailingAccessEndsWithItsCode) {
  u64 failing = 0;
  for (u64 write = 0;; ++write) {
    MemoryDisk memory = patterned();
    FaultyDisk disk(memory);
    disk.failWrite(write, /*forever=*/write % 2 == 1);
    FatFormatRequest format = request(disk);
    const Failure result = formatFat(format);
    ASSERT_TRUE(neighboursAreUntouched(memory)) << "write " << write;
    if (result == Error::none) break;
    EXPECT_TRUE(result == Error::clearingFailed || result == Error::write) << codeOf(result);
    if (failing++ == 0) {
      EXPECT_EQ(Error::clearingFailed, result);
    }
  }
  EXPECT_GE(failing, 4U) << "clearing, boot area, both FATs, label";

  for (u64 read = 0;; ++read) {
    MemoryDisk memory = patterned();
    FaultyDisk disk(memory);
    disk.failRead(read);
    FatFormatRequest format = request(disk);
    const Failure result = formatFat(format);
    ASSERT_TRUE(neighboursAreUntouched(memory)) << "read " << read;
    if (disk.reads() <= read) break;
    // Before the scan, whose reads succeed when they are tried again: the FAT, and on FAT32 the
    // sector whose end is stamped.
    const u64 ofFileSystem = GetParam().type == 0x0B ? 2 : 1;
    EXPECT_EQ(read < ofFileSystem ? Error::write : Error::none, result);
    EXPECT_EQ(0U, format.badClusters);
  }
  MemoryDisk memory = patterned();
  FaultyDisk disk(memory);
  disk.failFlush(true);
  FatFormatRequest format = request(disk);
  EXPECT_EQ(Error::write, formatFat(format)) << "what is not on the medium is not done";
}

TEST_P(FatFormatFaultTest, TheScanMarksExactlyWhatCannotBeRead) {
  MemoryDisk memory = patterned();
  FaultyDisk disk(memory);
  FatFormatRequest format = request(disk);
  ASSERT_EQ(Error::none, formatFat(format));
  auto volume = open(disk);
  const u32 last = volume->highestCluster();
  const u64 pieceSectors = 4 * kMiB / disk.sectorSize();
  const u64 chunkSectors = 64 * kKiB / disk.sectorSize();
  const u32 atPiece = volume->lbaToCluster(volume->dataStartLba() + pieceSectors);
  const u32 atChunk = volume->lbaToCluster(volume->dataStartLba() + 3 * chunkSectors);
  const std::set<u32> bad{2,       atChunk - 1, atChunk,  atPiece - 1,
                          atPiece, atPiece + 1, last - 1, last};
  ASSERT_LT(atPiece + 1, last - 1);
  for (const u32 cluster : bad) {
    const u64 lba = volume->clusterToLba(cluster) + volume->sectorsPerCluster() - 1;
    disk.failReadsOf({lba, lba});
  }
  const u64 behindLast = volume->clusterToLba(last + 1);
  const u64 end = kStart + GetParam().sectors;
  if (behindLast < end) disk.failReadsOf({behindLast, end - 1});

  // Twice: to the end, and stopped in the middle.
  for (const u32 stopAtPercent : {101U, 50U}) {
    u32 phase = 0;
    format.callback = [&](FatFormatRequest&, u32 id, u32 value) {
      if (id == CALLBACKidStatus) phase = value;
      return id == CALLBACKidStatus || phase != kFatScanBegins || value < stopAtPercent;
    };
    EXPECT_EQ(stopAtPercent > 100 ? Error::none : Error::scanStopped, formatFat(format));
    volume = open(disk);
    ASSERT_TRUE(volume->isValid());
    ASSERT_TRUE(volume->setupFatCache(24, 32));
    const u32 root = volume->isFat32() ? u32{volume->bpb32().rootCluster} : 0;
    if (root != 0) {
      EXPECT_EQ(3U, root) << "not in a cluster that cannot be read";
    }
    u32 marked = 0;
    for (u32 cluster = 2; cluster <= last; ++cluster) {
      const u32 entry = volume->getFat(cluster);
      marked += entry == volume->badMark();
      if (entry == volume->badMark() || stopAtPercent > 100) {
        ASSERT_EQ(bad.contains(cluster) ? volume->badMark()
                  : cluster == root     ? volume->endMark()
                                        : 0U,
                  entry)
            << cluster;
      }
    }
    EXPECT_EQ(marked, format.badClusters);
    EXPECT_LE(1U, marked);
    EXPECT_TRUE(textAt(
        readAll(memory, root != 0 ? volume->clusterToLba(root) : kStart + volume->rootDirSector(),
                1),
        0, "LABEL      \x08"));
    EXPECT_FALSE(volume->hasError());
  }
}

}  // namespace
}  // namespace tallowin
