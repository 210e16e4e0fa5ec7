// Everything below a directory: looked at, and deleted.
#pragma once

#include <functional>
#include <string>

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
// before what is in it; a failure of it ends the walk. corrupt: a directory holds itself, or an
// entry has a name that no path can hold. Nothing of it may be changed meanwhile.
using VisitFile = std::function<Failure(const std::string& path, const FileInfo& entry)>;
// Asked about a failure with something below the directory, also one of the visit. True: it was
// told, and the walk goes on without that, and without what is in it.
using PassOver = std::function<bool(const FileFailure& failed)>;
FileFailure walkTree(FileSystem& files, const std::string& directory, const VisitFile& visit,
                     const PassOver& passOver = {});

// Whether a failure is one of this file alone: its name or its chain is damaged, or its path is
// longer than can be asked for.
bool isOfOneFile(const Failure& failure);

// Deletes the directory with everything in it; of the root what is in it. Phase deleting, in which
// a file counts as one byte. cancelled; else those of FileSystem: some of it is gone then.
FileFailure removeTree(FileSystem& files, const std::string& directory, Job& job);

}  // namespace tallowin
