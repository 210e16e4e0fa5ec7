// Where a file dialog looks: at the files of the host, or of a partition.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

struct ListedFile {
  std::string name;
  bool isDirectory = false;
  u64 sizeBytes = 0;
  std::time_t modified = 0;  // 0: not known
};

enum class PathKind : u8 { nothing, file, directory };

// Paths begin with a slash. `cancelled` stands for a failure that was told already.
class FileSource {
 public:
  virtual ~FileSource() = default;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  virtual std::string startDirectory() const = 0;
  // All entries but "." and "..". After a failure what was read before it.
  virtual Failure list(const std::string& directory, std::vector<ListedFile>& files) = 0;
  virtual Failure look(const std::string& path, PathKind& kind) = 0;
  virtual Failure remove(const std::string& file) = 0;
  virtual std::optional<u64> freeBytes(const std::string& directory) = 0;
  virtual bool matches(std::string_view pattern, std::string_view name) const = 0;

 protected:
  FileSource() = default;
};

class HostFileSource : public FileSource {
 public:
  // The current directory of the process.
  std::string startDirectory() const override;
  Failure list(const std::string& directory, std::vector<ListedFile>& files) override;
  Failure look(const std::string& path, PathKind& kind) override;
  Failure remove(const std::string& file) override;
  std::optional<u64> freeBytes(const std::string& directory) override;
  bool matches(std::string_view pattern, std::string_view name) const override;
};

// Each call looks anew at what the partition holds, and leaves nothing open: the disk is not locked
// while somebody chooses. Everything is borrowed.
class VolumeFileSource : public FileSource {
 public:
  VolumeFileSource(const OperationContext& context, Drive& drive, const PartitionEntry& entry)
      : context_(context), drive_(drive), entry_(entry) {}

  std::string startDirectory() const override { return "/"; }
  Failure list(const std::string& directory, std::vector<ListedFile>& files) override;
  Failure look(const std::string& path, PathKind& kind) override;
  // With the checks and the lock of every change.
  Failure remove(const std::string& file) override;
  std::optional<u64> freeBytes(const std::string& directory) override;
  // "*.*" is every file.
  bool matches(std::string_view pattern, std::string_view name) const override;

 private:
  const OperationContext& context_;
  Drive& drive_;
  const PartitionEntry& entry_;
};

}  // namespace tallowin
