// Every change of a table: it works, it fails at each single transfer, and the power is cut.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "disk/disk_handles.h"
#include "disk/disk_wrapper.h"
#include "probe/type_catalogue.h"
#include "ptable/mbr/boot_code.h"
#include "ptable/table_bench.h"

namespace tallowin {
namespace {

constexpr u64 kDiskSectors = 204800;
constexpr const char* kEmpty = "";
constexpr const char* kPrimaries =
    "label: dos\nlabel-id: 0x12345678\n1:start=2048,size=4096,type=83\n"
    "3:start=40960,size=8192,type=7\n";
constexpr const char* kEmptyExtended =
    "label: dos\nlabel-id: 0x12345678\n2:start=20480,size=102400,type=5\n";

const DriveOpenOptions kAligned = alignedTo(2048);

Failure create(Drive& drive, u64 start, u64 sectors, u16 type) {
  return drive.add(newEntryAt(drive, start, sectors, type, "a name of a volume"));
}

struct Change {
  const char* what;
  const char* before;  // the script; empty for a disk of zeros
  Failure (*run)(Drive& drive);
  const char* after;  // the used rows
};

const Change kChanges[] = {
    {"first primary of an empty disk", kEmpty,
     [](Drive& d) { return create(d, 2048, 20480, 0x0C); }, "1: 2048..22527 0Ch *\n"},
    {"primary into the free slot between others", kPrimaries,
     [](Drive& d) { return create(d, 20480, 2048, 0x83); },
     "1: 2048..6143 83h\n2: 20480..22527 83h *\n3: 40960..49151 07h\n"},
    {"extended partition", kPrimaries, [](Drive& d) { return create(d, 51200, 102400, 0x0F); },
     "1: 2048..6143 83h\n3: 40960..49151 07h\n2: 51200..153599 0Fh\n"},
    {"first volume", kEmptyExtended, [](Drive& d) { return create(d, 22528, 2048, 0x83); },
     "2: 20480..122879 05h\n  5: 22528..24575 83h\n"},
    {"first volume, not at the start of its container", kEmptyExtended,
     [](Drive& d) { return create(d, 61440, 2048, 0x83); },
     "2: 20480..122879 05h\n  5: 61440..63487 83h\n"},
    {"volume in the middle", kThreeVolumes, [](Drive& d) { return create(d, 40960, 2048, 0x0B); },
     "1: 2048..6143 83h\n2: 20480..122879 0Fh\n  5: 22528..30719 83h\n  6: 40960..43007 0Bh\n"
     "  7: 61440..69631 0Bh\n  8: 81920..90111 82h\n"},
    {"volume at the end, right behind its EBR", kThreeVolumes,
     [](Drive& d) {
       NewEntry volume = newEntryAt(d, 100000, 2048, 0x83);
       volume.ebrSector = volume.startSector - 1;
       return d.add(volume);
     },
     "1: 2048..6143 83h\n2: 20480..122879 0Fh\n  5: 22528..30719 83h\n  6: 61440..69631 0Bh\n"
     "  7: 81920..90111 82h\n  8: 100000..102047 83h\n"},
    {"primary removed", kPrimaries, [](Drive& d) { return d.remove(*d.findByKernelNumber(3)); },
     "1: 2048..6143 83h\n"},
    {"extended partition removed with its volumes", kThreeVolumes,
     [](Drive& d) { return d.remove(*d.findByKernelNumber(2)); }, "1: 2048..6143 83h\n"},
    {"first volume removed", kThreeVolumes,
     [](Drive& d) { return d.remove(*d.findByKernelNumber(5)); },
     "1: 2048..6143 83h\n2: 20480..122879 0Fh\n  5: 61440..69631 0Bh\n  6: 81920..90111 82h\n"},
    {"volume in the middle removed", kThreeVolumes,
     [](Drive& d) { return d.remove(*d.findByKernelNumber(6)); },
     "1: 2048..6143 83h\n2: 20480..122879 0Fh\n  5: 22528..30719 83h\n  6: 81920..90111 82h\n"},
    {"last volume removed", kThreeVolumes,
     [](Drive& d) { return d.remove(*d.findByKernelNumber(7)); },
     "1: 2048..6143 83h\n2: 20480..122879 0Fh\n  5: 22528..30719 83h\n  6: 61440..69631 0Bh\n"},
    {"type and mark of a primary", kPrimaries,
     [](Drive& d) {
       return d.changeProperties(*d.findByKernelNumber(3), {.type = 0x17, .active = true});
     },
     "1: 2048..6143 83h\n3: 40960..49151 17h *\n"},
    {"type and name of a volume", kThreeVolumes,
     [](Drive& d) {
       return d.changeProperties(*d.findByKernelNumber(6), {.type = 0x0C, .name = "NEW"});
     },
     "1: 2048..6143 83h\n2: 20480..122879 0Fh\n  5: 22528..30719 83h\n  6: 61440..69631 0Ch\n"
     "  7: 81920..90111 82h\n"},
    // Its type goes to a field of its own in the EBR, and other programs see another one.
    {"volume hidden", kThreeVolumes,
     [](Drive& d) {
       return d.changeProperties(*d.findByKernelNumber(7), {.type = types::hide(0x82)});
     },
     "1: 2048..6143 83h\n2: 20480..122879 0Fh\n  5: 22528..30719 83h\n  6: 61440..69631 0Bh\n"
     "  7: 81920..90111 82h (EDh)\n"},
};

MemoryDisk diskOf(const Change& change) {
  MemoryDisk disk = *change.before == '\0' ? MemoryDisk(kDiskSectors)
                                           : diskFromScript(kDiskSectors, change.before);
  return disk;
}

std::string rowsOn(MemoryDisk& disk) {
  TableBench bench(disk.copy(), kAligned);
  return usedRows(bench.drive());
}

TEST(DriveWrite, EachChangeIsWhatSfdiskReads) {
  for (const Change& change : kChanges) {
    TableBench bench(diskOf(change), kAligned);
    EXPECT_EQ(change.run(bench.drive()), Error::none) << change.what;
    EXPECT_NE(bench.drive().flags() & kDriveChanged, 0U);
    EXPECT_EQ(bench.drive().reread(), Error::none);
    EXPECT_EQ(usedRows(bench.drive()), change.after) << change.what;
    EXPECT_FALSE(bench.drive().table().hasErrors()) << change.what;
    const SfdiskTable judged = readTable(bench.disk());
    EXPECT_EQ(judged.problems, "") << change.what;
    EXPECT_EQ(judged.rows, rowsOf(bench.drive())) << change.what;
  }
}

TableChange tableChange(const Change& change) {
  return {change.what, change.run, rowsOn, kAligned};
}

TEST(DriveWrite, EachFailedTransferLeavesTheTableThatTheErrorNames) {
  for (const Change& change : kChanges) {
    MemoryDisk before = diskOf(change);
    expectFaultsAreTold(before, tableChange(change));
  }
}

// A write that arrives although it fails, on a disk that takes no more after it.
TEST(DriveWrite, AFailedWriteThatArrivedIsToldAsTheNewTable) {
  class LyingDisk : public DiskWrapper {
   public:
    using DiskWrapper::DiskWrapper;
    Failure transferOut(u64 lba, const void* buffer, u32 count) override {
      if (!isDead_) static_cast<void>(DiskWrapper::transferOut(lba, buffer, count));
      isDead_ = true;
      return {Error::write, EIO, lba};
    }

   private:
    bool isDead_ = false;
  };
  const Change& change = kChanges[7];
  MemoryDisk disk = diskOf(change);
  FakeHost host;
  auto drive = TableBench::openOn(std::make_shared<LyingDisk>(disk), host, kAligned);
  EXPECT_EQ(change.run(*drive), Error::writeFailedNewTable);
  EXPECT_EQ(rowsOn(disk), change.after);
  EXPECT_NE(drive->flags() & kDriveChanged, 0U);
}

TEST(DriveWrite, APowerCutLeavesTheOldTableOrTheNewOne) {
  for (const Change& change : kChanges) {
    MemoryDisk before = diskOf(change);
    expectCutsLeaveOldOrNew(before, tableChange(change));
  }
}

TEST(DriveWrite, BootCodeAndActiveSlotFollowTheFirstDiskRule) {
  TableBench first{MemoryDisk(kDiskSectors), kAligned};
  ASSERT_EQ(create(first.drive(), 2048, 2048, 0x83), Error::none);
  EXPECT_TRUE(std::ranges::equal(mbrOf(first.disk()).bootCode, bootCodeBytes(BootCode::standard)));
  EXPECT_EQ(mbrOf(first.disk()).slots[0].bootIndicator, kBootActive);
  ASSERT_EQ(first.drive().reread(), Error::none);
  ASSERT_EQ(create(first.drive(), 8192, 2048, 0x83), Error::none);
  EXPECT_EQ(mbrOf(first.disk()).slots[1].bootIndicator, 0);

  // A disk that the firmware does not know is not its first one.
  MemoryDisk image(kDiskSectors);
  image.setBiosNumber(kBiosNumberNoMatch);
  DriveOpenOptions unlisted = kAligned;
  unlisted.driveNumber = kUnlistedDrive;
  TableBench unknown(std::move(image), unlisted);
  EXPECT_FALSE(unknown.drive().biosNumber());
  ASSERT_EQ(create(unknown.drive(), 2048, 2048, 0x83), Error::none);
  EXPECT_EQ(mbrOf(unknown.disk()).slots[0].bootIndicator, 0);

  MemoryDisk other(kDiskSectors);
  other.setBiosNumber(0x81);
  MbrRecord foreign{};
  foreign.bootCode[0] = 0xFA;
  foreign.signature.set();
  other.setSector(0, bytesOf(foreign));
  TableBench second(std::move(other), kAligned);
  ASSERT_EQ(create(second.drive(), 2048, 2048, 0x83), Error::none);
  EXPECT_EQ(mbrOf(second.disk()).bootCode, foreign.bootCode);
  EXPECT_EQ(mbrOf(second.disk()).slots[0].bootIndicator, 0);
}

TEST(DriveWrite, ChsFieldsFollowTheModeOfTheDrive) {
  const auto endChsWith = [](u32 flags, u64 start, u64 sectors) {
    DriveOpenOptions options = kAligned;
    options.flags |= flags;
    TableBench bench{MemoryDisk(u64{40} * 1024 * 2048), options};
    EXPECT_EQ(create(bench.drive(), start, sectors, 0x83), Error::none);
    return mbrOf(bench.disk()).slots[0].endChs;
  };
  using Chs = std::array<u8, 3>;
  EXPECT_EQ(endChsWith(0, 2048, 2048), (Chs{65, 1, 0}));
  EXPECT_EQ(endChsWith(kDriveChsForceEnd, 2048, 2048), (Chs{254, 63, 0}));
  EXPECT_EQ(endChsWith(kDriveChsEndIfTruncated, 2048, 2048), (Chs{65, 1, 0}));
  EXPECT_EQ(endChsWith(kDriveChsEndIfTruncated, 2048, 20480000), (Chs{254, 0xFF, 0xFF}));
  EXPECT_EQ(endChsWith(0, 2048, 20480000)[2], 0xFF);
}

// 3 TiB: what lies below the limit of 32-bit sector numbers can be used, to its last sector.
TEST(DriveWrite, HugeDisksAreUsedUpToTheLimitOfTheTable) {
  TableBench bench{MemoryDisk(u64{3} << 31), kAligned};
  ASSERT_EQ(create(bench.drive(), 2048, 0xFFFFFFFF - 2048, 0x05), Error::none);
  ASSERT_EQ(bench.drive().reread(), Error::none);
  ASSERT_EQ(create(bench.drive(), 0xFFF00000, 0xFEFFE, 0x83), Error::none);
  ASSERT_EQ(bench.drive().reread(), Error::none);
  const SfdiskTable judged = readTable(bench.disk());
  EXPECT_EQ(judged.problems, "");
  EXPECT_EQ(judged.rows, rowsOf(bench.drive()));
  EXPECT_EQ(judged.rows.size(), 2U);
}

TEST(DriveWrite, RefusalsChangeNothing) {
  struct Refusal {
    const char* what;
    const char* script;
    u64 start;
    u64 sectors;
    Failure error;
  };
  const Refusal refusals[] = {
      {"four primaries", "label: dos\n2048,2048,83\n4096,2048,83\n6144,2048,83\n8192,2048,83\n",
       20480, 2048, Error::noFreeEntry},
      {"overlap", kPrimaries, 20480, 30000, Error::outsideUsableArea},
      {"beyond the disk", kPrimaries, 100000, kDiskSectors, Error::outsideUsableArea},
      {"over the next volume", kThreeVolumes, 40960, 30000, Error::outsideUsableArea},
      {"beyond its container", kThreeVolumes, 100000, 40000, Error::outsideUsableArea},
  };
  for (const Refusal& r : refusals) {
    expectRefused(
        diskFromScript(kDiskSectors, r.script),
        [&](Drive& d) { return create(d, r.start, r.sectors, 0x83); }, r.error, r.what, kAligned);
  }
}

// Somebody else changes the table between reading and writing.
TEST(DriveWrite, ATableThatChangedMeanwhileIsNotOverwritten) {
  TableBench bench(diskFromScript(kDiskSectors, kThreeVolumes), kAligned);
  FakeHost host;
  auto other = TableBench::openOn(std::make_shared<DiskWrapper>(bench.disk()), host, kAligned);
  ASSERT_EQ(other->remove(*other->findByKernelNumber(6)), Error::none);
  EXPECT_EQ(create(bench.drive(), 40960, 2048, 0x83), Error::tableChangedMeanwhile);
  EXPECT_EQ(bench.drive().remove(*bench.drive().findByKernelNumber(7)),
            Error::tableChangedMeanwhile);
  ASSERT_EQ(other->reread(), Error::none);
  ASSERT_EQ(other->remove(*other->findByKernelNumber(1)), Error::none);
  EXPECT_EQ(create(bench.drive(), 150000, 2048, 0x83), Error::tableChangedMeanwhile);
}

TEST(DriveWrite, SignatureAndKernelNumbersAreSettled) {
  class KernelSpy : public DiskWrapper {
   public:
    using DiskWrapper::DiskWrapper;
    KernelTable tellKernel(std::span<const KernelPartition> wanted) override {
      told.assign(wanted.begin(), wanted.end());
      return KernelTable::upToDate;
    }
    Failure flush() override { return failsFlush ? Failure(Error::flush, EIO) : Failure(); }
    std::vector<KernelPartition> told;
    bool failsFlush = false;
  };
  MemoryDisk disk(kDiskSectors);
  FakeHost host;
  auto spy = std::make_shared<KernelSpy>(disk);
  auto drive = TableBench::openOn(spy, host, kAligned);
  ASSERT_EQ(drive->ensureDiskSignature(), Error::none);
  EXPECT_NE(drive->diskSignature() & 0xFF, 0U);
  const u32 signature = drive->diskSignature();
  ASSERT_EQ(drive->ensureDiskSignature(5), Error::none);
  ASSERT_EQ(create(*drive, 20480, 102400, 0x05), Error::none);
  ASSERT_EQ(drive->reread(), Error::none);
  ASSERT_EQ(create(*drive, 22528, 2048, 0x83), Error::none);
  // The model is still the one before the volume; the kernel is told what is on the disk.
  EXPECT_EQ(drive->settle().kernel, KernelTable::upToDate);
  ASSERT_EQ(spy->told.size(), 2U);
  EXPECT_EQ(spy->told[0].sectorCount, 2U);
  EXPECT_EQ(spy->told[1].number, 5U);
  EXPECT_EQ(spy->told[1].startSector, 22528U);
  spy->failsFlush = true;
  EXPECT_EQ(drive->settle().failure, Failure(Error::flush, EIO));
  ASSERT_EQ(drive->reread(), Error::none);
  EXPECT_EQ(drive->diskSignature(), signature);
}

}  // namespace
}  // namespace tallowin
