// `ImageFile`: what an image container asks of the file it lies in.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>

#include "base/error.h"
#include "base/types.h"

namespace tallowin {

// Why something could not be opened; the reason is one line for the user.
struct ImageFailure {
  Failure error = Error::none;
  std::string reason;
};

// A file of bytes. The seam of the containers: tests put a file behind it that fails or records.
class ImageFile {
 public:
  virtual ~ImageFile() = default;
  ImageFile(const ImageFile&) = delete;
  ImageFile& operator=(const ImageFile&) = delete;

  virtual u64 sizeBytes() const = 0;
  virtual bool isReadOnly() const = 0;
  // The path by which the user named it; empty when it has none.
  virtual std::string path() const { return {}; }

  // none or read. Reading beyond the end is a failure: what should be there is lost.
  virtual Failure readAt(u64 offset, std::span<u8> bytes) = 0;
  // That is read soon: see DiskDevice::willRead.
  virtual void willRead(u64 offset, u64 bytes) {
    static_cast<void>(offset);
    static_cast<void>(bytes);
  }
  // Writes `bytes` and directly behind them `following`, as one request where it can be; the file
  // grows as needed, and a gap between its end and `offset` reads as zeros. none, write,
  // noSpaceLeft; any part may have been written after a failure.
  virtual Failure writeAt(u64 offset, std::span<const u8> bytes, std::span<const u8> following) = 0;
  Failure writeAt(u64 offset, std::span<const u8> bytes) { return writeAt(offset, bytes, {}); }
  // Makes a range inside the file read as zeros without writing them; what was there may stay on
  // the medium. Nothing, with nothing done, when that is not to be had. write, noSpaceLeft.
  virtual std::optional<Failure> clearFast(u64 offset, u64 bytes) = 0;
  // Cuts or extends (with zeros). write, noSpaceLeft.
  virtual Failure resize(u64 newSizeBytes) = 0;
  // Everything written so far is on the medium, and so is the size. flush, noSpaceLeft.
  virtual Failure flush() = 0;

  // deviceChanged: the path leads to another file or to none by now, or somebody has cut the file.
  virtual Failure checkSameFile() const { return {}; }

  // Advisory lock against other programs; false when somebody else holds it.
  [[nodiscard]] virtual bool lock() { return true; }
  virtual void unlock() {}

 protected:
  ImageFile() = default;
};

// Zeros by clearFast, else by writing them.
Failure clearRange(ImageFile& file, u64 offset, u64 bytes);

enum class ImageAccess { readWrite, readOnly };

// A regular file of the host, opened read-write when that is wanted and the process may read and
// write it. Large requests from aligned memory go past the page cache where the file system
// allows it. Null with cannotOpenForReading when it cannot be opened or is no regular file.
std::unique_ptr<ImageFile> openHostImageFile(const std::string& path, ImageAccess access,
                                             ImageFailure& failure);

}  // namespace tallowin
