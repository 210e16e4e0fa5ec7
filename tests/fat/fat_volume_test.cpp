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
  using Change = std::function<void(FatBootArea&)>;

  void format(u16 type, u32 length) {
    length_ = length;
    boot_ = formatAndOpen(range(), type).boot;
  }
  SectorRange range() { return {disk_, kStart, length_}; }
  // What the boot sector says after one change to it.
  FatBootArea changed(const Change& change) const {
    FatBootArea boot = *boot_;
    change(boot);
    return boot;
  }
  std::optional<FatLayout> layoutAfter(const Change& change, u16 type = 0x06) {
    return changed(change).layoutIn(range(), type);
  }

  MemoryDisk disk_{200000};
  std::optional<FatBootArea> boot_;
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
    const FatBootArea boot = changed([&](FatBootArea& b) {
      std::copy_n(c.text, 8, b.identity().typeText);
      b.identity().extendedSignature = c.extendedSignature;
    });
    EXPECT_EQ(c.kind, boot.kind(c.type)) << c.text << ", type " << unsigned{c.type};
  }
  format(0x0B, 70000);
  EXPECT_EQ(FatKind::fat32, boot_->kind(0x06));
  const FatBootArea noFat = changed([](FatBootArea& b) { b.bpb32().sectorsPerFat = 0; });
  EXPECT_EQ(FatKind::fat32, noFat.kind(0xEF));
  EXPECT_EQ(FatKind::fat16, noFat.kind(0x06));
}

TEST_F(FatVolumeTest, NothingIsBelievedThatCannotBe) {
  struct Case {
    const char* what;
    Change change;
  };
  format(0x06, 40000);
  EXPECT_TRUE(layoutAfter([](FatBootArea&) {}));
  for (const Case& c : std::initializer_list<Case>{
           {"no boot signature", [](FatBootArea& b) { b.bytes()[511] = 0; }},
           {"no sectors", [](FatBootArea& b) { b.bpb().totalSectors16 = 0; }},
           {"longer than the partition", [](FatBootArea& b) { b.bpb().totalSectors16 = 40001; }},
           {"no FAT", [](FatBootArea& b) { b.bpb().numberOfFats = 0; }},
           {"empty FAT", [](FatBootArea& b) { b.bpb().sectorsPerFat16 = 0; }},
           {"empty cluster", [](FatBootArea& b) { b.bpb().sectorsPerCluster = 0; }},
           {"huge cluster", [](FatBootArea& b) { b.bpb().sectorsPerCluster = 129; }},
           {"other sector size", [](FatBootArea& b) { b.bpb().bytesPerSector = 1024; }},
           {"FAT in the boot sector", [](FatBootArea& b) { b.bpb().reservedSectors = 0; }},
           {"FATs behind the end", [](FatBootArea& b) { b.bpb().sectorsPerFat16 = 20000; }},
           {"all ones", [](FatBootArea& b) { std::ranges::fill(b.bytes().first(510), u8{0xFF}); }},
       })
    EXPECT_FALSE(layoutAfter(c.change)) << c.what;

  format(0x0B, 70000);
  EXPECT_FALSE(layoutAfter([](FatBootArea& b) { b.bpb32().sectorsPerFat = kAllOnes32; }));
  std::optional<FatVolume> volume;
  FaultyDisk faulty(disk_);
  faulty.failRead(0);
  EXPECT_EQ(Error::read, openFat({faulty, kStart, length_}, 0, volume));
  EXPECT_EQ(Error::invalidVolume, openFat({disk_, kStart, 0}, 0, volume));
  EXPECT_EQ(Error::invalidVolume, openFat({disk_, kStart, u64{1} << 32}, 0, volume))
      << "more than 32 bits";
  EXPECT_FALSE(volume);
}

TEST_F(FatVolumeTest, TheLayoutFollowsFromTheBootSector) {
  format(0x06, 40000);  // 4 sectors a cluster, FATs of 39 sectors
  const FatLayout layout = layoutAfter([](FatBootArea&) {}).value();
  EXPECT_EQ(1U + 2 * 39, layout.rootDirSector());
  EXPECT_EQ(1U + 2 * 39 + 32, layout.firstDataSector());
  EXPECT_EQ((40000U - 111) / 4, layout.clusterCount());
  EXPECT_EQ(111U + 4 * 98, layout.clusterToSector(100));
  EXPECT_EQ(100U, layout.sectorToCluster(layout.clusterToSector(100) + 3));

  const auto rootOf = [&](u16 entries) {
    return layoutAfter([=](FatBootArea& b) { b.bpb().rootEntries = entries; })->rootDirSectors();
  };
  EXPECT_EQ(0U, rootOf(0));
  EXPECT_EQ(2U, rootOf(17));
  const auto clustersWith = [&](u16 sectorsPerFat) {
    return layoutAfter([=](FatBootArea& b) { b.bpb().sectorsPerFat16 = sectorsPerFat; })
        ->clusterCount();
  };
  EXPECT_EQ(256U * 10 - 2, clustersWith(10)) << "no more clusters than the FAT has entries";
  EXPECT_EQ(0U, clustersWith(19984 - 1)) << "metadata up to the last but one sector";
}

TEST_F(FatVolumeTest, TheBootAreaGoesWhereItBelongsAndNowhereElse) {
  format(0x0B, 70000);
  const auto write = [&](const FatBootArea& boot, DiskDevice& disk) {
    const SectorRange there{disk, kStart, length_};
    const Failure failed = boot.writeBehindBootSector(there);
    return failed ? failed : boot.writeBootSector(there);
  };
  const std::vector<u8> fat = disk_.sector(kStart + 32);
  EXPECT_EQ(std::vector<u8>(512), disk_.sector(kStart + 8)) << "only sector 2 is stamped";
  ASSERT_NE(nullptr, boot_->fsInfo());
  boot_->fsInfo()->nextFreeCluster = 99;
  ASSERT_EQ(Error::none, write(*boot_, disk_));
  EXPECT_EQ(readAll(disk_, kStart, 2), readAll(disk_, kStart + 6, 2));
  EXPECT_EQ(0xAA, disk_.sector(kStart + 2)[511]);

  // NT-style code: two sectors and their backup, the third in sector 12, sector 2 but for its end.
  disk_.setSector(kStart + 2, std::vector<u8>(512, 0x22));
  disk_.setSector(kStart + 8, std::vector<u8>(512, 0x88));
  disk_.setSector(kStart + 12, std::vector<u8>(512, 0xCC));
  const std::string_view name = "BOOTMGR";
  std::copy(name.begin(), name.end(), boot_->bytes().begin() + 400);
  *recordAt<Le16>(boot_->bytes(), 256) = 0xB868;
  ASSERT_EQ(Error::none, boot_->writeBootSector(range()));
  ASSERT_EQ(Error::none, boot_->read(range()));
  EXPECT_EQ(0xCC, boot_->sector(2)[0]);
  boot_->sector(2)[0] = 0xCD;
  ASSERT_EQ(Error::none, write(*boot_, disk_));
  EXPECT_EQ(0xCD, disk_.sector(kStart + 12)[0]);
  EXPECT_EQ(0x88, disk_.sector(kStart + 8)[0]);
  const std::vector<u8> sectorTwo = disk_.sector(kStart + 2);
  EXPECT_EQ((std::vector<u8>{0x22, 0x00, 0x00, 0x55, 0xAA}),
            std::vector<u8>(sectorTwo.begin() + 507, sectorTwo.end()));
  EXPECT_EQ(fat, disk_.sector(kStart + 32));

  // With fewer reserved sectors than the boot area, the FAT behind them stays.
  const FatBootArea shortArea = changed([](FatBootArea& b) { b.bpb().reservedSectors = 2; });
  const std::vector<u8> behind = readAll(disk_, kStart + 2, 30);
  ASSERT_EQ(Error::none, write(shortArea, disk_));
  EXPECT_EQ(behind, readAll(disk_, kStart + 2, 30));

  for (u64 n = 0; n < 5; ++n) {
    FaultyDisk faulty(disk_);
    faulty.failWrite(n);
    EXPECT_EQ(Error::write, write(*boot_, faulty)) << n;
  }
}

// For a volume that changes its size or kind.
TEST_F(FatVolumeTest, ANewLayoutKeepsCodeLabelAndSerial) {
  format(0x06, 40000);
  boot_->setLabel("KEEP ME    ");
  boot_->identity().serial = 0x12345678;
  boot_->bytes()[300] = 0x5A;
  FatLayout layout = emptyFatLayout(0x0B, 70000, 512, {});
  layout.sectorsPerCluster = 4;
  ASSERT_TRUE(computeFatLayout(layout, 0x0B, kKeepClusterSize, {}));
  EXPECT_EQ(1U, layout.sectorsPerCluster) << "so that it has the clusters of a FAT32";
  boot_->setLayout(layout, {});
  length_ = 70000;
  EXPECT_EQ(layout.clusterCount(), boot_->layoutIn(range(), 0)->clusterCount());
  EXPECT_TRUE(boot_->layoutIn(range(), 0)->isFat32());
  EXPECT_EQ("KEEP ME    ", boot_->label());
  EXPECT_EQ(0x12345678U, boot_->identity().serial);
  EXPECT_EQ(0x5A, boot_->bytes()[300]);
  EXPECT_NE(nullptr, boot_->fsInfo());

  const auto sizeFor = [](i32 wanted) {
    FatLayout large = emptyFatLayout(0x0B, 0x4000000, 512, {});
    large.sectorsPerCluster = 8;
    EXPECT_TRUE(computeFatLayout(large, 0x0B, wanted, {}));
    return large.sectorsPerCluster;
  };
  EXPECT_EQ(64U, sizeFor(0));
  EXPECT_EQ(64U, sizeFor(kKeepClusterSize));
  EXPECT_EQ(8U, sizeFor(kKeepClusterSizeExactly));
  EXPECT_EQ(8U, sizeFor(-5));
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
