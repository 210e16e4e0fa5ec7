#include "disk/image_disk.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <vector>

#include "base/text.h"
#include "disk/mbr_record.h"
#include "files/vhd_record.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u64 kImageBytes = kMiB;

std::string textOf(std::span<const u8> bytes) { return {bytes.begin(), bytes.end()}; }

// A VHD of 1 MiB with a geometry of 20 cylinders, 5 heads and 20 sectors: 2000 of its 2048
// sectors.
std::string fixedVhd() {
  VhdFooter footer{};
  std::copy(kVhdFooterCookie.begin(), kVhdFooterCookie.end(), footer.cookie);
  footer.currentSizeBytes = kImageBytes;
  footer.cylinders = 20;
  footer.heads = 5;
  footer.sectorsPerTrack = 20;
  footer.diskType = static_cast<u32>(VhdDiskType::fixed);
  footer.checksum = vhdChecksum(footer);
  return std::string(kImageBytes, '\0') + textOf(bytesOf(footer));
}

class ImageDiskTest : public ::testing::Test {
 protected:
  std::unique_ptr<DiskDevice> open(const std::string& name, u8 kind = kHardDiskKind,
                                   u32 sectorSizeBytes = 0, const SectorSizeProbe& probe = {}) {
    OpenedImage opened =
        openImageFile(folder.file(name), DiskAccess::readWrite, kind, sectorSizeBytes, probe);
    EXPECT_NE(opened.disk, nullptr) << opened.reason;
    EXPECT_EQ(opened.error, Error::none);
    return std::move(opened.disk);
  }

  TempFolder folder;
};

TEST_F(ImageDiskTest, TheFormIsInTheTraitsAndTheGeometry) {
  folder.sparse("raw", kImageBytes + 700);
  folder.write("vhd", fixedVhd());
  const auto raw = open("raw");
  const auto vhd = open("vhd");
  const auto optical = open("vhd", kOpticalKind);

  EXPECT_EQ(raw->traits().type, DiskType::rawImage);
  EXPECT_EQ(vhd->traits().type, DiskType::vhdImage);
  EXPECT_EQ(optical->traits().type, DiskType::rawImage) << "an optical disc is never a container";
  EXPECT_EQ(raw->sectorCount(), 2049U) << "the rest makes no sector";
  EXPECT_EQ(vhd->sectorCount(), 2000U) << "whole cylinders";
  EXPECT_EQ(optical->sectorSize(), 2048U);
  EXPECT_EQ(optical->sectorCount(), 512U);
  EXPECT_EQ(optical->traits().deviceKind, kOpticalKind);
  Geometry geometry;
  EXPECT_TRUE(vhd->firmwareGeometry(geometry));
  EXPECT_EQ(geometry, (Geometry{19, 4, 20})) << "as the image states it";
  EXPECT_FALSE(raw->firmwareGeometry(geometry));
  EXPECT_EQ(geometry, (Geometry{1023, 254, 63})) << "neither container nor table states one";
}

TEST_F(ImageDiskTest, ARawImageHasTheGeometryOfItsTable) {
  MbrRecord mbr{};
  mbr.signature.set();
  mbr.slots[0].type = 0x83;
  mbr.slots[0].endChs = {15, 63, 0};
  mbr.slots[0].startLba = 63;
  mbr.slots[0].sectorCount = 1000;
  std::string bytes = textOf(bytesOf(mbr));
  bytes.resize(std::size_t{1008} * 3 * 512);
  folder.write("raw", bytes);
  Geometry geometry;
  EXPECT_TRUE(open("raw")->firmwareGeometry(geometry));
  EXPECT_EQ(geometry, (Geometry{2, 15, 63}));
}

TEST_F(ImageDiskTest, WhatIsStatedHoldsThenWhatTheProbeFinds) {
  const auto sizeOf = [&](const std::string& name, u32 stated, u32 found) {
    const SectorSizeProbe probe = [&](DiskDevice& disk) {
      EXPECT_EQ(disk.sectorSize(), 512U);
      return found;
    };
    return open(name, kHardDiskKind, stated, probe)->sectorSize();
  };
  folder.sparse("raw", kImageBytes);
  folder.write("vhd", fixedVhd());
  EXPECT_EQ(sizeOf("raw", 0, 2048), 2048U);
  EXPECT_EQ(sizeOf("raw", 1024, 2048), 1024U);
  EXPECT_EQ(sizeOf("vhd", 0, 2048), 512U) << "containers have sectors of 512";
  EXPECT_EQ(sizeOf("vhd", 4096, 512), 4096U) << "unless one knows better";
  EXPECT_EQ(open("raw")->sectorSize(), 512U) << "without a probe";
}

TEST_F(ImageDiskTest, LargeSectorsLieWhereTheyBelongAndEndWithTheImage) {
  folder.sparse("raw", kImageBytes + 2048);
  const auto disk = open("raw", kHardDiskKind, 4096);
  std::vector<u8> sector(4096, 0xA7);
  EXPECT_EQ(disk->sectorCount(), 256U);
  ASSERT_EQ(disk->writeSectors(255, sector.data(), 1), Error::none);
  ASSERT_EQ(disk->writeSectors(3, sector.data(), 1), Error::none);
  ASSERT_EQ(disk->writeZeros(3, 1), Error::none);
  EXPECT_NE(disk->writeSectors(256, sector.data(), 1), Error::none) << "half a sector is none";
  EXPECT_NE(disk->readSectors(255, std::vector<u8>(8192).data(), 2), Error::none);
  EXPECT_NE(disk->readSectors(kAllOnes64, sector.data(), 1), Error::none);
  ASSERT_EQ(disk->flush(), Error::none);
  std::string expected(kImageBytes + 2048, '\0');
  expected.replace(kImageBytes - 4096, 4096, 4096, '\xA7');
  EXPECT_TRUE(folder.read("raw") == expected);
}

// Zeros that are to hide what was there are written over it; a fast clear may leave a hole.
TEST_F(ImageDiskTest, WrittenZerosTakeTheirPlaceInTheFile) {
  folder.sparse("raw", kImageBytes);
  const auto allocated = [&] {
    struct stat status {};
    EXPECT_EQ(::stat(folder.file("raw").c_str(), &status), 0);
    return static_cast<u64>(status.st_blocks) * 512;
  };
  ASSERT_EQ(allocated(), 0U);
  const auto disk = open("raw");
  ASSERT_EQ(disk->writeZeros(0, kImageBytes / 512), Error::none);
  ASSERT_EQ(disk->flush(), Error::none);
  EXPECT_GE(allocated(), kImageBytes);
  EXPECT_TRUE(folder.read("raw") == std::string(kImageBytes, '\0'));
}

TEST_F(ImageDiskTest, AFailureNamesTheDisksSector) {
  folder.sparse("raw", kImageBytes);
  const auto disk = open("raw", kHardDiskKind, 4096);
  std::filesystem::resize_file(folder.file("raw"), kImageBytes / 2);
  std::vector<u8> sector(4096);
  EXPECT_EQ(disk->readSectors(200, sector.data(), 1), Failure(Error::read, 0, 200));
}

TEST_F(ImageDiskTest, AnImageThatWasReplacedOrCutIsNoLongerTheSame) {
  struct Case {
    std::function<void(const std::string& path)> meanwhile;
    Error expected;
  };
  const Case cases[] = {
      {[](const std::string&) {}, Error::none},
      {[](const std::string& path) { std::filesystem::resize_file(path, kImageBytes + 512); },
       Error::none},
      {[](const std::string& path) { std::filesystem::resize_file(path, kImageBytes - 1); },
       Error::deviceChanged},
      {[](const std::string& path) { std::filesystem::remove(path); }, Error::deviceChanged},
      {[&](const std::string& path) {
         std::filesystem::rename(folder.sparse("other", kImageBytes), path);
       },
       Error::deviceChanged},
  };
  for (const Case& c : cases) {
    const std::string path = folder.sparse("raw", kImageBytes);
    const auto disk = open("raw");
    c.meanwhile(path);
    EXPECT_EQ(disk->checkSameDisk().code, c.expected) << &c - cases;
    std::filesystem::remove(path);
  }
}

TEST_F(ImageDiskTest, OneOpenerAtATimeHoldsTheLock) {
  folder.sparse("raw", kImageBytes);
  const auto first = open("raw");
  auto second = open("raw");
  EXPECT_TRUE(first->lockForChange());
  EXPECT_FALSE(second->lockForChange());
  first->unlockAfterChange();
  EXPECT_TRUE(second->lockForChange());
  second.reset();
  EXPECT_TRUE(first->lockForChange()) << "closing lets go";
}

TEST_F(ImageDiskTest, AReadOnlyImageIsReadAndNeverChanged) {
  for (const std::string& content : {std::string(kImageBytes, 'x'), fixedVhd()}) {
    folder.write("image", content);
    const OpenedImage image = openImageFile(folder.file("image"), DiskAccess::readOnly);
    ASSERT_TRUE(image.disk) << image.reason;
    EXPECT_TRUE(image.disk->traits().readOnly);
    u8 sector[512] = {1};
    EXPECT_EQ(image.disk->readSectors(0, sector, 1), Error::none);
    EXPECT_EQ(sector[0], static_cast<u8>(content[0]));
    EXPECT_NE(image.disk->writeSectors(0, sector, 1), Error::none);
    EXPECT_NE(image.disk->writeZeros(0, 1), Error::none);
    EXPECT_EQ(image.disk->flush(), Error::none);
    EXPECT_TRUE(folder.read("image") == content);
  }
}

TEST_F(ImageDiskTest, ARefusalNamesTheFileAndTheReason) {
  const auto refusal = [&](const std::string& name, Error error, u32 sectorSizeBytes = 0) {
    const OpenedImage image =
        openImageFile(folder.file(name), DiskAccess::readWrite, kHardDiskKind, sectorSizeBytes);
    EXPECT_EQ(image.disk, nullptr) << name;
    EXPECT_EQ(image.error, error) << name;
    EXPECT_TRUE(image.reason.starts_with(folder.file(name))) << image.reason;
    EXPECT_EQ(image.reason.find('\n'), std::string::npos);
    return image.reason;
  };
  folder.write("qcow2", "QFI\xFB" + std::string(1000, '\0'));
  EXPECT_NE(refusal("qcow2", Error::unsupportedForm).find("qcow2, which"), std::string::npos);
  folder.write("cut", fixedVhd().substr(kImageBytes / 2));
  EXPECT_NE(refusal("cut", Error::corrupt).find("shorter than its footer"), std::string::npos);
  EXPECT_NE(refusal("missing", Error::cannotOpenForReading).find("No such file"),
            std::string::npos);
  EXPECT_NE(refusal("", Error::cannotOpenForReading).find("directory"), std::string::npos)
      << "a folder";
  folder.sparse("raw", kImageBytes);
  EXPECT_NE(refusal("raw", Error::unsupportedForm, 520).find("4096 bytes"), std::string::npos);
}

}  // namespace
}  // namespace tallowin
