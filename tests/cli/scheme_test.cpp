// GPT and EMBR disks listed and changed by tallowinctl, judged by other programs.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "cli/ctl.h"
#include "ptable/convert.h"
#include "support/disk_file.h"
#include "support/fake_host.h"
#include "support/loop_device.h"

namespace tallowin {
namespace {

std::string withoutBraces(const std::string& guid) { return guid.substr(1, guid.size() - 2); }

std::vector<GptRow> gptRowsOf(const rapidjson::Document& listing) {
  std::vector<GptRow> rows;
  for (const auto& row : listing["rows"].GetArray()) {
    if (std::string(row["kind"].GetString()) == "free") continue;
    rows.push_back({row["number"].GetUint(), row["start"].GetUint64(), row["sectors"].GetUint64(),
                    withoutBraces(row["type_guid"].GetString()),
                    withoutBraces(row["unique_guid"].GetString()), row["name"].GetString(),
                    row["attributes"].GetUint64()});
  }
  std::ranges::sort(rows, {}, &GptRow::number);
  return rows;
}

// The entry as sfdisk sees it; all zero when there is none.
GptRow gptRow(const std::string& path, u32 number) {
  for (const GptRow& row : readGpt(path))
    if (row.number == number) return row;
  return {};
}

struct GptCase {
  const char* name;
  const char* script;  // makes the table on "$1"
  const char* health = "sound";
  unsigned sectorSize = 512;
};

std::ostream& operator<<(std::ostream& out, const GptCase& row) { return out << row.name; }

constexpr const char* kZeroPrimary = "dd if=/dev/zero of=$1 bs=512 seek=1 count=1 conv=notrunc";
constexpr const char* kThree =
    "sgdisk -n 1:2048:+8M -c 1:first -n 2:0:+8M -t 2:ef00 -n 3:0:+4M -t 3:8200 $1";

const GptCase kCases[] = {
    {"Empty", "sgdisk -o $1"},
    {"Three", kThree},
    {"NumbersWithGaps", "sgdisk -n 3:2048:+4M -n 1:40960:+4M -n 128:61440:+1M $1"},
    {"OneSector", "sgdisk -a 1 -n 1:34:34 -n 2:64:65 $1"},
    {"WholeArea", "sgdisk -a 1 -n 1:34:131038 $1"},
    {"NamesBeyondAscii", "sgdisk -n 1:0:+4M -c 1:'Zażółć gęślą' -n 2:0:+4M -c 2:'Данные 😀' $1"},
    {"LongestName", "sgdisk -n 1:0:+4M -c 1:abcdefghijklmnopqrstuvwxyz0123456789 $1"},
    {"Attributes",
     "sgdisk -n 1:0:+4M -A 1:set:0 -A 1:set:2 -A 1:set:63 -n 2:0:+4M -A 2:set:62 -A 2:set:48 $1"},
    {"UnknownType", "sgdisk -n 1:0:+4M -t 1:12345678-9ABC-DEF0-1234-56789ABCDEF0 $1"},
    {"ManyEntries",
     "set --; for i in $(seq 128); do set -- \"$@\" -n $i:0:+256K; done; sgdisk -a 8 \"$@\" $disk"},
    {"FewEntries", "sgdisk -S 32 -n 1:0:+4M $1"},
    {"Hybrid", "sgdisk -n 1:2048:+8M -n 2:0:+8M -h 1:2 $1"},
    {"BySfdisk",
     "printf 'label: gpt\\nsize=4M,type=U,name=esp\\nsize=8M,type=L,attrs=RequiredPartition\\n' | "
     "sfdisk -q $1"},
    {"ByParted",
     "parted -s $1 mklabel gpt mkpart one fat32 1MiB 9MiB mkpart two ext4 10MiB 20MiB set 1 esp "
     "on"},
    {"ByPartedUnaligned", "parted -s -a none $1 mklabel gpt unit s mkpart x ext4 63 9999"},
    {"DamagedBackup",
     "sgdisk -n 1:2048:+8M $1; dd if=/dev/zero of=$1 bs=512 seek=131071 count=1 conv=notrunc",
     "missing-backup"},
    {"GrownDisk", "sgdisk -n 1:2048:+8M $1; truncate -s 96M $1", "misplaced-backup"},
    {"ShortenedDisk", "sgdisk -n 1:2048:+8M $1; truncate -s 48M $1", "shortened-disk"},
    {"MovedArray", "sgdisk -j 64 -n 1:2048:+8M $1"},
    {"DamagedPrimary",
     "sgdisk -n 1:2048:+8M $1; dd if=/dev/zero of=$1 bs=512 seek=1 count=1 conv=notrunc",
     "damaged-primary"},
    {"DamagedPrimaryEntries",
     "sgdisk -n 1:2048:+8M $1; dd if=/dev/urandom of=$1 bs=512 seek=2 count=1 conv=notrunc",
     "damaged-primary"},
    {"LargeSectors", "sgdisk -n 1:256:+8M -c 1:'Größe' -n 2:0:+8M $1", "sound", 4096},
};

class GptListTest : public testing::TestWithParam<GptCase> {};

TEST_P(GptListTest, AgreesWithTheOtherProgramAndIsRepaired) {
  const GptCase& row = GetParam();
  const TempFolder folder;
  const std::string image = folder.sparse("disk.img", 64 * kMiB);
  std::optional<LoopDevice> loop;
  if (row.sectorSize != 512) {
    TALLOWIN_NEEDS_LOOP_DEVICES();
    loop.emplace(image, row.sectorSize);
  }
  const std::string path = loop ? loop->path() : image;
  const ProgramResult made =
      runProgram({"sh", "-c", std::string("set -e; disk=$1; ") + row.script, "sh", path});
  ASSERT_EQ(made.status, 0) << made.output;

  Ctl ctl(loop ? Ctl::Devices::shown : Ctl::Devices::hidden);
  const std::string before = fileHash(path);
  const Ctl::Answer listing = ctl.json({"list", path});
  ASSERT_EQ(listing.status, 0);
  EXPECT_STREQ(listing.json["scheme"].GetString(), "GPT");
  EXPECT_STREQ(listing.json["gpt_health"].GetString(), row.health);
  // The other program falls back to the protective MBR where the disk ends too early.
  if (row.health != std::string_view("shortened-disk")) {
    EXPECT_EQ(gptRowsOf(listing.json), readGpt(path));
  }
  const bool isSound = std::string(row.health) == "sound";
  EXPECT_EQ(ctl.run({"list", path}).output.find("table repair") == std::string::npos, isSound);
  EXPECT_EQ(ctl.run({"table", "repair", path, "--rehearse"}).status, 0);
  EXPECT_EQ(ctl.run({"table", "repair", path}).status, isSound ? 0 : 1) << "asks";
  EXPECT_EQ(fileHash(path), before);

  const Ctl::Answer repaired = ctl.json({"table", "repair", path, "--yes"});
  ASSERT_EQ(repaired.status, 0);
  EXPECT_STREQ(repaired.json["health_before"].GetString(), row.health);
  EXPECT_STREQ(repaired.json["gpt_health"].GetString(), "sound");
  EXPECT_EQ(fileHash(path) == before, isSound);
  EXPECT_EQ(gptRowsOf(ctl.json({"list", path}).json), gptRowsOf(listing.json));
  EXPECT_EQ(gptRowsOf(listing.json), readGpt(path));
  if (isSound) return;  // what others made of it is theirs
  EXPECT_EQ(gptProblems(path), "");
}

INSTANTIATE_TEST_SUITE_P(Tables, GptListTest, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

class SchemeTest : public testing::Test {
 protected:
  SchemeTest() : path_(folder_.sparse("disk.img", 64 * kMiB)) {}

  void makeGpt() { EXPECT_EQ(runProgram({"sh", "-c", kThree, "sh", path_}).status, 0); }
  // One primary, and an extended partition with two volumes.
  void makeEmbr() {
    EXPECT_EQ(makeTable(path_,
                        "label: dos\n1:start=2048,size=20480,type=83\n"
                        "2:start=40960,size=40960,type=5\n5:start=43008,size=2048,type=83\n"
                        "6:start=49152,size=2048,type=b\n"),
              "");
    const auto disk = std::make_shared<MemoryDisk>(loadDisk(path_));
    FakeHost host;
    std::unique_ptr<Drive> drive;
    ASSERT_EQ(Drive::open(disk, host, {}, drive), Error::none);
    ASSERT_EQ(convertToEmbr(*drive, false), Error::none);
    storeDisk(*disk, path_);
  }
  std::vector<std::string> onDisk(const std::string& command,
                                  std::vector<std::string> options) const {
    options.insert(options.begin(), {command, path_});
    return options;
  }
  ProgramResult run(const std::string& command, std::vector<std::string> options) {
    return ctl_.run(onDisk(command, std::move(options)));
  }
  void expectDone(const std::string& command, std::vector<std::string> options) {
    options.push_back("--yes");
    ctl_.expectDone(onDisk(command, std::move(options)));
  }
  void expectRefused(std::vector<std::string> options, const std::string& named) {
    const std::string before = fileHash(path_);
    options.push_back("--yes");
    const ProgramResult result = run("set", options);
    EXPECT_EQ(result.status, 1) << result.output;
    EXPECT_EQ(result.output.find("tallowinctl set: " + named), 0u) << result.output;
    EXPECT_EQ(fileHash(path_), before);
  }
  void expectSoundGpt() {
    EXPECT_EQ(gptProblems(path_), "");
    EXPECT_EQ(gptRowsOf(ctl_.json({"list", path_}).json), readGpt(path_));
  }
  // The member of the row with this number, as text; "" when there is none.
  std::string member(u32 number, const char* key) {
    const Ctl::Answer listing = ctl_.json({"list", path_});
    for (const auto& row : listing.json["rows"].GetArray()) {
      if (std::string(row["kind"].GetString()) == "free" || row["number"].GetUint() != number)
        continue;
      const auto& value = row[key];
      if (value.IsString()) return value.GetString();
      if (value.IsBool()) return value.GetBool() ? "true" : "false";
      return std::to_string(value.GetUint64());
    }
    return "";
  }

  TempFolder folder_;
  std::string path_;
  Ctl ctl_;
};

TEST_F(SchemeTest, GptIsCreatedDeletedAndSet) {
  makeGpt();
  expectDone("create", {"--type", "efi", "--size", "8", "--name", "ESP"});
  expectDone("create", {"--type", "linux", "--size", "4"});
  expectSoundGpt();
  EXPECT_EQ(gptRow(path_, 4).type, "C12A7328-F81F-11D2-BA4B-00A0C93EC93B");
  EXPECT_EQ(gptRow(path_, 4).name, "ESP");
  EXPECT_EQ(gptRow(path_, 5).type, "0FC63DAF-8483-4772-8E79-3D69D8477DE4");
  expectDone("delete", {"--part", "2"});
  expectSoundGpt();
  EXPECT_EQ(gptRow(path_, 2), GptRow{});

  const GptRow old = gptRow(path_, 1);
  expectDone("set", {"--part", "1", "--name", "Größe 😀", "--type-guid", "linux data", "--flag",
                     "required=1", "--flag", "48=1", "--hide"});
  expectSoundGpt();
  GptRow wanted = old;
  wanted.name = "Größe 😀";
  wanted.type = "0FC63DAF-8483-4772-8E79-3D69D8477DE4";
  wanted.attributes = 1 | u64{1} << 48 | u64{1} << 62;
  EXPECT_EQ(gptRow(path_, 1), wanted);
  EXPECT_EQ(member(1, "hidden"), "true");
  expectDone("set", {"--part", "1", "--unhide", "--flag", "required=0", "--flag", "48=0"});
  EXPECT_EQ(member(1, "attributes"), "0");
  expectDone("set", {"--part", "1", "--type", "efi"});
  EXPECT_EQ(gptRow(path_, 1).type, "C12A7328-F81F-11D2-BA4B-00A0C93EC93B");
  expectSoundGpt();

  expectRefused({"--part", "1", "--type", "ntfs"}, "--type: ");
  expectRefused({"--part", "1", "--name", "x", "--active"}, "--active");
  expectRefused({"--part", "1", "--flag", "multi-os=1"}, "--flag: ");
  expectRefused({"--part", "1", "--flag", "64=1"}, "--flag: ");
  expectRefused({"--part", "1", "--name", std::string(37, 'x')}, "--name: ");
}

// What a partition of a GPT is for stands nowhere but in its content.
TEST_F(SchemeTest, PartitionsOfAGptAreFormatted) {
  const std::string path = folder_.sparse("format.img", 300 * kMiB);
  ASSERT_EQ(makeTable(path, "label: gpt\n1:size=64M\n"), "");
  const auto format = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"format", path, "--yes", "--json"});
    return ctl_.json(words);
  };
  const auto kindOf = [](const Ctl::Answer& answer) {
    return answer.status == 0 ? std::string(answer.json["file_system"]["kind"].GetString())
                              : std::string(answer.json["error"]["message"].GetString());
  };
  EXPECT_NE(kindOf(format({"--part", "1"})).find("--fs"), std::string::npos);
  EXPECT_EQ(kindOf(format({"--part", "1", "--fs", "fat16"})), "FAT16");
  EXPECT_EQ(gptRow(path, 1).type, "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7") << "it was Linux data";
  EXPECT_EQ(kindOf(format({"--part", "1"})), "FAT16");
  EXPECT_EQ(kindOf(format({"--part", "1", "--fs", "fat32"})), "FAT32");
  EXPECT_EQ(ctl_.run({"create", path, "--type", "fat32", "--size", "100", "--name", "DATA",
                      "--format", "--yes"})
                .status,
            0);
  for (const u64 start : {gptRow(path, 1).start, gptRow(path, 2).start})
    EXPECT_EQ(runProgram({"mdir", "-i", path + "@@" + std::to_string(start * 512)}).status, 0);
  EXPECT_EQ(kindOf(ctl_.json({"info", path, "--part", "2"})), "FAT32");
  EXPECT_EQ(gptProblems(path), "");
}

TEST_F(SchemeTest, MbrAndItsVolumesAreSet) {
  ASSERT_EQ(makeTable(path_,
                      "label: dos\n1:start=2048,size=20480,type=7,bootable\n"
                      "2:start=40960,size=40960,type=5\n5:start=43008,size=2048,type=83\n"
                      "3:start=22528,size=2048,type=83\n"),
            "");
  expectDone("set", {"--part", "3", "--type", "fat32", "--active", "--hide"});
  EXPECT_EQ(sfdiskRow(path_, 3).type, 0x1Bu);
  EXPECT_TRUE(sfdiskRow(path_, 3).bootable);
  EXPECT_FALSE(sfdiskRow(path_, 1).bootable);
  expectDone("set", {"--part", "3", "--unhide", "--inactive"});
  EXPECT_EQ(sfdiskRow(path_, 3).type, 0x0Bu);
  EXPECT_FALSE(sfdiskRow(path_, 3).bootable);
  expectDone("set", {"--part", "5", "--name", "LETTERS", "--hide"});
  EXPECT_EQ(sfdiskRow(path_, 5).type, 0xEDu);
  EXPECT_EQ(member(5, "type"), "131") << "the real type is kept";
  EXPECT_EQ(member(5, "name"), "LETTERS");
  expectDone("set", {"--part", "5", "--unhide"});
  EXPECT_EQ(sfdiskRow(path_, 5).type, 0x83u);
  EXPECT_EQ(readTable(path_).problems, "");

  expectRefused({"--part", "1", "--name", "x"}, "--name: ");
  expectRefused({"--part", "1", "--type-guid", "Linux Data"}, "--type-guid: ");
  expectRefused({"--part", "1", "--flag", "boot=1"}, "--flag: ");
  expectRefused({"--part", "1", "--type", "extended"}, "--type: ");
  expectRefused({"--part", "2", "--type", "ntfs"}, "--type: ");
  expectRefused({"--part", "1", "--type", "0xEE"}, "--type: ");
  expectRefused({"--part", "1", "--type", "linux", "--hide"}, "--hide: ");
  expectRefused({"--part", "5", "--active"}, "--active");
  expectRefused({"--part", "5", "--name", "ninebytes"}, "--name: ");
  expectRefused({"--part", "9", "--active"}, "'");
  const std::string before = fileHash(path_);
  EXPECT_EQ(run("set", {"--part", "1", "--type", "7"}).status, 1) << "asks";
  EXPECT_EQ(run("set", {"--part", "1", "--type", "7", "--rehearse"}).status, 0);
  EXPECT_EQ(run("set", {"--part", "1", "--hide", "--unhide"}).status, 2);
  EXPECT_EQ(run("set", {"--part", "1", "--flag", "boot"}).status, 2);
  EXPECT_EQ(run("table", {"repair"}).status, 2) << "the words are in another order";
  EXPECT_EQ(ctl_.run({"table", "repair", path_, "--yes"}).status, 1) << "no GPT";
  EXPECT_EQ(fileHash(path_), before);
}

TEST_F(SchemeTest, EmbrIsListedByIdsAndChanged) {
  makeEmbr();
  const Ctl::Answer listing = ctl_.json({"list", path_});
  EXPECT_STREQ(listing.json["scheme"].GetString(), "EMBR");
  EXPECT_TRUE(listing.json["gpt_health"].IsNull());
  std::vector<u32> numbers;
  for (const auto& row : listing.json["rows"].GetArray()) {
    if (std::string(row["kind"].GetString()) == "free") continue;
    EXPECT_EQ(row["number"].GetUint(), row["id"].GetUint());
    numbers.push_back(row["number"].GetUint());
  }
  ASSERT_EQ(numbers.size(), 4u);

  const std::string first = std::to_string(numbers[0]);
  expectDone("set", {"--part", first, "--name", "FIRST", "--type", "7", "--active", "--flag",
                     "multi-os=1", "--flag", "bootable=0"});
  EXPECT_EQ(member(numbers[0], "name"), "FIRST");
  EXPECT_EQ(member(numbers[0], "attributes"), "4096");
  EXPECT_EQ(sfdiskRow(path_, 1).type, 7u);
  EXPECT_TRUE(sfdiskRow(path_, 1).bootable);
  expectDone("set", {"--part", std::to_string(numbers[2]), "--name", "VOLUME"});
  EXPECT_EQ(member(numbers[2], "name"), "VOLUME");
  expectRefused({"--part", first, "--flag", "required=1"}, "--flag: ");
  expectRefused({"--part", first, "--type-guid", "Linux Data"}, "--type-guid: ");
  expectRefused({"--part", first, "--name", std::string(16, 'x')}, "--name: ");

  // Five primaries: more than the MBR has slots.
  for (int i = 0; i < 4; ++i) expectDone("create", {"--type", "linux", "--size", "2"});
  EXPECT_EQ(rowsOf(ctl_.json({"list", path_}).json).size(), 8u);
  EXPECT_EQ(readTable(path_).problems, "");
  expectDone("delete", {"--part", first});
  EXPECT_EQ(member(numbers[0], "start"), "");
  EXPECT_EQ(sfdiskRow(path_, 1).size, 0u);
}

TEST_F(SchemeTest, BothCopiesOfAGptAreLost) {
  makeGpt();
  ASSERT_EQ(runProgram({"sh", "-c",
                        std::string(kZeroPrimary) + "; dd if=/dev/zero of=$1 bs=512 "
                                                    "seek=131071 count=1 conv=notrunc",
                        "sh", path_})
                .status,
            0);
  const std::string before = fileHash(path_);
  EXPECT_STREQ(ctl_.json({"list", path_}).json["gpt_health"].GetString(), "unreadable");
  EXPECT_EQ(ctl_.run({"table", "repair", path_, "--yes"}).status, 1);
  EXPECT_EQ(run("set", {"--part", "1", "--type", "7", "--yes"}).status, 1);
  EXPECT_EQ(run("create", {"--type", "linux", "--size", "5"}).status, 1);
  EXPECT_EQ(run("delete", {"--part", "1", "--yes"}).status, 1);
  EXPECT_EQ(fileHash(path_), before);
}

TEST_F(SchemeTest, AGptOfTooManyEntriesIsCalledThat) {
  ASSERT_EQ(makeTable(path_, "label: gpt\ntable-length: 256\nstart=2048,size=100\n"), "");
  const std::string before = fileHash(path_);
  const std::vector<std::vector<std::string>> changes = {
      {"create", path_, "--type", "linux", "--size", "5", "--yes"},
      {"convert", path_, "--to", "mbr", "--yes"}};
  for (const auto& change : changes) {
    const ProgramResult refused = ctl_.run(change);
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.output.find("has more entries than fit here"), std::string::npos)
        << refused.output;
  }
  EXPECT_EQ(fileHash(path_), before);
}

// The table, and what each partition holds: the boot sector with what lies behind it.
TEST_F(SchemeTest, EachPartOfAGptIsReadOnce) {
  if (!hasProgram("strace")) GTEST_SKIP() << "strace is not installed";
  makeGpt();
  const std::string trace = folder_.file("trace");
  ASSERT_EQ(
      runProgram({"strace", "-o", trace, "-P", path_, "-e", "trace=pread64", "-E",
                  "ASAN_OPTIONS=detect_leaks=0", TALLOWINCTL, "list", path_, "--json", "--nd"})
          .status,
      0);
  std::istringstream calls(folder_.read("trace"));
  std::map<std::string, int> reads;
  for (std::string line; std::getline(calls, line);)
    if (line.find(", 0) = ") == std::string::npos)  // an image's form and sector size stand there
      ++reads[line.substr(line.rfind('"') + 1)];
  std::string seen;
  for (const auto& [place, count] : reads) {
    // The last sector is looked at for the footer of an image too.
    const bool isLast = place.find(", 67108352)") != std::string::npos;
    EXPECT_LE(count, isLast ? 2 : 1) << place;
    seen += place + "\n";
  }
  EXPECT_LE(reads.size(), 8u + 3 * 2) << seen;
}

}  // namespace
}  // namespace tallowin
