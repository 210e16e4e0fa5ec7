// Files and folders of the host as they are copied: what is there, reading, and making whole ones.
#pragma once

#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/error.h"
#include "files/descriptor.h"

namespace tallowin {

enum class HostFileKind : u8 { file, folder, link, other };

struct HostFile {
  std::string path;  // below the top: "a/b"; empty for the top itself
  HostFileKind kind = HostFileKind::file;
  u64 sizeBytes = 0;
  timespec modified = {};
};

// The top and everything below it, a folder before what is in it, in the order of names. A link
// that is the top is followed, no other. noSuchFile, cannotOpenForReading, read: `failedPath` is
// what could not be looked at.
Failure listHostTree(const std::string& top, std::vector<HostFile>& found, std::string& failedPath);

// What a path of the host is; nothing when there is nothing.
enum class Links : u8 { followed, themselves };
std::optional<HostFileKind> hostFileKind(const std::string& path, Links links = Links::followed);

// One regular file, from its start to its end.
class HostFileReader {
 public:
  // cannotOpenForReading: also for what is no regular file by now.
  Failure open(const std::string& path);
  // Fewer than the buffer takes only at the end. read.
  Failure read(std::span<u8> buffer, u64& done);

 private:
  Descriptor file_;
  u64 position_ = 0;
};

enum class Existing : u8 { keep, replace };

// A file that appears under its name when it is whole; before that it goes by another name in the
// same folder, and its end takes it away.
class NewHostFile {
 public:
  NewHostFile() = default;
  ~NewHostFile();
  NewHostFile(const NewHostFile&) = delete;
  NewHostFile& operator=(const NewHostFile&) = delete;

  // cannotCreate.
  Failure create(const std::string& path);
  // write, noSpaceLeft.
  Failure write(std::span<const u8> bytes);
  void setModified(const timespec& time);
  // Nothing can be written any more. alreadyExists, cannotCreate, write, noSpaceLeft.
  Failure finish(Existing existing);

 private:
  std::string path_;
  std::string temporary_;  // empty: there is none any more
  Descriptor file_;
  u64 position_ = 0;
};

// alreadyExists, cannotCreate.
Failure makeHostFolder(const std::string& path);
void setHostFolderModified(const std::string& path, const timespec& time);
// Everything on the file system of the folder is on its medium. flush.
Failure syncHostFolder(const std::string& folder);

}  // namespace tallowin
