// Everything below a directory: looked at, and deleted.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/job.h"
#include "fs/file_system.h"

namespace tallowin {

// What went wrong, and with which file: a path of the volume, or of the host where one is copied.
struct [[nodiscard]] FileFailure {
  Failure failure = {};
  std::string path = {};

  explicit operator bool() const { return static_cast<bool>(failure); }
};

// "/folder/name" of an entry of "/folder".
std::string joinedPath(const std::string& directory, const std::string& name);

// Calls visit(path, entry) for everything below the directory, in the order of names, a directory
// before what is in it; a failure of it ends the walk. corrupt: a directory holds itself, an
// entry has a name that no path can hold, or there are more than the volume has room for. Nothing
// of it may be changed meanwhile.
using VisitFile = std::function<Failure(const std::string& path, const FileInfo& entry)>;
// Asked about a failure with something below the directory, also one of the visit. True: it was
// told, and the walk goes on without that, and without what is in it.
using PassOver = std::function<bool(const FileFailure& failed)>;
FileFailure walkTree(FileSystem& files, const std::string& directory, const VisitFile& visit,
                     const PassOver& passOver = {});

// What of a tree is left out, and why.
class LeftOut {
 public:
  // Both are borrowed.
  LeftOut(Job& job, std::vector<FileFailure>& files) : job_(job), files_(files) {}

  // Whether `failed` is noted, and the rest goes on: where it is of one file alone, as a damaged
  // name or chain, and where the job passes over what cannot be read.
  bool takes(const FileFailure& failed);

 private:
  bool passesOver(const Failure& failure);

  Job& job_;
  std::vector<FileFailure>& files_;
  bool passesOverAll_ = false;
};

// Deletes the directory with everything in it; of the root what is in it. Phase deleting, in which
// a file counts as one byte. cancelled; else those of FileSystem: some of it is gone then.
FileFailure removeTree(FileSystem& files, const std::string& directory, Job& job);

}  // namespace tallowin
