#include "files/host_tree.h"

#include <fcntl.h>
#include <fts.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "base/text.h"
#include "base/waiting.h"

namespace tallowin {
namespace {

constexpr int kMostNames = 1000;  // that are tried for a file that is not whole yet

HostFileKind kindOf(mode_t mode) {
  if (S_ISREG(mode)) return HostFileKind::file;
  if (S_ISDIR(mode)) return HostFileKind::folder;
  return S_ISLNK(mode) ? HostFileKind::link : HostFileKind::other;
}

int byName(const FTSENT** a, const FTSENT** b) {
  return std::strcmp((*a)->fts_name, (*b)->fts_name);
}

struct CloseTree {
  void operator()(FTS* tree) const { static_cast<void>(::fts_close(tree)); }
};

}  // namespace

Failure listHostTree(const std::string& top, std::vector<HostFile>& found,
                     std::string& failedPath) {
  found.clear();
  std::string path = top;
  char* tops[] = {path.data(), nullptr};
  const std::unique_ptr<FTS, CloseTree> tree(
      ::fts_open(tops, FTS_PHYSICAL | FTS_COMFOLLOW | FTS_NOCHDIR, byName));
  failedPath = top;
  if (tree == nullptr) return {Error::cannotOpenForReading, errno};
  for (;;) {
    errno = 0;
    const FTSENT* entry = ::fts_read(tree.get());
    if (entry == nullptr) return errno == 0 ? Failure() : Failure(Error::read, errno);
    if (entry->fts_info == FTS_DP) continue;
    failedPath = entry->fts_path;
    if (entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR || entry->fts_info == FTS_NS)
      return {entry->fts_errno == ENOENT ? Error::noSuchFile : Error::cannotOpenForReading,
              entry->fts_errno};
    std::string_view below = std::string_view(entry->fts_path, entry->fts_pathlen);
    below.remove_prefix(std::min(top.size(), below.size()));
    while (below.starts_with('/')) below.remove_prefix(1);
    const struct stat& status = *entry->fts_statp;
    if (entry->fts_level == 0 && S_ISLNK(status.st_mode)) return {Error::noSuchFile, ENOENT};
    found.push_back({std::string(below), kindOf(status.st_mode),
                     S_ISREG(status.st_mode) ? static_cast<u64>(status.st_size) : 0,
                     status.st_mtim});
  }
}

std::optional<HostFileKind> hostFileKind(const std::string& path, Links links) {
  struct stat status {};
  const int result =
      links == Links::followed ? ::stat(path.c_str(), &status) : ::lstat(path.c_str(), &status);
  if (result != 0) return std::nullopt;
  return kindOf(status.st_mode);
}

// --- Reading

Failure HostFileReader::open(const std::string& path) {
  // What has become a pipe meanwhile must not be waited for.
  file_ = Descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  position_ = 0;
  if (file_.get() < 0) return {Error::cannotOpenForReading, errno};
  struct stat status {};
  if (::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode))
    return {Error::cannotOpenForReading, EINVAL};
  return {};
}

Failure HostFileReader::read(std::span<u8> buffer, u64& done) {
  for (done = 0; done < buffer.size();) {
    const i64 got = waitedRead(file_.get(), buffer.data() + done, buffer.size() - done, position_);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {Error::read, errno};
    if (got == 0) break;
    done += static_cast<u64>(got);
    position_ += static_cast<u64>(got);
  }
  return {};
}

// --- Making

NewHostFile::~NewHostFile() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

Failure NewHostFile::create(const std::string& path) {
  path_ = path;
  const std::string folder = path.substr(0, path.rfind('/') + 1);
  for (int number = 0; number < kMostNames; ++number) {
    const std::string name = folder + format(".tallowin-%d-%d", ::getpid(), number);
    file_ = Descriptor(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file_.get() >= 0) {
      temporary_ = name;
      return {};
    }
    if (errno != EEXIST) break;
  }
  return {Error::cannotCreate, errno};
}

Failure NewHostFile::write(std::span<const u8> bytes) {
  while (!bytes.empty()) {
    const i64 put = waitedWrite(file_.get(), bytes, {}, position_);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return writeFailure(errno);
    position_ += static_cast<u64>(put);
    bytes = bytes.subspan(static_cast<std::size_t>(put));
  }
  return {};
}

void NewHostFile::setModified(const timespec& time) {
  const timespec times[] = {{0, UTIME_OMIT}, time};
  static_cast<void>(::futimens(file_.get(), times));
}

Failure NewHostFile::finish(Existing existing) {
  if (file_.close() != 0) return writeFailure(errno);
  const char* from = temporary_.c_str();
  const char* to = path_.c_str();
  int result = existing == Existing::replace
                   ? ::rename(from, to)
                   : ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
  // Not every file system knows that one.
  if (result != 0 && errno == EINVAL && existing == Existing::keep) {
    if (::access(to, F_OK) == 0) return {Error::alreadyExists, EEXIST};
    result = ::rename(from, to);
  }
  if (result != 0) return {errno == EEXIST ? Error::alreadyExists : Error::cannotCreate, errno};
  temporary_.clear();
  return {};
}

// --- Folders

Failure makeHostFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0777) == 0) return {};
  return {errno == EEXIST ? Error::alreadyExists : Error::cannotCreate, errno};
}

void setHostFolderModified(const std::string& path, const timespec& time) {
  const timespec times[] = {{0, UTIME_OMIT}, time};
  static_cast<void>(::utimensat(AT_FDCWD, path.c_str(), times, 0));
}

Failure syncHostFolder(const std::string& folder) {
  const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.get() < 0) return flushFailure(errno);
  return blockingCall([&] { return ::syncfs(opened.get()); }) == 0 ? Failure()
                                                                   : flushFailure(errno);
}

}  // namespace tallowin
