// What is particular to the files of a FAT: its two names, its times, and volumes made by others.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

#include "base/text.h"
#include "damaged_volume.h"
#include "fat/fat_file_system.h"
#include "fat/fat_names.h"
#include "fat/fat_repair.h"
#include "fat/fat_requests.h"
#include "fat/fat_time.h"
#include "fs/file_system.h"
#include "fs/tree_walk.h"
#include "support/disk_file.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

const FatCodePage k437(437), k850(850);

std::string textOf(const FatShortName& name) { return {name.begin(), name.end()}; }

TEST(FatNamesTest, ShortNames) {
  struct Case {
    const char16_t* name;
    const char* whole;  // null: it needs a number
    const char* numbered;
    u8 caseFlags;
    bool needsLong;
  };
  for (const auto& [name, whole, numbered, caseFlags, needsLong] :
       std::initializer_list<Case>{{u"readme.txt", "README  TXT", "README~1TXT", 0x18, false},
                                   {u"README.TXT", "README  TXT", "README~1TXT", 0, false},
                                   {u"readme.TXT", "README  TXT", "README~1TXT", 0x08, false},
                                   {u"README.txt", "README  TXT", "README~1TXT", 0x10, false},
                                   {u"ReadMe.txt", "README  TXT", "README~1TXT", 0, true},
                                   {u"1-2.3", "1-2     3  ", "1-2~1   3  ", 0, false},
                                   {u"a long name.txt", nullptr, "ALONGN~1TXT", 0, true},
                                   {u"a.b.c", nullptr, "AB~1    C  ", 0, true},
                                   {u".profile", nullptr, "~1      PRO", 0, true},
                                   {u"name.html", nullptr, "NAME~1  HTM", 0, true},
                                   {u"a+b", nullptr, "AB~1       ", 0, true},
                                   {u"日本", nullptr, "~1         ", 0, true},
                                   {u"é.x", "\x90       X  ", "\x90~1     X  ", 0, true},
                                   {u"σ", "\xE4          ", "\xE4~1        ", 0, true},
                                   {u"ninechars", nullptr, "NINECH~1   ", 0, true}}) {
    const FatShortNameMaker maker(name, k437);
    const std::string label = std::filesystem::path(name).string();
    EXPECT_EQ(whole != nullptr, maker.isWhole()) << label;
    EXPECT_TRUE(whole == nullptr || whole == textOf(maker.whole())) << label;
    EXPECT_EQ(numbered, textOf(maker.numbered(1))) << label;
    EXPECT_EQ(needsLong, maker.needsLongName()) << label;
    EXPECT_EQ(caseFlags, maker.caseFlags()) << label;
  }
  EXPECT_EQ("ALONGN~ATXT", textOf(FatShortNameMaker(u"a long name.txt", k437).numbered(10)));
  EXPECT_EQ("ALONG~10TXT", textOf(FatShortNameMaker(u"a long name.txt", k437).numbered(16)));
  // A name that begins with the mark of a deleted entry.
  const FatShortName first = FatShortNameMaker(u"Õ", k850).whole();
  EXPECT_EQ('\x05', first[0]);
  EXPECT_EQ(u"Õ", fatShortNameText(first, 0, k850));
}

TEST(FatNamesTest, Labels) {
  for (const auto& [wish, stored] : std::initializer_list<std::pair<const char16_t*, const char*>>{
           {u"my.disk", "MY DISK    "},
           {u"größe",
            "GR\x99\xE1"
            "E      "},
           {u"elevenchars", "ELEVENCHARS"},
           {u"twelve chars", nullptr},
           {u"a*b", nullptr},
           {u" a", nullptr},
           {u"日", nullptr}}) {
    const std::optional<FatShortName> name = fatLabelName(wish, k437);
    EXPECT_EQ(stored != nullptr, name.has_value());
    EXPECT_TRUE(!name || stored == textOf(*name));
  }
}

TEST(FatTimeTest, RoundToTwoSecondsAndStayInTheirCentury) {
  FatDirectoryEntryRecord entry = {};
  EXPECT_EQ(FileTimes(), fatTimesOf(entry));
  const FileTime odd = fileTimeOfUnixSeconds(1700000001) + 5'000'000;
  setFatTimes(entry, {odd, 0, odd});
  EXPECT_EQ(odd, fatTimesOf(entry).created) << "of the hundredths alone";
  EXPECT_EQ(0U, fatTimesOf(entry).accessed) << "it was left as it was";
  EXPECT_EQ(fileTimeOfUnixSeconds(1700000000), fatTimesOf(entry).modified);
  setFatTimes(entry, {1, fileTimeOfUnixSeconds(u64{1} << 33), 1});
  EXPECT_EQ(0x0021, entry.createdDate);
  EXPECT_EQ(0xFF9F, entry.accessedDate);
  for (const u16 date : {u16{0x0001}, u16{0x0020}, u16{0x01A1}}) {
    entry.modifiedDate = date;
    EXPECT_EQ(0U, fatTimesOf(entry).modified) << date;
  }
}

class FatFilesTest : public testing::Test {
 protected:
  static constexpr u32 kSectors = 20000;

  void SetUp() override {
    if (!hasProgram("mcopy")) GTEST_SKIP() << "needs mtools";
  }
  std::unique_ptr<FileSystem> open(MemoryDisk& disk, const OpenWish& wish = {}) {
    std::unique_ptr<FileSystem> files;
    const u32 sectors = static_cast<u32>(*disk.sectorCount());
    EXPECT_EQ(Error::none, openFatFiles({disk, 0, sectors}, 0x0E, wish, files));
    return files;
  }
  ProgramResult run(std::vector<std::string> command) {
    command.insert(command.begin(), {"/usr/bin/env", "LC_ALL=C.UTF-8"});
    ProgramResult result = runProgram(command);
    EXPECT_EQ(0, result.status) << result.output;
    return result;
  }
  std::string contentOf(FileSystem& files, const std::string& path) {
    File file;
    EXPECT_EQ(Error::none, files.open(path, {}, file)) << path;
    FileInfo info;
    EXPECT_EQ(Error::none, file.info(info));
    std::string content(info.sizeBytes, '?');
    u64 done = 0;
    EXPECT_EQ(Error::none,
              file.read({reinterpret_cast<u8*>(content.data()), content.size()}, done));
    return content;
  }

  TempFolder folder_;
};

// Fragmented files, deleted entries in between, case flags, names across clusters.
TEST_F(FatFilesTest, ReadsWhatOthersWrote) {
  for (const u16 type : {u16{0x01}, u16{0x06}, u16{0x0B}}) {
    SCOPED_TRACE(type);
    const u32 sectors = type == 0x0B ? 70000 : kSectors + 20000 * (type == 0x06);
    MemoryDisk fresh(sectors);
    ASSERT_EQ(Error::none, formatQuietly({fresh, 0, sectors}, wishFor(type, 512)));
    const std::string image = folder_.file("image"), in = folder_.file("in");
    storeDisk(fresh, image);
    std::map<std::string, std::string> expected;
    const auto write = [&](const std::string& path, std::size_t bytes) {
      std::string content(bytes, static_cast<char>('a' + bytes % 26));
      for (std::size_t i = 0; i < bytes; i += 100) content[i] = static_cast<char>(i / 100);
      expected[path] = content;
      std::ofstream(in, std::ios::binary) << content;
      run({"mcopy", "-o", "-i", image, in, "::" + path});
    };
    run({"mmd", "-i", image, "::/Folder One", "::/Folder One/sub"});
    for (int i = 0; i < 6; ++i) {
      write("/gone" + std::to_string(i), 700);
      write("/Folder One/a name that takes some entries " + std::to_string(i) + ".text", 300 + i);
    }
    for (int i = 0; i < 6; i += 2) {
      run({"mdel", "-i", image, "::/gone" + std::to_string(i)});
      expected.erase("/gone" + std::to_string(i));
    }
    write("/fragmented.bin", 20000);
    write("/lower.txt", 1);
    write("/UPPER.TXT", 0);
    write("/Folder One/sub/" + std::string(200, 'L') + "é日", 1000);
    MemoryDisk disk = loadDisk(image);
    const std::unique_ptr<FileSystem> files = open(disk);
    for (const auto& [path, content] : expected)
      EXPECT_TRUE(content == contentOf(*files, path)) << path;
    std::vector<FileInfo> entries;
    std::size_t found = 0;
    std::set<std::string> names;
    for (const char* directory : {"/", "/folder one", "/FOLDER~1/SUB"}) {
      ASSERT_EQ(Error::none, files->list(directory, entries));
      for (const FileInfo& entry : entries) found += entry.isDirectory() ? 0 : 1;
      for (const FileInfo& entry : entries) names.insert(entry.name);
    }
    EXPECT_TRUE(names.contains("lower.txt") && names.contains("UPPER.TXT"));
    EXPECT_EQ(expected.size(), found);
    EXPECT_EQ(Error::none, files->list("/Folder One/sub", entries));
    EXPECT_EQ(std::string(200, 'L') + "é日", entries.at(0).name);
  }
}

// "." and ".." alone are no files: a directory with any other name in it is not empty.
TEST(FatDotNamesTest, AreFilesLikeAnyOther) {
  DamagedVolume volume(0x01, 4000);
  volume.fill();
  volume.entry(kTwo, [](auto& e) { std::memcpy(e.name, ".HIDDEN    ", 11); });
  const std::unique_ptr<FileSystem> files = volume.open();
  FileInfo info;
  EXPECT_EQ(Error::none, files->info("/SUB/.hidden", info));
  EXPECT_EQ(2000U, info.sizeBytes);
  EXPECT_EQ(Error::none, files->deleteFile("/SUB/A long name/THREE.TXT"));
  EXPECT_EQ(Error::none, files->removeDirectory("/SUB/A long name"));
  EXPECT_EQ(Error::directoryNotEmpty, files->removeDirectory("/SUB"));
  EXPECT_EQ(Error::none, files->move("/SUB/.hidden", "/visible"));
  EXPECT_EQ(Error::none, files->removeDirectory("/SUB"));
  EXPECT_EQ(Error::none, files->sync());
  EXPECT_EQ(FatFault::none, volume.check().fault);
}

// What loops is not read as the same bytes again, and what runs into another file's clusters does
// not give those up.
TEST(FatCrossedChainsTest, AreToldAndFreeNothing) {
  for (const bool isLoop : {true, false}) {
    DamagedVolume volume(0x01, 4000);
    volume.fill();
    const u32 one = volume.firstCluster(kOne);
    const u32 two = volume.firstCluster(kTwo);
    volume.setFat(one + 2, isLoop ? one : two);
    const MemoryDisk before = volume.disk().copy();
    const std::unique_ptr<FileSystem> files = volume.open();
    File file;
    u64 done = 0;
    std::vector<u8> bytes(3000);
    ASSERT_EQ(Error::none, files->open("/ONE.TXT", {}, file));
    EXPECT_EQ(isLoop ? Error::corrupt : Error::none, file.read(bytes, done).code);
    ASSERT_EQ(Error::none, file.close());
    EXPECT_EQ(Error::corrupt, files->deleteFile("/ONE.TXT"));
    ASSERT_EQ(Error::none, files->open("/ONE.TXT", {.access = FileAccess::write}, file));
    EXPECT_EQ(Error::corrupt, file.setSize(10));
    EXPECT_EQ(Error::corrupt, file.seek(0) ? Failure() : file.write(bytes, done));
    ASSERT_EQ(Error::none, file.close());
    ASSERT_EQ(Error::none, files->sync());
    EXPECT_TRUE(before.sameContent(volume.disk()));
  }
}

// Directories that begin in the middle of one another name millions of entries on 2 MB.
TEST(FatCrossedDirectoriesTest, EndTheWalk) {
  constexpr u32 kFirst = 100, kCount = 1000;
  DamagedVolume volume(0x01, 4000);
  volume.fill();
  const FatLayout layout = volume.volume().layout;
  u32 number = 0;
  for (u32 cluster = kFirst; cluster < kFirst + kCount; ++cluster) {
    volume.setFat(cluster, cluster + 1 < kFirst + kCount ? cluster + 1 : layout.endMark());
    std::vector<u8> sector(512);
    for (std::size_t at = 0; at < sector.size(); at += 32, ++number) {
      auto& entry = *recordAt<FatDirectoryEntryRecord>(std::span(sector), at);
      std::copy_n(format("D%07uXYZ", number).c_str(), 11, entry.name);
      entry.attributes = kFatDirectory;
      setFirstCluster(entry, kFirst + number % kCount);
    }
    volume.disk().setSector(layout.clusterToSector(cluster), sector);
  }
  volume.entry(kSub, [](auto& e) { setFirstCluster(e, kFirst); });
  u64 visited = 0;
  const std::unique_ptr<FileSystem> files = volume.open();
  const FileFailure failed = walkTree(
      *files, "/", [&](const std::string&, const FileInfo&) { return ++visited, Failure(); },
      [](const FileFailure&) { return true; });
  EXPECT_EQ(Error::corrupt, failed.failure);
  EXPECT_LE(visited, 100'000U);
}

TEST_F(FatFilesTest, AFullRootAndTheLargestFile) {
  MemoryDisk disk(kSectors);
  ASSERT_EQ(Error::none, formatQuietly({disk, 0, kSectors}, wishFor(0x01)));
  std::unique_ptr<FileSystem> files = open(disk, {.writable = true});
  const u32 entries = opened({disk, 0, kSectors})->layout.rootEntries;
  File file;
  const OpenMode create{.access = FileAccess::write, .create = true};
  for (u32 i = 0; i + 1 < entries; ++i)
    ASSERT_EQ(Error::none, files->open("/" + std::to_string(i), create, file)) << i;
  EXPECT_EQ(Error::directoryFull, files->open("/takes two", create, file));
  ASSERT_EQ(Error::none, files->open("/last", create, file));
  ASSERT_EQ(Error::none, file.close());
  EXPECT_EQ(Error::directoryFull, files->makeDirectory("/d"));
  EXPECT_EQ(Error::directoryFull, files->setLabel("LABEL"));
  EXPECT_EQ(Error::none, files->move("/last", "/LAST.X")) << "it keeps its place";
  EXPECT_EQ(Error::directoryFull, files->move("/LAST.X", "/takes two"));
  ASSERT_EQ(Error::none, files->sync());

  // 4 GiB less one byte, of which the disk in memory holds nothing.
  constexpr u32 kLarge = 8500000;
  MemoryDisk large(kLarge);
  ASSERT_EQ(Error::none, formatQuietly({large, 0, kLarge}, wishFor(0x0C, 32768)));
  files = open(large, {.writable = true});
  ASSERT_EQ(Error::none, files->open("/large", create, file));
  ASSERT_EQ(Error::none, file.setSize(kAllOnes32));
  EXPECT_EQ(Error::fileTooLarge, file.setSize(u64{kAllOnes32} + 1));
  const u8 bytes[4] = {1, 2, 3, 4};
  u64 done = 0;
  ASSERT_EQ(Error::none, file.seek(-2, SeekFrom::end));
  EXPECT_EQ(Error::fileTooLarge, file.write(bytes, done));
  EXPECT_EQ(2U, done);
  EXPECT_EQ(Error::fileTooLarge, file.write(bytes, done));
  u8 end[6] = {};
  ASSERT_EQ(Error::none, file.close());
  ASSERT_EQ(Error::none, files->open("/large", {}, file));
  ASSERT_EQ(Error::none, file.seek(-4, SeekFrom::end));
  ASSERT_EQ(Error::none, file.read(end, done));
  EXPECT_TRUE(done == 4 && end[1] == 0 && end[2] == 1 && end[3] == 2);
  ASSERT_EQ(Error::none, file.close());
  ASSERT_EQ(Error::none, files->sync());
  storeDisk(large, folder_.file("large"));
  // fsck.fat takes a chain of 4 GiB for one of none.
  SilentJob job;
  CheckReport report;
  EXPECT_EQ(Error::none, checkFatVolume({large, 0, kLarge}, 0x0C, job, report));
  EXPECT_TRUE(report.isSound && report.files == 1 && report.mends.empty()) << report.faultText;
  const auto says = [&](const char* program, const char* what) {
    const std::string output = run({program, "-i", folder_.file("large"), "::/large"}).output;
    EXPECT_NE(std::string::npos, output.find(what)) << output;
  };
  says("mdir", "4294967295");
  says("mshowfat", "<5-131076>");
  ASSERT_EQ(Error::none, files->deleteFile("/large"));
}

TEST_F(FatFilesTest, OneFatAloneMayBeInUse) {
  MemoryDisk disk(70000);
  ASSERT_EQ(Error::none, formatQuietly({disk, 0, 70000}, wishFor(0x0B)));
  FatVolume volume = opened({disk, 0, 70000}).value();
  volume.boot.bpb32().flags = 0x81;
  ASSERT_EQ(Error::none, volume.boot.writeBootSector(volume.range));
  const std::vector<u8> first = fatCopy(volume, 0);
  {
    const auto files = open(disk, {.writable = true});
    ASSERT_EQ(Error::none, files->makeDirectory("/d"));
    ASSERT_EQ(Error::none, files->sync());
  }
  EXPECT_EQ(first, fatCopy(volume, 0)) << "the one that is not in use stays";
  EXPECT_NE(first, fatCopy(volume, 1));
  volume.boot.bpb32().version = 1;
  ASSERT_EQ(Error::none, volume.boot.writeBootSector(volume.range));
  std::unique_ptr<FileSystem> files;
  EXPECT_EQ(Error::unsupportedFileSystem, openFatFiles({disk, 0, 70000}, 0x0B, {}, files));
}

}  // namespace
}  // namespace tallowin
