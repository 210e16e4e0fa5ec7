#include "fs/mount_table.h"

#include <gtest/gtest.h>

#include "disk/memory_disk.h"

namespace tallowin {
namespace {

// A file system without files that tells what happens to it.
struct Events {
  u32 opened = 0;
  u32 synced = 0;
  u32 gone = 0;
  Failure atOpen;
  Failure atSync;
} events;

class EmptySystem : public FileSystem {
 public:
  explicit EmptySystem(bool isWritable) : FileSystem({}, 1000, 0, isWritable) { ++events.opened; }
  ~EmptySystem() override { ++events.gone; }

  Failure sync() override {
    ++events.synced;
    return events.atSync;
  }
  Failure space(SpaceInfo&) override { return {}; }
  Failure label(std::string&) override { return {}; }

 protected:
  Failure lookUp(FileId, std::string_view, FileInfo&) override { return Error::noSuchFile; }
  Failure readDirectory(FileId, std::unique_ptr<DirectoryReader>&) override { return Error::read; }
  Failure openNode(FileId, const FileInfo&, std::shared_ptr<FileNode>&) override {
    return Error::read;
  }
  Failure nodeInfo(FileNode&, FileInfo&) override { return Error::read; }
  Failure readNode(FileNode&, u64, std::span<u8>) override { return Error::read; }
};

Failure openEmpty(const SectorRange&, u16, const OpenWish& wish,
                  std::unique_ptr<FileSystem>& files) {
  if (events.atOpen) return events.atOpen;
  files = std::make_unique<EmptySystem>(wish.writable);
  return {};
}

class LockedDisk : public MemoryDisk {
 public:
  using MemoryDisk::MemoryDisk;
  bool isHeld = false;
  bool isOthers = false;

 protected:
  bool acquireLock() override { return isHeld = !isOthers; }
  void releaseLock() override { isHeld = false; }
};

constexpr u16 kType = 0x83, kClosedType = 0x07;
constexpr u16 kTypes[] = {kType}, kClosedTypes[] = {kClosedType};

class MountTableTest : public testing::Test {
 protected:
  MountTableTest() {
    events = {};
    kind_.types = kTypes;
    kind_.open = openEmpty;
    closed_.types = kClosedTypes;
    kinds_.add(kind_);
    kinds_.add(closed_);
  }

  Failure mount(u64 sector, Mount& mount, bool writable = false, u16 type = kType) {
    return table_.mount({disk_, sector, 10}, type, {.writable = writable}, mount);
  }

  LockedDisk disk_{1000};
  FileSystemKind kind_, closed_;
  FileSystemKinds kinds_;
  MountTable table_{kinds_};
};

TEST_F(MountTableTest, UsersOfAPartitionShareOneObject) {
  Mount first, second, other;
  ASSERT_EQ(Error::none, mount(10, first, true));
  ASSERT_EQ(Error::none, mount(10, second));
  ASSERT_EQ(Error::none, mount(20, other));
  EXPECT_EQ(&first.files(), &second.files());
  EXPECT_NE(&first.files(), &other.files());
  EXPECT_EQ(Error::none, first.unmount());
  EXPECT_EQ(0U, events.gone);
  EXPECT_EQ(0U, events.synced);
  EXPECT_TRUE(disk_.isHeld);
  events.atSync = Error::flush;
  EXPECT_EQ(Error::flush, second.unmount()) << "the last one tells what became of the changes";
  EXPECT_EQ(1U, events.gone);
  EXPECT_FALSE(disk_.isHeld);
  EXPECT_EQ(Error::none, other.unmount()) << "what was only read has nothing to put in order";
  EXPECT_EQ(1U, events.synced);
}

TEST_F(MountTableTest, TenAtATime) {
  std::array<Mount, MountTable::kMostMounts> mounts;
  for (std::size_t i = 0; i < mounts.size(); ++i) ASSERT_EQ(Error::none, mount(i, mounts[i]));
  Mount more;
  EXPECT_EQ(Error::tooManyMounts, mount(500, more));
  EXPECT_EQ(Error::none, mount(3, more)) << "one that is mounted is no further one";
  mounts[7] = {};
  EXPECT_EQ(Error::none, mount(500, more));
}

TEST_F(MountTableTest, WhatCannotBeMountedLeavesNothing) {
  Mount mounted, reader;
  EXPECT_EQ(Error::fileSystemUnreadable, mount(10, mounted, true, 0x55));
  EXPECT_EQ(Error::unsupportedFileSystem, mount(10, mounted, true, kClosedType));
  events.atOpen = Error::invalidVolume;
  EXPECT_EQ(Error::invalidVolume, mount(10, mounted, true));
  EXPECT_FALSE(disk_.isHeld);
  disk_.isOthers = true;
  EXPECT_EQ(Error::lockNotMade, mount(10, mounted, true));
  EXPECT_FALSE(mounted.isMounted());
  events.atOpen = {};
  ASSERT_EQ(Error::none, mount(10, reader)) << "to read it needs no lock";
  disk_.isOthers = false;
  EXPECT_EQ(Error::accessDenied, mount(10, mounted, true));
  EXPECT_EQ(Error::none, mount(10, mounted, false));
}

}  // namespace
}  // namespace tallowin
