#include "fs/tree_walk.h"

#include <algorithm>
#include <set>

namespace tallowin {
namespace {

// So many entries are believed without a look at the size of the volume; none is shorter than that.
constexpr u64 kBelievedEntries = 100'000;
constexpr u64 kShortestEntryBytes = 32;

class Walk {
 public:
  Walk(FileSystem& files, const VisitFile& visit, const PassOver& passOver)
      : files_(files), visit_(visit), passOver_(passOver) {}

  FileFailure directory(const std::string& path) {
    std::vector<FileInfo> entries;
    if (const Failure failed = files_.list(path, entries)) return {failed, path};
    return all(path, entries);
  }

 private:
  FileFailure all(const std::string& path, std::vector<FileInfo>& entries) {
    if (const Failure failed = count(entries.size())) return {failed, path};
    std::ranges::sort(entries, {}, &FileInfo::name);
    for (const FileInfo& entry : entries)
      if (FileFailure failed = one(joinedPath(path, entry.name), entry)) return failed;
    return {};
  }

  FileFailure one(const std::string& path, const FileInfo& entry) {
    if (const Failure failed = judge(path, entry)) return passedOver({failed, path});
    if (!entry.isDirectory()) return {};
    std::vector<FileInfo> entries;
    if (const Failure failed = files_.list(path, entries)) return passedOver({failed, path});
    return all(path, entries);
  }

  // Directories that share their clusters name the same entries again and again.
  Failure count(std::size_t entries) {
    entries_ += entries;
    if (entries_ < kBelievedEntries) return {};
    SpaceInfo space;
    if (const Failure failed = files_.space(space)) return failed;
    const u64 most = space.totalUnits * space.unitBytes / kShortestEntryBytes;
    return entries_ > most ? Failure(Error::corrupt) : Failure();
  }

  Failure judge(const std::string& path, const FileInfo& entry) {
    if (checkName(entry.name, files_.rules())) return Error::corrupt;
    // A directory is in one other alone, and in none that is below it.
    if (entry.isDirectory() && !seen_.insert(entry.id).second) return Error::corrupt;
    return visit_(path, entry);
  }

  FileFailure passedOver(const FileFailure& failed) const {
    return passOver_ && passOver_(failed) ? FileFailure() : failed;
  }

  FileSystem& files_;
  const VisitFile& visit_;
  const PassOver& passOver_;
  std::set<FileId> seen_;
  u64 entries_ = 0;
};

}  // namespace

std::string joinedPath(const std::string& directory, const std::string& name) {
  return directory.ends_with('/') ? directory + name : directory + "/" + name;
}

FileFailure walkTree(FileSystem& files, const std::string& directory, const VisitFile& visit,
                     const PassOver& passOver) {
  return Walk(files, visit, passOver).directory(directory);
}

bool LeftOut::takes(const FileFailure& failed) {
  const Failure& why = failed.failure;
  const bool isOfOneFile =
      why == Error::corrupt || why == Error::invalidName || why == Error::nameTooLong;
  if (!isOfOneFile && !(why == Error::read && passesOver(why))) return false;
  files_.push_back(failed);
  return true;
}

bool LeftOut::passesOver(const Failure& failure) {
  if (passesOverAll_) return true;
  const BadSectorAnswer answer = job_.badSector(failure, Direction::read);
  passesOverAll_ = answer == BadSectorAnswer::passOverAll;
  return answer != BadSectorAnswer::stop;
}

FileFailure removeTree(FileSystem& files, const std::string& directory, Job& job) {
  struct Doomed {
    std::string path;
    bool isDirectory;
  };
  std::vector<Doomed> doomed;
  if (!componentsOf(directory).empty()) doomed.push_back({directory, true});
  const auto add = [&](const std::string& path, const FileInfo& entry) {
    doomed.push_back({path, entry.isDirectory()});
    return job.shouldStop() ? Failure(Error::cancelled) : Failure();
  };
  if (FileFailure failed = walkTree(files, directory, add)) return failed;
  job.phase(Phase::deleting, doomed.size());
  for (; !doomed.empty(); doomed.pop_back()) {
    const Doomed& last = doomed.back();
    if (job.shouldStop()) return {Error::cancelled, last.path};
    const Failure failed =
        last.isDirectory ? files.removeDirectory(last.path) : files.deleteFile(last.path);
    if (failed) return {failed, last.path};
    job.advance(1);
  }
  return {};
}

}  // namespace tallowin
