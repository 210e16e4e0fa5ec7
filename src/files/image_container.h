// Disk images by their content: raw, VHD and VMDK.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "base/error.h"
#include "base/geometry.h"
#include "base/types.h"
#include "files/image_file.h"

namespace tallowin {

enum class ImageForm { raw, vhd, vmdk };

// A run of sectors of 512 bytes, kept in a file.
//
// Requests must lie inside the image (read, write otherwise). A failed request may be done in
// part: each sector then holds its old or its new content, and the image still opens. What was
// written is on the medium, and found there after a power cut, once flush() answered none;
// destroying an image flushes, and tells nobody when that failed.
class ImageContainer {
 public:
  static constexpr u32 kSectorBytes = 512;

  virtual ~ImageContainer() = default;
  ImageContainer(const ImageContainer&) = delete;
  ImageContainer& operator=(const ImageContainer&) = delete;

  virtual ImageForm form() const = 0;
  virtual u64 sectorCount() const = 0;
  virtual bool isReadOnly() const { return file_->isReadOnly(); }
  // As the image states it; nothing when it states none that a firmware could use.
  virtual std::optional<Geometry> geometry() const { return std::nullopt; }

  // `bytes` are whole sectors. none, read. A failure may name the first sector of the part that
  // failed.
  virtual Failure read(u64 sector, std::span<u8> bytes) = 0;
  // See DiskDevice::willRead.
  virtual void willRead(u64 sector, u64 count) {
    static_cast<void>(sector);
    static_cast<void>(count);
  }
  // Over what is there, in place. none, write, noSpaceLeft, readOnlyDisk, read (a map could not be
  // read), fileTooLarge (the image's tables cannot name a place that far out).
  virtual Failure write(u64 sector, std::span<const u8> bytes) = 0;
  // Makes sectors read as zeros by the fastest way there is: the image does not grow, and what was
  // there may stay on the medium. Errors as write.
  virtual Failure clear(u64 sector, u64 count) = 0;
  // Also brings the file into the form in which it is left; closing has nothing to do after it.
  // Errors of write, and flush.
  virtual Failure flush() = 0;

  ImageFile& file() { return *file_; }

 protected:
  explicit ImageContainer(std::unique_ptr<ImageFile> file) : file_(std::move(file)) {}
  bool isInside(u64 sector, u64 count) const {
    return sector <= sectorCount() && count <= sectorCount() - sector;
  }
  // readOnlyDisk, or write for sectors that the image does not have.
  Failure beginChange(u64 sector, u64 count) {
    if (isReadOnly()) return {Error::readOnlyDisk, 0, sector};
    if (!isInside(sector, count)) return {Error::write, 0, sector};
    isChanged_ = true;
    return {};
  }

  std::unique_ptr<ImageFile> file_;
  bool isChanged_ = false;  // since the last flush
};

// Each takes `file` over when it succeeds and leaves it otherwise. notThisFormat: try the next;
// unsupportedForm, corrupt, read, outOfMemory: the search ends, the failure says why.
std::unique_ptr<ImageContainer> openVhd(std::unique_ptr<ImageFile>& file, ImageFailure& failure);
std::unique_ptr<ImageContainer> openVmdk(std::unique_ptr<ImageFile>& file, ImageFailure& failure);
// Refuses containers of other formats, which raw access would ruin. A rest that makes no sector
// is left out.
std::unique_ptr<ImageContainer> openRaw(std::unique_ptr<ImageFile>& file, ImageFailure& failure);

// VHD, VMDK, raw, in this order.
std::unique_ptr<ImageContainer> openImage(std::unique_ptr<ImageFile>& file, ImageFailure& failure);

}  // namespace tallowin
