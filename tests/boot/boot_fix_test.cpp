#include "boot/boot_fix.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "disk/memory_disk.h"

namespace tallowin {
namespace {

// Everything by its offset, as the published descriptions of the records have it: the structs of
// the engine are what is judged.
using Sector = std::vector<u8>;

void put(Sector& sector, std::size_t at, u64 value, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i) sector[at + i] = static_cast<u8>(value >> (8 * i));
}
u64 get(const Sector& sector, std::size_t at, std::size_t bytes) {
  u64 value = 0;
  for (std::size_t i = bytes; i-- > 0;) value = value << 8 | sector[at + i];
  return value;
}
void putText(Sector& sector, std::size_t at, std::string_view text) {
  std::copy(text.begin(), text.end(), sector.begin() + static_cast<std::ptrdiff_t>(at));
}

class BootFixTest : public ::testing::Test {
 protected:
  static constexpr u64 kOld = 1000;
  static constexpr u64 kNew = 1300;  // the two places overlap
  static constexpr u64 kCount = 500;

  BootFixTest() {
    move_.oldStart = kOld;
    move_.newStart = kNew;
    move_.sectorCount = kCount;
    move_.hiddenSectors = kNew;
    move_.geometry = {1023, 254, 63};
    boot_.assign(512, 0);
    put(boot_, 510, 0xAA55, 2);
    changes_.emplace(disk_);
  }

  void fix(u16 type, u32 flags = kFixBackup) {
    move_.type = type;
    move_.flags = flags;
    EXPECT_FALSE(disk_.writeSectors(kNew, boot_.data(), 1));
    before_.emplace(disk_.copy());
    ASSERT_FALSE(planBootFix(disk_, move_, *changes_, report_));
    ASSERT_FALSE(changes_->apply());
  }
  Sector at(u64 lba) { return disk_.sector(lba); }
  void write(u64 lba, const Sector& sector) {
    EXPECT_FALSE(disk_.writeSectors(lba, sector.data(), 1));
  }
  void expectBpb(const Sector& sector, u64 hidden = kNew) {
    EXPECT_EQ(63U, get(sector, 24, 2));
    EXPECT_EQ(255U, get(sector, 26, 2));
    EXPECT_EQ(hidden, get(sector, 28, 4));
  }
  std::size_t changedSectors() {
    std::size_t changed = 0;
    for (u64 lba = 0; lba < 4096; ++lba) changed += at(lba) != before_->sector(lba) ? 1 : 0;
    return changed;
  }

  MemoryDisk disk_{4096};
  std::optional<MemoryDisk> before_;
  BootMove move_;
  Sector boot_;
  std::optional<SectorChanges> changes_;
  BootFixReport report_;
};

TEST_F(BootFixTest, NothingIsDoneWithoutASignatureOrForAnotherType) {
  put(boot_, 22, 9, 2);
  fix(0x83);
  EXPECT_TRUE(changes_->empty());
  put(boot_, 510, 0, 2);
  fix(0x06);
  EXPECT_TRUE(changes_->empty());
}

TEST_F(BootFixTest, OfFat16TheDriveNumberIsThereOnlyBehindAnExtendedSignature) {
  put(boot_, 22, 9, 2);
  move_.driveNumber = 0x82;
  fix(0x06, kFixDriveNumber);
  expectBpb(at(kNew));
  EXPECT_EQ(0U, at(kNew)[36]);
  put(boot_, 38, 0x29, 1);
  changes_.emplace(disk_);
  fix(0x16, kFixDriveNumber);
  EXPECT_EQ(0x82U, at(kNew)[36]);
  EXPECT_EQ(1U, changedSectors());
  ASSERT_FALSE(changes_->takeBack());
  EXPECT_EQ(0U, changedSectors());
}

TEST_F(BootFixTest, TheBackupOfFat32IsWhereTheBootSectorSaysItIs) {
  put(boot_, 0, 0x9058EB, 3);
  put(boot_, 14, 32, 2);
  put(boot_, 50, 6, 2);
  put(boot_, 66, 0x29, 1);
  write(kNew + 6, boot_);
  move_.hiddenSectors = 63;
  fix(0x0C);
  expectBpb(at(kNew), 63);
  EXPECT_EQ(at(kNew), at(kNew + 6));
  EXPECT_EQ(2U, changedSectors());
  // What is no boot sector is none, and one in the data is none.
  for (const bool isData : {false, true}) {
    changes_.emplace(disk_);
    put(boot_, 50, isData ? 40 : 7, 2);
    write(kNew + 40, boot_);
    fix(0x0C);
    EXPECT_EQ(1U, changedSectors());
  }
}

TEST_F(BootFixTest, TheBackupOfNtfsIsTheLastSectorOrInTheMiddle) {
  putText(boot_, 0, "\xEBR\x90NTFS    ");
  put(boot_, 80, 0x12345678, 4);
  put(boot_, 40, 300, 8);
  for (const u64 place : {kCount - 1, kCount / 2, u64{300}}) {
    SCOPED_TRACE(place);
    Sector copy = boot_;
    put(copy, 28, 77, 4);
    write(kNew + place, copy);
    changes_.emplace(disk_);
    fix(0x07);
    expectBpb(at(kNew));
    EXPECT_EQ(0U, get(at(kNew), 80, 4));
    EXPECT_EQ(at(kNew), at(kNew + place));
    EXPECT_EQ(2U, changedSectors());
    write(kNew + place, Sector(512));
  }
}

TEST_F(BootFixTest, HpfsAndType235SayWhereTheyAre) {
  putText(boot_, 54, "HPFS    ");
  move_.newBiosNumber = 0x81;
  fix(0x07, kFixDriveNumber);
  expectBpb(at(kNew));
  EXPECT_EQ(0x81U, at(kNew)[36]);
  boot_.assign(512, 0);
  put(boot_, 0, 0x8E9000B8, 4);
  put(boot_, 176, 0x50665253, 4);
  put(boot_, 510, 0xAA55, 2);
  changes_.emplace(disk_);
  fix(0xEB);
  EXPECT_EQ(kNew, get(at(kNew), 171, 4));
  EXPECT_EQ(1U, changedSectors());
}

// The boot sector of the disk and that of the partition lead to the same core image.
TEST_F(BootFixTest, Grub2FindsItsCoreAndTheRestOfIt) {
  Sector core(512);
  put(core, 500, kOld + 301, 8);  // from the end down: in the partition, behind it, the end
  put(core, 508, 10, 2);
  put(core, 510, 0x0820, 2);
  put(core, 488, 5, 8);
  put(core, 496, 3, 2);
  put(core, 476, kOld + 2, 8);
  write(kNew + 300, core);
  put(boot_, 0, 0x63EB, 2);
  putText(boot_, 0x180, "GRUB ");
  put(boot_, 0x5C, kOld + 300, 8);
  put(boot_, 0x64, 0xFF, 1);
  write(0, boot_);
  fix(0x83, kFixBackup | kFixDriveNumber | kFixFirstSector);
  for (const u64 lba : {u64{0}, kNew}) {
    EXPECT_EQ(kNew + 300, get(at(lba), 0x5C, 8));
    EXPECT_EQ(0xFFU, at(lba)[0x64]);
  }
  EXPECT_EQ(kNew + 301, get(at(kNew + 300), 500, 8));
  EXPECT_EQ(5U, get(at(kNew + 300), 488, 8));
  EXPECT_EQ(kOld + 2, get(at(kNew + 300), 476, 8));
  EXPECT_EQ(3U, changedSectors());
}

TEST_F(BootFixTest, GrubIsLeftAloneWhereItLeadsElsewhere) {
  put(boot_, 0, 0x63EB, 2);
  putText(boot_, 0x180, "GRUB ");
  put(boot_, 0x5C, kOld + kCount, 8);
  put(boot_, 0x64, 0xFF, 1);
  fix(0x83);
  EXPECT_TRUE(changes_->empty());
  put(boot_, 0x5C, kOld, 8);
  put(boot_, 0x64, 0x83, 1);  // another drive
  fix(0x83);
  EXPECT_TRUE(changes_->empty());
}

TEST_F(BootFixTest, GrubLegacyFindsItsSecondStage) {
  Sector stage2(512);
  put(stage2, 504, kOld + 11, 4);
  put(stage2, 508, 10, 2);
  put(stage2, 510, 0x0220, 2);
  put(stage2, 496, kOld + 40, 4);
  put(stage2, 500, 2, 2);
  write(kNew + 10, stage2);
  put(boot_, 62, 0x0203, 2);
  putText(boot_, 0x180, "GRUB ");
  put(boot_, 0x40, 0x80, 1);
  put(boot_, 0x44, kOld + 10, 4);
  move_.newBiosNumber = 0x81;
  move_.oldBiosNumber = 0x80;
  fix(0x83, kFixDriveNumber);
  EXPECT_EQ(kNew + 10, get(at(kNew), 0x44, 4));
  EXPECT_EQ(0x81U, at(kNew)[0x40]);
  EXPECT_EQ(kNew + 11, get(at(kNew + 10), 504, 4));
  EXPECT_EQ(kNew + 40, get(at(kNew + 10), 496, 4));
}

TEST_F(BootFixTest, LiloSaysThatItHasToBeInstalledAgain) {
  putText(boot_, 6, "LILO");
  fix(0x83);
  EXPECT_TRUE(report_.mustReinstallLoader);
  const Sector gone = at(kNew);
  EXPECT_EQ("Reload LILO", std::string(reinterpret_cast<const char*>(gone.data()) + 112));
  EXPECT_EQ(0xAA55U, get(gone, 510, 2));
}

// A change that cannot be written is taken back; a sector that is another one by now is kept.
TEST_F(BootFixTest, ChangesAreForTheSectorsThatWereRead) {
  put(boot_, 22, 9, 2);
  move_.type = 0x06;
  write(kNew, boot_);
  ASSERT_FALSE(planBootFix(disk_, move_, *changes_, report_));
  put(boot_, 100, 1, 1);
  write(kNew, boot_);
  EXPECT_EQ(Error::tableChangedMeanwhile, changes_->apply().code);
  EXPECT_EQ(boot_, at(kNew));
}

}  // namespace
}  // namespace tallowin
