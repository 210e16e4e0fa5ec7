// Images on the host's file system: the page cache for small requests, direct I/O for bulk.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "base/text.h"
#include "base/waiting.h"
#include "files/descriptor.h"
#include "files/image_file.h"

namespace tallowin {
namespace {

constexpr u64 kDirectMinBytes = 256 * kKiB;

// What offsets, lengths and addresses of direct requests must be multiples of.
u64 directAlignment(int descriptor) {
#ifdef STATX_DIOALIGN
  struct statx status {};
  if (::statx(descriptor, "", AT_EMPTY_PATH, STATX_DIOALIGN, &status) == 0 &&
      (status.stx_mask & STATX_DIOALIGN) != 0 && status.stx_dio_offset_align != 0)
    return std::max<u64>(status.stx_dio_offset_align, status.stx_dio_mem_align);
#endif
  return 4096;
}

class HostImageFile : public ImageFile {
 public:
  HostImageFile(std::string path, Descriptor cached, Descriptor direct, const struct stat& status,
                bool readOnly)
      : path_(std::move(path)),
        cached_(std::move(cached)),
        direct_(std::move(direct)),
        directAlignment_(direct_.get() >= 0 ? directAlignment(direct_.get()) : 0),
        blockBytes_(std::max(static_cast<u64>(status.st_blksize), directAlignment_)),
        sizeBytes_(static_cast<u64>(status.st_size)),
        readOnly_(readOnly) {}

  u64 sizeBytes() const override { return sizeBytes_; }
  bool isReadOnly() const override { return readOnly_; }
  std::string path() const override { return path_; }

  Failure readAt(u64 offset, std::span<u8> bytes) override {
    while (!bytes.empty()) {
      const bool direct = isDirect(offset, bytes);
      const i64 got =
          waitedRead((direct ? direct_ : cached_).get(), bytes.data(), bytes.size(), offset);
      if (got < 0) {
        if (mayRetry(direct)) continue;
        return {Error::read, errno};
      }
      if (got == 0) return Error::read;
      bytes = bytes.subspan(static_cast<std::size_t>(got));
      offset += static_cast<u64>(got);
    }
    return {};
  }

  void willRead(u64 offset, u64 bytes) override {
    static_cast<void>(::posix_fadvise(cached_.get(), static_cast<off_t>(offset),
                                      static_cast<off_t>(bytes), POSIX_FADV_WILLNEED));
  }

  // Direct until the first large request beside the file system's blocks, as in a dynamic VHD of
  // another program: the file system serialises such requests, and direct ones next to cached ones
  // wait for these.
  Failure writeAt(u64 offset, std::span<const u8> bytes, std::span<const u8> following) override {
    if (bytes.size() + following.size() >= kDirectMinBytes && offset % blockBytes_ != 0)
      writesDirectly_ = false;
    while (!bytes.empty() || !following.empty()) {
      const bool direct = writesDirectly_ && isDirect(offset, bytes, following);
      const i64 put = waitedWrite((direct ? direct_ : cached_).get(), bytes, following, offset);
      if (put <= 0) {
        if (put < 0 && mayRetry(direct)) continue;
        return put < 0 ? writeFailure(errno) : Failure(Error::write);
      }
      offset += static_cast<u64>(put);
      sizeBytes_ = std::max(sizeBytes_, offset);
      const std::size_t ofFirst =
          std::min<std::size_t>(static_cast<std::size_t>(put), bytes.size());
      bytes = bytes.subspan(ofFirst);
      following = following.subspan(static_cast<std::size_t>(put) - ofFirst);
    }
    return {};
  }

  std::optional<Failure> clearFast(u64 offset, u64 bytes) override {
    for (const int mode :
         {FALLOC_FL_ZERO_RANGE | FALLOC_FL_KEEP_SIZE, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE}) {
      int result = 0;
      do {
        result = blockingCall([&] {
          return ::fallocate(cached_.get(), mode, static_cast<off_t>(offset),
                             static_cast<off_t>(bytes));
        });
      } while (result != 0 && errno == EINTR);
      if (result == 0) return Failure();
      // A full file system has no room for zeros, but a hole may still be had.
      const bool isNotToBeHad = errno == EOPNOTSUPP || errno == ENOSYS || errno == EINVAL;
      if (!isNotToBeHad && errno != ENOSPC) return writeFailure(errno);
    }
    return std::nullopt;
  }

  Failure resize(u64 newSizeBytes) override {
    const int result =
        blockingCall([&] { return ::ftruncate(cached_.get(), static_cast<off_t>(newSizeBytes)); });
    if (result != 0) return writeFailure(errno);
    sizeBytes_ = newSizeBytes;
    return {};
  }

  Failure flush() override {
    return waitedSync(cached_.get()) == 0 ? Failure() : flushFailure(errno);
  }

  Failure checkSameFile() const override {
    struct stat named {};
    struct stat opened {};
    if (::stat(path_.c_str(), &named) != 0 || ::fstat(cached_.get(), &opened) != 0)
      return {Error::deviceChanged, errno};
    const bool isSame = named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
    return isSame && static_cast<u64>(opened.st_size) >= sizeBytes_ ? Error::none
                                                                    : Error::deviceChanged;
  }

  bool lock() override { return ::flock(cached_.get(), LOCK_EX | LOCK_NB) == 0; }
  void unlock() override { ::flock(cached_.get(), LOCK_UN); }

 private:
  bool isDirect(u64 offset, std::span<const u8> bytes, std::span<const u8> following = {}) const {
    if (direct_.get() < 0 || bytes.size() + following.size() < kDirectMinBytes) return false;
    const u64 bits = offset | reinterpret_cast<std::uintptr_t>(bytes.data()) | bytes.size() |
                     reinterpret_cast<std::uintptr_t>(following.data()) | following.size();
    return bits % directAlignment_ == 0;
  }

  // After a failed call: a signal, or a file system that does not keep what it said about direct
  // requests, for which the page cache takes over.
  bool mayRetry(bool direct) {
    if (errno == EINTR) return true;
    if (!direct || errno != EINVAL) return false;
    return direct_.close() == 0;
  }

  std::string path_;
  Descriptor cached_;
  Descriptor direct_;
  u64 directAlignment_;
  u64 blockBytes_;  // of the file system
  bool writesDirectly_ = true;
  u64 sizeBytes_;
  bool readOnly_;
};

}  // namespace

std::unique_ptr<ImageFile> openHostImageFile(const std::string& path, ImageAccess access,
                                             ImageFailure& failure) {
  const bool readOnly = access == ImageAccess::readOnly || ::access(path.c_str(), R_OK | W_OK) != 0;
  const int flags = (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC | O_NONBLOCK;
  Descriptor cached(::open(path.c_str(), flags));
  if (cached.get() < 0) {
    failure = {{Error::cannotOpenForReading, errno},
               format("The file cannot be opened: %s.", std::strerror(errno))};
    return nullptr;
  }
  struct stat status {};
  if (::fstat(cached.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    failure = {Error::cannotOpenForReading,
               "It is no ordinary file; only those can be opened as images."};
    return nullptr;
  }
  Descriptor direct(::open(path.c_str(), flags | O_DIRECT));
  // Without it a pipe in place of the file would be waited for; with it a ring would not wait.
  for (const Descriptor* each : {&cached, &direct})
    ::fcntl(each->get(), F_SETFL, ::fcntl(each->get(), F_GETFL) & ~O_NONBLOCK);
  return std::make_unique<HostImageFile>(path, std::move(cached), std::move(direct), status,
                                         readOnly);
}

}  // namespace tallowin
