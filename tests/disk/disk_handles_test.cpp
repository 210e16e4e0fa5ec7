#include "disk/disk_handles.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "base/text.h"
#include "support/fake_host.h"

namespace tallowin {
namespace {

class DiskHandlesTest : public ::testing::Test {
 protected:
  DiskHandlesTest() {
    host.node("/dev/sda", 8, 0, kMiB);
    host.node("/dev/sdb", 8, 16, kMiB);
    host.node("/dev/sr0", 11, 0, kMiB);
    for (int i = 0; i < 12; ++i) images.push_back(folder.sparse(format("%d.img", i), kMiB));
  }
  DiskHandles handles() { return {host, list(), images}; }
  const DriveList& list() {
    if (!list_) list_ = std::make_unique<DriveList>(host, DriveList::Scan::machine);
    return *list_;
  }

  TempFolder folder;
  FakeHost host;
  std::vector<std::string> images;
  std::shared_ptr<DiskDevice> disk;
  u32 number = 0;

 private:
  std::unique_ptr<DriveList> list_;
};

TEST_F(DiskHandlesTest, ADriveIsOneObjectUntilItsLastHolderIsGone) {
  DiskHandles table = handles();
  std::shared_ptr<DiskDevice> again;
  ASSERT_EQ(table.open(1, disk), Error::none);
  EXPECT_EQ(disk->traits().path, "/dev/sdb");
  ASSERT_EQ(table.open(driveNumberOf(DriveClass::device, 1), again), Error::none);
  EXPECT_EQ(disk, again);
  ASSERT_EQ(table.openPath("/dev/sdb", DiskAccess::readWrite, again, number), Error::none);
  EXPECT_EQ(disk, again);
  EXPECT_EQ(number, 1U);
  again.reset();
  EXPECT_NE(host.openCount(), 0U);
  disk.reset();
  EXPECT_EQ(host.openCount(), 0U);
}

TEST_F(DiskHandlesTest, TheNumberTellsTheKindOfDrive) {
  DiskHandles table = handles();
  ASSERT_EQ(table.open(kOpticalDriveBit, disk), Error::none);
  EXPECT_EQ(disk->traits().path, "/dev/sr0");
  ASSERT_EQ(table.open(driveNumberOf(DriveClass::image, 9), disk), Error::none);
  EXPECT_EQ(disk->traits().path, images[9]);
  EXPECT_EQ(disk->traits().deviceClass, 8);
  const auto before = disk;
  EXPECT_EQ(table.open(driveNumberOf(DriveClass::image, 10), disk), Error::deviceNotOpened);
  EXPECT_EQ(table.open(2, disk), Error::deviceNotOpened);
  EXPECT_EQ(table.open(kUnlistedDrive, disk), Error::unknownDriveClass);
  EXPECT_EQ(table.open(0x20000, disk), Error::unknownDriveClass);
  EXPECT_EQ(disk, before) << "a failed open changes nothing";
  EXPECT_EQ(table.driveCount(DriveClass::device), 2U);
  EXPECT_EQ(table.driveCount(DriveClass::image), 10U);
}

TEST_F(DiskHandlesTest, AFailureNamesTheDeviceTheReasonAndTheNextStep) {
  DiskHandles table = handles();
  host.refuse("/dev/sda", EACCES);
  EXPECT_EQ(table.open(0, disk), Error::deviceNotOpened);
  EXPECT_EQ(table.lastFailure(),
            "/dev/sda could not be opened: Permission denied. Start the program with the rights "
            "to use this device, for example with sudo.");
  EXPECT_EQ(table.openPath(folder.file("none.img"), DiskAccess::readWrite, disk, number),
            Error::deviceNotOpened);
  EXPECT_NE(table.lastFailure().find("none.img"), std::string::npos) << table.lastFailure();
}

TEST_F(DiskHandlesTest, ThirtyTwoDrivesAtOnce) {
  DiskHandles table = handles();
  std::vector<std::shared_ptr<DiskDevice>> held(33);
  for (std::size_t i = 0; i < 32; ++i) {
    const std::string path = folder.sparse(format("x%zu.img", i), kMiB);
    ASSERT_EQ(table.openPath(path, DiskAccess::readWrite, held[i], number), Error::none) << i;
    EXPECT_EQ(number, kUnlistedDrive);
  }
  EXPECT_EQ(table.open(0, held[32]), Error::tooManyOpenDrives);
  EXPECT_EQ(table.openPath(folder.file("x3.img"), DiskAccess::readWrite, held[32], number),
            Error::none);
  EXPECT_EQ(held[32], held[3]);
  held[32].reset();
  held[5].reset();
  EXPECT_EQ(table.open(0, held[32]), Error::none);
}

TEST_F(DiskHandlesTest, PathsLeadToTheListedDriveWhateverTheirName) {
  DiskHandles table = handles();
  host.link("/dev/disk/by-id/ata-X", "../../sdb");
  ASSERT_EQ(table.openPath("/dev/disk/by-id/ata-X", DiskAccess::readWrite, disk, number),
            Error::none);
  EXPECT_EQ(number, 1U);
  ASSERT_EQ(table.openPath("/dev/sr0", DiskAccess::readOnly, disk, number), Error::none);
  EXPECT_EQ(number, kOpticalDriveBit);
  host.node("/dev/loop7", 7, 7, kMiB);
  ASSERT_EQ(table.openPath("/dev/loop7", DiskAccess::readOnly, disk, number), Error::none);
  EXPECT_EQ(number, kUnlistedDrive);
  EXPECT_TRUE(disk->traits().readOnly);
  std::shared_ptr<DiskDevice> again;
  host.node("/dev/made-by-hand", 8, 16, kMiB);
  ASSERT_EQ(table.open(1, disk), Error::none);
  ASSERT_EQ(table.openPath("/dev/made-by-hand", DiskAccess::readWrite, again, number), Error::none);
  EXPECT_EQ(number, 1U);
  EXPECT_EQ(disk, again) << "a node of any name is the disk of its number";
  std::filesystem::create_hard_link(images[3], folder.file("hard"));
  std::filesystem::create_symlink(images[3], folder.file("soft"));
  ASSERT_EQ(table.openPath(folder.file("hard"), DiskAccess::readWrite, disk, number), Error::none);
  for (const char* name : {"hard", "soft", "3.img", "./3.img"}) {
    ASSERT_EQ(table.openPath(folder.file(name), DiskAccess::readWrite, again, number), Error::none);
    EXPECT_EQ(disk, again) << name;
    EXPECT_EQ(number, driveNumberOf(DriveClass::image, 3)) << name;
  }
}

// The process's working directory, and back.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::string& path) : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~WorkingDirectory() { std::filesystem::current_path(before_); }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  std::filesystem::path before_;
};

TEST_F(DiskHandlesTest, ARelativePathCountsFromTheWorkingDirectory) {
  host.node("/sdb", 8, 0, kMiB);  // what one gets who puts "/" before it
  DiskHandles table = handles();
  {
    const WorkingDirectory inDev(host.realPath("/dev"));
    ASSERT_EQ(table.openPath("sdb", DiskAccess::readWrite, disk, number), Error::none);
    EXPECT_EQ(number, 1U);
    EXPECT_EQ(disk->traits().path, "/dev/sdb");
  }
  host.folder("/gone");
  const WorkingDirectory inGone(host.realPath("/gone"));
  host.remove("/gone");
  EXPECT_EQ(table.openPath("sdb", DiskAccess::readWrite, disk, number), Error::deviceNotOpened);
  EXPECT_NE(table.lastFailure().find("working directory"), std::string::npos);
}

TEST_F(DiskHandlesTest, AnotherDeviceUnderThePathOfAListedOneIsNotOpened) {
  DiskHandles table = handles();
  host.node("/dev/sdb", 8, 32, kMiB);
  EXPECT_EQ(table.open(1, disk), Error::deviceChanged);
  EXPECT_EQ(disk, nullptr);
  EXPECT_TRUE(table.lastFailure().starts_with("/dev/sdb is another device"));
  EXPECT_EQ(host.openCount(), 0U);
}

TEST_F(DiskHandlesTest, OnlyAListedHardDiskIsNumberedByItsIndex) {
  DiskHandles table = handles();
  ASSERT_EQ(table.open(1, disk), Error::none);
  EXPECT_EQ(DiskHandles::biosNumberOf(1, *disk), 0x81);
  for (const u32 none : {kUnlistedDrive, driveNumberOf(DriveClass::image, 0), kOpticalDriveBit})
    EXPECT_FALSE(DiskHandles::biosNumberOf(none, *disk)) << none;
  disk.reset();
  host.file("/sys/firmware/edd/int13_dev85/sectors", "2048\n");
  ASSERT_EQ(table.open(1, disk), Error::none);
  EXPECT_EQ(DiskHandles::biosNumberOf(1, *disk), 0x85);
}

}  // namespace
}  // namespace tallowin
