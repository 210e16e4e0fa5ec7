// Who may reach the files of a partition, and who is told why not.
#include "ops/volume_files.h"

#include "ops/flow_bench.h"

namespace tallowin {
namespace {

class VolumeFilesTest : public FlowTest {
 protected:
  VolumeFilesTest() {
    const auto drive = open(disk_);
    add(*drive, 0, 40960, 0x06, "FIRST");
    add(*drive, 0, 40960, 0x83, "SECOND");
    const FileSystemKind& kind = *fileSystems_.byWord("fat16");
    FormatWish wish;
    wish.type = 0x06;
    wish.geometry = {1023, 254, 63};
    SilentJob job;
    FormatReport report;
    EXPECT_EQ(Error::none,
              kind.format(rangeOf(*drive, *drive->findByKernelNumber(1)), wish, job, report));
  }
  FlowResult makeFolder(Drive& drive, u32 number) {
    return changeFiles(context_, drive, *drive.findByKernelNumber(number),
                       [](FileSystem& files, Job&) -> FileFailure {
                         return {files.makeDirectory("/made"), "/made"};
                       });
  }
  bool isMade(Drive& drive) {
    bool made = false;
    const FlowResult looked = lookAtFiles(context_, drive, *drive.findByKernelNumber(1),
                                          [&](FileSystem& files, Job&) -> FileFailure {
                                            made = files.exists("/made");
                                            return {};
                                          });
    return looked.succeeded() && made;
  }
};

TEST_F(VolumeFilesTest, AMountedPartitionIsOnlyLookedAt) {
  const auto drive = open(disk_);
  const PartitionEntry& entry = *drive->findByKernelNumber(1);
  mount(entry.startSector, entry.sectorCount());
  ui_.expectMessage("Error: The partition is mounted in Linux as /mnt/data.");
  EXPECT_EQ(Error::targetInUse, makeFolder(*drive, 1).code);
  EXPECT_FALSE(isMade(*drive));
  host_.file("/proc/mounts", "");
  EXPECT_TRUE(makeFolder(*drive, 1).succeeded());
  EXPECT_TRUE(isMade(*drive));
  ui_.expectMessage("'/made': There is already");
  EXPECT_EQ(Error::alreadyExists, makeFolder(*drive, 1).code);
  ui_.expectMessage("The files of the partition cannot be reached.");
  EXPECT_EQ(Error::fileSystemUnreadable, makeFolder(*drive, 2).code);
}

TEST_F(VolumeFilesTest, ATableThatChangedMeanwhileIsLeftAlone) {
  const auto drive = open(disk_);
  add(*open(disk_), 0, 20480, 0x83, "NEW");
  ui_.expectMessage("Another program has changed the partition table");
  EXPECT_EQ(Error::tableChangedMeanwhile, makeFolder(*drive, 1).code);
  EXPECT_FALSE(isMade(*drive));
}

}  // namespace
}  // namespace tallowin
