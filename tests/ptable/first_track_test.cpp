// The first track is kept before an MBR is left, and comes back with it.
#include "ptable/first_track.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "files/host_file.h"
#include "ptable/convert.h"
#include "ptable/table_bench.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr const char* kScript = "label: dos\nlabel-id: 0x12345678\n";

class FirstTrackTest : public ::testing::Test {
 protected:
  // The slot is ours, so that its CHS bytes are those that a conversion back computes.
  FirstTrackTest() : bench_(diskFromScript(600'000, kScript)) {
    EXPECT_EQ(addAt(bench_.drive(), 2048, 4096, 0x83), Error::none);
    std::vector<u8> mbr = disk().sector(0);
    for (std::size_t i = 0; i < 440; ++i) mbr[i] = static_cast<u8>(i | 1);
    mbr[446] = 0;  // a GPT has no active mark to keep
    disk().setSector(0, mbr);
    for (u64 lba = 40; lba < 63; ++lba) disk().setSector(lba, std::vector<u8>(512, u8{0x5A}));
    bench_.reopen();
  }
  MemoryDisk& disk() { return bench_.disk(); }
  bool hasSameTrack(MemoryDisk& before) {
    for (u64 lba = 0; lba < 63; ++lba)
      if (disk().sector(lba) != before.sector(lba)) return false;
    return true;
  }
  Failure restore() { return restoreFirstTrack(bench_.reopen(), path_, BootCode::standard); }

  TempFolder folder_;
  std::string path_ = folder_.file("SAVEMBR0.UND");
  TableBench bench_;
};

TEST_F(FirstTrackTest, ComesBackByteForByteFromEveryScheme) {
  for (const Scheme scheme : {Scheme::gpt, Scheme::embr}) {
    MemoryDisk before = disk().copy();
    ASSERT_EQ(saveFirstTrack(bench_.drive(), path_), Error::none);
    const Failure changed = scheme == Scheme::gpt ? convertToGpt(bench_.drive(), false)
                                                  : convertToEmbr(bench_.drive(), false);
    ASSERT_EQ(changed, Error::none);
    ASSERT_EQ(bench_.reopen().scheme(), scheme);
    ASSERT_FALSE(hasSameTrack(before));
    ASSERT_EQ(convertToMbr(bench_.drive(), false), Error::none);
    ASSERT_EQ(restore(), Error::none);
    EXPECT_EQ(bench_.reopen().scheme(), Scheme::mbr);
    EXPECT_TRUE(hasSameTrack(before));
  }
}

// A track of few sectors ends before what a GPT is written over.
TEST_F(FirstTrackTest, HoldsWhatAConversionOverwritesWhateverTheGeometry) {
  DriveOpenOptions options;
  options.geometryOverride.sectorsPerTrack = 17;
  for (const u64 lba : {20U, 33U}) disk().setSector(lba, std::vector<u8>(512, u8{0x33}));
  MemoryDisk before = disk().copy();
  ASSERT_EQ(saveFirstTrack(bench_.reopen(options), path_), Error::none);
  ASSERT_EQ(convertToGpt(bench_.drive(), false, TrackContent::overwrite), Error::none);
  ASSERT_EQ(convertToMbr(bench_.reopen(options), false), Error::none);
  ASSERT_EQ(restoreFirstTrack(bench_.reopen(options), path_, BootCode::standard), Error::none);
  for (u64 lba = 1; lba < 63; ++lba) EXPECT_EQ(disk().sector(lba), before.sector(lba)) << lba;
}

TEST_F(FirstTrackTest, AnOlderCopyKeepsItsContentUnderAnotherName) {
  ASSERT_EQ(saveFirstTrack(bench_.drive(), path_), Error::none);
  disk().setSector(50, std::vector<u8>(512, u8{0x77}));
  ASSERT_EQ(saveFirstTrack(bench_.drive(), path_), Error::none);
  ASSERT_EQ(saveFirstTrack(bench_.drive(), path_), Error::none);
  std::size_t files = 0;
  std::size_t older = 0;
  for (const auto& file : std::filesystem::directory_iterator(folder_.path())) {
    ++files;
    std::string text;
    ASSERT_EQ(loadTextFile(file.path().string(), text), Error::none);
    older += text.at(50 * 512) == 0x5A ? 1 : 0;
  }
  EXPECT_EQ(files, 3U);
  EXPECT_EQ(older, 1U);
  EXPECT_EQ(saveFirstTrack(bench_.drive(), folder_.file("none/x")), Error::cannotCreate);
}

TEST_F(FirstTrackTest, AFileOfAnotherDiskOrNoneRestoresNothingButEndsTheEmbr) {
  ASSERT_EQ(saveFirstTrack(bench_.drive(), path_), Error::none);
  std::vector<u8> mbr = disk().sector(0);
  mbr[440] ^= 0xFF;
  mbr[0] = 0x11;
  disk().setSector(0, mbr);
  MemoryDisk before = disk().copy();
  EXPECT_EQ(restore(), Error::none);
  EXPECT_TRUE(disk().sameContent(before));

  std::filesystem::remove(path_);
  std::vector<u8> header(512);
  std::ranges::copy(std::string_view("EMBR\x02\x03\x01"), header.begin());
  disk().setSector(1, header);
  std::vector<u8> loader(512, u8{0x33});
  loader[0] = 0x55;
  loader[1] = 0xAA;
  disk().setSector(2, loader);
  mbr = disk().sector(0);
  std::ranges::copy(std::string_view("EMBRI"), mbr.begin() + 11);
  disk().setSector(0, mbr);
  EXPECT_EQ(restore(), Error::none);
  EXPECT_EQ(disk().sector(1)[0], 0);
  EXPECT_EQ(disk().sector(2)[49], 0);
  EXPECT_EQ(disk().sector(2)[50], 0x33);
  mbr = disk().sector(0);
  EXPECT_TRUE(
      std::ranges::equal(bootCodeBytes(BootCode::standard), std::span(mbr).first(kBootCodeBytes)));
  EXPECT_EQ(rowsOf(bench_.reopen()), readTable(disk()).rows);
}

}  // namespace
}  // namespace tallowin
