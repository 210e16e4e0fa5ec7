// Discs that another program has made are listed and read as it was told to write them, and nothing
// of them can be changed.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/cdrom.h>

#include <filesystem>
#include <fstream>

#include "disk/image_disk.h"
#include "disk/linux_disk.h"
#include "disk/memory_disk.h"
#include "fs/fs_bench.h"
#include "fs/tree_walk.h"
#include "iso/iso_file_system.h"
#include "iso/iso_kind.h"
#include "iso/iso_record.h"
#include "support/fake_host.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

namespace fs = std::filesystem;

// A disc, read into memory, of sectors of 512 or 2048 bytes.
class Disc {
 public:
  Disc(const std::string& image, u32 sectorBytes) {
    const OpenedImage opened =
        openImageFile(image, DiskAccess::readOnly,
                      sectorBytes == 2048 ? kOpticalKind : kHardDiskKind, sectorBytes);
    EXPECT_EQ(Error::none, opened.error.code) << image;
    const u64 sectors = opened.disk ? *opened.disk->sectorCount() : 0;
    disk_ = std::make_unique<MemoryDisk>(sectors, sectorBytes);
    std::vector<u8> all(sectors * sectorBytes);
    EXPECT_EQ(Error::none, opened.disk->readSectors(0, all.data(), sectors));
    EXPECT_EQ(Error::none, disk_->writeSectors(0, all.data(), sectors));
  }

  MemoryDisk& disk() { return *disk_; }
  Failure open(std::unique_ptr<FileSystem>& files) { return openFound(*disk_, files); }
  FileTree tree() {
    std::unique_ptr<FileSystem> files;
    EXPECT_EQ(Error::none, open(files));
    return files ? treeOf(*files) : FileTree();
  }

 private:
  std::unique_ptr<MemoryDisk> disk_;
};

class IsoFilesTest : public testing::TestWithParam<u32> {
 protected:
  void SetUp() override {
    if (!hasProgram("xorriso")) GTEST_SKIP() << "needs xorriso";
    storeSampleTree(top());
  }
  fs::path top() const { return folder_.file("tree"); }
  std::string make(const std::vector<std::string>& options, const std::string& name = "image") {
    std::vector<std::string> command =
        words("/usr/bin/env LC_ALL=C.UTF-8 xorriso -as mkisofs -quiet -o");
    command.push_back(folder_.file(name));
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(top().string());
    const ProgramResult made = runProgram(command);
    EXPECT_EQ(0, made.status) << made.output;
    return folder_.file(name);
  }

  TempFolder folder_;
};
INSTANTIATE_TEST_SUITE_P(SectorSizes, IsoFilesTest, testing::Values(512, 2048));

TEST_P(IsoFilesTest, JolietNamesAndTheLabelAreRead) {
  Disc disc(make({"-J", "-joliet-long", "-V", "MY DISC"}), GetParam());
  EXPECT_EQ(std::vector<std::string>(), differences(hostTree(top()), disc.tree()));
  std::unique_ptr<FileSystem> files;
  ASSERT_EQ(Error::none, disc.open(files));
  std::string label;
  EXPECT_EQ(Error::none, files->label(label));
  EXPECT_EQ("MY DISC", label);
  FileInfo info;
  EXPECT_EQ(Error::none, files->info("/MANY/file NUMBER 7", info));
  EXPECT_EQ(kFileReadOnly, info.attributes);
  EXPECT_EQ(Error::accessDenied, openIsoFiles({disc.disk(), 0, *disc.disk().sectorCount()}, 0,
                                              {.writable = true}, files));
}

TEST_P(IsoFilesTest, PlainNamesComeWithoutTheirVersion) {
  fs::remove_all(top());
  store(top() / "READ.ME", "1");
  store(top() / "NODOT", "2");
  store(top() / "SUB/FILE.BIN", randomBytes(4, 5000));
  Disc disc(make({"-iso-level", "1"}), GetParam());
  EXPECT_EQ(std::vector<std::string>(), differences(hostTree(top()), disc.tree()));
}

TEST_P(IsoFilesTest, TheLastSessionCounts) {
  const std::string image = make({"-J", "-joliet-long"});
  store(top() / "added later.txt", randomBytes(5, 9000));
  fs::remove(top() / "empty");
  const ProgramResult grown =
      runProgram({"/usr/bin/env", "LC_ALL=C.UTF-8", "xorriso", "-joliet", "on", "-compliance",
                  "joliet_long_names", "-dev", image, "-update_r", top().string(), "/", "-commit"});
  ASSERT_EQ(0, grown.status) << grown.output;
  Disc disc(image, GetParam());
  EXPECT_EQ(std::vector<std::string>(), differences(hostTree(top()), disc.tree()));
}

// A disc in a drive: its older session stays where it was, and the table of contents says where the
// last one begins. In front of it may be music; behind it lie two sectors that nobody can read.
class IsoDriveTest : public IsoFilesTest {};
INSTANTIATE_TEST_SUITE_P(SectorSizes, IsoDriveTest, testing::Values(2048));

TEST_P(IsoDriveTest, SaysWhereTheLastSessionBegins) {
  const std::string older = make({"-J", "-joliet-long"}, "older");
  store(top() / "added later.txt", randomBytes(5, 9000));
  const u64 start = (fs::file_size(older) / 2048 + 31) / 32 * 32;
  const std::string newer =
      make({"-J", "-joliet-long", "-M", older, "-C", "0," + std::to_string(start)}, "newer");
  FakeHost host;
  host.node("/dev/sr0", 11, 0, start * 2048 + fs::file_size(newer) + 2 * 2048);
  std::ofstream(host.realPath("/dev/sr0"), std::ios::binary | std::ios::in)
      << std::ifstream(older, std::ios::binary).rdbuf();
  std::fstream disc(host.realPath("/dev/sr0"), std::ios::binary | std::ios::in | std::ios::out);
  disc.seekp(static_cast<std::streamoff>(start * 2048));
  disc << std::ifstream(newer, std::ios::binary).rdbuf();
  disc.close();

  const auto drive = LinuxDisk::open(
      host, {.deviceKind = kOpticalKind, .mediaFlag = MediaFlag::removable, .path = "/dev/sr0"},
      O_RDONLY);
  ASSERT_NE(nullptr, drive);
  EXPECT_EQ(std::nullopt, drive->lastDataTrack());
  const u64 behind = *drive->sectorCount();
  host.answer("/dev/sr0", CDROMREADTOCHDR, [](void* argument) {
    *static_cast<cdrom_tochdr*>(argument) = {.cdth_trk0 = 1, .cdth_trk1 = 3};
    return 0;
  });
  host.answer("/dev/sr0", CDROMREADTOCENTRY, [=](void* argument) {
    auto& entry = *static_cast<cdrom_tocentry*>(argument);
    EXPECT_EQ(CDROM_LBA, entry.cdte_format);
    const bool isMusic = entry.cdte_track == 1 || entry.cdte_track == 3;
    const u64 lba = entry.cdte_track == 1 ? 0 : entry.cdte_track == 2 ? start : behind;
    entry.cdte_ctrl = isMusic ? 0 : CDROM_DATA_TRACK;
    entry.cdte_addr.lba = static_cast<int>(lba);
    return 0;
  });
  host.onTransfer = [=](bool, std::size_t bytes, u64 offset) {
    return offset + bytes > (behind - 2) * 2048 ? -1 : static_cast<i64>(bytes);
  };
  ASSERT_TRUE(drive->lastDataTrack().has_value());
  EXPECT_EQ(start, drive->lastDataTrack()->firstSector);
  EXPECT_EQ(behind - 1, drive->lastDataTrack()->endSector);

  std::unique_ptr<FileSystem> files;
  ASSERT_EQ(Error::none, openFound(*drive, files));
  EXPECT_EQ(std::vector<std::string>(), differences(hostTree(top()), treeOf(*files)));
}

// As a download that broke off leaves it.
TEST_P(IsoFilesTest, ADiscThatWasCutOffShowsWhatIsLeft) {
  store(top() / "zzz/last.bin", randomBytes(6, 400000));
  const std::string image = make({"-J", "-joliet-long"});
  fs::resize_file(image, fs::file_size(image) - 600000 / 2048 * 2048);
  Disc disc(image, GetParam());
  std::unique_ptr<FileSystem> files;
  ASSERT_EQ(Error::none, disc.open(files));
  u32 whole = 0, cut = 0;
  EXPECT_EQ(Error::none, walkTree(*files, "/", [&](const std::string& path, const FileInfo& entry) {
                           if (entry.isDirectory()) return Failure();
                           File file;
                           std::vector<u8> content(entry.sizeBytes);
                           u64 done = 0;
                           EXPECT_EQ(Error::none, files->open(path, {}, file));
                           const Failure failed = file.read(content, done);
                           EXPECT_TRUE(!failed || failed == Error::corrupt);
                           ++(failed ? cut : whole);
                           return Failure();
                         }).failure);
  EXPECT_EQ(156U, whole + cut);
  EXPECT_LT(0U, whole);
  EXPECT_LT(0U, cut);
}

TEST_P(IsoFilesTest, ADirectoryThatContainsItselfIsTold) {
  Disc disc(make({}), GetParam());
  const u64 own = 2048 / GetParam();
  std::vector<u8> sector(2048);
  ASSERT_EQ(Error::none, disc.disk().readSectors(16 * own, sector.data(), own));
  const IsoDirectoryRecord root = recordAt<IsoVolumeDescriptor>(std::span(sector))->root;
  ASSERT_EQ(Error::none, disc.disk().readSectors(root.extent.value * own, sector.data(), own));
  for (std::size_t at = 0; at < sector.size() && sector[at] != 0; at += sector[at]) {
    auto& record = *recordAt<IsoDirectoryRecord>(std::span(sector), at);
    if ((record.flags & kIsoDirectory) == 0) continue;
    record.extent = root.extent;
    record.dataLength = root.dataLength;
  }
  ASSERT_EQ(Error::none, disc.disk().writeSectors(root.extent.value * own, sector.data(), own));
  std::unique_ptr<FileSystem> files;
  FileTree tree;
  ASSERT_EQ(Error::none, disc.open(files));
  EXPECT_EQ(Error::corrupt, addTree(*files, "/", tree));
}

}  // namespace
}  // namespace tallowin
