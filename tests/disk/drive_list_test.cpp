#include "disk/drive_list.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/hdreg.h>

#include <cerrno>

#include "base/text.h"
#include "disk/scsi_generic.h"
#include "support/fake_host.h"

namespace tallowin {
namespace {

constexpr u32 kMapperMajor = 253;

class DriveListTest : public ::testing::Test {
 protected:
  void disks(std::initializer_list<const char*> paths) {
    for (const char* path : paths) host.node(path, 8, minor_++, kMiB);
  }
  // A mapping on the given members; each member may have a start.
  void mapping(const std::string& name, u32 minor, std::initializer_list<const char*> members) {
    host.node("/dev/mapper/" + name, kMapperMajor, minor, kMiB);
    host.node("/dev/dm-" + std::to_string(minor), kMapperMajor, minor, kMiB);
    const std::string folder = "/sys/block/dm-" + std::to_string(minor);
    host.file(folder + "/dm/name", name + "\n");
    for (const char* member : members) host.folder(folder + "/slaves/" + member);
  }
  std::string rows(u8 kind = kHardDiskKind) {
    const DriveList list(host, DriveList::Scan::machine);
    std::string text;
    for (u32 i = 0; i < list.countOfKind(kind); ++i)
      text += (i == 0 ? "" : " ") + list.entryOfKind(i, kind)->path;
    return text;
  }

  FakeHost host;

 private:
  u32 minor_ = 0;
};

TEST_F(DriveListTest, IndicesFollowThePathAndCountEachKindAlone) {
  disks({"/dev/sdb", "/dev/sda", "/dev/sr0", "/dev/nvme0n1", "/dev/cciss/c0d0", "/dev/cciss/c0d12",
         "/dev/mmcblk0", "/dev/xvda", "/dev/vda", "/dev/nvme10n1"});
  EXPECT_EQ(rows(),
            "/dev/cciss/c0d0 /dev/cciss/c0d12 /dev/mmcblk0 /dev/nvme0n1 /dev/nvme10n1 /dev/sda "
            "/dev/sdb /dev/vda /dev/xvda");
  EXPECT_EQ(rows(kOpticalKind), "/dev/sr0");
  const DriveList list(host, DriveList::Scan::machine);
  EXPECT_EQ(list.entryOfKind(0, kOpticalKind)->mediaFlag, MediaFlag::removable);
  EXPECT_EQ(list.entryOfKind(5, kHardDiskKind)->mediaFlag, MediaFlag::fixed);
  errno = 0;
  EXPECT_EQ(list.entryOfKind(9, kHardDiskKind), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(DriveListTest, NamesOutsideThePatternsAndNodesThatDoNotOpenAreNoDisks) {
  disks({"/dev/sdaa", "/dev/sda1", "/dev/mmcblk0p1", "/dev/loop0", "/dev/sdb", "/dev/sdc"});
  host.file("/dev/sdd", "a plain file");
  host.refuse("/dev/sdc", EACCES);
  EXPECT_EQ(rows(), "/dev/sdb");
}

TEST_F(DriveListTest, WithoutAScanNothingIsOpenedAndEveryQueryFails) {
  disks({"/dev/sda"});
  const DriveList list(host, DriveList::Scan::none);
  EXPECT_FALSE(list.isValid());
  EXPECT_EQ(list.countOfKind(kHardDiskKind), 0U);
  errno = 0;
  EXPECT_EQ(list.open(0, kHardDiskKind, O_RDWR), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(list.displayName(0, kHardDiskKind), "");
  EXPECT_TRUE(host.opened().empty());
}

TEST_F(DriveListTest, MembersOfOtherDevicesAreLeftOut) {
  disks({"/dev/sda", "/dev/sdb", "/dev/sdc", "/dev/sdd", "/dev/sde", "/dev/cciss/c0d0"});
  host.folder("/sys/block/sda/holders/dm-0");
  host.folder("/sys/block/sdb/holders/md0");
  host.folder("/sys/block/sdc/holders/md_d0");
  host.folder("/sys/block/sdd/holders/md0p1");
  host.folder("/sys/block/sde/holders/bcache0");
  host.folder("/sys/block/cciss!c0d0/holders/dm-1");
  EXPECT_EQ(rows(), "/dev/sdc /dev/sdd /dev/sde");
}

TEST_F(DriveListTest, RaidDevicesNeedTheirMajorAndASize) {
  host.node("/dev/md127", 9, 127, kMiB);
  host.node("/dev/md1", 9, 1, kMiB);
  host.node("/dev/md2", 9, 2, kMiB);
  host.node("/dev/md3", 254, 3, kMiB);
  host.folder("/dev/md");
  host.file("/sys/block/md127/size", "2048\n");
  host.file("/sys/block/md1/size", "0\n");
  host.file("/sys/block/md3/size", "2048\n");
  EXPECT_EQ(rows(), "/dev/md127");
}

TEST_F(DriveListTest, IdeDisksAreAskedForTheirIdentity) {
  struct Case {
    const char* name;
    u16 config;
    int result;
  };
  for (const Case& each : {Case{"hda", 0x0040, 0}, Case{"hdb", 0x8580, 0}, Case{"hdc", 0x0080, 0},
                           Case{"hdd", 0x0040, -1}}) {
    host.folder(std::string("/proc/ide/") + each.name);
    const std::string path = std::string("/dev/") + each.name;
    disks({path.c_str()});
    host.answer(path, HDIO_GET_IDENTITY, [each](void* block) {
      *static_cast<u16*>(block) = each.config;
      return each.result;
    });
  }
  EXPECT_EQ(rows(), "/dev/hda /dev/hdc");
  EXPECT_EQ(rows(kOpticalKind), "/dev/hdb");
  const DriveList list(host, DriveList::Scan::machine);
  EXPECT_EQ(list.entryOfKind(1, kHardDiskKind)->mediaFlag, MediaFlag::removable);
}

TEST_F(DriveListTest, OnlyMappingsOnPhysicalDisksAreListed) {
  mapping("linear", 0, {"sdb"});
  mapping("on-raid", 1, {"md0"});
  mapping("stacked", 2, {"dm-0"});
  mapping("x-lvm_pv_1", 3, {"dm-0"});
  mapping("vg-lv-real", 4, {"sdb1"});
  mapping("vg-lv-cow", 5, {"sdb2"});
  mapping("vg-lv", 6, {"dm-4"});
  mapping("vg-snap", 7, {"dm-1", "dm-5"});
  mapping("lvm_pv_loop", 8, {"dm-8"});  // a tree that leads back to itself
  host.file("/dev/mapper/control", "");
  EXPECT_EQ(rows(),
            "/dev/mapper/linear /dev/mapper/vg-lv /dev/mapper/vg-snap /dev/mapper/x-lvm_pv_1");
}

TEST_F(DriveListTest, MappingsNeedAMajorOfTheKnownThree) {
  host.node("/dev/mapper/a", 251, 0, kMiB);
  host.folder("/sys/block/dm-0/slaves/sda");
  host.node("/dev/mapper/b", 252, 1, kMiB);
  host.folder("/sys/block/dm-1/slaves/sda");
  host.node("/dev/mapper/c", 254, 2, kMiB);  // 252 is the one by now
  host.folder("/sys/block/dm-2/slaves/sda");
  EXPECT_EQ(rows(), "/dev/mapper/b");
}

TEST_F(DriveListTest, EncryptedContainersKnowWhereTheyStart) {
  mapping("truecrypt1", 0, {"sda2"});
  mapping("truecrypt1x", 1, {"md0"});
  mapping("veracrypt12", 2, {"dm-0"});
  mapping("veracrypt3", 3, {"md0"});
  mapping("truecrypt", 4, {"md0"});
  host.file("/sys/block/dm-0/slaves/sda2/start", "206848\n");
  EXPECT_EQ(rows(), "/dev/mapper/truecrypt1 /dev/mapper/veracrypt12 /dev/mapper/veracrypt3");
  const DriveList list(host, DriveList::Scan::machine);
  EXPECT_EQ(list.entryOfKind(0, kHardDiskKind)->startOffset, 206848U);
  EXPECT_EQ(list.entryOfKind(1, kHardDiskKind)->startOffset, 206848U);
  EXPECT_EQ(list.entryOfKind(2, kHardDiskKind)->startOffset, 0U);
}

TEST_F(DriveListTest, DisplayNamesTellVendorAndModel) {
  struct Case {
    const char *vendor, *model, *name, *expected;
  };
  const Case cases[] = {
      {"ATA     \n", "SSD 840 PRO     \n", nullptr, "ATA SSD 840 PRO (sda)"},
      {nullptr, "Model\n", nullptr, "Model (sda)"},
      {"VENDORTOOLONG\n", "MODEL-NAME-TOO-LONG\n", nullptr, "VENDORTO MODEL-NAME-TOO-L (sda)"},
      {"   \n", "  \n", "SD32G\r\n", "SD32G (sda)"},
      {nullptr, nullptr, "a-name-that-is-longer-than-it-may\n", "a-name-that-is-longer-th (sda)"},
      {"0x1af4\n", nullptr, nullptr, "/dev/sda"},
      {nullptr, nullptr, nullptr, "/dev/sda"},
  };
  disks({"/dev/sda"});
  for (const Case& each : cases) {
    host.remove("/sys/block/sda/device");
    if (each.vendor != nullptr) host.file("/sys/block/sda/device/vendor", each.vendor);
    if (each.model != nullptr) host.file("/sys/block/sda/device/model", each.model);
    if (each.name != nullptr) host.file("/sys/block/sda/device/name", each.name);
    const DriveList list(host, DriveList::Scan::machine);
    EXPECT_EQ(list.displayName(0, kHardDiskKind), each.expected);
    EXPECT_EQ(list.displayName(0, kHardDiskKind, 5), std::string(each.expected).substr(0, 5));
  }
}

TEST_F(DriveListTest, DisplayNamesOfArrayControllersUseTheKernelsName) {
  disks({"/dev/cciss/c0d0"});
  host.file("/sys/block/cciss!c0d0/device/model", "LOGICAL VOLUME\n");
  EXPECT_EQ(DriveList(host, DriveList::Scan::machine).displayName(0, kHardDiskKind),
            "LOGICAL VOLUME (cciss!c0d0)");
}

TEST(ScsiGeneric, TheTypeColumnTellsWhichNodesAreOptical) {
  FakeHost host;
  constexpr u8 types[] = {kOpticalKind};
  EXPECT_TRUE(scsiGenericDevices(host, types).empty());
  host.file("/proc/scsi/sg/device_hdr", "host\tchan\tid\tlun\ttype\topens\n");
  host.file("/proc/scsi/sg/devices",
            "0\t0\t0\t0\t0\t1\n1\t0\t0\t0\t5\t1\n<no active device>\n2\t0\t5\t0\t5\t0\n");
  const auto devices = scsiGenericDevices(host, types);
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[0].path, "/dev/sg1");
  EXPECT_EQ(devices[1].path, "/dev/sg3");
  std::string many;
  for (int i = 0; i < 20; ++i) many += "0\t0\t0\t0\t5\n";
  host.file("/proc/scsi/sg/devices", many);
  EXPECT_EQ(scsiGenericDevices(host, types).size(), 13U);
}

}  // namespace
}  // namespace tallowin
