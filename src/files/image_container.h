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
// destroying an image writes out what was not flushed, without a promise.
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

  // `bytes` are whole sectors. none, read.
  virtual Failure read(u64 sector, std::span<u8> bytes) = 0;
  // none, write, noSpaceLeft, read (a map could not be read), fileTooLarge (the image's tables
  // have no room for the sector), corrupt (a map names what it must not).
  virtual Failure write(u64 sector, std::span<const u8> bytes) = 0;
  // As write, and the image does not grow.
  virtual Failure writeZeros(u64 sector, u64 count) = 0;
  virtual Failure flush() = 0;

  ImageFile& file() { return *file_; }

 protected:
  explicit ImageContainer(std::unique_ptr<ImageFile> file) : file_(std::move(file)) {}
  bool isInside(u64 sector, u64 count) const {
    return sector <= sectorCount() && count <= sectorCount() - sector;
  }

  std::unique_ptr<ImageFile> file_;
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
