#include "files/host_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "base/waiting.h"
#include "files/descriptor.h"

namespace tallowin {
namespace {

Descriptor openForReading(const std::string& path) {
  return Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

// Fewer bytes than asked for: the file ends there.
Failure readAll(const Descriptor& file, void* buffer, u64 length, u64 offset, u64& done) {
  for (done = 0; done < length;) {
    const ssize_t got = ::pread(file.get(), static_cast<u8*>(buffer) + done, length - done,
                                static_cast<off_t>(offset + done));
    if (got == 0) break;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {Error::read, errno};
    done += static_cast<u64>(got);
  }
  return {};
}

Failure writeAll(const Descriptor& file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t put = ::write(file.get(), text.data(), text.size());
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return writeFailure(errno);
    text.remove_prefix(static_cast<std::size_t>(put));
  }
  return {};
}

Failure sizeOf(const Descriptor& file, u64& sizeBytes) {
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return {Error::read, errno};
  sizeBytes = static_cast<u64>(status.st_size);
  return {};
}

// The file that a path means in the end, so that a rename replaces the file and not the link.
std::string withoutLinks(const std::string& path) {
  char* resolved = ::realpath(path.c_str(), nullptr);
  std::string result = resolved != nullptr ? resolved : path;
  std::free(resolved);
  return result;
}

Failure flushFolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return opened.get() >= 0 && waitedSync(opened.get()) == 0 ? Failure() : flushFailure(errno);
}

// A failure to take over the owner is no failure: only root may give files away.
void takeOverModeAndOwner(const std::string& from, const Descriptor& to) {
  struct stat status {};
  if (::stat(from.c_str(), &status) != 0) return;
  if (::fchown(to.get(), status.st_uid, status.st_gid) != 0) errno = 0;
  if (::fchmod(to.get(), status.st_mode & 07777) != 0) errno = 0;
}

Failure writeAndFlush(Descriptor file, std::string_view text) {
  if (const Failure failed = writeAll(file, text)) return failed;
  if (waitedSync(file.get()) != 0) return flushFailure(errno);
  return file.close() == 0 ? Failure() : writeFailure(errno);
}

}  // namespace

Failure writeFailure(int errorNumber) {
  const Failure failed(Error::write, errorNumber);
  return failed.isOutOfSpace() ? failed.as(Error::noSpaceLeft) : failed;
}

Failure flushFailure(int errorNumber) {
  const Failure failed = writeFailure(errorNumber);
  return failed == Error::noSpaceLeft ? failed : failed.as(Error::flush);
}

Failure readFileRange(const std::string& path, void* buffer, u64 offset, u32 count, u32& done) {
  done = 0;
  const Descriptor file = openForReading(path);
  if (file.get() < 0) return {Error::cannotOpenForReading, errno};
  u64 size = 0;
  if (const Failure failed = sizeOf(file, size)) return failed;
  if (offset > size) return Error::seekFailed;
  const u64 cut = std::min<u64>(count, size - offset);
  u64 got = 0;
  const Failure failed = readAll(file, buffer, cut, offset, got);
  done = static_cast<u32>(got);
  return !failed && got != cut ? Error::read : failed;
}

Failure loadTextFile(const std::string& path, std::string& text, u64 mostBytes) {
  text.clear();
  const Descriptor file = openForReading(path);
  if (file.get() < 0) return {Error::cannotOpenForReading, errno};
  u64 size = 0;
  if (const Failure failed = sizeOf(file, size)) return failed;
  if (size > mostBytes) return Error::fileTooLarge;
  try {
    text.resize(size);
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
  u64 done = 0;
  const Failure failed = readAll(file, text.data(), size, 0, done);
  text.resize(done);
  return !failed && done != size ? Error::read : failed;
}

Failure hostFileSize(const std::string& path, u64& sizeBytes) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {Error::noSuchFile, errno};
  sizeBytes = static_cast<u64>(status.st_size);
  return {};
}

Failure createNewFile(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  return file.get() >= 0 ? Failure() : Failure(Error::cannotCreate, errno);
}

Failure replaceFileDurably(const std::string& path, std::string_view text) {
  const std::string target = withoutLinks(path);
  struct stat status {};
  if (::stat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    return {Error::cannotCreate, S_ISDIR(status.st_mode) ? EISDIR : EPERM};
  std::string temporary = target + ".XXXXXX";
  Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (file.get() < 0) return {Error::cannotCreate, errno};
  takeOverModeAndOwner(target, file);
  Failure failed = writeAndFlush(std::move(file), text);
  if (!failed && ::rename(temporary.c_str(), target.c_str()) != 0)
    failed = {Error::cannotCreate, errno};
  if (failed) {
    ::unlink(temporary.c_str());
    return failed;
  }
  return flushFolderOf(target);
}

}  // namespace tallowin
