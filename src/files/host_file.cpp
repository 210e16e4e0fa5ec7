#include "files/host_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

namespace tallowin {
namespace {

static_assert(O_WRONLY == kOpenWrite && O_RDWR == kOpenReadWrite && O_CREAT == kOpenCreate &&
              O_EXCL == kOpenExclusive && O_TRUNC == kOpenTruncate && O_APPEND == kOpenAppend);

// Closes on every way out; close() reports, the destructor cannot.
class OpenFile {
 public:
  explicit OpenFile(FileHandle file) : file_(file) {}
  ~OpenFile() { fileClose(file_); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  FileHandle get() const { return file_; }
  [[nodiscard]] bool close() { return fileClose(std::exchange(file_, kNoFile)); }

 private:
  FileHandle file_;
};

Failure writeAll(FileHandle file, std::string_view text) {
  while (!text.empty()) {
    u32 done = 0;
    const u32 piece = static_cast<u32>(std::min<std::size_t>(text.size(), kGiB));
    if (const Failure error = fileWrite(file, text.data(), piece, done); error != Error::none)
      return error;
    text.remove_prefix(done);
  }
  return Error::none;
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
  const OpenFile opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return opened.get() != kNoFile && ::fsync(opened.get()) == 0 ? Error::none : Error::write;
}

// A failure to take over the owner is no failure: only root may give files away.
void takeOverModeAndOwner(const std::string& from, FileHandle to) {
  struct stat status {};
  if (::stat(from.c_str(), &status) != 0) return;
  if (::fchown(to, status.st_uid, status.st_gid) != 0) errno = 0;
  if (::fchmod(to, status.st_mode & 07777) != 0) errno = 0;
}

}  // namespace

FileHandle fileOpen(const std::string& path, u32 openFlags, u32 mode) {
  return ::open(path.c_str(), static_cast<int>(openFlags) | O_CLOEXEC, mode);
}

bool fileClose(FileHandle file) { return file == kNoFile || ::close(file) == 0; }

Failure fileRead(FileHandle file, void* buffer, u32 length, u32& done, u32* systemError) {
  for (done = 0; done < length;) {
    const ssize_t got = ::read(file, static_cast<u8*>(buffer) + done, length - done);
    if (got == 0) break;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      if (systemError != nullptr) *systemError = static_cast<u32>(errno);
      return Error::read;
    }
    done += static_cast<u32>(got);
  }
  return Error::none;
}

Failure fileWrite(FileHandle file, const void* buffer, u32 length, u32& done, u32* systemError) {
  for (done = 0; done < length;) {
    const ssize_t put = ::write(file, static_cast<const u8*>(buffer) + done, length - done);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) {
      if (systemError != nullptr) *systemError = static_cast<u32>(errno);
      return errno == ENOSPC ? Error::noSpaceLeft : Error::write;
    }
    done += static_cast<u32>(put);
  }
  return Error::none;
}

Failure fileSeek(FileHandle file, u64 offset, SeekOrigin origin) {
  return ::lseek(file, static_cast<off_t>(offset), static_cast<int>(origin)) < 0 ? Error::seekFailed
                                                                                 : Error::none;
}

bool fileSize(FileHandle file, u64& sizeBytes) {
  const off_t position = ::lseek(file, 0, SEEK_CUR);
  const off_t end = ::lseek(file, 0, SEEK_END);
  if (position < 0 || end < 0 || ::lseek(file, position, SEEK_SET) < 0) return false;
  sizeBytes = static_cast<u64>(end);
  return true;
}

Failure readFileRange(const std::string& path, void* buffer, u64 offset, u32 count, u32& done) {
  done = 0;
  const OpenFile file(fileOpen(path, kOpenRead));
  if (file.get() == kNoFile) return Error::cannotOpenForReading;
  u64 size = 0;
  if (!fileSize(file.get(), size)) return Error::read;
  if (offset > size) return Error::seekFailed;
  if (const Failure error = fileSeek(file.get(), offset, SeekOrigin::start); error != Error::none)
    return error;
  const u32 cut = static_cast<u32>(std::min<u64>(count, size - offset));
  const Failure error = fileRead(file.get(), buffer, cut, done);
  return error == Error::none && done != cut ? Error::read : error;
}

Failure writeWholeFile(const std::string& path, const void* data, u32 length, u32& written) {
  written = 0;
  OpenFile file(fileOpen(path, kOpenWrite | kOpenCreate | kOpenTruncate));
  if (file.get() == kNoFile) return Error::cannotCreate;
  if (const Failure error = fileWrite(file.get(), data, length, written); error != Error::none)
    return error;
  return file.close() ? Error::none : Error::write;
}

Failure loadTextFile(const std::string& path, std::string& text) {
  text.clear();
  const OpenFile file(fileOpen(path, kOpenRead));
  if (file.get() == kNoFile) return Error::cannotOpenForReading;
  u64 size = 0;
  if (!fileSize(file.get(), size)) return Error::read;
  if (size > kAllOnes32) return Error::fileTooLarge;
  try {
    text.resize(size);
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
  u32 done = 0;
  const Failure error = fileRead(file.get(), text.data(), static_cast<u32>(size), done);
  text.resize(done);
  return error == Error::none && done != size ? Error::read : error;
}

Failure saveTextFile(const std::string& path, std::string_view text) {
  if (text.size() > kAllOnes32) return Error::fileTooLarge;
  u32 written = 0;
  return writeWholeFile(path, text.data(), static_cast<u32>(text.size()), written);
}

Failure hostFileSize(const std::string& path, u64& sizeBytes) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return Error::noSuchFile;
  sizeBytes = static_cast<u64>(status.st_size);
  return Error::none;
}

Failure replaceFileDurably(const std::string& path, std::string_view text) {
  const std::string target = withoutLinks(path);
  std::string temporary = target + ".XXXXXX";
  OpenFile file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (file.get() == kNoFile) return Error::cannotCreate;
  takeOverModeAndOwner(target, file.get());
  Failure error = writeAll(file.get(), text);
  if (error == Error::none && ::fsync(file.get()) != 0) error = Error::write;
  if (!file.close() && error == Error::none) error = Error::write;
  if (error == Error::none && ::rename(temporary.c_str(), target.c_str()) != 0)
    error = Error::cannotCreate;
  if (error != Error::none) {
    ::unlink(temporary.c_str());
    return error;
  }
  return flushFolderOf(target);
}

}  // namespace tallowin
