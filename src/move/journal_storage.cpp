#include "move/journal_storage.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace tallowin {
namespace {

// A name in a folder is durable when the folder is.
Failure syncFolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return {Error::flush, errno};
  const int failed = ::fsync(descriptor) != 0 ? errno : 0;
  ::close(descriptor);
  return failed ? Failure{Error::flush, failed} : Failure{};
}

}  // namespace

Failure JournalStorageFile::create(const std::string& path,
                                   std::unique_ptr<JournalStorage>& storage) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor < 0) return {Error::cannotCreate, errno};
  storage.reset(new JournalStorageFile(descriptor));
  if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) return {Error::lockNotMade, errno};
  return syncFolderOf(path);
}

Failure JournalStorageFile::open(const std::string& path,
                                 std::unique_ptr<JournalStorage>& storage) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (descriptor < 0) return {Error::cannotOpenForReading, errno};
  storage.reset(new JournalStorageFile(descriptor));
  if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) return {Error::lockNotMade, errno};
  return {};
}

Failure JournalStorageFile::remove(const std::string& path) {
  if (::unlink(path.c_str()) != 0) return {Error::write, errno};
  return syncFolderOf(path);
}

JournalStorageFile::~JournalStorageFile() { ::close(descriptor_); }

Failure JournalStorageFile::read(u64 offset, std::span<u8> bytes) {
  while (!bytes.empty()) {
    const ssize_t got =
        ::pread(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {Error::read, errno};
    if (got == 0) return Error::seekFailed;
    bytes = bytes.subspan(static_cast<std::size_t>(got));
    offset += static_cast<u64>(got);
  }
  return {};
}

Failure JournalStorageFile::write(u64 offset, std::span<const u8> bytes) {
  while (!bytes.empty()) {
    const ssize_t put =
        ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return {errno == ENOSPC ? Error::noSpaceLeft : Error::write, errno};
    bytes = bytes.subspan(static_cast<std::size_t>(put));
    offset += static_cast<u64>(put);
  }
  return {};
}

Failure JournalStorageFile::sync() {
  return ::fdatasync(descriptor_) == 0 ? Failure{} : Failure{Error::flush, errno};
}

}  // namespace tallowin
