// What is recognised by the first sectors of a disk or partition.
#include "probe/identify.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "disk/faulty_disk.h"
#include "ptable/table_bench.h"
#include "support/disk_file.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u64 kSectors = 131072;

struct Put {
  std::size_t offset;
  std::string_view bytes;
};

void put(MemoryDisk& disk, u64 startLba, const std::vector<Put>& parts) {
  for (const Put& part : parts) {
    const u64 lba = startLba + part.offset / disk.sectorSize();
    std::vector<u8> sector = disk.sector(lba);
    std::ranges::copy(
        part.bytes, sector.begin() + static_cast<std::ptrdiff_t>(part.offset % disk.sectorSize()));
    disk.setSector(lba, sector);
  }
}

constexpr Put kSignature{510, "\x55\xAA"};
constexpr Put kJump{0, "\xEB\x58\x90"};

struct Case {
  const char* what;
  std::vector<Put> parts;
  u64 startLba;
  Failure error;
  ContentCode code = ContentCode::none;
  u64 sectorCount = 0;
};

Case refused(const char* what, std::vector<Put> parts) {
  return {what, std::move(parts), 0, Error::notAFileSystem};
}
Case onDisk(const char* what, std::vector<Put> parts, ContentCode code, u64 sectorCount = 0) {
  return {what, std::move(parts), 0, Error::none, code, sectorCount};
}
Case inPartition(const char* what, std::vector<Put> parts, ContentCode code, u64 sectorCount) {
  return {what, std::move(parts), 64, Error::none, code, sectorCount};
}

TEST(Identify, EachKindByItsMarksAlone) {
  using namespace std::string_view_literals;
  const Case cases[] = {
      refused("nothing on a disk", {}),
      inPartition("nothing in a partition", {}, ContentCode::unknownVolume, kSectors),
      refused("a table", {kSignature, {450, "\x83"}}),
      onDisk("text in the place of a slot", {kSignature, {494, "no system"}},
             ContentCode::unknownVolume, kSectors),
      refused("an MBR with a parameter block for old systems",
              {kJump, kSignature, {54, "FAT16"}, {310, "MBR-help"}}),
      onDisk("the same with sectors before it",
             {kJump, kSignature, {54, "FAT16"}, {310, "MBR-help"}, {28, "\x3F"}, {19, "\x10\x20"}},
             ContentCode::fat, 0x2010),
      inPartition("two FATs without a name",
                  {kJump, kSignature, {16, "\x02"}, {21, "\xF8"}, {32, "\1\2\3"}}, ContentCode::fat,
                  0x030201),
      onDisk("encrypted", {kJump, kSignature, {82, "FAT32"}, {3, "-FVE-FS-"}},
             ContentCode::bitLocker),
      inPartition("NTFS in small letters", {kJump, kSignature, {3, "ntfs"}, {40, "\xFF"}},
                  ContentCode::ntfs, 256),
      refused("NTFS without a jump", {kSignature, {3, "NTFS"}}),
      inPartition("exFAT", {kJump, kSignature, {3, "EXFAT   "}, {72, "\0\1"sv}, {108, "\x09"}},
                  ContentCode::exFat, 256),
      inPartition("ReFS", {{3, "ReFS\0\0\0\0"sv}, {24, "\x40"}}, ContentCode::reFs, 64),
      onDisk("ext behind a boot loader",
             {kSignature, {6, "LILO"}, {1024 + 56, "\x53\xEF"}, {1024 + 4, "\x08"}},
             ContentCode::ext, 16),
      refused("ext behind a foreign boot sector", {kSignature, {1024 + 56, "\x53\xEF"}}),
      inPartition("HFS+", {{1024, "H+"}, {1024 + 40, "\0\0\x10\0\0\0\0\2"sv}}, ContentCode::hfsPlus,
                  16),
      inPartition("XFS of more blocks than sectors can be counted",
                  {{0, "XFSB\0\0\x10\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv}}, ContentCode::xfs,
                  kAllOnes64),
      inPartition("ReiserFS", {{65536 + 52, "ReIsEr2Fs"}, {65536, "\x04"}, {65536 + 45, "\x10"}},
                  ContentCode::reiserFs, 32),
      inPartition("swap", {{4086, "SWAPSPACE2"}}, ContentCode::linuxSwap, kSectors),
      onDisk("a disc", {{16 * 2048 + 1, "CD001"}}, ContentCode::iso9660),
      inPartition("a disc's image in a partition", {{16 * 512 + 1, "CD001"}},
                  ContentCode::unknownVolume, kSectors),
  };
  for (const Case& c : cases) {
    MemoryDisk disk(kSectors);
    put(disk, c.startLba, c.parts);
    Content content;
    ASSERT_EQ(identify(disk, c.startLba, content), c.error) << c.what;
    EXPECT_EQ(content.code, c.code) << c.what;
    if (c.sectorCount != 0) {
      EXPECT_EQ(content.sectorCount, c.sectorCount) << c.what;
    }
  }
}

// The makers of file systems and the identification agree, also on large sectors.
TEST(Identify, WhatTheMakersOfFileSystemsWrite) {
  struct Made {
    std::string command;
    ContentCode code;
    u16 type;
    std::optional<u32> statedSectorSize;
  };
  const Made kinds[] = {
      {"mkfs.fat -F 16", ContentCode::fat, 0x06, 512},
      {"mkfs.fat -F 32", ContentCode::fat32, 0x0B, 512},
      {"mkfs.fat -F 32 -S 4096", ContentCode::fat32, 0x0B, 4096},
      {"mkfs.ntfs -F -Q -q", ContentCode::ntfs, 0x07, 512},
      {"mkfs.ext4 -q -F", ContentCode::ext, 0x83, 0},
      {"mkfs.xfs -q -f", ContentCode::xfs, 0x83, 0},
      {"mkswap -q", ContentCode::linuxSwap, 0x82, 0},
  };
  for (const Made& kind : kinds) {
    std::vector<std::string> command = words(kind.command);
    if (!hasProgram(command[0])) continue;
    const TempFolder folder;
    command.push_back(folder.sparse("volume", 400 * kMiB));
    const ProgramResult made = runProgram(command);
    ASSERT_EQ(made.status, 0) << kind.command << made.output;
    MemoryDisk disk = loadDisk(command.back());
    Content content;
    ASSERT_EQ(identify(disk, 0, content), Error::none) << kind.command;
    EXPECT_EQ(content.code, kind.code) << kind.command;
    EXPECT_EQ(typeOfContent(disk, 0), kind.type);
    EXPECT_EQ(content.sectorSizeBytes, kind.statedSectorSize) << kind.command;
    MemoryDisk large = loadDisk(command.back(), 4096);
    EXPECT_EQ(typeOfContent(large, 0), kind.type) << kind.command;
  }
}

TEST(Identify, MarksOfBootLoaders) {
  std::vector<u8> sector(512);
  EXPECT_EQ(bootLoaderMark(sector), BootLoaderMark::none);
  sector[62] = 0x03;
  sector[63] = 0x02;
  EXPECT_EQ(bootLoaderMark(sector), BootLoaderMark::marked);
  sector[0] = 0xEB;
  sector[1] = 0x63;
  std::ranges::copy(std::string_view("GRUB"), sector.begin() + 504);
  EXPECT_EQ(bootLoaderMark(sector), BootLoaderMark::grub);
}

TEST(Identify, ReadErrorsAreTold) {
  MemoryDisk disk(kSectors);
  FaultyDisk faulty(disk);
  faulty.failReadsOf({64, 64});
  Content content;
  EXPECT_EQ(identify(faulty, 64, content), Error::read);
  EXPECT_EQ(identify(disk, kSectors + 5, content), Error::read);
  EXPECT_EQ(identify(disk, kAllOnes64, content), Error::read);
}

}  // namespace
}  // namespace tallowin
