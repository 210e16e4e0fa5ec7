// Each fault of a volume has its number: a sound volume is damaged in one place, and the check says
// what and where.
#include "fat/fat_check.h"

#include <algorithm>

#include "damaged_volume.h"
#include "disk/faulty_disk.h"

namespace tallowin {
namespace {

struct DamageCase {
  const char* name;
  FatFault fault;
  void (*damage)(DamagedVolume& volume);
  const char* place = "";  // is in the text
};
std::ostream& operator<<(std::ostream& out, const DamageCase& damage) { return out << damage.name; }

const DamageCase kDamages[] = {
    {"Nothing", FatFault::none, [](DamagedVolume&) {}},
    {"MediaByte", FatFault::mediaByte,
     [](DamagedVolume& v) { v.setFat(0, v.volume().layout.endMark() & ~u32{0x0F}); }},
    {"OneFat", FatFault::fewerThanTwoFats,
     [](DamagedVolume& v) {
       const u32 sectors = v.volume().layout.sectorsPerFat;
       v.bootSector([&](FatBpbRecord& bpb, auto&) {
         bpb.numberOfFats = 1;
         bpb.reservedSectors = static_cast<u16>(bpb.reservedSectors + sectors);
       });
     }},
    {"CopiesDifferInTheirLastByte", FatFault::copiesDiffer,
     [](DamagedVolume& v) {
       const u64 lba = v.volume().layout.rootDirSector() - 1;
       std::vector<u8> sector = v.disk().sector(lba);
       sector.back() ^= 1;
       v.disk().setSector(lba, sector);
       v.entry(kOne, [](auto& entry) { entry.sizeBytes = 5; });  // comes later
     }},
    {"FirstClusterIsNone", FatFault::badChain,
     [](DamagedVolume& v) { v.entry(kTwo, [](auto& e) { e.firstClusterLow = 0xFFEE; }); },
     "'/SUB/TWO.TXT'"},
    {"FirstClusterIsOne", FatFault::badChain,
     [](DamagedVolume& v) { v.entry(kOne, [](auto& e) { setFirstCluster(e, 1); }); }, "'/ONE.TXT'"},
    {"FileHasNoClusters", FatFault::badChain,
     [](DamagedVolume& v) { v.entry(kThree, [](auto& e) { setFirstCluster(e, 0); }); },
     "'/SUB/A long name/THREE.TXT'"},
    {"DirectoryHasNoClusters", FatFault::badChain,
     [](DamagedVolume& v) { v.entry(kSub, [](auto& e) { setFirstCluster(e, 0); }); }},
    {"EmptyFileHasClusters", FatFault::badChain,
     [](DamagedVolume& v) { v.entry(kThree, [](auto& e) { e.sizeBytes = 0; }); }},
    {"FileIsLongerThanItsChain", FatFault::badChain,
     [](DamagedVolume& v) { v.entry(kThree, [](auto& e) { e.sizeBytes = 513; }); }},
    {"FileOfAlmostAllSizes", FatFault::badChain,
     [](DamagedVolume& v) { v.entry(kThree, [](auto& e) { e.sizeBytes = kAllOnes32; }); }},
    {"ChainLeadsToAFreeCluster", FatFault::badChain,
     [](DamagedVolume& v) { v.setFat(v.firstCluster(kOne) + 1, 0); }},
    {"ChainLeadsOutside", FatFault::badChain,
     [](DamagedVolume& v) {
       v.setFat(v.firstCluster(kOne) + 1, v.volume().layout.highestCluster() + 1);
     }},
    {"ChainLeadsBack", FatFault::crossLink,
     [](DamagedVolume& v) { v.setFat(v.firstCluster(kOne) + 3, v.firstCluster(kOne)); },
     "'/ONE.TXT'"},
    {"FilesShareAChain", FatFault::crossLink,
     [](DamagedVolume& v) {
       const u32 first = v.firstCluster(kOne);
       v.entry(kTwo, [&](auto& e) { setFirstCluster(e, first); });
     }},
    {"DirectoryContainsItself", FatFault::badDotEntries,
     [](DamagedVolume& v) {
       const u32 sub = v.firstCluster(kSub);
       v.entry("ALONGN~1   ", [&](auto& e) { setFirstCluster(e, sub); });
     }},
    {"FileInPlaceOfADirectory", FatFault::badDotEntries,
     [](DamagedVolume& v) { v.entry(kOne, [](auto& e) { e.attributes = kFatDirectory; }); }},
    {"DotLeadsElsewhere", FatFault::badDotEntries,
     [](DamagedVolume& v) { v.entry(".          ", [](auto& e) { e.firstClusterLow = 9; }); }},
    {"DotDotLeadsElsewhere", FatFault::badDotEntries,
     [](DamagedVolume& v) { v.entry("..         ", [](auto& e) { e.firstClusterLow = 9; }); }},
    {"LostChain", FatFault::lostCluster,
     [](DamagedVolume& v) { v.entry(kThree, [](auto& e) { e.name[0] = '\xE5'; }); }, ": 1, "},
    {"LostAtTheVeryEnd", FatFault::lostCluster,
     [](DamagedVolume& v) {
       v.setFat(v.volume().layout.highestCluster(), v.volume().layout.endMark());
     }},
    {"BadClustersAreNotLost", FatFault::none,
     [](DamagedVolume& v) {
       v.setFat(v.volume().layout.highestCluster(), v.volume().layout.badMark());
     }},
};

struct CheckSample {
  const char* name;
  u16 type;
  u64 sectors;
};
constexpr CheckSample kCheckSamples[] = {
    {"Fat12", 0x01, 4000}, {"Fat16", 0x06, 40000}, {"Fat32", 0x0B, 70000}};

class FatCheckTest : public testing::TestWithParam<std::tuple<CheckSample, DamageCase>> {};
INSTANTIATE_TEST_SUITE_P(Damages, FatCheckTest,
                         testing::Combine(testing::ValuesIn(kCheckSamples),
                                          testing::ValuesIn(kDamages)),
                         [](const auto& sample) {
                           return std::string(std::get<0>(sample.param).name) +
                                  std::get<1>(sample.param).name;
                         });

TEST_P(FatCheckTest, SaysWhatAndWhere) {
  const auto& [sample, damage] = GetParam();
  DamagedVolume volume(sample.type, sample.sectors);
  volume.fill();
  damage.damage(volume);
  const MemoryDisk before = volume.disk().copy();
  EXPECT_EQ(damage.fault, volume.check().fault) << volume.text();
  EXPECT_NE(std::string::npos, volume.text().find(damage.place)) << volume.text();
  EXPECT_TRUE(before.sameContent(volume.disk()));
}

TEST(FatCheckCountsTest, CountsWhatItWalked) {
  DamagedVolume volume(0x0B, 70000);
  volume.fill();
  volume.setFat(5000, volume.volume().layout.badMark());
  const FatCheckReport report = volume.check();
  EXPECT_EQ(5U, report.entriesWalked);
  EXPECT_EQ(2U, report.directories);
  EXPECT_EQ(1U + 2 + 6 + 4 + 1, report.usedClusters);
  EXPECT_EQ(1U, report.badClusters);
  EXPECT_EQ(volume.volume().layout.clusterCount() - 14 - 1, report.freeClusters);
}

TEST(FatCheckFat32Test, LooksAtWhatOnlyFat32Has) {
  DamagedVolume single(0x0B, 70000);
  single.bootSector([](auto&, Fat32BpbRecord& bpb) { bpb.flags = 0x80; });
  EXPECT_EQ(FatFault::notMirrored, single.check().fault);

  for (const bool isLoop : {false, true}) {
    DamagedVolume longRoot(0x0B, 70000);
    u32 last = longRoot.volume().rootCluster();
    for (u32 cluster = 6000; cluster < 6128; last = cluster++) longRoot.setFat(last, cluster);
    longRoot.setFat(last, isLoop ? 6000 : longRoot.volume().layout.endMark());
    EXPECT_EQ(FatFault::longRoot, longRoot.check().fault);
  }
  DamagedVolume noRoot(0x0B, 70000);
  noRoot.bootSector([](auto&, Fat32BpbRecord& bpb) { bpb.rootCluster = 0x0FFFFFF0; });
  EXPECT_EQ(FatFault::badChain, noRoot.check().fault);
}

TEST(FatCheckLimitsTest, AsManyDirectoriesAsTheWalkCanHold) {
  for (const u32 count : {4095U, 4096U}) {
    DamagedVolume volume(0x0B, 70000);
    volume.fill();
    const std::unique_ptr<FileSystem> files = volume.open();
    for (u32 i = 0; i < count; ++i)
      ASSERT_EQ(Error::none, files->makeDirectory("/SUB/A long name/" + std::to_string(i)));
    ASSERT_EQ(Error::none, files->sync());
    EXPECT_EQ(count == 4095 ? FatFault::none : FatFault::tooManyDirectories, volume.check().fault);
  }
}

// One that no format makes: FATs of 130 MiB.
TEST(FatCheckLimitsTest, LostClustersOfTheLargestVolumesAreNotLookedFor) {
  DamagedVolume volume(0x0B, 34200000);
  const FatLayout old = volume.volume().layout;
  constexpr u32 kFatSectors = 264000;
  volume.bootSector([&](FatBpbRecord& bpb, Fat32BpbRecord& bpb32) {
    bpb.sectorsPerCluster = 1;
    bpb32.sectorsPerFat = kFatSectors;
  });
  const std::vector<u8> start = volume.disk().sector(old.reservedSectors);
  volume.disk().setSector(old.reservedSectors + kFatSectors, start);
  volume.disk().setSector(old.reservedSectors + old.sectorsPerFat, std::vector<u8>(start.size()));
  const FatLayout layout = volume.volume().layout;
  ASSERT_LT(33554432U, layout.clusterCount());
  volume.setFat(9000, layout.endMark());
  EXPECT_EQ(FatFault::tooLarge, volume.check().fault);

  std::vector<u8> root(start.size());
  auto& file = *recordAt<FatDirectoryEntryRecord>(std::span(root));
  std::copy_n(kThree, sizeof(file.name), file.name);
  file.sizeBytes = 1000;
  setFirstCluster(file, 3);
  volume.disk().setSector(layout.clusterToSector(2), root);
  volume.setFat(3, layout.highestCluster());
  volume.setFat(layout.highestCluster(), layout.endMark());
  EXPECT_EQ(FatFault::mapTooSmall, volume.check().fault);
}

TEST(FatCheckFaultsTest, TellsWhatCannotBeRead) {
  DamagedVolume volume(0x06, 40000);
  volume.fill();
  const FatLayout layout = volume.volume().layout;
  FaultyDisk counted(volume.disk());
  volume.check(&counted);
  for (u64 n = 1; n < counted.reads(); ++n) {  // the first one opens the volume
    FaultyDisk faulty(volume.disk());
    FatCheckReport report;
    SilentJob job;
    const FatVolume checked = opened({faulty, 0, 40000}, 0x06).value();
    FatClusterMap map(checked);
    faulty.failRead(n - 1, true);
    EXPECT_EQ(Error::read, checkFat(checked, map, job, report)) << n;
    EXPECT_EQ(FatFault::unreadable, report.fault) << n;
  }
  FaultyDisk faulty(volume.disk());
  const u64 lba = layout.clusterToSector(volume.firstCluster(kSub));
  faulty.failReadsOf({lba, lba});
  EXPECT_EQ(FatFault::unreadable, volume.check(&faulty).fault);
}

}  // namespace
}  // namespace tallowin
