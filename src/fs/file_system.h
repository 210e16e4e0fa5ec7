// `FileSystem`: what is done with the files of a volume by path, and `File`: one that is open.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/error.h"
#include "fs/file_time.h"
#include "fs/names.h"

namespace tallowin {

enum FileAttribute : u32 {
  kFileReadOnly = 0x01,
  kFileHidden = 0x02,
  kFileSystemFile = 0x04,
  kFileLabel = 0x08,
  kFileDirectory = 0x10,
  kFileArchive = 0x20,
  kFileSymbolicLink = 0x40000000,
};
// Those that can be set.
inline constexpr u32 kFileSettableAttributes =
    kFileReadOnly | kFileHidden | kFileSystemFile | kFileArchive;

// A directory or a file of one volume, as its driver numbers them.
using FileId = u64;

struct FileInfo {
  std::string name;       // UTF-8
  std::string shortName;  // the 8.3 name where the file system has one, else empty
  u32 attributes = 0;     // FileAttribute bits
  u32 rawMode = 0;        // the file system's own attributes or mode
  FileTimes times;
  u64 sizeBytes = 0;  // 0 for directories
  FileId id = 0;
  // Where its content begins, for who reads many files in the order of the disk; 0: not known.
  u64 place = 0;

  bool isDirectory() const { return (attributes & kFileDirectory) != 0; }
};

struct SpaceInfo {
  u64 totalUnits = 0;
  u64 freeUnits = 0;
  u32 unitBytes = 0;

  u64 usedUnits() const { return totalUnits - freeUnits; }
};

enum class FileAccess : u8 { read, write, readWrite };

struct OpenMode {
  FileAccess access = FileAccess::read;
  bool create = false;       // when it does not exist
  bool exclusive = false;    // it must not; with `create`
  bool truncate = false;     // what it holds is gone
  bool append = false;       // begin at the end
  bool isDirectory = false;  // it is a directory: for its attributes and times
};

enum class SeekFrom : u8 { start, current, end };

// An open file, shared by all `File`s on it. Drivers derive theirs from it.
struct FileNode {
  explicit FileNode(FileId number) : id(number) {}
  virtual ~FileNode() = default;

  FileId id;
  u64 sizeBytes = 0;
  u32 users = 0;
  bool isDirectory = false;
};

class FileSystem;

// Closed by its end; a failure of that is told by close() alone. Must end before its file system.
class File {
 public:
  File() = default;
  ~File();
  File(File&& other) noexcept { *this = std::move(other); }
  File& operator=(File&& other) noexcept;

  bool isOpen() const { return system_ != nullptr; }
  u64 position() const { return position_; }

  // At the position, which moves on. `done` bytes are read, fewer than the buffer only at the end
  // of the file or with a failure. read, corrupt; accessDenied.
  Failure read(std::span<u8> buffer, u64& done);
  // Zeros fill what lies between the end of the file and the position. volumeFull: nothing was
  // written; fileTooLarge: `done` bytes fit; write; accessDenied. What is written is on the medium
  // after FileSystem::sync.
  Failure write(std::span<const u8> bytes, u64& done);
  // fileTooLarge, invalidName for a place before the start: the position stays.
  Failure seek(i64 offset, SeekFrom from = SeekFrom::start);
  // Cuts, or adds zeros. volumeFull, fileTooLarge: the size is as before.
  Failure setSize(u64 bytes);
  Failure info(FileInfo& info) const;
  Failure setAttributes(u32 attributes);
  Failure setTimes(const FileTimes& times);
  // The metadata is with the volume then. After a failure the file is closed all the same.
  Failure close();

 private:
  friend class FileSystem;
  bool mayRead() const { return access_ != FileAccess::write && !node_->isDirectory; }
  bool mayWrite() const { return access_ != FileAccess::read && !node_->isDirectory; }

  FileSystem* system_ = nullptr;
  std::shared_ptr<FileNode> node_;
  u64 position_ = 0;
  FileAccess access_ = FileAccess::read;
};

// The entries of a directory, one after the other. Must end before its file system; what happens to
// the directory meanwhile may or may not be seen.
class DirectoryReader {
 public:
  virtual ~DirectoryReader() = default;
  // Nothing at the end. Labels, "." and ".." are no entries. corrupt, read.
  virtual Failure next(std::optional<FileInfo>& entry) = 0;
};

// One volume. Paths go from the root on; '/' and '\' separate, "." and ".." are resolved here, and
// names are compared as `rules()` say. One thread.
//
// Every function: read, write, outOfMemory, corrupt (the volume is damaged; nothing was changed),
// accessDenied for changes of a volume that was opened to be read, or that its driver only reads.
// By path: noSuchFile, invalidName, nameTooLong.
class FileSystem {
 public:
  static constexpr u32 kMostOpenFiles = 512;

  virtual ~FileSystem() = default;
  FileSystem(const FileSystem&) = delete;
  FileSystem& operator=(const FileSystem&) = delete;

  const NameRules& rules() const { return rules_; }
  u64 largestFile() const { return largestFile_; }
  bool isWritable() const { return isWritable_; }

  // alreadyExists with `exclusive`; accessDenied when file and directory are mistaken for one
  // another; tooManyOpenFiles; with `create`: volumeFull, directoryFull.
  Failure open(std::string_view path, const OpenMode& mode, File& file);
  Failure info(std::string_view path, FileInfo& info);
  bool exists(std::string_view path);
  // The entries of a directory.
  Failure list(std::string_view directory, std::vector<FileInfo>& entries);
  // Those that match the path's last component.
  Failure find(std::string_view pattern, std::vector<FileInfo>& entries);

  // alreadyExists, volumeFull, directoryFull.
  Failure makeDirectory(std::string_view path);
  // directoryNotEmpty; accessDenied when it is none, is the root or is open.
  Failure removeDirectory(std::string_view path);
  // accessDenied when it is a directory or open.
  Failure deleteFile(std::string_view path);
  // Renames or moves; the name of `to` may differ from the old one in case alone. alreadyExists,
  // volumeFull, directoryFull; invalidName for a directory that would move into itself;
  // accessDenied when it is open.
  Failure move(std::string_view from, std::string_view to);

  // The file `to` holds what `from` held, and keeps all else; `from` is no more. At every moment it
  // holds the one or the other; after a failure `from` may be gone. accessDenied when one is a
  // directory or open.
  Failure replace(std::string_view from, std::string_view to);

  // All of it is on the medium, and the volume says of itself that it is sound.
  virtual Failure sync() { return {}; }
  virtual u64 serialNumber() const { return 0; }
  virtual Failure space(SpaceInfo& space) = 0;
  // Empty when there is none.
  virtual Failure label(std::string& label) = 0;
  // Empty: none. invalidName.
  virtual Failure setLabel(std::string_view label);

 protected:
  FileSystem(const NameRules& rules, u64 largestFile, FileId root, bool isWritable)
      : rules_(rules), largestFile_(largestFile), root_(root), isWritable_(isWritable) {}

  // What a driver supplies: names are valid, directories are such, files are not open where that
  // would be refused. Drivers that only read keep what changes.

  // noSuchFile. By any name that it has.
  virtual Failure lookUp(FileId directory, std::string_view name, FileInfo& found) = 0;
  virtual Failure readDirectory(FileId directory, std::unique_ptr<DirectoryReader>& reader) = 0;
  virtual Failure openNode(FileId directory, const FileInfo& entry,
                           std::shared_ptr<FileNode>& node) = 0;
  virtual Failure nodeInfo(FileNode& node, FileInfo& info) = 0;
  // [position, position + size of the buffer) lies inside the file.
  virtual Failure readNode(FileNode& node, u64 position, std::span<u8> buffer) = 0;

  // The name is free.
  virtual Failure createFile(FileId directory, std::string_view name);
  virtual Failure createDirectory(FileId parent, std::string_view name);
  // A file, or a directory, which is refused when it is not empty.
  virtual Failure remove(FileId directory, const FileInfo& entry);
  virtual Failure moveEntry(FileId fromDirectory, const FileInfo& entry, FileId toDirectory,
                            std::string_view name);
  virtual Failure replaceContent(FileId fromDirectory, const FileInfo& from, FileId toDirectory,
                                 const FileInfo& to);
  // The position lies inside the file or at its end; the end is not beyond the largest file.
  virtual Failure writeNode(FileNode& node, u64 position, std::span<const u8> bytes);
  // New bytes are zeros.
  virtual Failure resizeNode(FileNode& node, u64 sizeBytes);
  virtual Failure setNodeAttributes(FileNode& node, u32 attributes);
  virtual Failure setNodeTimes(FileNode& node, const FileTimes& times);
  // The last user of the node closes it.
  virtual Failure closeNode(FileNode& node);

  // Calls use(node) for each that is open.
  template <typename Use>
  void forEachOpenNode(Use use) const {
    for (const auto& [id, node] : openNodes_) use(*node);
  }

 private:
  friend class File;
  // What a path leads to.
  struct Place {
    std::vector<FileId> way;  // the directories from the root on
    std::string name;         // empty: the last of them itself, as for the root
    FileId directory() const { return way.back(); }
    bool isDirectoryItself() const { return name.empty(); }
  };

  Failure resolve(std::string_view path, Place& place);
  Failure enter(FileId directory, std::string_view name, FileId& entered);
  Failure directoryAt(std::string_view path, FileId& directory);
  Failure existing(std::string_view path, Place& place, FileInfo& entry);
  Failure removable(std::string_view path, Place& place, FileInfo& entry);
  Failure openEntry(const Place& place, const FileInfo& entry, const OpenMode& mode, File& file);
  Failure release(const std::shared_ptr<FileNode>& node);

  NameRules rules_;
  u64 largestFile_;
  FileId root_;
  bool isWritable_;
  std::map<FileId, std::shared_ptr<FileNode>> openNodes_;
  u32 openFiles_ = 0;
};

}  // namespace tallowin
