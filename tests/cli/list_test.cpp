// What other programs put on a disk is listed as they list it.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "cli/ctl.h"

namespace tallowin {
namespace {

struct TableCase {
  const char* name;
  const char* size;  // for truncate
  // A shell script that makes the table on "$1"; sf is sfdisk with a script on its input.
  const char* script;
};

std::ostream& operator<<(std::ostream& out, const TableCase& row) { return out << row.name; }

constexpr const char* kPrelude = R"(set -e
sf() { sfdisk -q --no-reread --no-tell-kernel "$@" >/dev/null 2>&1; }
pt() { parted -s "$@" >/dev/null 2>&1; }
volumes() { # how many, sectors of each
  echo "label: dos"; echo "start=2048,size=4096,type=83"; echo "start=8192,type=5"
  i=0; while [ $i -lt $1 ]; do echo "v$((i+5)): size=$2,type=83"; i=$((i+1)); done; }
)";

const TableCase kCases[] = {
    {"NoSignature", "10M", ":"},
    {"NoEntries", "10M", "echo 'label: dos' | sf $1"},
    {"OnePrimary", "64M", "printf 'label: dos\nstart=2048,type=c\n' | sf $1"},
    {"OneSector", "10M", "printf 'label: dos\nstart=63,size=1,type=1\n' | sf $1"},
    {"ToTheLastSector", "10M",
     "printf 'label: dos\nstart=2048,size=18432,type=83,bootable\n' | sf $1"},
    {"FourPrimaries", "100M",
     "printf 'label: dos\nsize=10M,type=6\nsize=10M,type=7\nsize=10M,type=82\ntype=83\n' | sf $1"},
    {"GapsBetween", "100M",
     "printf 'label: dos\nstart=4096,size=4096,type=b\nstart=40960,size=2048,type=e\n"
     "start=100000,size=77,type=83\n' | sf $1"},
    {"SlotsOutOfOrder", "100M",
     "printf 'label: dos\nstart=100000,size=2048,type=83\nstart=2048,size=2048,type=7\n"
     "start=50000,size=2048,type=b\n' | sf $1"},
    {"EmptySlotFirst", "100M",
     "printf 'label: dos\nstart=2048,size=2048,type=83\nstart=8192,size=2048,type=7\n' | sf $1; "
     "sf --delete $1 1"},
    {"SecondIsActive", "100M",
     "printf 'label: dos\nsize=10M,type=c\nsize=10M,type=7,bootable\n' | sf $1"},
    {"HiddenTypes", "100M",
     "printf 'label: dos\nsize=4M,type=11\nsize=4M,type=16\nsize=4M,type=1b\nsize=4M,type=17\n' | "
     "sf $1"},
    {"MoreHiddenTypes", "100M",
     "printf 'label: dos\nsize=4M,type=14\nsize=4M,type=1c\nsize=4M,type=1e\nsize=4M,type=27\n' | "
     "sf $1"},
    {"UnusualTypes", "100M",
     "printf 'label: dos\nsize=4M,type=8e\nsize=4M,type=fd\nsize=4M,type=a5\nsize=4M,type=ef\n' | "
     "sf $1"},
    {"EmptyExtended", "100M", "printf 'label: dos\nsize=10M,type=83\ntype=5\n' | sf $1"},
    {"OneVolume", "100M", "volumes 1 4096 | sf $1"},
    {"FourVolumes", "100M", "volumes 4 4096 | sf $1"},
    {"FiftySixVolumes", "300M", "volumes 56 4096 | sf $1"},
    {"ExtendedLba", "100M",
     "printf 'label: dos\ntype=f\nv5: size=4M,type=b\nv6: size=4M,type=82\n' | sf $1"},
    {"ExtendedBetweenPrimaries", "100M",
     "printf 'label: dos\nstart=2048,size=2048,type=83\nstart=8192,size=80000,type=5\n"
     "start=100000,size=4096,type=7\nv5: size=4M,type=83\nv6: size=4M,type=6\n' | sf $1"},
    {"VolumesWithGaps", "100M",
     "printf 'label: dos\nstart=2048,type=5\nv5: start=8192,size=2048,type=83\n"
     "v6: start=40960,size=4096,type=b\nv7: start=120000,size=2048,type=7\n' | sf $1"},
    {"VolumesOutOfDiskOrder", "100M",
     "printf 'label: dos\nstart=2048,type=5\nv5: start=40960,size=2048,type=83\n"
     "v6: start=8192,size=4096,type=b\nv7: start=20480,size=4096,type=7\n' | sf $1"},
    {"VolumeDeletedFromTheMiddle", "100M", "volumes 5 8192 | sf $1; sf --delete $1 7"},
    {"FirstVolumeDeleted", "100M", "volumes 3 8192 | sf $1; sf --delete $1 5"},
    {"VolumeAddedInAGap", "100M",
     "volumes 5 8192 | sf $1; sf --delete $1 6; pt -a none $1 mkpart logical ntfs "
     "22000s 24000s"},
    {"HiddenVolumeTypes", "100M",
     "printf 'label: dos\ntype=5\nv5: size=4M,type=16\nv6: size=4M,type=1b\nv7: size=4M,type=17\n' "
     "| sf $1"},
    {"PartedPrimaries", "200M",
     "pt $1 mklabel msdos mkpart primary fat32 1MiB 50MiB mkpart primary ext4 60MiB 100MiB "
     "set 1 boot on"},
    {"PartedVolumes", "200M",
     "pt $1 mklabel msdos mkpart extended 1MiB 190MiB mkpart logical ntfs 2MiB 50MiB "
     "mkpart logical linux-swap 51MiB 80MiB mkpart logical fat16 100MiB 120MiB"},
    {"PartedOnCylinders", "400M",
     "pt -a cylinder $1 mklabel msdos unit cyl mkpart primary fat16 0 10 mkpart extended 11 40 "
     "mkpart logical fat32 12 20"},
    {"PartedUnaligned", "100M",
     "pt -a none $1 mklabel msdos unit s mkpart primary ext4 63 10000 mkpart extended 10001 150000 "
     "mkpart logical ext4 10064 60000 mkpart logical ext4 60101 150000"},
    {"FdiskDefaults", "200M",
     "printf 'o\nn\np\n1\n\n+20M\nn\np\n2\n\n+20M\nt\n2\n7\na\n1\nw\n' | fdisk $1 >/dev/null 2>&1"},
    {"FdiskWithVolumes", "200M",
     "printf 'o\nn\ne\n1\n\n\nn\n\n+20M\nn\n\n+30M\nn\n\n+5M\nw\n' | fdisk $1 >/dev/null 2>&1"},
    {"FdiskOldStyle", "200M",
     "printf 'o\nn\np\n1\n\n+20M\nn\ne\n2\n\n\nn\nl\n\n+20M\nw\n' | fdisk -c=dos -u=cylinders $1 "
     ">/dev/null 2>&1"},
    {"ThreeTebibytes", "3T",
     "printf 'label: dos\nstart=2048,size=2000000000,type=7\nstart=2000002048,size=2000000000,"
     "type=83\n' | sf $1"},
    {"ThreeTebibytesExtended", "3T",
     "printf 'label: dos\nstart=2048,size=4294965247,type=f\nv5: size=1T,type=7\n"
     "v6: size=500G,type=83\n' "
     "| sf $1"},
};

class ListTest : public testing::TestWithParam<TableCase> {};

TEST_P(ListTest, AgreesWithTheProgramThatMadeTheTable) {
  const TableCase& row = GetParam();
  const TempFolder folder;
  const std::string path = folder.file("disk.img");
  const ProgramResult made = runProgram(
      {"sh", "-c", std::string("truncate -s ") + row.size + " \"$1\"\n" + kPrelude + row.script,
       "sh", path});
  ASSERT_EQ(made.status, 0) << made.output;
  const std::string before = row.size[1] == 'T' ? "" : fileHash(path);

  Ctl ctl;
  const std::vector<SfdiskRow> theirs = readTable(path).rows;
  const std::string name = row.name;
  EXPECT_EQ(theirs.empty(), name == "NoSignature" || name == "NoEntries");
  EXPECT_EQ(rowsByCtl(ctl, path), theirs);
  if (!before.empty()) {
    EXPECT_EQ(fileHash(path), before) << "listing wrote";
  }
}

INSTANTIATE_TEST_SUITE_P(Tables, ListTest, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

// As many as the program that makes them takes.
constexpr std::size_t kManyVolumes = 60;

void makeManyVolumes(const std::string& path) {
  std::vector<std::string> command = {"parted", "-s",       path,   "mklabel", "msdos",
                                      "mkpart", "extended", "1MiB", "399MiB"};
  for (std::size_t i = 0; i < kManyVolumes; ++i)
    for (const std::string& word :
         {std::string("mkpart"), std::string("logical"), std::string("ext4"),
          std::to_string(2 + i * 6) + "MiB", std::to_string(6 + i * 6) + "MiB"})
      command.push_back(word);
  const ProgramResult made = runProgram(command);
  ASSERT_EQ(made.status, 0) << made.output;
}

// "5:4096s:12287s:8192s::..." for each.
std::vector<SfdiskRow> rowsByParted(const std::string& path) {
  std::vector<SfdiskRow> rows;
  std::istringstream lines(runProgram({"parted", "-m", "-s", path, "unit", "s", "print"}).output);
  for (std::string line; std::getline(lines, line);) {
    SfdiskRow row;
    u64 end = 0;
    char separator = 0;
    std::istringstream fields(line);
    if (fields >> row.number >> separator >> row.start >> separator >> separator >> end >>
            separator >> separator >> row.size &&
        end == row.start + row.size - 1)
      rows.push_back(row);
  }
  return rows;
}

TEST(List, SixtyVolumes) {
  const TempFolder folder;
  const std::string path = folder.sparse("disk.img", 400 * kMiB);
  ASSERT_NO_FATAL_FAILURE(makeManyVolumes(path));
  Ctl ctl;
  std::vector<SfdiskRow> ours = rowsByCtl(ctl, path);
  for (SfdiskRow& row : ours) row.type = 0;
  const std::vector<SfdiskRow> theirs = rowsByParted(path);
  EXPECT_EQ(theirs.size(), kManyVolumes + 1);
  EXPECT_EQ(ours, theirs);
}

TEST(List, EachEbrIsReadOnce) {
  if (!hasProgram("strace")) GTEST_SKIP() << "strace is not installed";
  const TempFolder folder;
  const std::string path = folder.sparse("disk.img", 400 * kMiB);
  ASSERT_NO_FATAL_FAILURE(makeManyVolumes(path));
  const std::string trace = folder.file("trace");
  ASSERT_EQ(runProgram({"strace", "-o", trace, "-e", "trace=pread64", "-E",
                        "ASAN_OPTIONS=detect_leaks=0", TALLOWINCTL, "list", path, "--json", "--nd"})
                .status,
            0);
  // An EBR is read together with the sector behind it.
  std::istringstream calls(folder.read("trace"));
  std::multiset<std::string> ebrs;
  for (std::string line; std::getline(calls, line);)
    if (const std::size_t pair = line.find(", 1024, "); pair != std::string::npos)
      ebrs.insert(line.substr(pair));
  EXPECT_EQ(ebrs.size(), kManyVolumes);
  EXPECT_EQ(std::set<std::string>(ebrs.begin(), ebrs.end()).size(), kManyVolumes) << "each once";
}

TEST(List, HasTheKeysThatScriptsRelyOn) {
  const TempFolder folder;
  const std::string path = folder.sparse("disk.img", 100 * kMiB);
  ASSERT_EQ(runProgram({"sfdisk", "-q", path}, "label: dos\nsize=10M,type=5\n").status, 0);
  Ctl ctl;
  const Ctl::Answer answer = ctl.json({"list", path});
  for (const char* key : {"ok", "path", "model", "scheme", "sector_size", "sectors", "geometry",
                          "disk_id", "gpt_health", "rows"})
    EXPECT_TRUE(answer.json.HasMember(key)) << key;
  ASSERT_EQ(answer.json["rows"].Size(), 3u)
      << "the extended partition, free space in it and behind";
  for (const auto& row : answer.json["rows"].GetArray()) {
    EXPECT_EQ(row.MemberCount(), 16u);
    for (const char* key :
         {"number", "kind", "id", "start", "end", "sectors", "type", "type_name", "type_guid",
          "unique_guid", "attributes", "name", "fs", "active", "hidden", "error"})
      EXPECT_TRUE(row.HasMember(key)) << key;
  }
}

}  // namespace
}  // namespace tallowin
