#include <gtest/gtest.h>

#include <random>

#include "fs/fs_bench.h"
#include "move/extent_list.h"
#include "support/fault_loops.h"

namespace tallowin {
namespace {

constexpr u64 kBehind = 1000;  // sectors of somebody else behind the largest size

// A volume in the first part of a disk, with room behind it.
struct Sample {
  FsSample made;
  u32 room;  // sectors that it may have
};

constexpr Sample kSamples[] = {
    {{"fat12", "fat12", 0x01, 4000, 512}, 60000},
    {{"fat12Large", "fat12", 0x01, 32000, 4096}, 200000},
    {{"fat16", "fat16", 0x06, 40000, 1024}, 150000},
    {{"fat16Large", "fat16", 0x06, 70000, 8192}, 150000},
    {{"fat32", "fat32", 0x0B, 70000, 512}, 200000},
    {{"fat32Large", "fat32", 0x0C, 140000, 1024}, 200000},
    {{"fat16Of4KiBSectors", "fat16", 0x06, 10000, 4096, 4096}, 20000},
};

// The first `sectors` of one disk onto another.
void copyStart(const MemoryDisk& from, u64 sectors, u32 sectorSize, MemoryDisk& to) {
  from.forEachData([&](u64 offset, std::span<const u8> bytes) {
    const u64 first = offset / sectorSize;
    const u64 count = first >= sectors ? 0 : std::min(bytes.size() / sectorSize, sectors - first);
    EXPECT_FALSE(to.writeSectors(first, bytes.data(), count));
  });
}

MemoryDisk withRoom(const Sample& sample) {
  const MemoryDisk small = formatted(sample.made);
  MemoryDisk disk(sample.room + kBehind, sample.made.sectorSize);
  copyStart(small, sample.made.sectors, sample.made.sectorSize, disk);
  const std::vector<u8> foreign(sample.made.sectorSize, 0xF0);
  for (u64 i = 0; i < kBehind; ++i) disk.setSector(sample.room + i, foreign);
  return disk;
}

const FileSystemKind& kindOf(const SectorRange& range, u16 type) {
  return *knownKinds().byContent(range, type);
}

std::unique_ptr<FileSystem> filesIn(const SectorRange& range, u16 type, bool writable) {
  std::unique_ptr<FileSystem> files;
  EXPECT_FALSE(kindOf(range, type).open(range, type, {.writable = writable}, files));
  return files;
}

// Files of all sizes in a tree, in which some were deleted again.
void fill(const SectorRange& range, u16 type, u32 seed, double share) {
  std::mt19937 random(seed);
  const auto files = filesIn(range, type, true);
  SpaceInfo space;
  ASSERT_FALSE(files->space(space));
  const u64 wanted = static_cast<u64>(static_cast<double>(space.freeUnits) * share);
  std::vector<std::string> folders{""};
  std::vector<std::string> names;
  for (u32 i = 0; space.usedUnits() < wanted && i < 300; ++i) {
    const std::string& folder = folders[random() % folders.size()];
    const std::string path =
        folder + (random() % 2 ? "/F" : "/a longer name with \u00E4 ") + std::to_string(i);
    if (random() % 8 == 0) {
      ASSERT_FALSE(files->makeDirectory(path));
      folders.push_back(path);
    } else {
      const u64 most = std::max<u64>(2, space.freeUnits * space.unitBytes / 12);
      const u64 sizes[] = {0, 1, space.unitBytes, space.unitBytes + 1u, random() % most};
      ASSERT_FALSE(put(*files, path, randomBytes(i, sizes[random() % 5])));
      names.push_back(path);
      if (random() % 4 == 0) {
        ASSERT_FALSE(files->deleteFile(names[random() % names.size()]));
        names.clear();
      }
    }
    ASSERT_FALSE(files->sync());
    ASSERT_FALSE(files->space(space));
  }
}

struct Wish {
  ResizeWish resize;
  std::string text() const {
    return std::to_string(resize.sectors) + " sectors, clusters of " +
           std::to_string(resize.clusterBytes) + ", type " + std::to_string(resize.forcedType);
  }
};

Wish randomWish(const Sample& sample, std::mt19937& random) {
  Wish wish;
  const u32 quarter = sample.made.sectors / 4;
  switch (random() % 4) {
    case 0:
      wish.resize.sectors = sample.made.sectors;
      break;
    case 1:
      wish.resize.sectors = quarter + random() % (3 * quarter);
      break;
    default:
      wish.resize.sectors =
          sample.made.sectors + random() % (sample.room - sample.made.sectors + 1);
  }
  if (random() % 2) wish.resize.clusterBytes = sample.made.sectorSize << random() % 6;
  if (random() % 3 == 0) wish.resize.forcedType = random() % 2 ? 0x06 : 0x0B;
  wish.resize.geometry = {1023, 254, 63};
  return wish;
}

class Resize : public testing::TestWithParam<Sample> {};

// Every wish is refused with nothing written, or done: the files are what they were, a checker is
// content, and what lies behind the volume is untouched.
TEST_P(Resize, IsDoneOrRefusedAndKeepsAllFiles) {
  const Sample& sample = GetParam();
  u32 done = 0;
  for (u32 round = 0; round < 9; ++round) {
    MemoryDisk disk = withRoom(sample);
    const SectorRange range{disk, 0, sample.made.sectors};
    fill(range, sample.made.type, round, std::array{0.05, 0.3, 0.7}[round % 3]);
    const FileTree before = treeOf(*filesIn(range, sample.made.type, false));
    MemoryDisk untouched = disk.copy();
    std::mt19937 random(round * 7 + 1);
    const Wish wish = randomWish(sample, random);
    SCOPED_TRACE(wish.text());
    const FileSystemKind& kind = kindOf(range, sample.made.type);
    ResizePlan plan;
    const Failure refused = kind.planResize(range, sample.made.type, wish.resize, plan);
    ASSERT_TRUE(disk.sameContent(untouched));
    SilentJob job;
    ResizeReport report;
    const Failure failed = kind.resize(range, sample.made.type, wish.resize, job, report);
    ASSERT_EQ(failed, refused) << "the plan and the resize agree: " << report.faultText;
    if (failed) {
      ASSERT_FALSE(report.touched);
      ASSERT_TRUE(disk.sameContent(untouched));
      continue;
    }
    ++done;
    ASSERT_EQ(report.clusterBytes, plan.clusterBytes);
    const SectorRange now{disk, 0, wish.resize.sectors};
    const FileTree after = treeOf(*filesIn(now, report.type, false));
    ASSERT_EQ(differences(before, after), std::vector<std::string>());
    for (u64 sector = std::max<u64>(wish.resize.sectors, sample.made.sectors);
         sector < sample.room + kBehind; sector += 97)
      ASSERT_EQ(disk.sector(sector), untouched.sector(sector)) << sector;
    MemoryDisk volume(wish.resize.sectors, sample.made.sectorSize);
    copyStart(disk, wish.resize.sectors, sample.made.sectorSize, volume);
    ASSERT_EQ(ownCheckSays(volume), "");
    if (hasJudges()) {
      ASSERT_EQ(checkerSays(volume), "");
    }
  }
  EXPECT_GE(done, 3U) << "the wishes are too hard";
}

INSTANTIATE_TEST_SUITE_P(Kinds, Resize, testing::ValuesIn(kSamples),
                         [](const auto& one) { return one.param.made.name; });

// A request that fails is told as that; what is reported as untouched is.
TEST(ResizeFaults, AreToldAndWhatIsUntouchedIsSo) {
  Sample sample = kSamples[2];
  sample.made.sectors = 34000;
  MemoryDisk disk = withRoom(sample);
  const SectorRange range{disk, 0, sample.made.sectors};
  fill(range, sample.made.type, 3, 0.02);
  ResizeWish wish{.sectors = 50000, .clusterBytes = 2048, .geometry = {1023, 254, 63}};
  forEachFault(disk, kFailedRequests, [&](FaultRound& round) {
    round.begin();
    const SectorRange target{round.disk(), 0, sample.made.sectors};
    ResizeReport report;
    const Failure failed =
        kindOf(range, sample.made.type).resize(target, sample.made.type, wish, round.job(), report);
    if (round.isSound()) {
      ASSERT_FALSE(failed);
      return;
    }
    ASSERT_TRUE(report.touched || round.medium().sameContent(disk));
    ASSERT_TRUE(failed || report.resized || !round.wasHit()) << round.fault();
  });
}

// The extents hold all that the files need: a disk with nothing else reads the same.
TEST(UsedExtents, HoldAllThatIsInUse) {
  for (const Sample& sample : kSamples) {
    SCOPED_TRACE(sample.made.name);
    MemoryDisk disk = withRoom(sample);
    const SectorRange range{disk, 0, sample.made.sectors};
    fill(range, sample.made.type, 5, 0.3);
    ExtentList extents;
    ASSERT_FALSE(kindOf(range, sample.made.type).usedExtents(range, sample.made.type, {}, extents));
    MemoryDisk sparse(sample.made.sectors, sample.made.sectorSize);
    for (std::size_t i = 0; i < extents.size(); ++i)
      for (u64 sector = extents.at(i).startSector; sector < extents.at(i).endSector(); ++sector)
        sparse.setSector(sector, disk.sector(sector));
    EXPECT_LT(extents.dataSectors(), u64{sample.made.sectors} * 2 / 3);
    const FileTree before = treeOf(*filesIn(range, sample.made.type, false));
    const FileTree after =
        treeOf(*filesIn({sparse, 0, sample.made.sectors}, sample.made.type, false));
    EXPECT_EQ(differences(before, after), std::vector<std::string>());
  }
}

}  // namespace
}  // namespace tallowin
