// What proves the sector size of an image: other programs' tables and file systems.
#include "ptable/sector_size.h"

#include <gtest/gtest.h>

#include <fstream>

#include "ptable/table_bench.h"
#include "support/disk_file.h"
#include "support/loop_device.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u64 kBytes = 64 * kMiB;

class SectorSizeTest : public testing::Test {
 protected:
  SectorSizeTest() { folder_.sparse("image", kBytes); }

  // A table with these slots; type, first sector, count.
  void table(const std::vector<MbrSlotRecord>& slots) {
    MbrRecord mbr{};
    mbr.signature.set();
    std::copy(slots.begin(), slots.end(), mbr.slots.begin());
    put(0, bytesOf(mbr));
  }
  // A file system that its own program made, at a place of the image.
  void volume(u64 offset, const std::string& command) {
    const std::string path = folder_.sparse("volume", 8 * kMiB);
    std::vector<std::string> make = words(command);
    make.push_back(path);
    ASSERT_EQ(runProgram(make).status, 0) << command;
    const std::string bytes = folder_.read("volume").substr(0, kMiB);
    put(offset, {reinterpret_cast<const u8*>(bytes.data()), bytes.size()});
  }
  void put(u64 offset, std::span<const u8> bytes) {
    std::fstream image(folder_.file("image"), std::ios::in | std::ios::out | std::ios::binary);
    image.seekp(static_cast<std::streamoff>(offset));
    image.write(reinterpret_cast<const char*>(bytes.data()),
                static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(image.good());
  }
  u32 size() {
    MemoryDisk disk = loadDisk(folder_.file("image"));
    return detectSectorSize(disk);
  }

  TempFolder folder_;
};

TEST_F(SectorSizeTest, AGptThatAnotherProgramMade) {
  EXPECT_EQ(size(), 512U) << "nothing at all";
  ASSERT_EQ(runProgram({"sfdisk", "-q", folder_.file("image")}, "label: gpt\nsize=10M\n").status,
            0);
  EXPECT_EQ(size(), 512U);
  TALLOWIN_NEEDS_LOOP_DEVICES();
  for (const u32 sectorSize : {1024U, 2048U, 4096U}) {
    folder_.sparse("image", 0);
    folder_.sparse("image", kBytes);
    {
      const LoopDevice loop(folder_.file("image"), sectorSize);
      ASSERT_EQ(
          runProgram({"sfdisk", "-q", "--no-tell-kernel", loop.path()}, "label: gpt\nsize=10M\n")
              .status,
          0);
    }
    EXPECT_EQ(size(), sectorSize);
    // What is left of it says nothing of the table that came after it.
    table({slot(0x83, 2048, 4096)});
    EXPECT_EQ(size(), 512U) << "under a table of 512, once " << sectorSize;
  }
}

TEST_F(SectorSizeTest, AFileSystemOnTheWholeImage) {
  volume(0, "mkfs.fat -S 4096");
  EXPECT_EQ(size(), 4096U);
  volume(0, "mkfs.fat -S 512");
  EXPECT_EQ(size(), 512U);
}

TEST_F(SectorSizeTest, ABootSectorProvesOnlyTheSizeThatItStates) {
  table({slot(0x0C, 2048, 4096)});
  volume(2048 * 4096, "mkfs.fat -S 4096");
  EXPECT_EQ(size(), 4096U);
  table({slot(0x83, 512, 1024), slot(0x0C, 2048, 4096)});
  EXPECT_EQ(size(), 4096U) << "in the second slot";
  volume(512 * 512, "mkfs.ext4 -q -F");
  EXPECT_EQ(size(), 512U) << "the first one has a file system where 512 puts it";
}

// The first partition was never formatted, and twice its start is the boot sector of the second.
TEST_F(SectorSizeTest, ABootSectorOfAnotherPartitionProvesNothing) {
  table({slot(0x0C, 2048, 2048), slot(0x0C, 4096, 16384)});
  volume(4096 * 512, "mkfs.fat -S 512");
  EXPECT_EQ(size(), 512U);
  // Nor does one that nobody's table names any more, whatever it states.
  table({slot(0x0C, 2048, 2048)});
  EXPECT_EQ(size(), 512U);
  // And not where the table would pass the end of the image.
  table({slot(0x0C, 2048, 2048), slot(0x83, 20000, 100000)});
  volume(2048 * 1024, "mkfs.fat -S 1024");
  EXPECT_EQ(size(), 512U);
}

}  // namespace
}  // namespace tallowin
