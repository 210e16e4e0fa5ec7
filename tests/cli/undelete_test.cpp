// Partitions whose table was lost come back where they were, judged by the programs that made them.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "base/text.h"
#include "cli/ctl.h"
#include "cli/lost_disk.h"

namespace tallowin {
namespace {

// Start, size and family of type; FAT-12 comes back as FAT-16, and the variants for large disks
// by the new place in the table.
using Extent = std::tuple<u64, u64, u32>;
std::vector<Extent> extentsIn(const std::string& path) {
  const std::map<u32, u32> plain = {{0x01, 0x06}, {0x0E, 0x06}, {0x0C, 0x0B}, {0x0F, 0x05}};
  std::vector<Extent> extents;
  const SfdiskTable table = readTable(path);
  EXPECT_EQ(table.problems, "");
  for (const SfdiskRow& row : table.rows)
    extents.emplace_back(row.start, row.size,
                         plain.contains(row.type) ? plain.at(row.type) : row.type);
  std::ranges::sort(extents);
  return extents;
}
std::vector<Extent> entriesIn(const std::string& path, std::vector<std::string>& types) {
  std::vector<Extent> extents;
  for (const GptRow& row : readGpt(path)) {
    extents.emplace_back(row.start, row.size, 0);
    types.push_back(row.type);
  }
  return extents;
}

class UndeleteTest : public testing::Test {
 protected:
  // What another program says of each volume in the list.
  void expectKinds(const std::string& path, const rapidjson::Document& listing) {
    const std::map<std::string, std::string> words = {
        {"FAT12", "vfat"},        {"FAT16", "vfat"},     {"FAT32", "vfat"}, {"NTFS", "ntfs"},
        {"exFAT", "exfat"},       {"ext2", "ext2"},      {"ext3", "ext3"},  {"ext4", "ext4"},
        {"XFS", "xfs"},           {"Btrfs", "btrfs"},    {"F2FS", "f2fs"},  {"Swap", "swap"},
        {"ReiserFS", "reiserfs"}, {"LVM", "LVM2_member"}};
    for (const auto& found : listing["found"].GetArray()) {
      const std::string kind = found["kind"].GetString();
      EXPECT_STREQ(found["confidence"].GetString(), "sure") << kind;
      if (kind == "Extended") continue;
      const auto bytes = [&](const char* key) {
        return std::to_string(found[key].GetUint64() * 512);
      };
      const ProgramResult blkid = runProgram({"blkid", "-p", "-O", bytes("start"), "-S",
                                              bytes("sectors"), "-o", "value", "-s", "TYPE", path});
      // It also sees what the volume was before.
      constexpr int kAmbivalent = 8;
      if (blkid.status == kAmbivalent) continue;
      EXPECT_EQ(trim(blkid.output), words.at(kind)) << found["start"].GetUint64();
    }
  }

  TempFolder folder_;
  Ctl ctl_;
};

TEST_F(UndeleteTest, AllPartitionsOfALostMbrComeBackAndNothingElse) {
  // The chain of the last one has only kinds that nothing but their own headers tell.
  for (const unsigned seed : {1U, 2U, 7U}) {
    SCOPED_TRACE(seed);
    const std::string path = makeLostDisk(folder_, LostTable::mbr, seed);
    const std::vector<Extent> before = extentsIn(path);
    ASSERT_EQ(before.size(), 6U);
    loseTable(path, LostTable::mbr);
    const auto lost = std::filesystem::last_write_time(path);
    const Ctl::Answer dry = ctl_.json({"undelete", path, "--dry-run"});
    ASSERT_EQ(dry.status, 0);
    expectKinds(path, dry.json);
    EXPECT_TRUE(std::filesystem::last_write_time(path) == lost) << "a dry run changes nothing";
    ctl_.expectDone({"undelete", path, "--all"});
    EXPECT_EQ(extentsIn(path), before);
    ::unlink(path.c_str());
  }
}

TEST_F(UndeleteTest, AllEntriesOfALostGptComeBackWithTheirTypes) {
  const std::string path = makeLostDisk(folder_, LostTable::gpt, 3);
  std::vector<std::string> typesBefore;
  std::vector<std::string> typesAfter;
  const std::vector<Extent> before = entriesIn(path, typesBefore);
  loseTable(path, LostTable::gpt);
  ctl_.expectDone({"undelete", path, "--all"});
  EXPECT_EQ(entriesIn(path, typesAfter), before);
  EXPECT_EQ(typesAfter, typesBefore);
  EXPECT_EQ(gptProblems(path), "");
}

// An extended partition takes its volumes along when it is deleted.
TEST_F(UndeleteTest, EntriesOfAnEmbrComeBackInTheMbrToo) {
  const std::string path = makeLostDisk(folder_, LostTable::mbr, 4);
  const std::vector<Extent> before = extentsIn(path);
  ctl_.expectDone({"convert", path, "--to", "embr", "--overwrite"});
  for (const SfdiskRow& row : rowsByCtl(ctl_, path))
    if (row.number < 256) ctl_.expectDone({"delete", path, "--part", std::to_string(row.number)});
  ASSERT_TRUE(extentsIn(path).empty());
  ctl_.expectDone({"undelete", path, "--all"});
  EXPECT_EQ(extentsIn(path), before);
  EXPECT_EQ(rowsByCtl(ctl_, path).size(), 6U);
  const ProgramResult none = ctl_.run({"undelete", path, "--all", "--yes"});
  EXPECT_EQ(none.status, 1) << none.output;
  EXPECT_NE(none.output.find("No lost partition was found"), std::string::npos) << none.output;
}

// A disk that was partitioned twice: what each file system stored last says which time was later.
TEST_F(UndeleteTest, OfTwoLayoutsTheLaterOneComesBack) {
  const std::string path = folder_.sparse("disk.img", 128 * kMiB);
  const std::string volume = folder_.sparse("volume.img", 100 * kMiB);
  const std::string inner = folder_.sparse("inner.img", 16 * kMiB);
  ASSERT_EQ(runProgram({"mkntfs", "-q", "-F", "-Q", "-p", "81920", inner}).status, 0);
  const auto put = [&](const std::string& from, u64 start) {
    return runProgram({"dd", "if=" + from, "of=" + path, "seek=" + std::to_string(start),
                       "conv=notrunc,sparse", "status=none"})
        .status;
  };
  const std::vector<std::pair<const char*, Extent>> times = {{"978307200", {81920, 32768, 0x07}},
                                                             {"2114380800", {2048, 204800, 0x83}}};
  for (const auto& [written, expected] : times) {
    SCOPED_TRACE(written);
    ASSERT_EQ(makeTable(path, "label: dos\n"), "");
    ASSERT_EQ(runProgram({"env", std::string("E2FSPROGS_FAKE_TIME=") + written, "mkfs.ext4", "-q",
                          "-F", volume})
                  .status,
              0);
    ASSERT_EQ(put(volume, 2048), 0);
    ASSERT_EQ(put(inner, 81920), 0);
    const Ctl::Answer dry = ctl_.json({"undelete", path, "--dry-run"});
    ASSERT_EQ(dry.json["found"].Size(), 2U) << "nothing is lost";
    ctl_.expectDone({"undelete", path, "--all"});
    EXPECT_EQ(extentsIn(path), std::vector{expected});
  }
}

// An HFS+ whose size its program chooses, and a container that says none.
TEST_F(UndeleteTest, HfsPlusAndLuksComeBackByTheirHeaders) {
  constexpr u64 kSector = 512;
  constexpr u64 kHfsStart = 4096;
  constexpr u64 kLuksStart = 40960;
  folder_.write("content", std::string(3'000'000, 'x'));
  const std::string disc = folder_.file("disc.iso");
  ASSERT_EQ(runProgram({"xorriso", "-as", "mkisofs", "-quiet", "-hfsplus", "-o", disc,
                        folder_.file("content")})
                .status,
            0);
  // It lies behind a gap of the disc.
  const std::string bytes = folder_.read("disc.iso");
  const std::size_t header = bytes.find(std::string("H+\0\4", 4));
  ASSERT_NE(header, std::string::npos);
  folder_.write("hfs.img", bytes.substr(header - 1024));
  const std::string luks = folder_.sparse("luks.img", 20 * kMiB);
  folder_.write("key", "secret");
  ASSERT_EQ(
      runProgram({"cryptsetup", "luksFormat", "-q", "--pbkdf", "pbkdf2", "--pbkdf-force-iterations",
                  "1000", "--key-file", folder_.file("key"), luks})
          .status,
      0);
  const std::string path = folder_.sparse("disk.img", 64 * kMiB);
  ASSERT_EQ(makeTable(path, "label: dos\n"), "");
  for (const auto& [volume, start] :
       {std::pair(folder_.file("hfs.img"), kHfsStart), std::pair(luks, kLuksStart)})
    ASSERT_EQ(runProgram({"dd", "if=" + volume, "of=" + path, "seek=" + std::to_string(start),
                          "conv=notrunc", "status=none"})
                  .status,
              0);
  ctl_.expectDone({"undelete", path, "--all"});
  const std::vector<Extent> extents = extentsIn(path);
  ASSERT_EQ(extents.size(), 2U);
  const auto& [start, size, type] = extents[0];
  EXPECT_EQ(start, kHfsStart);
  EXPECT_EQ(type, 0xAFU);
  const std::string copy = folder_.read("disk.img").substr((start + size) * kSector - 1024, 4);
  EXPECT_EQ(copy, std::string("H+\0\4", 4)) << "a copy of the header lies before the end";
  EXPECT_EQ(extents[1], Extent(kLuksStart, 64 * kMiB / kSector - kLuksStart, 0x83));
}

}  // namespace
}  // namespace tallowin
