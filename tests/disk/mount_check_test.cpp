#include "disk/mount_check.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <linux/hdreg.h>

#include "disk/linux_disk.h"
#include "disk/memory_disk.h"
#include "support/fake_host.h"
#include "support/loop_device.h"
#include "support/oracle.h"

namespace tallowin {
namespace {

std::unique_ptr<LinuxDisk> openDisk(Host& host, const std::string& path) {
  return LinuxDisk::open(host, {.path = path}, O_RDWR);
}

class MountCheckTest : public ::testing::Test {
 protected:
  // A disk whose partitions 1 and 10 start at 2048 and 8192.
  void disk(const std::string& name, const std::string& separator = "") {
    std::string path = "/dev/" + name;
    if (const auto at = path.find('!'); at != std::string::npos) path[at] = '/';
    host.node(path, 8, 0, 16 * kMiB);
    host.file("/sys/block/" + name + "/size", "32768\n");
    host.partition(name, name + separator + "1", 1, 2048, 4096);
    host.partition(name, name + separator + "10", 10, 8192, 4096);
  }
  std::string mounted(const std::string& path, u64 start) {
    const auto found = findMount(host, *openDisk(host, path), start);
    return found ? found->mountPoint + "|" + found->type + "|" + found->options : "free";
  }

  FakeHost host;
};

TEST_F(MountCheckTest, ThePartitionThatStartsThereIsFound) {
  disk("sda");
  host.link("/dev/disk/by-uuid/1234", "../../sda10");
  host.file("/proc/mounts",
            "proc /proc proc rw 0 0\n"
            "/dev/sda1 /mnt/my\\040data ext4 rw,noatime 0 0\n"
            "/dev/disk/by-uuid/1234 /srv xfs ro 0 0\n"
            "/dev/sdb1 /other ext4 rw 0 0\n");
  EXPECT_EQ(mounted("/dev/sda", 2048), "/mnt/my data|ext4|rw,noatime");
  EXPECT_EQ(mounted("/dev/sda", 8192), "/srv|xfs|ro");
  EXPECT_EQ(mounted("/dev/sda", 4096), "free");
  EXPECT_EQ(mounted("/dev/sda", 0), "free");
}

TEST_F(MountCheckTest, NamesFollowTheKernelsRule) {
  struct Case {
    const char *name, *separator, *path;
  };
  for (const Case& each :
       {Case{"sda", "", "/dev/sda"}, Case{"nvme0n1", "p", "/dev/nvme0n1"},
        Case{"mmcblk0", "p", "/dev/mmcblk0"}, Case{"md127", "p", "/dev/md127"},
        Case{"loop3", "p", "/dev/loop3"}, Case{"cciss!c0d0", "p", "/dev/cciss/c0d0"}}) {
    disk(each.name, each.separator);
    host.file("/proc/mounts", std::string(each.path) + each.separator + "10 /data ext4 rw 0 0\n");
    EXPECT_EQ(mounted(each.path, 8192), "/data|ext4|rw") << each.path;
    EXPECT_EQ(mounted(each.path, 2048), "free") << each.path;
  }
}

// A disk whose name begins with another disk's name must not answer for it.
TEST_F(MountCheckTest, ALongerDiskNameIsAnotherDisk) {
  disk("md1", "p");
  disk("md10", "p");
  host.answer("/dev/md10p1", HDIO_GETGEO, [](void* argument) {
    static_cast<hd_geometry*>(argument)->start = 2048;
    return 0;
  });
  host.file("/proc/mounts", "/dev/md10p1 /data ext4 rw 0 0\n");
  EXPECT_EQ(mounted("/dev/md1", 2048), "free");
  EXPECT_EQ(mounted("/dev/md10", 2048), "/data|ext4|rw");
}

TEST_F(MountCheckTest, WhatSysDoesNotTellTheNodeTells) {
  disk("sda");
  host.remove("/sys/block/sda/sda1/start");
  host.remove("/sys/block/sda/sda1/size");
  host.file("/proc/mounts", "/dev/sda1 /data ext4 rw 0 0\n");
  EXPECT_EQ(mounted("/dev/sda", 2048), "free");
  host.answer("/dev/sda1", HDIO_GETGEO, [](void* argument) {
    static_cast<hd_geometry*>(argument)->start = 2048;
    return 0;
  });
  EXPECT_EQ(mounted("/dev/sda", 2048), "free") << "the size is still not known";
  host.answer("/dev/sda1", BLKGETSIZE64, [](void* argument) {
    *static_cast<u64*>(argument) = 4096 * 512;
    return 0;
  });
  EXPECT_EQ(mounted("/dev/sda", 2048), "/data|ext4|rw");
  host.refuse("/dev/sda1", ENXIO);
  EXPECT_EQ(mounted("/dev/sda", 2048), "free");
  host.refuse("/dev/sda10", EACCES);
  host.file("/proc/mounts", "/dev/sda10 /data ext4 rw 0 0\n");
  EXPECT_EQ(mounted("/dev/sda", 8192), "/data|ext4|rw") << "missing rights do not hide it";
}

TEST_F(MountCheckTest, SectorsOfTheDiskAreNotThoseOfSys) {
  disk("sda");
  host.answer("/dev/sda", BLKSSZGET, [](void* argument) {
    *static_cast<int*>(argument) = 4096;
    return 0;
  });
  host.file("/proc/mounts", "/dev/sda1 /data ext4 rw 0 0\n");
  EXPECT_EQ(mounted("/dev/sda", 256), "/data|ext4|rw");
  EXPECT_EQ(mounted("/dev/sda", 2048), "free");
}

TEST_F(MountCheckTest, AFileSystemOnTheDiskItselfStartsAtZero) {
  host.node("/dev/sda", 8, 0, kMiB);
  host.file("/sys/block/sda/size", "2048\n");
  host.file("/proc/mounts", "/dev/sda /data ext4 rw 0 0\n");
  EXPECT_EQ(mounted("/dev/sda", 0), "/data|ext4|rw");
  // The node of a mapping is a link to its real one.
  host.node("/dev/dm-3", 253, 3, kMiB);
  host.link("/dev/mapper/vg-lv", "../dm-3");
  host.file("/sys/block/dm-3/size", "2048\n");
  host.file("/proc/mounts", "/dev/mapper/vg-lv /lv ext4 rw 0 0\n");
  EXPECT_EQ(mounted("/dev/mapper/vg-lv", 0), "/lv|ext4|rw");
}

// With the kernel's numbers in /sys, names say nothing.
TEST_F(MountCheckTest, ANodeOfAnyNameIsFoundByItsNumber) {
  const auto numbered = [&](const std::string& path, u32 minor, const std::string& folder) {
    host.node(path, 8, minor, kMiB);
    host.link("/sys/dev/block/8:" + std::to_string(minor), "../../devices/bus/block/" + folder);
  };
  numbered("/dev/made-by-hand", 0, "sda");
  numbered("/dev/other", 1, "sda/sda1");
  numbered("/dev/sdb1", 17, "sdb/sdb1");
  host.file("/sys/devices/bus/block/sda/sda1/partition", "1\n");
  host.file("/sys/devices/bus/block/sda/sda1/start", "2048\n");
  host.file("/sys/devices/bus/block/sda/sda1/size", "4096\n");
  host.file("/sys/devices/bus/block/sda/device/model", "SSD 840\n");
  EXPECT_EQ(mounted("/dev/made-by-hand", 2048), "free");
  host.file("/proc/mounts", "/dev/sdb1 /b ext4 rw 0 0\n/dev/other /data ext4 rw 0 0\n");
  EXPECT_EQ(mounted("/dev/made-by-hand", 2048), "/data|ext4|rw");
  EXPECT_TRUE(partitionUse(host, *openDisk(host, "/dev/made-by-hand"), 2048, 1));
  EXPECT_EQ(openDisk(host, "/dev/made-by-hand")->displayName(), "SSD 840 (sda)");
}

TEST_F(MountCheckTest, AMountTableIsReadToItsEnd) {
  disk("sda");
  std::string table;
  while (table.size() < 3 * kMiB) table += "tmpfs /run/containers/of/a/busy/machine tmpfs rw 0 0\n";
  host.file("/proc/mounts", table + "/dev/sda1 /data ext4 rw 0 0\n");
  EXPECT_EQ(mounted("/dev/sda", 2048), "/data|ext4|rw");
}

class DiskUseTest : public MountCheckTest {
 protected:
  DiskUseTest() { disk("nvme0n1", "p"); }
  std::string use(u64 start, u64 count) {
    const auto found = partitionUse(host, *openDisk(host, "/dev/nvme0n1"), start, count);
    if (!found) return "free";
    const char* kinds[] = {"mounted", "swap", "held", "opened"};
    return std::string(kinds[static_cast<int>(found->kind)]) + " " + found->node + " " +
           found->where;
  }
};

TEST_F(DiskUseTest, EverythingThatMayHoldAPartition) {
  EXPECT_EQ(use(2048, 4096), "free");
  host.file("/proc/mounts", "/dev/nvme0n1p1 /data ext4 rw 0 0\n");
  EXPECT_EQ(use(2048, 4096), "mounted /dev/nvme0n1p1 /data");
  host.file("/proc/mounts", "");
  host.file("/proc/swaps", "Filename\n/dev/nvme0n1p1 partition 1 0 -2\n");
  EXPECT_EQ(use(2048, 4096), "swap /dev/nvme0n1p1 ");
  host.file("/proc/swaps", "");
  host.folder("/sys/block/nvme0n1/nvme0n1p1/holders/dm-0");
  host.file("/sys/block/dm-0/dm/name", "cryptroot\n");
  EXPECT_EQ(use(2048, 4096), "held /dev/nvme0n1p1 dm-0 (cryptroot)");
  host.remove("/sys/block/nvme0n1/nvme0n1p1/holders");
  host.folder("/sys/block/nvme0n1/nvme0n1p1/holders/md0");
  EXPECT_EQ(use(2048, 4096), "held /dev/nvme0n1p1 md0");
  host.remove("/sys/block/nvme0n1/nvme0n1p1/holders");
  host.holdExclusively("/dev/nvme0n1p1");
  EXPECT_EQ(use(2048, 4096), "opened /dev/nvme0n1p1 ");
  EXPECT_EQ(use(8192, 4096), "free");
}

TEST_F(DiskUseTest, AnySectorInUseIsEnough) {
  host.file("/proc/mounts", "/dev/nvme0n1p1 /data ext4 rw 0 0\n");
  for (const auto& [start, count, busy] : {std::tuple{0, 2048, false},
                                           {0, 2049, true},
                                           {6143, 1, true},
                                           {6144, 9999, false},
                                           {4000, 10, true},
                                           {2048, 0, true}}) {
    EXPECT_EQ(use(static_cast<u64>(start), static_cast<u64>(count)) != "free", busy) << start;
  }
}

TEST_F(DiskUseTest, ADiskHeldAsAWholeHoldsEveryPartition) {
  host.folder("/sys/block/nvme0n1/holders/dm-5");
  EXPECT_EQ(use(8192, 1), "held /dev/nvme0n1 dm-5");
  host.remove("/sys/block/nvme0n1/holders");
  host.holdExclusively("/dev/nvme0n1");
  EXPECT_EQ(use(8192, 1), "opened /dev/nvme0n1 ");
  // Then it is the partition's holder, and the others are free.
  host.holdExclusively("/dev/nvme0n1p1");
  EXPECT_EQ(use(8192, 1), "free");
  EXPECT_EQ(driveUse(host, *openDisk(host, "/dev/nvme0n1")).size(), 1U);
}

TEST_F(DiskUseTest, AnImageIsInUseThroughItsLoopDevice) {
  class Image : public MemoryDisk {
   public:
    explicit Image(const std::string& path) : MemoryDisk(131072) {
      traits_.type = DiskType::rawImage;
      traits_.path = path;
    }
  };
  TempFolder folder;
  Image image(folder.sparse("disk.img", kMiB));
  disk("loop0", "p");
  host.file("/sys/block/loop0/loop/backing_file", folder.file("disk.img") + "\n");
  host.file("/sys/block/loop0/loop/offset", "0\n");
  EXPECT_TRUE(driveUse(host, image).empty());
  host.file("/proc/mounts", "/dev/loop0p10 /mnt ext4 rw 0 0\n");
  const auto found = partitionUse(host, image, 8192, 4096);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->node + " " + found->where, "/dev/loop0p10 /mnt");
  EXPECT_FALSE(partitionUse(host, image, 2048, 4096));
  Image other(folder.sparse("other.img", kMiB));
  EXPECT_TRUE(driveUse(host, other).empty());
  // One partition of the image, mounted by its offset.
  host.remove("/sys/block/loop0/loop0p1");
  host.remove("/sys/block/loop0/loop0p10");
  host.file("/sys/block/loop0/loop/offset", "1048576\n");
  host.file("/sys/block/loop0/size", "4096\n");
  host.file("/proc/mounts", "/dev/loop0 /mnt ext4 rw 0 0\n");
  EXPECT_TRUE(partitionUse(host, image, 2048, 4096));
  EXPECT_FALSE(partitionUse(host, image, 6144, 4096));
}

TEST_F(DiskUseTest, ALoopDeviceIsInUseThroughAnotherOneOnItsFile) {
  disk("loop0", "p");
  disk("loop1", "p");
  host.node("/dev/loop0", 7, 0, 16 * kMiB);
  host.node("/dev/loop1", 7, 1, 16 * kMiB);
  const auto standOn = [&](const std::string& loop, const std::string& file, u64 offset) {
    host.file("/sys/block/" + loop + "/loop/backing_file", file + "\n");
    host.file("/sys/block/" + loop + "/loop/offset", std::to_string(offset) + "\n");
  };
  const auto busy = [&](u64 start, u64 count) {
    return partitionUse(host, *openDisk(host, "/dev/loop0"), start, count).has_value();
  };
  host.file("/proc/mounts", "/dev/loop1p10 /mnt ext4 rw 0 0\n");  // sectors 8192 to 12287
  standOn("loop0", "/images/a", 0);
  standOn("loop1", "/images/b", 0);
  EXPECT_FALSE(busy(0, 32768)) << "another file";
  standOn("loop1", "/images/a", 0);
  EXPECT_TRUE(busy(12287, 1));
  EXPECT_FALSE(busy(12288, 100));
  standOn("loop1", "/images/a", 512);
  EXPECT_TRUE(busy(12288, 1)) << "one sector later in the file";
  standOn("loop0", "/images/a", 10000 * 512);
  EXPECT_TRUE(busy(2288, 1));
  EXPECT_FALSE(busy(2289, 1)) << "one that begins behind the other's start";
}

// The real thing: ext4 on the second partition of a loop device.
TEST(MountCheckOnTheKernel, AMountedPartitionIsFoundByDeviceAndByImage) {
  TALLOWIN_NEEDS_LOOP_DEVICES();
  const TempFolder folder;
  const std::string path = folder.sparse("disk.img", 64 * kMiB);
  ASSERT_EQ(runProgram({"sfdisk", "-q", path},
                       "label: dos\nstart=2048,size=20480\n"
                       "start=22528,size=40960\n")
                .status,
            0);
  const LoopDevice loop(path);
  ASSERT_NE(loop.path(), "");
  ASSERT_TRUE(loop.addPartitions());
  ASSERT_EQ(runProgram({"mkfs.ext4", "-q", loop.partition(2)}).status, 0);
  Host host;
  const auto disk = openDisk(host, loop.path());
  ASSERT_NE(disk, nullptr);
  EXPECT_FALSE(partitionUse(host, *disk, 22528, 40960));
  const TestMount mount(loop.partition(2), folder.file("mount point"));
  ASSERT_TRUE(mount.isMounted());
  const auto found = findMount(host, *disk, 22528);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->mountPoint, folder.file("mount point"));
  EXPECT_EQ(found->type, "ext4");
  EXPECT_FALSE(partitionUse(host, *disk, 2048, 20480));
  const auto use = partitionUse(host, *disk, 22528, 40960);
  ASSERT_TRUE(use);
  EXPECT_EQ(use->kind, UseKind::mounted);
  // Whoever opens the other one exclusively holds it too.
  const int holder = host.open(loop.partition(1), O_RDONLY | O_EXCL);
  ASSERT_GE(holder, 0);
  const auto opened = partitionUse(host, *disk, 2048, 20480);
  host.close(holder);
  ASSERT_TRUE(opened);
  EXPECT_EQ(opened->kind, UseKind::openedBy);
}

}  // namespace
}  // namespace tallowin
