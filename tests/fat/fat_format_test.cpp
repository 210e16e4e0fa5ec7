#include "fat/fat_format.h"

#include <set>

#include "base/text.h"
#include "fat/fat_kinds.h"
#include "fat/fat_requests.h"
#include "support/disk_file.h"
#include "support/fault_loops.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

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
  const FatCodePage page437(437), page850(850);
  EXPECT_EQ("MY DISK_   ", fatLabelText("my disk?", page437));
  EXPECT_EQ("LONGER THAN", fatLabelText("Longer than eleven", page437));
  EXPECT_EQ("!#$%&()-^_{", fatLabelText("!#$%&()-^_{}~", page437));
  EXPECT_EQ("__________9", fatLabelText("\xE4.,;:+=[]*9", page437));
  EXPECT_EQ("           ", fatLabelText("  ", page437));
  EXPECT_EQ("GR\x99\xE1\x45 \x8E\xA0_  ", fatLabelText("größe äá日", page437));
  EXPECT_EQ("\xB5          ", fatLabelText("á", page850));
  EXPECT_EQ("\x05          ", fatLabelText("Õ", page850)) << "its byte marks a deleted entry";
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
    const FatVolume volume = formatAndOpen({disk, 0, c.sectors}, c.type, c.wanted * 512);
    const FatLayout expected{.kind = c.kind,
                             .bytesPerSector = 512,
                             .sectorsPerCluster = c.sectorsPerCluster,
                             .reservedSectors = c.reserved,
                             .numberOfFats = 2,
                             .sectorsPerFat = c.sectorsPerFat,
                             .rootEntries = c.kind == k32 ? 0U : c.rootEntries,
                             .totalSectors = c.sectors};
    EXPECT_EQ(expected, volume.layout);
    EXPECT_EQ(c.media, volume.boot.bpb().media);
    EXPECT_EQ(c.media == 0xF8 ? 0x80 : 0, volume.boot.identity().driveNumber);
  }
}

TEST(FatFormatTest, WritesTheFieldsOfTheBootArea) {
  MemoryDisk disk(100000);
  FormatWish wish = wishFor(0x0C);
  wish.alignForNtfs = true;
  wish.driveNumber = 0x81;
  wish.label = "my disk?";
  wish.secondsSinceEpoch = 0x112345678;
  wish.hiddenSectors = 63;
  ASSERT_EQ(Error::none, formatQuietly({disk, kStart, 70000}, wish));
  FatVolume volume = opened({disk, kStart, 70000}).value();
  EXPECT_EQ(0U, volume.layout.firstDataSector() % 8);
  const FatBpbRecord& bpb = volume.boot.bpb();
  EXPECT_EQ("STRANDXX", std::string(bpb.oemName, 8));
  EXPECT_EQ(63U, bpb.hiddenSectors);
  EXPECT_EQ(63, bpb.sectorsPerTrack);
  EXPECT_EQ(255, bpb.heads);
  EXPECT_EQ(0, bpb.totalSectors16);
  EXPECT_EQ(0x81, volume.boot.identity().driveNumber);
  EXPECT_EQ(0x12345678U, volume.boot.identity().serial);
  EXPECT_EQ("MY DISK_   ", volume.boot.label());
  EXPECT_EQ("FAT32   ", volume.boot.typeText());
  ASSERT_NE(nullptr, volume.boot.fsInfo());
  EXPECT_EQ(kFreeClustersUnknown, volume.boot.fsInfo()->freeClusters);
  EXPECT_EQ(4U, volume.boot.fsInfo()->nextFreeCluster);
  EXPECT_EQ(readAll(disk, kStart, 2), readAll(disk, kStart + 6, 2));
  const u64 rootLba = kStart + volume.layout.clusterToSector(2);
  const std::vector<u8> root = disk.sector(rootLba);
  EXPECT_TRUE(textAt(root, 0, "MY DISK_   \x08"));
  EXPECT_TRUE(std::all_of(root.begin() + 12, root.end(), [](u8 byte) { return byte == 0; }));

  wish.label = "   ";
  ASSERT_EQ(Error::none, formatQuietly({disk, kStart, 70000}, wish));
  EXPECT_EQ(kFatNoName, opened({disk, kStart, 70000})->boot.label());
  EXPECT_EQ(std::vector<u8>(512), disk.sector(rootLba));
}

TEST(FatFormatTest, RefusesASizeBeforeAnythingIsWrittenAndSaysWhatIsPossible) {
  struct Limit {
    u16 type;
    u64 fits;
    u64 doesNot;
    const char* why;
  };
  MemoryDisk memory(u64{1} << 24);
  FaultyDisk disk(memory);
  for (const Limit& c :
       std::initializer_list<Limit>{{0x01, 32717, 32718, "at most 32717 sectors"},
                                    {0x11, 50, 20, "too small for a cluster"},
                                    {0x01, 50, 0, "too small for a cluster"},
                                    {0x14, 65535, 65536, "at most 65535 sectors (32.0"},
                                    {0x06, 8387840, 8387841, "at most 8387840 sectors"},
                                    {0x0B, 0xFFFFFF80, 0xFFFFFF81, "at most 4294967168 sectors"},
                                    {0xEF, 0xFFFFFF80, 0xFFFFFF81, "at most"},
                                    {0x0B, 1199, 1200, "at least 66727 sectors"},
                                    {0x0C, 66727, 66726, "at least 66727 sectors (32.6 MiB)"},
                                    {0x0C, 66727, 33, "at least 66727 sectors"}}) {
    EXPECT_EQ("", whyNotFatOfSize(c.type, c.fits, 512));
    EXPECT_EQ(Error::invalidSizeForType, formatQuietly({disk, 0, c.doesNot}, wishFor(c.type)));
    EXPECT_NE(std::string::npos, whyNotFatOfSize(c.type, c.doesNot, 512).find(c.why))
        << whyNotFatOfSize(c.type, c.doesNot, 512);
  }
  EXPECT_EQ(0U, disk.writes());
}

TEST(FatFormatTest, SaysWhatIsNotAsItWasWished) {
  MemoryDisk disk(70000);
  const auto notesOf = [&](u64 sectors, const FormatWish& wish) {
    SilentJob job;
    FormatReport report;
    EXPECT_EQ(Error::none, formatFat({disk, 0, sectors}, wish, job, report));
    return report.notes;
  };
  FormatWish wish = wishFor(0x06, 8192);
  wish.label = "data";
  EXPECT_TRUE(notesOf(70000, wish).empty());
  wish = wishFor(0x06, 65536);
  wish.label = "too long a label";
  wish.hiddenSectors = u64{1} << 32;
  const std::vector<std::string> notes = notesOf(20000, wish);
  ASSERT_EQ(4U, notes.size());
  EXPECT_EQ("A volume of this size is made as FAT12, not as FAT16.", notes[0]);
  EXPECT_EQ("Clusters of 65536 bytes are not possible here; they have 4096.", notes[1]);
  EXPECT_EQ("The label 'too long a label' was stored as 'TOO LONG A'.", notes[2]);
  EXPECT_EQ(0U, opened({disk, 0, 20000})->boot.bpb().hiddenSectors);
}

struct Target {
  u16 type;
  u32 sectors;
  u32 sectorSize = 512;
};

// Counts the questions whether to stop, and answers yes from one on.
class StoppingJob : public SilentJob {
 public:
  explicit StoppingJob(u64 stopAt = kAllOnes64) : stopAt_(stopAt) {}
  void phase(Phase, u64 bytes) override { left = bytes; }
  void advance(u64 bytes) override { left -= bytes; }
  bool shouldStop() override { return asked++ >= stopAt_; }

  u64 asked = 0;
  u64 left = 0;  // of the phase, in bytes

 private:
  u64 stopAt_;
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
  SectorRange range(DiskDevice& disk) const { return {disk, kStart, GetParam().sectors}; }
  FormatWish wish(bool scans = true) const {
    FormatWish made = wishFor(GetParam().type);
    made.surfaceScan = scans;
    made.label = "label";
    return made;
  }
  bool neighboursAreUntouched(DiskDevice& disk) {
    return holdsPattern(disk, 0, kStart) &&
           holdsPattern(disk, kStart + GetParam().sectors, kBehind);
  }
  static Error expectedError(Fault::Kind kind) {
    switch (kind) {
      case Fault::Kind::read:
        return Error::read;
      case Fault::Kind::flush:
        return Error::flush;
      case Fault::Kind::cancel:
        return Error::cancelled;
      default:
        return Error::write;
    }
  }
  bool isFatThere(DiskDevice& disk) { return isFat(range(disk), GetParam().type); }
};

INSTANTIATE_TEST_SUITE_P(Kinds, FatFormatFaultTest,
                         testing::Values(Target{0x01, 20000}, Target{0x06, 40000},
                                         Target{0x0B, 70000}, Target{0x01, 4000, 4096}));

// What a format that failed or was stopped leaves: what its report says, and never half a volume.
TEST_P(FatFormatFaultTest, EveryFailureAndEveryStopLeavesWhatTheReportSays) {
  for (const std::span<const Fault::Kind> kinds :
       {std::span<const Fault::Kind>(kFailedRequests), std::span<const Fault::Kind>(kCancels)}) {
    forEachFault(patterned(), kinds, [this](FaultRound& round) {
      round.begin();
      FormatReport report;
      const Failure result = formatFat(range(round.disk()), wish(), round.job(), report);
      MemoryDisk& disk = round.medium();
      EXPECT_TRUE(neighboursAreUntouched(disk));
      // A last flush that fails comes behind the boot sector, which may be on the medium or not.
      if (round.fault().kind == Fault::Kind::flush) {
        EXPECT_TRUE(result || isFatThere(disk));
      } else {
        EXPECT_EQ(!result, isFatThere(disk));
      }
      EXPECT_EQ(!report.touched, holdsPattern(disk, kStart, kOldContent));
      EXPECT_TRUE(!report.scanStopped || round.fault().kind == Fault::Kind::cancel);
      const bool isClearing = result == Error::clearingFailed;
      EXPECT_TRUE(!result || isClearing || result == expectedError(round.fault().kind))
          << codeOf(result);
      EXPECT_TRUE(!round.fault().isWrite() || !round.wasHit() || result);
    });
  }
}

// A cut, with any of what was not flushed lost, leaves no volume or a whole one: for us, and for
// the programs that would mount or check it.
TEST_P(FatFormatFaultTest, APowerCutLeavesNoVolumeOrAWholeOne) {
  // The judges take images of 512-byte sectors.
  const u32 sectorSize = GetParam().sectorSize;
  const bool isJudged = sectorSize == 512 && hasProgram("fsck.fat") && hasProgram("blkid");
  const TempFolder folder;
  const std::string image = folder.file("image");
  for (const u16 before : {u16{0x01}, u16{0x06}, u16{0x0B}}) {
    if (!whyNotFatOfSize(before, GetParam().sectors, sectorSize).empty()) continue;
    MemoryDisk old(GetParam().sectors, sectorSize);
    ASSERT_EQ(Error::none, formatQuietly({old, 0, GetParam().sectors}, wishFor(before)));
    u32 whole = 0;
    const auto format = [&](FaultRound& round) {
      EXPECT_EQ(Error::none,
                formatQuietly({round.disk(), 0, GetParam().sectors}, wish(/*scans=*/false)));
    };
    forEachPowerCut(old, format, [&](MemoryDisk& disk) {
      const bool isVolume = isFat({disk, 0, GetParam().sectors}, GetParam().type);
      Content content;
      EXPECT_EQ(isVolume, !identify(disk, 0, content));
      whole += isVolume;
      if (!isJudged) return;
      storeDisk(disk, image);
      // Of a boot sector that was torn in its middle others believe the half without the signature,
      // and blkid even the one without a size, which nobody can mount.
      const std::vector<u8> first = disk.sector(0);
      const bool hasSize = recordAt<FatBpbRecord>(std::span(first))->bytesPerSector != 0;
      const bool isSeen = hasSize && runProgram({"blkid", "-p", "-n", "vfat", image}).status == 0;
      EXPECT_TRUE(isSeen || !isVolume);
      if (!isSeen) return;
      const ProgramResult check = runProgram({"fsck.fat", "-n", image});
      EXPECT_EQ(0, check.status) << check.output;
    });
    EXPECT_GE(whole, 2U) << "the old one before the first write, and the new one";
  }
}

TEST_P(FatFormatFaultTest, TheScanMarksExactlyWhatCannotBeRead) {
  MemoryDisk memory = patterned();
  FaultyDisk disk(memory);
  const FatLayout layout = formatAndOpen(range(disk), GetParam().type).layout;
  const u32 last = layout.highestCluster();
  const auto clusterBehind = [&](u64 bytes) {
    return layout.sectorToCluster(layout.firstDataSector() + bytes / disk.sectorSize());
  };
  const u32 atPiece = clusterBehind(4 * kMiB);
  const u32 atChunk = clusterBehind(3 * 64 * kKiB);
  const std::set<u32> bad{2,       atChunk - 1, atChunk,  atPiece - 1,
                          atPiece, atPiece + 1, last - 1, last};
  ASSERT_LT(atPiece + 1, last - 1);
  for (const u32 cluster : bad) {
    const u64 lba = kStart + layout.clusterToSector(cluster) + layout.sectorsPerCluster - 1;
    disk.failReadsOf({lba, lba});
  }
  const u64 behindLast = kStart + layout.clusterToSector(last + 1);
  const u64 end = kStart + GetParam().sectors;
  if (behindLast < end) disk.failReadsOf({behindLast, end - 1});

  // To the end, and stopped after some pieces.
  StoppingJob whole;
  FormatReport report;
  ASSERT_EQ(Error::none, formatFat(range(disk), wish(), whole, report));
  EXPECT_EQ(0U, whole.left) << "all of the area was counted";
  for (const u64 stopAt : {kAllOnes64, whole.asked - 2}) {
    StoppingJob job(stopAt);
    ASSERT_EQ(Error::none, formatFat(range(disk), wish(), job, report));
    EXPECT_EQ(stopAt != kAllOnes64, report.scanStopped);
    const FatVolume volume = opened(range(disk), GetParam().type).value();
    FatTable table = tableOf(volume);
    const u32 root = volume.rootCluster();
    if (root != 0) {
      EXPECT_EQ(3U, root) << "not in a cluster that cannot be read";
    }
    u32 marked = 0;
    for (u32 cluster = 2; cluster <= last; ++cluster) {
      const u32 entry = entryOf(table, cluster);
      const bool isMarked = entry == layout.badMark();
      marked += isMarked;
      if (isMarked || !report.scanStopped) {
        ASSERT_EQ(bad.contains(cluster) ? layout.badMark()
                  : cluster == root     ? layout.endMark()
                                        : 0U,
                  entry)
            << cluster;
      }
    }
    EXPECT_EQ(marked, report.badClusters);
    EXPECT_LE(1U, marked);
    const u64 rootSector = root != 0 ? layout.clusterToSector(root) : layout.rootDirSector();
    EXPECT_TRUE(textAt(readAll(memory, kStart + rootSector, 1), 0, "LABEL      \x08"));
  }
}

// What the rest of the program sees of it.
TEST(FatKindsTest, TellKindsAndFacts) {
  FileSystemKinds kinds;
  registerFat(kinds);
  MemoryDisk disk(70000);
  struct Case {
    u16 type;
    u64 sectors;
    const char* word;
  };
  for (const Case& c : std::initializer_list<Case>{
           {0x01, 20000, "fat12"}, {0x16, 40000, "fat16"}, {0xEF, 70000, "fat32"}}) {
    SCOPED_TRACE(c.word);
    const SectorRange range{disk, 0, c.sectors};
    const FileSystemKind& kind = *kinds.byType(c.type);
    EXPECT_EQ(c.word, kind.word);
    FormatWish wish = wishFor(c.type);
    wish.label = "name it";
    ASSERT_EQ(Error::none, formatQuietly(range, wish));
    EXPECT_EQ(&kind, kinds.byContent(range, c.type));
    FileSystemFacts facts;
    ASSERT_EQ(Error::none, kind.facts(range, c.type, CountClusters::yes, facts));
    EXPECT_EQ(kind.name, facts.name);
    EXPECT_EQ(facts.clusters, facts.freeClusters + (c.type == 0xEF ? 1 : 0));
    EXPECT_EQ(c.type == 0xEF ? facts.clusterBytes : 0, facts.usedBytes());
  }
  ASSERT_EQ(Error::none, disk.writeZeros(0, 1));
  FileSystemFacts facts;
  EXPECT_EQ(Error::invalidVolume,
            kinds.byWord("FAT32")->facts({disk, 0, 70000}, 0x0B, CountClusters::no, facts));
}

}  // namespace
}  // namespace tallowin
