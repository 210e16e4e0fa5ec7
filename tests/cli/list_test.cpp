// What `list` says of tables, and how little it reads for that.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "cli/ctl.h"

namespace tallowin {
namespace {

// The places of a file that the command reads, with the number of times.
std::map<std::string, int> readsOfList(const TempFolder& folder, const std::string& path) {
  const std::string trace = folder.file("trace");
  EXPECT_EQ(runProgram({"strace", "-o", trace, "-P", path, "-e", "trace=pread64", "-E",
                        "ASAN_OPTIONS=detect_leaks=0", TALLOWINCTL, "list", path, "--json", "--nd"})
                .status,
            0);
  std::istringstream calls(folder.read("trace"));
  std::map<std::string, int> reads;
  for (std::string line; std::getline(calls, line);)
    // An image's form and sector size stand in the first sector.
    if (line.find('"') != std::string::npos && line.find(", 0) = ") == std::string::npos)
      ++reads[line.substr(line.rfind('"') + 1)];
  return reads;
}

TEST(List, EachPartOfATableIsReadOnce) {
  if (!hasProgram("strace")) GTEST_SKIP() << "strace is not installed";
  std::string volumes = "label: dos\n2048,20480,83\n,,5\n";
  for (int i = 0; i < 56; ++i) volumes += std::to_string(i + 5) + ":size=2048,type=83\n";
  const std::pair<std::string, std::size_t> tables[] = {
      {"label: gpt\nsize=8M\nsize=8M\nsize=4M\n", 8 + 3 * 2},  // the table, and what each holds
      {volumes, 8 + 2 * 58 + 56}};
  for (const auto& [script, most] : tables) {
    const TempFolder folder;
    const std::string path = folder.sparse("disk.img", 512 * kMiB);
    ASSERT_EQ(makeTable(path, script), "");
    const std::map<std::string, int> reads = readsOfList(folder, path);
    for (const auto& [place, count] : reads) {
      // The last sector is looked at for the footer of an image too, and the places where a
      // table of large sectors would put its partitions; boot records of volumes are read once.
      const bool isLast = place.find(", 536870400)") != std::string::npos;
      const bool isProbed = script == volumes && place.find(", 1024, ") == std::string::npos;
      EXPECT_LE(count, isLast || isProbed ? 2 : 1) << place;
    }
    EXPECT_LE(reads.size(), most) << testing::PrintToString(reads);
  }
}

TEST(List, HasTheKeysThatScriptsRelyOn) {
  const TempFolder folder;
  const std::string path = folder.sparse("disk.img", 100 * kMiB);
  ASSERT_EQ(makeTable(path, "label: dos\nsize=10M,type=5\n"), "");
  Ctl ctl;
  const Ctl::Answer answer = ctl.json({"list", path});
  for (const char* key : {"ok", "path", "model", "scheme", "sector_size", "sectors", "geometry",
                          "disk_id", "gpt_health", "rows"})
    EXPECT_TRUE(answer.json.HasMember(key)) << key;
  ASSERT_EQ(answer.json["rows"].Size(), 3u)
      << "the extended partition, free space in it and behind";
  for (const auto& row : answer.json["rows"].GetArray()) {
    EXPECT_EQ(row.MemberCount(), 17u);
    for (const char* key :
         {"number", "kind", "id", "start", "end", "sectors", "type", "type_name", "type_guid",
          "unique_guid", "attributes", "name", "fs", "active", "hidden", "unfinished", "error"})
      EXPECT_TRUE(row.HasMember(key)) << key;
  }
}

TEST(List, ADiscIsNamedByItsLabel) {
  const TempFolder folder;
  const std::string path = folder.file("disc.iso");
  folder.write("a", "text");
  ASSERT_EQ(runProgram({"xorriso", "-as", "mkisofs", "-quiet", "-V", "DISC_NAME", "-o", path,
                        folder.file("a")})
                .status,
            0);
  Ctl ctl;
  const Ctl::Answer answer = ctl.json({"list", path});
  ASSERT_EQ(answer.json["rows"].Size(), 1u);
  EXPECT_STREQ(answer.json["rows"][0]["name"].GetString(), "DISC_NAME");
  if (!hasProgram("strace")) return;
  for (const auto& [place, count] : readsOfList(folder, path)) EXPECT_LE(count, 2) << place;
}

TEST(List, WhatIsInErrorIsMarked) {
  const TempFolder folder;
  const std::string path = folder.sparse("disk.img", 100 * kMiB);
  ASSERT_EQ(makeTable(path, "label: dos\nstart=2048,size=2048\nstart=6144,size=2048\n"), "");
  Ctl ctl;
  EXPECT_EQ(ctl.run({"list", path}).output.find("* Errors Exist *"), std::string::npos);
  ASSERT_EQ(runProgram(
                {"sh", "-c", "printf '\\10\\13' | dd of=$1 bs=1 seek=470 conv=notrunc", "sh", path})
                .status,
            0);
  EXPECT_NE(ctl.run({"list", path}).output.find("* Errors Exist *"), std::string::npos);
  const Ctl::Answer answer = ctl.json({"list", path});
  bool isMarked = false;
  for (const auto& row : answer.json["rows"].GetArray()) isMarked |= !row["error"].IsNull();
  EXPECT_TRUE(isMarked);
}

}  // namespace
}  // namespace tallowin
