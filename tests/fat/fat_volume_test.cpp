#include "fat/fat_volume.h"

#include <functional>

#include "disk/faulty_disk.h"
#include "disk/memory_disk.h"
#include "fat/boot_code.h"
#include "fat/fat_requests.h"

namespace tallowin {
namespace {

constexpr u64 kStart = 63;

class FatVolumeTest : public testing::Test {
 protected:
  // The volume at kStart after one change to the boot sector on the disk.
  std::unique_ptr<FatVolume> reopen(u8 type, const std::function<void(FatVolume&)>& change) {
    auto volume = openVolume(disk_, kStart, length_, type);
    change(*volume);
    EXPECT_EQ(disk_.writeSectors(kStart, volume->bootArea().data(), 1), Error::none);
    volume = openVolume(disk_, kStart, length_, type);
    EXPECT_EQ(disk_.writeSectors(kStart, original_.data(), 1), Error::none);
    return volume;
  }
  void format(u16 type, u32 length) {
    length_ = length;
    formatAndOpen(disk_, kStart, length, type);
    original_ = disk_.sector(kStart);
  }

  MemoryDisk disk_{200000};
  std::vector<u8> original_;
  u64 length_ = 0;
};

TEST_F(FatVolumeTest, TheKindComesFromTheBootSectorAndThenFromTheType) {
  struct Case {
    const char* text;
    u8 extendedSignature;
    u8 type;
    FatKind kind;
  };
  format(0x06, 40000);
  for (const Case& c : std::initializer_list<Case>{{"FAT12   ", 0x29, 0x06, FatKind::fat12},
                                                   {"FAT16   ", 0x26, 0x01, FatKind::fat16},
                                                   {"XFAT16  ", 0x29, 0x01, FatKind::fat16},
                                                   {"XFAT12  ", 0x29, 0x06, FatKind::fat12},
                                                   {"FAT     ", 0x29, 0x06, FatKind::fat16},
                                                   {"FAT     ", 0x29, 0x01, FatKind::fat12},
                                                   {"FAT12   ", 0x25, 0x06, FatKind::fat16},
                                                   {"FAT16   ", 0x2A, 0x0C, FatKind::fat32},
                                                   {"FAT16   ", 0x00, 0x01, FatKind::fat12}}) {
    const auto volume = reopen(c.type, [&](FatVolume& v) {
      v.setTypeText(c.text);
      v.identity().extendedSignature = c.extendedSignature;
    });
    EXPECT_EQ(c.kind, volume->kind()) << c.text << ", type " << unsigned{c.type};
  }
  format(0x0B, 70000);
  EXPECT_EQ(FatKind::fat32, openVolume(disk_, kStart, length_, 0x06)->kind());
  const auto noFat = [](FatVolume& v) { v.bpb32().sectorsPerFat = 0; };
  EXPECT_EQ(FatKind::fat32, reopen(0xEF, noFat)->kind());
  EXPECT_EQ(FatKind::fat16, reopen(0x06, noFat)->kind());
}

TEST_F(FatVolumeTest, NothingIsBelievedThatCannotBe) {
  struct Case {
    const char* what;
    std::function<void(FatVolume&)> change;
  };
  format(0x06, 40000);
  EXPECT_TRUE(reopen(0x06, [](FatVolume&) {})->isValid());
  for (const Case& c : std::initializer_list<Case>{
           {"no boot signature", [](FatVolume& v) { v.bootArea()[511] = 0; }},
           {"no sectors", [](FatVolume& v) { v.bpb().totalSectors16 = 0; }},
           {"longer than the partition", [](FatVolume& v) { v.bpb().totalSectors16 = 40001; }},
           {"no FAT", [](FatVolume& v) { v.bpb().numberOfFats = 0; }},
           {"empty FAT", [](FatVolume& v) { v.bpb().sectorsPerFat16 = 0; }},
           {"empty cluster", [](FatVolume& v) { v.bpb().sectorsPerCluster = 0; }},
           {"huge cluster", [](FatVolume& v) { v.bpb().sectorsPerCluster = 129; }},
           {"other sector size", [](FatVolume& v) { v.bpb().bytesPerSector = 1024; }},
           {"FAT in the boot sector", [](FatVolume& v) { v.bpb().reservedSectors = 0; }},
           {"FATs behind the end", [](FatVolume& v) { v.bpb().sectorsPerFat16 = 20000; }},
           {"all ones", [](FatVolume& v) { std::ranges::fill(v.bootArea().first(510), u8{0xFF}); }},
       })
    EXPECT_FALSE(reopen(0x06, c.change)->isValid()) << c.what;

  format(0x0B, 70000);
  EXPECT_FALSE(reopen(0x0B, [](FatVolume& v) { v.bpb32().sectorsPerFat = kAllOnes32; })->isValid());
  FaultyDisk faulty(disk_);
  faulty.failRead(0);
  EXPECT_FALSE(openVolume(faulty, kStart, length_)->isValid());
  EXPECT_FALSE(openVolume(disk_, kStart, 0)->isValid());
  EXPECT_FALSE(openVolume(disk_, kStart, u64{1} << 32)->isValid()) << "more than 32 bits";
}

TEST_F(FatVolumeTest, TheLayoutFollowsFromTheBootSector) {
  format(0x06, 40000);  // 4 sectors a cluster, FATs of 39 sectors
  auto volume = openVolume(disk_, kStart, length_);
  EXPECT_EQ(kStart + 1, volume->fatStartLba());
  EXPECT_EQ(1U + 2 * 39, volume->rootDirSector());
  EXPECT_EQ(1U + 2 * 39 + 32, volume->firstDataSector());
  EXPECT_EQ((40000U - 111) / 4, volume->clusterCount());
  EXPECT_EQ(kStart + 111 + 4 * 98, volume->clusterToLba(100));
  EXPECT_EQ(100U, volume->lbaToCluster(volume->clusterToLba(100) + 3));

  EXPECT_EQ(0U, reopen(0x06, [](FatVolume& v) { v.setRootEntries(0); })->rootDirSectors());
  EXPECT_EQ(2U, reopen(0x06, [](FatVolume& v) { v.setRootEntries(17); })->rootDirSectors());
  EXPECT_EQ(256U * 10 - 2,
            reopen(0x06, [](FatVolume& v) { v.bpb().sectorsPerFat16 = 10; })->clusterCount())
      << "no more clusters than the FAT has entries";
  const auto all = reopen(0x06, [](FatVolume& v) { v.bpb().sectorsPerFat16 = 19984 - 1; });
  EXPECT_TRUE(all->isValid());
  EXPECT_EQ(0U, all->clusterCount()) << "metadata up to the last but one sector";
}

TEST_F(FatVolumeTest, TheBootAreaGoesWhereItBelongsAndNowhereElse) {
  format(0x0B, 70000);
  const std::vector<u8> fat = readAll(disk_, kStart + 32, 1);
  EXPECT_EQ(std::vector<u8>(512), disk_.sector(kStart + 8)) << "only sector 2 is stamped";
  auto volume = openVolume(disk_, kStart, length_);
  ASSERT_NE(nullptr, volume->fsInfo());
  volume->fsInfo()->nextFreeCluster = 99;
  ASSERT_TRUE(volume->writeBootArea());
  EXPECT_EQ(readAll(disk_, kStart, 2), readAll(disk_, kStart + 6, 2));
  EXPECT_EQ(0xAA, disk_.sector(kStart + 2)[511]);

  // NT-style code: two sectors and their backup, the third in sector 12, sector 2 but for its end.
  disk_.setSector(kStart + 2, std::vector<u8>(512, 0x22));
  disk_.setSector(kStart + 8, std::vector<u8>(512, 0x88));
  disk_.setSector(kStart + 12, std::vector<u8>(512, 0xCC));
  const std::string_view name = "BOOTMGR";
  std::copy(name.begin(), name.end(), volume->bootArea().begin() + 400);
  *recordAt<Le16>(volume->bootArea(), 256) = 0xB868;
  ASSERT_EQ(disk_.writeSectors(kStart, volume->bootArea().data(), 1), Error::none);
  volume = openVolume(disk_, kStart, length_);
  EXPECT_EQ(0xCC, volume->bootAreaSector(2)[0]);
  volume->bootAreaSector(2)[0] = 0xCD;
  ASSERT_TRUE(volume->writeBootArea());
  EXPECT_EQ(0xCD, disk_.sector(kStart + 12)[0]);
  EXPECT_EQ(0x88, disk_.sector(kStart + 8)[0]);
  const std::vector<u8> sectorTwo = disk_.sector(kStart + 2);
  EXPECT_EQ((std::vector<u8>{0x22, 0x00, 0x00, 0x55, 0xAA}),
            std::vector<u8>(sectorTwo.begin() + 507, sectorTwo.end()));
  EXPECT_EQ(fat, readAll(disk_, kStart + 32, 1));

  // With fewer reserved sectors than the boot area, the FAT behind them stays.
  volume->bpb().reservedSectors = 2;
  const std::vector<u8> behind = readAll(disk_, kStart + 2, 30);
  ASSERT_TRUE(volume->writeBootArea());
  EXPECT_EQ(behind, readAll(disk_, kStart + 2, 30));

  for (u64 write = 0; write < 2; ++write) {
    FaultyDisk faulty(disk_);
    faulty.failWrite(write);
    volume = openVolume(faulty, kStart, length_);
    volume->bpb().reservedSectors = 32;
    EXPECT_FALSE(volume->writeBootArea());
  }
}

TEST(BootCodeTest, LoadersAreToldByNameAndByTheMiddleOfTheSector) {
  const auto sector = [](std::string_view text, std::size_t at, u32 middle, u16 word272 = 0) {
    std::vector<u8> bytes(512);
    std::copy(text.begin(), text.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    *recordAt<Le32>(std::span(bytes), 256) = middle;
    *recordAt<Le16>(std::span(bytes), 272) = word272;
    return bytes;
  };
  EXPECT_TRUE(hasNtldrCode(sector("NTLDR", 506, 0x42B4)));
  EXPECT_FALSE(hasNtldrCode(sector("NTLDR", 507, 0x42B4)));
  EXPECT_FALSE(hasNtldrCode(sector("NTLDR", 0, 0x42B5)));
  EXPECT_EQ(BootmgrCode::plain, bootmgrCode(sector("BOOTMGR", 504, 0x0002)));
  EXPECT_EQ(BootmgrCode::none, bootmgrCode(sector("BOOTMGR", 505, 0x0002)));
  EXPECT_EQ(BootmgrCode::plain, bootmgrCode(sector("BOOTMGR", 3, 0xB868, 0x1028)));
  EXPECT_EQ(BootmgrCode::variant3, bootmgrCode(sector("BOOTMGR", 3, 0x1655, 0x1028)));
  EXPECT_EQ(BootmgrCode::variant4, bootmgrCode(sector("BOOTMGR", 3, 0x1655, 0x130A)));
  EXPECT_TRUE(hasDosCode(sector("IO      SYS", 500, 0xEFEB10CD)));
  EXPECT_FALSE(hasDosCode(sector("IO      SYS", 501, 0xEFEB10CD)));
  EXPECT_TRUE(hasWindows9xCode(sector("WINBOOT SYS", 64, 0)));
  EXPECT_FALSE(hasWindows9xCode(sector("WINBOOT SYS", 63, 0)));
  EXPECT_TRUE(hasWindows9xCode(sector("IO      SYS", 500, 0xEB7D81BE)));
  EXPECT_FALSE(hasWindows9xCode(sector("IO      SYS", 500, 0xEFEB10CD)));
  EXPECT_FALSE(hasNtStyleCode(std::vector<u8>(100)));
}

}  // namespace
}  // namespace tallowin
