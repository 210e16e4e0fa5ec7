#include "fs/fs_bench.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include "fat/fat_kinds.h"
#include "iso/iso_kind.h"
#include "support/disk_file.h"
#include "support/oracle.h"

namespace tallowin {
std::ostream& operator<<(std::ostream& out, const FsSample& sample) { return out << sample.name; }

const FileSystemKinds& knownKinds() {
  static const FileSystemKinds kinds = [] {
    FileSystemKinds all;
    registerFat(all);
    registerIso(all);
    return all;
  }();
  return kinds;
}

MemoryDisk formatted(const FsSample& sample) {
  MemoryDisk disk(sample.sectors, sample.sectorSize);
  FormatWish wish;
  wish.type = sample.type;
  wish.clusterBytes = sample.clusterBytes;
  wish.geometry = {1023, 254, 63};
  SilentJob job;
  FormatReport report;
  EXPECT_EQ(Error::none,
            knownKinds().byWord(sample.kind)->format({disk, 0, sample.sectors}, wish, job, report));
  return disk;
}

Failure openFiles(DiskDevice& disk, const FsSample& sample, std::unique_ptr<FileSystem>& files,
                  const OpenWish& wish) {
  return knownKinds()
      .byWord(sample.kind)
      ->open({disk, 0, sample.sectors}, sample.type, wish, files);
}

Failure openFound(DiskDevice& disk, std::unique_ptr<FileSystem>& files) {
  const SectorRange whole{disk, 0, *disk.sectorCount()};
  const FileSystemKind* kind = knownKinds().byContent(whole, 0);
  return kind ? kind->open(whole, 0, {}, files) : Failure(Error::fileSystemUnreadable);
}

std::vector<std::string> differences(const FileTree& a, const FileTree& b) {
  std::vector<std::string> paths;
  for (const auto& [one, other] : {std::pair(&a, &b), std::pair(&b, &a)})
    for (const auto& [path, content] : *one)
      if (const auto found = other->find(path); found == other->end())
        paths.push_back(path);
      else if (one == &a && found->second != content)
        paths.push_back(path + " (content)");
  return paths;
}

std::string contentOf(FileSystem& files, const std::string& path) {
  File file;
  FileInfo info;
  EXPECT_EQ(Error::none, files.open(path, {}, file)) << path;
  if (!file.isOpen() || file.info(info)) return "?";
  std::string content(info.sizeBytes, '?');
  u64 done = 0;
  EXPECT_EQ(Error::none, file.read({reinterpret_cast<u8*>(content.data()), content.size()}, done))
      << path;
  EXPECT_EQ(content.size(), done) << path;
  return content;
}

Failure put(FileSystem& files, const std::string& path, const std::string& content) {
  File file;
  if (const Failure failed =
          files.open(path, {.access = FileAccess::write, .create = true, .truncate = true}, file))
    return failed;
  u64 done = 0;
  const Failure failed =
      file.write({reinterpret_cast<const u8*>(content.data()), content.size()}, done);
  const Failure notClosed = file.close();
  return failed ? failed : notClosed;
}

Failure addTree(FileSystem& files, const std::string& directory, FileTree& tree) {
  std::vector<FileInfo> entries;
  if (const Failure failed = files.list(directory, entries)) return failed;
  for (const FileInfo& entry : entries) {
    const std::string path = directory + entry.name;
    if (entry.isDirectory()) {
      tree[path + "/"];
      if (const Failure failed = addTree(files, path + "/", tree)) return failed;
      continue;
    }
    File file;
    u64 done = 0;
    std::string& content = tree[path];
    content.resize(entry.sizeBytes);
    if (const Failure failed = files.open(path, {}, file)) return failed;
    // In two requests, of which the second begins in the middle of a sector.
    const std::span<u8> bytes(reinterpret_cast<u8*>(content.data()), content.size());
    if (const Failure failed = file.read(bytes.first(bytes.size() / 3), done)) return failed;
    if (const Failure failed = file.read(bytes.subspan(bytes.size() / 3), done)) return failed;
  }
  return {};
}

FileTree treeOf(FileSystem& files, const std::string& directory) {
  FileTree tree;
  EXPECT_EQ(Error::none, addTree(files, directory, tree));
  return tree;
}

FileTree hostTree(const std::filesystem::path& top) {
  FileTree tree;
  for (const auto& found : std::filesystem::recursive_directory_iterator(top)) {
    const std::string path = "/" + found.path().lexically_relative(top).string();
    if (found.is_directory()) {
      tree[path + "/"];
      continue;
    }
    std::ifstream file(found.path(), std::ios::binary);
    tree[path] = {std::istreambuf_iterator<char>(file), {}};
  }
  return tree;
}

void storeSampleTree(const std::filesystem::path& top) {
  store(top / "Hello World, a long name.txt", "hello");
  store(top / "empty", "");
  store(top / "grüße 日本.txt", "greetings");
  store(top / "two.dots.in it", randomBytes(1, 2048));
  store(top / "d1/d2/d3/d4/d5/d6/d7/d8/d9/d10/deep.bin", randomBytes(2, 300001));
  for (int i = 0; i < 150; ++i)
    store(top / "many" / ("File number " + std::to_string(i)), randomBytes(3, 10 + 13 * i));
}

void store(const std::filesystem::path& path, const std::string& content) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

std::string randomBytes(u32 seed, std::size_t count) {
  std::mt19937 random(seed);
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

bool hasJudges() { return hasProgram("fsck.fat") && hasProgram("mcopy"); }

std::string checkerSays(MemoryDisk& disk) {
  const TempFolder folder;
  storeDisk(disk, folder.file("image"));
  const ProgramResult check = runProgram({"fsck.fat", "-n", folder.file("image")});
  return check.status == 0 ? "" : check.output;
}

std::string ownCheckSays(MemoryDisk& disk) {
  const SectorRange range{disk, 0, *disk.sectorCount()};
  const FileSystemKind* kind = knownKinds().byContent(range, 0);
  if (kind == nullptr) return "nothing is there";
  if (kind->check == nullptr) return "";
  SilentJob job;
  CheckReport report;
  if (kind->check(range, 0, job, report)) return "it cannot be checked";
  std::string text = report.fault == 0 ? "" : report.faultText;
  for (const Mend& mend : report.mends) text += mend.fault;
  return text;
}

FileTree treeByOthers(MemoryDisk& disk) {
  const TempFolder folder;
  const std::string target = folder.file("out");
  std::filesystem::create_directory(target);
  storeDisk(disk, folder.file("image"));
  const auto run = [&](const std::vector<std::string>& command) {
    std::vector<std::string> all = {"/usr/bin/env", "LC_ALL=C.UTF-8", "MTOOLS_SKIP_CHECK=1"};
    all.insert(all.end(), command.begin(), command.end());
    return runProgram(all);
  };
  const ProgramResult copied =
      run({"mcopy", "-s", "-n", "-Q", "-i", folder.file("image"), "::/", target});
  EXPECT_EQ(0, copied.status) << copied.output;
  return hostTree(target);
}

}  // namespace tallowin
