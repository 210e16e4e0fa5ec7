#include "disk/linux_disk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/blkpg.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "disk/disk_wrapper.h"
#include "disk/sys_block.h"
#include "disk/transfer_buffer.h"
#include "support/fake_host.h"
#include "support/loop_device.h"
#include "support/oracle.h"

namespace tallowin {
namespace {

std::unique_ptr<LinuxDisk> openDisk(Host& host, const std::string& path, u8 kind = kHardDiskKind,
                                    int flags = O_RDWR) {
  return LinuxDisk::open(host, {.startOffset = 0, .deviceKind = kind, .path = path}, flags);
}

// Every sector holds its own number and a seed.
void fill(std::span<u8> bytes, u64 firstSector, u64 seed, u32 sectorSize) {
  for (std::size_t at = 0; at < bytes.size(); at += 16) {
    const u64 words[2] = {firstSector + at / sectorSize, seed + at % sectorSize};
    std::memcpy(bytes.data() + at, words, sizeof words);
  }
}

class LinuxDiskTest : public ::testing::Test {
 protected:
  LinuxDiskTest() { host.node("/dev/sda", 8, 0, 64 * kMiB); }
  void sectorSizeIs(int bytes, int result = 0) {
    host.answer("/dev/sda", BLKSSZGET, [=](void* argument) {
      *static_cast<int*>(argument) = bytes;
      return result;
    });
  }
  FakeHost host;
};

TEST_F(LinuxDiskTest, WhatIsFixedFromOpenToCloseIsAskedFromTheKernel) {
  struct Case {
    u8 kind;
    int answer;
    int result;
    u32 expected;
    u32 maxTransfer;
  };
  for (const Case& each : {Case{0, 4096, 0, 4096, 4 * kMiB}, Case{0, 0, 0, 512, 4 * kMiB},
                           Case{0, 4096, -1, 512, 4 * kMiB}, Case{0, 1000, 0, 512, 4 * kMiB},
                           Case{5, 512, 0, 2048, 64 * kKiB}, Case{32, 4096, 0, 512, 4 * kMiB}}) {
    sectorSizeIs(each.answer, each.result);
    const auto disk = openDisk(host, "/dev/sda", each.kind);
    EXPECT_EQ(disk->sectorSize(), each.expected);
    EXPECT_EQ(disk->traits().maxTransferBytes, each.maxTransfer);
  }
  EXPECT_EQ(host.openCount(), 0U) << "a closed disk leaves no descriptor";
  EXPECT_FALSE(openDisk(host, "/dev/sda")->traits().readOnly);
  EXPECT_TRUE(openDisk(host, "/dev/sda", 0, O_RDONLY)->traits().readOnly);
  host.answer("/dev/sda", BLKROGET, [](void* argument) {
    *static_cast<int*>(argument) = 1;
    return 0;
  });
  EXPECT_TRUE(openDisk(host, "/dev/sda")->traits().readOnly);
}

TEST_F(LinuxDiskTest, LargeRequestsAreCutAndTheFirstFailingPieceEndsThem) {
  const auto disk = openDisk(host, "/dev/sda");
  std::vector<u8> bytes(20 * kMiB, 0xA5);
  std::vector<std::size_t> pieces;
  std::size_t failing = 99;
  host.onTransfer = [&](bool, std::size_t count, u64) {
    pieces.push_back(count);
    return pieces.size() - 1 == failing ? static_cast<i64>(count - 512) : static_cast<i64>(count);
  };
  EXPECT_EQ(disk->writeSectors(0, bytes.data(), bytes.size() / 512), Error::none);
  EXPECT_EQ(pieces, std::vector<std::size_t>(5, 4 * kMiB));
  pieces.clear();
  failing = 2;
  std::vector<u8> got(bytes.size());
  EXPECT_NE(disk->readSectors(0, got.data(), got.size() / 512), Error::none);
  EXPECT_EQ(pieces.size(), 3U);
  EXPECT_TRUE(std::equal(got.begin(), got.begin() + 8 * kMiB, bytes.begin()));
  EXPECT_EQ(got.back(), 0);
  EXPECT_EQ(disk->readSectors(0, nullptr, 0), Error::none);
  EXPECT_NE(disk->readSectors(kAllOnes64 / 512, got.data(), 1), Error::none) << "no offset wraps";
}

TEST_F(LinuxDiskTest, OneBadSectorDoesNotFailItsNeighbours) {
  const auto disk = openDisk(host, "/dev/sda");
  if (!disk->hasBulkPath()) GTEST_SKIP() << "needs a temporary folder that takes O_DIRECT";
  // The page cache answers for the page, the device for sector 8 alone.
  std::size_t calls = 0;
  host.onTransfer = [&](bool, std::size_t count, u64 offset) -> i64 {
    const bool throughCache = calls++ == 0;
    const bool fails =
        throughCache ? offset / 4096 == 1 : offset <= 8 * 512 && 8 * 512 < offset + count;
    return fails ? -1 : static_cast<i64>(count);
  };
  std::array<u8, 512> sector{};
  for (u64 lba : {7, 8, 9, 15}) {
    calls = 0;
    EXPECT_EQ(disk->readSectors(lba, sector.data(), 1) == Error::none, lba != 8) << lba;
    calls = 0;
    EXPECT_EQ(disk->writeSectors(lba, sector.data(), 1) == Error::none, lba != 8) << lba;
  }
}

TEST_F(LinuxDiskTest, SizeCountsWholeSectors) {
  host.node("/dev/sdb", 8, 16, 512 * 1000 + 100);
  host.node("/dev/sdc", 8, 32, 0);
  EXPECT_EQ(openDisk(host, "/dev/sdb")->sectorCount(), 1000U);
  EXPECT_EQ(openDisk(host, "/dev/sdc")->sectorCount(), std::nullopt);
}

TEST_F(LinuxDiskTest, ADiskThatShrankOrGaveItsPathAwayIsAnotherOne) {
  const auto disk = openDisk(host, "/dev/sda");
  for (const auto& [bytes, expected] :
       {std::pair(64 * kMiB, Error::none), std::pair(65 * kMiB, Error::none),
        std::pair(63 * kMiB, Error::deviceChanged)}) {
    ASSERT_EQ(::truncate(host.realPath("/dev/sda").c_str(), static_cast<off_t>(bytes)), 0);
    EXPECT_EQ(disk->checkSameDisk().code, expected) << bytes;
  }
  host.node("/dev/sda", 8, 16, 64 * kMiB);
  EXPECT_EQ(disk->checkSameDisk(), Error::deviceChanged);
}

TEST_F(LinuxDiskTest, TheKernelsGeometryIsUsedOnceAndKept) {
  int asked = 0;
  host.answer("/dev/sda", HDIO_GETGEO, [&](void* argument) {
    ++asked;
    *static_cast<hd_geometry*>(argument) = {
        .heads = 255, .sectors = 63, .cylinders = 8, .start = 0};
    return 0;
  });
  const auto disk = openDisk(host, "/dev/sda");
  Geometry geometry;
  EXPECT_TRUE(disk->firmwareGeometry(geometry));
  EXPECT_EQ(geometry, (Geometry{7, 254, 63}));
  EXPECT_EQ(disk->biosNumber(), kBiosNumberNoMatch);
  EXPECT_EQ(asked, 1);
}

TEST_F(LinuxDiskTest, ModelAndSerialComeFromWhereTheBusKeepsThem) {
  const auto disk = openDisk(host, "/dev/sda");
  EXPECT_EQ(disk->model() + disk->serial(), "");
  const std::string page("\x00\x80\x00\x0A  SERIAL10", 14);
  host.file("/sys/block/sda/device/vpd_pg80", page);
  host.file("/sys/block/sda/device/vendor", "ATA     \n");
  host.file("/sys/block/sda/device/model", "SSD 840 PRO     \n");
  EXPECT_EQ(disk->model(), "ATA SSD 840 PRO");
  EXPECT_EQ(disk->serial(), "SERIAL10");
  host.file("/sys/block/sda/serial", "virt-1\n");
  EXPECT_EQ(disk->serial(), "virt-1");
}

TEST_F(LinuxDiskTest, ALockThatSomebodyHoldsIsWaitedForOnlyAMoment) {
  const auto disk = openDisk(host, "/dev/sda");
  const int other = ::open(host.realPath("/dev/sda").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(other, LOCK_SH), 0);
  EXPECT_FALSE(DiskChangeLock(*disk).held());
  EXPECT_GE(host.pausedMilliseconds(), 300U);
  ::flock(other, LOCK_UN);
  {
    const DiskChangeLock lock(*disk);
    EXPECT_TRUE(lock.held());
    EXPECT_NE(::flock(other, LOCK_SH | LOCK_NB), 0);
    {
      DiskWrapper wrapped(*disk);
      EXPECT_TRUE(DiskChangeLock(*disk).held() && DiskChangeLock(wrapped).held());
    }
    EXPECT_NE(::flock(other, LOCK_SH | LOCK_NB), 0) << "the first hold is still there";
  }
  EXPECT_EQ(::flock(other, LOCK_SH | LOCK_NB), 0);
  ::close(other);
}

// A kernel that keeps its partitions in the made-up tree and refuses what is in use.
class KernelTableTest : public LinuxDiskTest {
 protected:
  KernelTableTest() {
    host.answer("/dev/sda", BLKRRPART, [this](void*) {
      errno = rereadError;
      return rereadError == 0 ? 0 : -1;
    });
    host.answer("/dev/sda", BLKPG, [this](void* argument) {
      const auto& request = *static_cast<blkpg_ioctl_arg*>(argument);
      return change(request.op, *static_cast<blkpg_partition*>(request.data));
    });
  }
  int change(int operation, const blkpg_partition& partition) {
    const auto number = static_cast<u32>(partition.pno);
    const std::string name = "sda" + std::to_string(number);
    const std::string words[] = {"", "add ", "delete ", "resize "};
    log += words[operation] + std::to_string(number) + " ";
    if (operation == BLKPG_DEL_PARTITION) {
      if (inUse == number) {
        errno = EBUSY;
        return -1;
      }
      host.remove("/sys/block/sda/" + name);
      return 0;
    }
    host.partition("sda", name, number, static_cast<u64>(partition.start) / 512,
                   static_cast<u64>(partition.length) / 512);
    return 0;
  }
  KernelTable tell(std::vector<KernelPartition> wanted) {
    return openDisk(host, "/dev/sda")->tellKernel(wanted);
  }

  int rereadError = EBUSY;
  u32 inUse = 0;
  std::string log;
};

TEST_F(KernelTableTest, OnlyWhatDiffersIsTold) {
  host.partition("sda", "sda1", 1, 2048, 1000);
  host.partition("sda", "sda2", 2, 4096, 1000);
  host.partition("sda", "sda3", 3, 8192, 2000);
  host.partition("sda", "sda4", 4, 16384, 2);
  inUse = 1;
  EXPECT_EQ(tell({{1, 2048, 1000},
                  {2, 5120, 1000},
                  {3, 8192, 3000},
                  {4, 16384, 9000, true},
                  {5, 17000, 100}}),
            KernelTable::upToDate);
  EXPECT_EQ(log, "delete 2 resize 3 add 2 add 5 ");
  EXPECT_EQ(host.pausedMilliseconds(), 0U);
}

TEST_F(KernelTableTest, APartitionInUseThatIsGoneOrMovedNeedsARestart) {
  host.partition("sda", "sda1", 1, 2048, 1000);
  inUse = 1;
  EXPECT_EQ(tell({}), KernelTable::restartNeeded);
  EXPECT_EQ(tell({{1, 4096, 1000}}), KernelTable::restartNeeded);
  EXPECT_EQ(tell({{1, 2048, 5000}}), KernelTable::upToDate);
}

TEST_F(KernelTableTest, AReReadIsEnoughAndAKernelThatKnowsNoSuchTableIsTold) {
  rereadError = 0;
  host.partition("sda", "sda1", 1, 2048, 1000);
  EXPECT_EQ(tell({{1, 2048, 999}}), KernelTable::upToDate);
  EXPECT_EQ(log, "");
  host.remove("/sys/block/sda/sda1");
  EXPECT_EQ(tell({{0, 0, 9999}, {1, 2048, 999}}), KernelTable::upToDate);
  EXPECT_EQ(log, "add 1 ");
  host.remove("/sys/block/sda/sda1");
  rereadError = EINVAL;
  EXPECT_EQ(tell({{1, 2048, 999}}), KernelTable::upToDate) << "a device that is never scanned";
}

// The same on devices of the real kernel.
class LoopDiskTest : public ::testing::TestWithParam<u32> {
 protected:
  void SetUp() override {
    TALLOWIN_NEEDS_LOOP_DEVICES();
    image_ = folder_.sparse("disk.img", 64 * kMiB);
    loop_ = std::make_unique<LoopDevice>(image_, GetParam());
    ASSERT_NE(loop_->path(), "") << "no loop device";
    disk_ = openDisk(host_, loop_->path());
    ASSERT_NE(disk_, nullptr);
  }

  Host host_;
  TempFolder folder_;
  std::string image_;
  std::unique_ptr<LoopDevice> loop_;
  std::unique_ptr<LinuxDisk> disk_;
};

INSTANTIATE_TEST_SUITE_P(SectorSizes, LoopDiskTest, ::testing::Values(512U, 4096U));

TEST_P(LoopDiskTest, BothPathsSeeEachOthersWrites) {
  ASSERT_EQ(disk_->sectorSize(), GetParam());
  ASSERT_EQ(disk_->sectorCount(), 64 * kMiB / GetParam());
  ASSERT_TRUE(disk_->hasBulkPath());
  const u32 size = GetParam();
  const u32 count = static_cast<u32>(4 * kMiB / size);
  TransferBuffer bulk(4 * kMiB);
  std::vector<u8> small(64 * kKiB);
  const u64 smallCount = small.size() / size;
  for (u64 round = 0; round < 8; ++round) {
    const u64 first = round * count;
    // Cached pages of the range, clean and dirty, then a direct write over them.
    ASSERT_EQ(disk_->readSectors(first, small.data(), smallCount), Error::none);
    fill(small, first, 100 + round, size);
    ASSERT_EQ(disk_->writeSectors(first + smallCount, small.data(), smallCount), Error::none);
    fill(bulk.span(), first, round, size);
    ASSERT_EQ(disk_->writeSectors(first, bulk.data(), count), Error::none);
    ASSERT_EQ(disk_->readSectors(first, small.data(), smallCount), Error::none);
    EXPECT_EQ(std::memcmp(small.data(), bulk.data(), small.size()), 0) << "cache after direct";
    // A cached write, not flushed, then a direct read.
    fill(small, first, 200 + round, size);
    ASSERT_EQ(disk_->writeSectors(first + 3, small.data(), smallCount), Error::none);
    ASSERT_EQ(disk_->readSectors(first, bulk.data(), count), Error::none);
    EXPECT_EQ(std::memcmp(small.data(), bulk.data() + 3 * size, small.size()), 0)
        << "direct after cache";
  }
}

TEST_P(LoopDiskTest, OverlappedTransfersArriveWhole) {
  const u32 count = static_cast<u32>(kMiB / GetParam());
  constexpr std::size_t kTransfers = 12;  // more than the ring takes at once
  std::vector<TransferBuffer> buffers;
  std::vector<DiskTransfer> writes(kTransfers);
  for (std::size_t i = 0; i < kTransfers; ++i) {
    buffers.emplace_back(kMiB);
    fill(buffers[i].span(), i * count, 7, GetParam());
    writes[i] = {.direction = DiskTransfer::Direction::write,
                 .lba = i * count,
                 .buffer = buffers[i].data(),
                 .count = count};
    disk_->begin(writes[i]);
  }
  for (std::size_t i = kTransfers; i-- > 0;) EXPECT_EQ(disk_->finish(writes[i]), Error::none) << i;
  ASSERT_EQ(disk_->flush(), Error::none);
  const std::string content = folder_.read("disk.img");
  for (std::size_t i = 0; i < kTransfers; ++i)
    EXPECT_EQ(std::memcmp(content.data() + i * kMiB, buffers[i].data(), kMiB), 0) << i;

  TransferBuffer target(kMiB);
  DiskTransfer read{.direction = DiskTransfer::Direction::read,
                    .lba = 5 * count,
                    .buffer = target.data(),
                    .count = count};
  disk_->begin(read);
  EXPECT_EQ(disk_->finish(read), Error::none);
  EXPECT_EQ(std::memcmp(target.data(), buffers[5].data(), kMiB), 0);
  read.lba = *disk_->sectorCount() - 1;  // passes the end
  disk_->begin(read);
  EXPECT_NE(disk_->finish(read), Error::none);
}

TEST_P(LoopDiskTest, ZerosReplaceWhatTheCacheHolds) {
  std::vector<u8> bytes(256 * kKiB, 0xEE);
  const u64 count = bytes.size() / GetParam();
  ASSERT_EQ(disk_->writeSectors(0, bytes.data(), count), Error::none);
  ASSERT_EQ(disk_->writeZeros(1, count - 2), Error::none);
  ASSERT_EQ(disk_->readSectors(0, bytes.data(), count), Error::none);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const u64 sector = i / GetParam();
    ASSERT_EQ(bytes[i], sector == 0 || sector == count - 1 ? 0xEE : 0) << i;
  }
  EXPECT_NE(disk_->writeZeros(*disk_->sectorCount() - 1, 2), Error::none) << "passes the end";
}

TEST_P(LoopDiskTest, DroppedCachesReadFromTheMedium) {
  std::vector<u8> sector(GetParam(), 0x11);
  ASSERT_EQ(disk_->writeSectors(10, sector.data(), 1), Error::none);
  ASSERT_EQ(disk_->flush(), Error::none);
  const int behind = ::open(image_.c_str(), O_WRONLY | O_CLOEXEC);
  const std::vector<u8> other(GetParam(), 0x22);
  ASSERT_EQ(::pwrite(behind, other.data(), other.size(), 10L * GetParam()),
            static_cast<ssize_t>(other.size()));
  ::close(behind);
  disk_->dropCaches();
  ASSERT_EQ(disk_->readSectors(10, sector.data(), 1), Error::none);
  EXPECT_EQ(sector, other);
}

// Whoever has the node of a partition open, as udev may, keeps the kernel's buffers of it.
TEST_P(LoopDiskTest, TheBuffersOfAPartitionsOwnNodeAreDropped) {
  const u64 perMiB = kMiB / GetParam();
  ASSERT_EQ(disk_->tellKernel(std::vector<KernelPartition>{{1, perMiB, 20 * perMiB},
                                                           {2, 30 * perMiB, 5 * perMiB}}),
            KernelTable::upToDate);
  if (kernelPartitions(host_, sysFolderOf(host_, loop_->path())).empty())
    GTEST_SKIP() << "this kernel keeps no partitions of loop devices";
  const int node = ::open(loop_->partition(2).c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(node, 0);
  const auto throughNode = [&] {
    std::vector<u8> bytes(4096);
    EXPECT_EQ(::pread(node, bytes.data(), bytes.size(), 0), 4096);
    return bytes;
  };
  EXPECT_EQ(throughNode(), std::vector<u8>(4096));
  const std::vector<u8> fresh(4096, 0x33);
  ASSERT_EQ(disk_->writeSectors(30 * perMiB, fresh.data(), 4096 / GetParam()), Error::none);
  ASSERT_EQ(disk_->flush(), Error::none);
  disk_->dropCachesOf(30 * perMiB, 1);
  EXPECT_EQ(throughNode(), fresh);
  ::close(node);
}

TEST_P(LoopDiskTest, TheKernelLearnsANewTableBesideAMountedPartition) {
  const u64 perMiB = kMiB / GetParam();
  const std::string sys = sysFolderOf(host_, loop_->path());
  ASSERT_EQ(disk_->tellKernel(std::vector<KernelPartition>{{1, perMiB, 20 * perMiB},
                                                           {2, 30 * perMiB, 5 * perMiB}}),
            KernelTable::upToDate);
  const auto known = kernelPartitions(host_, sys);
  if (known.empty()) GTEST_SKIP() << "this kernel keeps no partitions of loop devices";
  ASSERT_EQ(known.size(), 2U);
  ASSERT_EQ(runProgram({"mkfs.ext4", "-q", loop_->partition(1)}).status, 0);
  const TestMount mount(loop_->partition(1), folder_.file("mount"));
  ASSERT_TRUE(mount.isMounted());
  EXPECT_EQ(
      disk_->tellKernel(std::vector<KernelPartition>{
          {1, perMiB, 25 * perMiB}, {2, 40 * perMiB, 5 * perMiB}, {3, 30 * perMiB, 4 * perMiB}}),
      KernelTable::upToDate);
  const auto now = kernelPartitions(host_, sys);
  ASSERT_EQ(now.size(), 3U);
  EXPECT_EQ(now[0].size, 25 * kMiB / 512);
  EXPECT_EQ(now[1].start, 40 * kMiB / 512);
  EXPECT_EQ(disk_->tellKernel({}), KernelTable::restartNeeded);
}

}  // namespace
}  // namespace tallowin
