// A freshly made file system of every kind that can be opened, and programs that judge it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "disk/memory_disk.h"
#include "fs/file_system.h"
#include "probe/file_system_kind.h"
#include "support/temp_folder.h"

namespace tallowin {

struct FsSample {
  const char* name;
  const char* kind;  // FileSystemKind::word
  u16 type;
  u32 sectors;
  u32 clusterBytes;
  u32 sectorSize = 512;
};
std::ostream& operator<<(std::ostream& out, const FsSample& sample);

inline constexpr FsSample kFsSamples[] = {
    {"fat12", "fat12", 0x01, 4000, 512},
    {"fat12Large", "fat12", 0x01, 32000, 4096},
    {"fat16", "fat16", 0x06, 40000, 512},
    {"fat16Large", "fat16", 0x06, 600000, 32768},
    {"fat32", "fat32", 0x0B, 70000, 512},
    {"fat32Large", "fat32", 0x0C, 4300000, 32768},
    {"fat16Of4KiBSectors", "fat16", 0x06, 40000, 4096, 4096},
};

const FileSystemKinds& knownKinds();
MemoryDisk formatted(const FsSample& sample);

// Files and directories by path; a directory's ends in '/'.
using FileTree = std::map<std::string, std::string>;

Failure openFiles(DiskDevice& disk, const FsSample& sample, std::unique_ptr<FileSystem>& files,
                  const OpenWish& wish = {.writable = true});
// What is recognised on the disk, to be read.
Failure openFound(DiskDevice& disk, std::unique_ptr<FileSystem>& files);
// The paths that are in one of them alone, or hold something else.
std::vector<std::string> differences(const FileTree& a, const FileTree& b);
std::string contentOf(FileSystem& files, const std::string& path);
// Creates the file, or replaces what it holds.
Failure put(FileSystem& files, const std::string& path, const std::string& content);
// Adds everything below the directory, read through the driver.
Failure addTree(FileSystem& files, const std::string& directory, FileTree& tree);
// The same. Fails the test where that is not possible.
FileTree treeOf(FileSystem& files, const std::string& directory = "/");
FileTree hostTree(const std::filesystem::path& top);
// Files and directories of all kinds below `top`.
void storeSampleTree(const std::filesystem::path& top);
// A file of the host, and the directories that it lies in.
void store(const std::filesystem::path& path, const std::string& content);
std::string randomBytes(u32 seed, std::size_t count);

// What an independent checker finds; empty when it finds nothing.
std::string checkerSays(MemoryDisk& disk);
// What our own check of its kind finds, and what it would mend; empty when it finds nothing.
std::string ownCheckSays(MemoryDisk& disk);
// Everything, read through an independent driver.
FileTree treeByOthers(MemoryDisk& disk);
bool hasJudges();

}  // namespace tallowin
