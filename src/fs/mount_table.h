// `MountTable`: the file systems that are in use, one object each, shared among their users.
#pragma once

#include <array>
#include <memory>
#include <optional>

#include "fs/file_system.h"
#include "probe/file_system_kind.h"

namespace tallowin {

class MountTable;

// A share of a file system that is in use; given back by its end. Must end before the table.
class Mount {
 public:
  Mount() = default;
  ~Mount();
  Mount(Mount&& other) noexcept { *this = std::move(other); }
  Mount& operator=(Mount&& other) noexcept;

  bool isMounted() const { return table_ != nullptr; }
  FileSystem& files() const;
  // The last share of a file system that was changed puts it in order first: everything is on the
  // medium then, or the failure says why not. The share is given back all the same.
  Failure unmount();

 private:
  friend class MountTable;
  MountTable* table_ = nullptr;
  std::size_t slot_ = 0;
};

class MountTable {
 public:
  static constexpr std::size_t kMostMounts = 10;

  // `kinds` is borrowed.
  explicit MountTable(const FileSystemKinds& kinds) : kinds_(kinds) {}

  // The file system in the range, by what lies there and else by the partition's type. What is
  // mounted already is shared; while it is mounted to be written, its disk is locked against other
  // programs. tooManyMounts; lockNotMade; accessDenied: it is to be written and is mounted to be
  // read; fileSystemUnreadable: no kind claims it; unsupportedFileSystem: its files cannot be
  // reached; else as FileSystemKind::open.
  Failure mount(const SectorRange& range, u16 type, const OpenWish& wish, Mount& mount);

 private:
  friend class Mount;
  struct Entry {
    DiskDevice* disk = nullptr;
    u64 firstSector = 0;
    u32 users = 0;  // 0: the entry is free
    std::unique_ptr<DiskChangeLock> lock;
    std::unique_ptr<FileSystem> files;
  };

  Failure open(const SectorRange& range, u16 type, const OpenWish& wish, Entry& entry) const;
  void share(std::size_t slot, Mount& mount);
  Failure release(std::size_t slot);

  const FileSystemKinds& kinds_;
  std::array<Entry, kMostMounts> entries_;
};

}  // namespace tallowin
