// What formatting makes, judged by programs that are not ours.
#include <fstream>

#include "disk/faulty_disk.h"
#include "disk/image_disk.h"
#include "fat/fat_requests.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u32 kEveryClusterSize[] = {0,        512,       1 * kKiB,  2 * kKiB, 4 * kKiB,
                                     8 * kKiB, 16 * kKiB, 32 * kKiB, 64 * kKiB};

// The kind that everybody sees: FAT32 by the empty 16-bit FAT size, else by the clusters.
FatKind kindByCount(const std::vector<u8>& sector) {
  const auto& bpb = *recordAt<FatBpbRecord>(std::span(sector));
  const u32 total = bpb.totalSectors16 != 0 ? u32{bpb.totalSectors16} : u32{bpb.totalSectors32};
  if (bpb.sectorsPerFat16 == 0) return FatKind::fat32;
  const u32 root = (bpb.rootEntries * 32U + bpb.bytesPerSector - 1) / bpb.bytesPerSector;
  const u32 metadata = bpb.reservedSectors + bpb.numberOfFats * bpb.sectorsPerFat16 + root;
  const u32 clusters = (total - metadata) / bpb.sectorsPerCluster;
  EXPECT_LT(clusters, 65525U);
  return clusters < 4085 ? FatKind::fat12 : FatKind::fat16;
}

class FormatOracleTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!hasProgram("fsck.fat") || !hasProgram("mcopy")) GTEST_SKIP() << "needs dosfstools, mtools";
    folder_.write("in", std::string(70000, 'x') + "the end");
  }

  std::unique_ptr<DiskDevice> newImage(u64 sectors, u32 sectorSize) {
    OpenedImage opened = openImageFile(folder_.sparse("image", sectors * sectorSize),
                                       DiskAccess::readWrite, kHardDiskKind, sectorSize);
    EXPECT_EQ(Error::none, opened.error) << opened.reason;
    return std::move(opened.disk);
  }

  void expectSound() {
    const ProgramResult check = runProgram({"fsck.fat", "-n", folder_.file("image")});
    EXPECT_EQ(0, check.status) << check.output;
  }

  // Puts a file into the volume at `offset` and reads it back.
  void expectUsable(u64 offset) {
    const std::string image = folder_.file("image") + "@@" + std::to_string(offset);
    const ProgramResult in = runProgram({"mcopy", "-i", image, folder_.file("in"), "::A File.txt"});
    ASSERT_EQ(0, in.status) << in.output;
    EXPECT_EQ(folder_.read("in"), runProgram({"mtype", "-i", image, "::A File.txt"}).output);
  }

  // Formats the whole image, and lets the others check and use it.
  void judge(u16 type, u32 sectors, u32 sectorSize, u32 clusterBytes, bool align) {
    SCOPED_TRACE(testing::Message()
                 << "type " << type << ", " << sectors << " sectors of " << sectorSize
                 << ", clusters " << clusterBytes << ", aligned " << align);
    auto disk = newImage(sectors, sectorSize);
    FormatWish wish = wishFor(type, clusterBytes);
    wish.alignForNtfs = align;
    wish.label = "Label";
    ASSERT_EQ(Error::none, formatQuietly({*disk, 0, sectors}, wish));
    const FatLayout layout = opened({*disk, 0, sectors}, type).value().layout;
    EXPECT_EQ(layout.kind, kindByCount(readAll(*disk, 0, 1)));
    EXPECT_TRUE(!align || layout.firstDataSector() * sectorSize % 4096 == 0);
    if (u64{layout.clusterCount()} * layout.clusterBytes() > 600 * kKiB) expectUsable(0);
    expectSound();
  }

  TempFolder folder_;
};

TEST_F(FormatOracleTest, Fat12AndSmallFat16OfEverySize) {
  for (const u32 sectorSize : {512U, 4096U}) {
    for (const u32 sectors : {50U, 720U, 1440U, 2880U, 5760U, 4085U, 8200U, 16340U, 32600U, 32717U})
      judge(0x01, sectors, sectorSize, 0, false);
    for (const u32 sectors : {60U, 4000U, 4130U, 4160U, 8300U, 16400U, 16500U, 32717U, 65535U})
      judge(0x04, sectors, sectorSize, 0, false);
  }
}

TEST_F(FormatOracleTest, Fat16OfEveryClusterSize) {
  for (const u32 sectorSize : {512U, 4096U}) {
    bool align = false;
    for (const u32 sectors : {32717U, 32718U, 300001U, 8387745U, 8387840U})
      for (const u32 cluster : kEveryClusterSize) {
        if (cluster != 0 && cluster < sectorSize) continue;
        judge(0x06, sectors, sectorSize, cluster, align);
        align = !align;
      }
  }
}

TEST_F(FormatOracleTest, Fat32OfEveryClusterSize) {
  for (const u32 sectorSize : {512U, 4096U}) {
    bool align = false;
    for (const u32 sectors : {66727U, 132110U, 132113U, 1000003U})
      for (const u32 cluster : kEveryClusterSize) {
        if (cluster != 0 && cluster < sectorSize) continue;
        judge(align ? 0x1C : 0x0B, sectors, sectorSize, cluster, align);
        align = !align;
      }
  }
  judge(0x0C, 33554432, 512, 4096, false);
  judge(0xEF, 1199, 512, 0, false);
}

TEST_F(FormatOracleTest, TheLargestFat32) { judge(0x0C, 0xFFFFFF80, 512, 0, true); }

// What the scan marks is bad for everybody, in both FATs, and no file is put there.
TEST_F(FormatOracleTest, BadClustersAreKeptFree) {
  for (const u16 type : {u16{0x01}, u16{0x06}, u16{0x0C}}) {
    SCOPED_TRACE(testing::Message() << "type " << type);
    const u32 sectors = type == 0x01 ? 20000 : 70000;
    auto image = newImage(sectors, 512);
    const FatLayout layout = formatAndOpen({*image, 0, sectors}, type).layout;
    const std::vector<u32> bad{2, 5, 6, 9, layout.highestCluster()};
    FaultyDisk faulty(*image);
    for (const u32 cluster : bad) {
      const u64 lba = layout.clusterToSector(cluster);
      faulty.failReadsOf({lba, lba});
    }
    FormatWish wish = wishFor(type);
    wish.surfaceScan = true;
    ASSERT_EQ(Error::none, formatQuietly({faulty, 0, sectors}, wish));
    const FatVolume volume = opened({*image, 0, sectors}).value();

    expectUsable(0);
    expectSound();
    for (u32 copy = 0; copy < 2; ++copy) {
      const std::vector<u8> fat = fatCopy(volume, copy);
      std::vector<u32> marked;
      for (u32 cluster = 2; cluster <= layout.highestCluster(); ++cluster)
        if (rawEntry(fat, layout.kind, cluster) == layout.badMark()) marked.push_back(cluster);
      EXPECT_EQ(bad, marked) << "copy " << copy;
    }
  }
}

}  // namespace
}  // namespace tallowin
