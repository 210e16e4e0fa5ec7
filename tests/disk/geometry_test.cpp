#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/hdreg.h>

#include "base/text.h"
#include "disk/firmware_geometry.h"
#include "disk/geometry_modes.h"
#include "disk/linux_disk.h"
#include "disk/mbr_record.h"
#include "disk/memory_disk.h"
#include "support/fake_host.h"

namespace tallowin {

static std::ostream& operator<<(std::ostream& out, const Geometry& geometry) {
  return out << geometry.maxCylinder << "/" << int{geometry.maxHead} << "/"
             << int{geometry.sectorsPerTrack};
}

namespace {

constexpr Geometry kDefault{1023, 254, 63};
constexpr u64 kSectors = 4'000'000;

TEST(GeometryModes, EachModeHasItsRule) {
  struct Case {
    u32 mode;
    u64 sectors;
    Geometry expected;
  };
  const Case cases[] = {
      {2, 1008 * 500, {499, 15, 63}},
      {2, 1008 * 1024, {1023, 15, 63}},
      {2, 1008 * 1025, {511, 31, 63}},
      {2, 63ULL * 128 * 1025, {513, 254, 63}},
      {2, kSectors * 1000, {1023, 254, 63}},
      {2, 10, {0, 15, 63}},
      {3, 16065 * 100, {99, 254, 63}},
      {3, 100, {0, 254, 63}},
      {4, 0x44000, {1023, 15, 17}},
      {4, 0x44001, {560, 15, 31}},
      {4, 0x7C000, {1023, 15, 31}},
      {4, 0x7C001, {502, 15, 63}},
      {4, 0x1'0000'0000, {1023, 254, 63}},
      {5, 1008 * 500, {500, 15, 63}},
      {5, 1008 * 1024, {511, 31, 63}},
      {5, 1008 * 1023, {1023, 15, 63}},
      {5, 1008ULL * 0x10000, {1023, 254, 63}},
      {5, 1008ULL * 16000, {999, 254, 63}},
  };
  for (const Case& each : cases) {
    MemoryDisk disk(each.sectors);
    EXPECT_EQ(geometryForMode(disk, each.mode), each.expected)
        << "mode " << each.mode << ", " << each.sectors << " sectors";
  }
  MemoryDisk disk(kSectors);
  disk.setGeometry({10, 20, 30});
  for (const u32 mode : {0U, 1U, 7U})
    EXPECT_EQ(geometryForMode(disk, mode), (Geometry{10, 20, 30}));
}

TEST(GeometryModes, ADiskWithoutASizeHasOneSector) {
  class NoSize : public MemoryDisk {
   public:
    using MemoryDisk::MemoryDisk;
    std::optional<u64> sectorCount() override { return std::nullopt; }
  };
  NoSize disk(kSectors);
  for (const u32 mode : {2U, 3U, 4U, 5U})
    EXPECT_EQ(geometryForMode(disk, mode), (Geometry{0, 0, 1})) << mode;
}

MbrSlotRecord entry(u8 type, u32 first, u32 count, u8 head = 239, u8 sector = 63, u8 boot = 0) {
  MbrSlotRecord result{};
  result.bootIndicator = boot;
  result.type = type;
  result.endChs[0] = head;
  result.endChs[1] = sector;
  result.startLba = first;
  result.sectorCount = count;
  return result;
}

void writeMbr(DiskDevice& disk, u32 signature, std::vector<MbrSlotRecord> entries) {
  MbrRecord mbr{};
  mbr.diskSignature = signature;
  std::copy(entries.begin(), entries.end(), mbr.slots.begin());
  ASSERT_EQ(disk.writeSectors(0, &mbr, 1), Error::none);
}

TEST(FirmwareGeometry, TheFirstSoundEntryTellsTheGeometry) {
  constexpr Geometry kFound{263, 239, 63};  // of 4,000,000 sectors
  struct Case {
    const char* what;
    std::vector<MbrSlotRecord> entries;
    Geometry expected;
    bool determined = true;
  };
  const Case cases[] = {
      {"an empty table", {}, kDefault, false},
      {"one entry", {entry(7, 2048, 1000)}, kFound},
      {"behind an unused entry", {{}, entry(7, 2048, 1000)}, kFound},
      {"the upper sector bits belong to the cylinder", {entry(7, 1, 1, 239, 0xFF)}, kFound},
      {"active", {entry(7, 1, 1, 239, 63, 0x80)}, kFound},
      {"0x81 stops the scan", {entry(7, 1, 1, 239, 63, 0x81), entry(7, 1, 1)}, kDefault, false},
      {"starts behind the end", {entry(7, kSectors, 1), entry(7, 1, 1)}, kDefault, false},
      {"ends on the last sector", {entry(7, kSectors - 10, 10)}, kFound},
      {"ends behind it", {entry(7, kSectors - 10, 11)}, kDefault, false},
      {"no sum wraps", {entry(7, 0xFFFFFFFF, 0xFFFFFFFF)}, kDefault, false},
      {"a protective entry may pass the end", {entry(0xEE, 1, 0xFFFFFFFF, 239, 63)}, kFound},
      {"an unused entry beyond the end stops it too",
       {entry(0, kSectors, 1), entry(7, 1, 1)},
       kDefault,
       false},
      {"no sectors per track", {entry(7, 1, 1, 15, 0)}, {1023, 15, 63}},
      {"head 0 and 255", {entry(7, 1, 1, 0, 63)}, {1023, 254, 63}},
      {"head 255 is kept", {entry(7, 1, 1, 255, 63)}, {247, 255, 63}},
  };
  for (const Case& each : cases) {
    MemoryDisk disk(kSectors);
    writeMbr(disk, 0, each.entries);
    const FirmwareDisk found = imageFirmwareDisk(disk);
    EXPECT_EQ(found.geometry, each.expected) << each.what;
    EXPECT_EQ(found.determined, each.determined) << each.what;
    EXPECT_EQ(found.biosNumber, kBiosNumberNoMatch);
  }
}

class EddTest : public ::testing::Test {
 protected:
  void firmwareDisk(u32 number, u64 sectors, const char* signature = nullptr) {
    const std::string folder = format("/sys/firmware/edd/int13_dev%X", number);
    host.file(folder + "/sectors", std::to_string(sectors) + "\n");
    if (signature != nullptr) host.file(folder + "/mbr_signature", signature);
  }
  void legacy(u32 number, const char* cylinder, const char* head, const char* sectors) {
    const std::string folder = format("/sys/firmware/edd/int13_dev%X", number);
    host.file(folder + "/legacy_max_cylinder", cylinder);
    host.file(folder + "/legacy_max_head", head);
    if (sectors != nullptr) host.file(folder + "/legacy_sectors_per_track", sectors);
  }
  FirmwareDisk find(u32 signature = 0x1234ABCD) {
    MemoryDisk disk(kSectors);
    writeMbr(disk, signature, {entry(7, 2048, 1000)});
    return findFirmwareDisk(host, disk, [] { return std::nullopt; });
  }

  FakeHost host;
};

TEST_F(EddTest, SizeAndSignatureFindTheFirmwaresDisk) {
  struct Case {
    u64 sectors;
    const char* signature;
    bool matches;
  };
  for (const Case& each :
       {Case{kSectors, "0x1234abcd\n", true}, Case{kSectors - 16064, "0x1234abcd\n", true},
        Case{kSectors - 16065, "0x1234abcd\n", false}, Case{kSectors + 1, "0x1234abcd\n", false},
        Case{kSectors, "0x1234abce\n", false}}) {
    firmwareDisk(0x81, each.sectors, each.signature);
    EXPECT_EQ(find().biosNumber, each.matches ? 0x81 : kBiosNumberNoMatch) << each.sectors;
  }
  firmwareDisk(0x9F, kSectors);
  EXPECT_EQ(find(0).biosNumber, 0x9FU) << "an unreadable signature counts as 0";
  firmwareDisk(0x82, kSectors, "0x1234abcd");
  firmwareDisk(0x80, kSectors, "0x1234abcd");
  EXPECT_EQ(find().biosNumber, 0x80U) << "the first that fits";
}

TEST_F(EddTest, TheFirmwaresGeometryNeedsAllThreeNumbers) {
  firmwareDisk(0x80, kSectors, "0x1234abcd");
  legacy(0x80, "800\n", "0x0f\n", nullptr);
  EXPECT_EQ(find().geometry, (Geometry{263, 239, 63})) << "the entries' geometry instead";
  EXPECT_EQ(find().biosNumber, 0x80U);
  legacy(0x80, "800\n", "0x0f\n", "32\n");
  EXPECT_EQ(find().geometry, (Geometry{800, 15, 32}));
  legacy(0x80, "4000000\n", "0\n", "64\n");
  EXPECT_EQ(find().geometry, kDefault) << "impossible values are replaced";
  legacy(0x80, "0\n", "255\n", "0\n");
  EXPECT_EQ(find().geometry, (Geometry{1023, 255, 63}));
}

TEST_F(EddTest, TheKernelsAnswerComesLast) {
  MemoryDisk disk(kSectors);
  const auto with = [&](KernelGeometry counts) {
    return findFirmwareDisk(host, disk, [=] { return std::optional(counts); }).geometry;
  };
  EXPECT_EQ(with({255, 63, 600}), (Geometry{599, 254, 63}));
  EXPECT_EQ(with({0, 63, 600}), (Geometry{599, 254, 63}));
  EXPECT_EQ(with({16, 32, 0}), (Geometry{1023, 15, 32}));
  EXPECT_EQ(with({1, 1, 1}), (Geometry{1023, 254, 1}));
  EXPECT_FALSE(findFirmwareDisk(host, disk, [] { return std::nullopt; }).determined);
}

TEST(FirmwareGeometry, AnEncryptedContainerHasThatOfTheDiskBelow) {
  FakeHost host;
  host.node("/dev/mapper/truecrypt1", 253, 0, 512 * 1000);
  host.folder("/sys/block/dm-0/slaves/sda2");
  host.folder("/sys/block/sda/sda2");
  host.node("/dev/sda", 8, 0, kSectors * 512);
  host.answer("/dev/sda", HDIO_GETGEO, [](void* argument) {
    *static_cast<hd_geometry*>(argument) = {
        .heads = 240, .sectors = 32, .cylinders = 100, .start = 0};
    return 0;
  });
  const auto open = [&](u64 startOffset) {
    return LinuxDisk::open(host, {.startOffset = startOffset, .path = "/dev/mapper/truecrypt1"},
                           O_RDWR);
  };
  Geometry geometry;
  const auto container = open(2048);
  EXPECT_TRUE(container->firmwareGeometry(geometry));
  EXPECT_EQ(geometry, (Geometry{99, 239, 32}));
  const auto plain = open(0);
  EXPECT_FALSE(plain->firmwareGeometry(geometry));
  EXPECT_EQ(geometry, kDefault);
}

}  // namespace
}  // namespace tallowin
