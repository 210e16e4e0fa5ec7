// `NewFile`: a file that is written whole before it takes the place of an older one.
#pragma once

#include <span>
#include <string>

#include "fs/file_system.h"

namespace tallowin {

// Under which name it is written.
enum class NewFileName : u8 {
  own,    // at once, when nothing has it: a power cut may leave a part of the file there
  other,  // one of its own in the same directory, until it is whole
};

// What has not come under its name is deleted by the end of the object, and an older file stays as
// it was. Must end before its file system.
class NewFile {
 public:
  explicit NewFile(FileSystem& files) : files_(files) {}
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  // An older file keeps how it spells its name. Those of FileSystem::open: nothing was made, and
  // nothing of what is there is touched. accessDenied: a directory has the name.
  Failure create(const std::string& path, NewFileName name);
  // As File.
  Failure write(std::span<const u8> bytes, u64& done) { return file_.write(bytes, done); }
  Failure setTimes(const FileTimes& times) { return file_.setTimes(times); }
  // It has its name. An older file had it until then, and has it after a failure; how that one was
  // marked, and when it was made, stays.
  Failure finish();

  // Where the new file is, or was to be.
  const std::string& path() const { return path_; }

 private:
  std::string freeName() const;
  Failure takePlace();

  FileSystem& files_;
  File file_;
  std::string path_;
  std::string name_;  // what is to be deleted by the end; empty: nothing
};

}  // namespace tallowin
