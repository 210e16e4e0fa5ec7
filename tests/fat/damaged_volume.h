// A FAT volume with some files, to be damaged.
#pragma once

#include "disk/memory_disk.h"
#include "fat/fat_check.h"
#include "fat/fat_file_system.h"
#include "fat_requests.h"

namespace tallowin {

// A volume with some files, and ways to damage it.
class DamagedVolume {
 public:
  explicit DamagedVolume(u16 type, u64 sectors, u32 clusterBytes = 512)
      : type_(type), disk_(sectors), range_{disk_, 0, sectors} {
    EXPECT_EQ(Error::none, formatQuietly(range_, wishFor(type, clusterBytes)));
  }
  void fill() {
    std::unique_ptr<FileSystem> files = open();
    EXPECT_EQ(Error::none, files->makeDirectory("/SUB"));
    EXPECT_EQ(Error::none, files->makeDirectory("/SUB/A long name"));
    put(*files, "/ONE.TXT", 3000);
    put(*files, "/SUB/TWO.TXT", 2000);
    put(*files, "/SUB/A long name/THREE.TXT", 512);
    put(*files, "/EMPTY.TXT", 0);
    EXPECT_EQ(Error::none, files->sync());
  }

  std::unique_ptr<FileSystem> open() {
    std::unique_ptr<FileSystem> files;
    EXPECT_EQ(Error::none, openFatFiles(range_, type_, {.writable = true}, files));
    return files;
  }
  static void put(FileSystem& files, const std::string& path, std::size_t bytes) {
    File file;
    u64 done = 0;
    EXPECT_EQ(Error::none, files.open(path, {.access = FileAccess::write, .create = true}, file));
    EXPECT_EQ(Error::none, file.write(std::vector<u8>(bytes, 'c'), done));
  }

  FatVolume volume() { return opened(range_, type_).value(); }
  // In all copies.
  void setFat(u32 cluster, u32 value) {
    FatVolume changed = volume();
    FatTable table = tableOf(changed);
    EXPECT_EQ(Error::none, table.set(cluster, value));
    EXPECT_EQ(Error::none, table.flush());
  }
  u32 fat(u32 cluster) {
    FatVolume looked = volume();
    FatTable table = tableOf(looked);
    return entryOf(table, cluster);
  }
  // An entry by its short name, which is there once; "." and ".." are those of /SUB.
  template <typename Change>
  void entry(const std::string& elevenBytes, Change change) {
    for (u64 lba = volume().layout.rootDirSector(); lba < volume().layout.rootDirSector() + 3000;
         ++lba) {
      std::vector<u8> sector = disk_.sector(lba);
      for (std::size_t at = 0; at < sector.size(); at += sizeof(FatDirectoryEntryRecord)) {
        auto& found = *recordAt<FatDirectoryEntryRecord>(std::span(sector), at);
        if (std::string_view(found.name, 11) != elevenBytes) continue;
        change(found);
        disk_.setSector(lba, sector);
        return;
      }
    }
    ADD_FAILURE() << elevenBytes << " is not there";
  }
  u32 firstCluster(const std::string& elevenBytes) {
    u32 first = 0;
    entry(elevenBytes,
          [&](auto& found) { first = firstClusterOf(found, volume().layout.isFat32()); });
    return first;
  }
  template <typename Change>
  void bootSector(Change change) {
    std::vector<u8> sector = disk_.sector(0);
    change(*recordAt<FatBpbRecord>(std::span(sector)),
           *recordAt<Fat32BpbRecord>(std::span(sector), kFat32BpbOffset));
    disk_.setSector(0, sector);
  }

  FatCheckReport check(DiskDevice* through = nullptr) {
    SilentJob job;
    FatCheckReport report;
    const SectorRange range{through ? *through : disk_, 0, range_.sectorCount};
    const FatVolume checked = opened(range, type_).value();
    FatClusterMap map(checked);
    const Failure failed = checkFat(checked, map, job, report);
    EXPECT_EQ(report.fault == FatFault::unreadable, failed == Error::read);
    text_ = fatFaultText(checked, report);
    return report;
  }
  const std::string& text() const { return text_; }
  MemoryDisk& disk() { return disk_; }
  const SectorRange& range() const { return range_; }

 private:
  u16 type_;
  MemoryDisk disk_;
  SectorRange range_;
  std::string text_;
};

inline constexpr char kOne[] = "ONE     TXT";
inline constexpr char kTwo[] = "TWO     TXT";
inline constexpr char kThree[] = "THREE   TXT";
inline constexpr char kSub[] = "SUB        ";

}  // namespace tallowin
