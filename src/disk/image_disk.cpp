#include "disk/image_disk.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "base/bytes.h"
#include "base/text.h"
#include "disk/firmware_geometry.h"
#include "files/image_container.h"

namespace tallowin {
namespace {

constexpr u32 kContainerSectorBytes = ImageContainer::kSectorBytes;
constexpr u32 kOpticalSectorBytes = 2048;
constexpr std::array<u32, 4> kSectorSizes = {512, 1024, 2048, 4096};

DiskType typeOf(ImageForm form) {
  switch (form) {
    case ImageForm::vhd:
      return DiskType::vhdImage;
    case ImageForm::vmdk:
      return DiskType::vmdkImage;
    case ImageForm::raw:
      break;
  }
  return DiskType::rawImage;
}

class ImageDisk : public DiskDevice {
 public:
  ImageDisk(std::unique_ptr<ImageContainer> image, const std::string& path, u8 kind,
            u32 sectorSizeBytes)
      : image_(std::move(image)) {
    traits_.kindByte = 0xFE;
    traits_.deviceKind = kind;
    traits_.type = typeOf(image_->form());
    traits_.commandTimeoutSeconds = 5;
    traits_.deviceClass = 8;
    traits_.maxTransferBytes = kAllOnes32;
    traits_.readOnly = image_->isReadOnly();
    traits_.path = path;
    setSectorSize(sectorSizeBytes);
  }

  void setSectorSize(u32 sectorSizeBytes) { traits_.sectorSizeBytes = sectorSizeBytes; }

  void willRead(u64 lba, u64 count) override {
    const std::lock_guard lock(mutex_);
    if (isInside(lba, count)) image_->willRead(lba * scale(), count * scale());
  }
  Failure flush() override {
    const std::lock_guard lock(mutex_);
    return image_->flush();
  }
  Failure checkSameDisk() override { return image_->file().checkSameFile(); }
  std::optional<u64> sectorCount() override { return image_->sectorCount() / scale(); }

  bool firmwareGeometry(Geometry& geometry) override {
    if (!firmware_) {
      const auto stated = image_->geometry();
      firmware_ = stated ? FirmwareDisk{*stated, true} : imageFirmwareDisk(*this);
    }
    geometry = firmware_->geometry;
    return firmware_->determined;
  }

 protected:
  bool acquireLock() override { return image_->file().lock(); }
  void releaseLock() override { image_->file().unlock(); }
  Failure transferIn(u64 lba, void* buffer, u32 count) override {
    const std::lock_guard lock(mutex_);
    if (!isInside(lba, count)) return {Error::read, 0, lba};
    return inSectors(image_->read(lba * scale(), {static_cast<u8*>(buffer), bytesOf(count)}));
  }
  Failure transferOut(u64 lba, const void* buffer, u32 count) override {
    const std::lock_guard lock(mutex_);
    if (!isInside(lba, count)) return {Error::write, 0, lba};
    return inSectors(
        image_->write(lba * scale(), {static_cast<const u8*>(buffer), bytesOf(count)}));
  }
  std::optional<Failure> zeroFast(u64 lba, u64 count) override {
    const std::lock_guard lock(mutex_);
    if (!isInside(lba, count)) return Failure(Error::write, 0, lba);
    return inSectors(image_->clear(lba * scale(), count * scale()));
  }

 private:
  u32 scale() const { return sectorSize() / kContainerSectorBytes; }
  // Of a failure that counts the container's sectors.
  Failure inSectors(Failure failure) const {
    if (failure.lba != kNoSector) failure.lba /= scale();
    return failure;
  }
  std::size_t bytesOf(u32 count) const { return std::size_t{count} * sectorSize(); }
  bool isInside(u64 lba, u64 count) const {
    const u64 sectors = image_->sectorCount() / scale();
    return lba <= sectors && count <= sectors - lba;
  }

  std::unique_ptr<ImageContainer> image_;
  std::mutex mutex_;
  std::optional<FirmwareDisk> firmware_;
};

bool isSectorSize(u32 size) {
  return std::find(kSectorSizes.begin(), kSectorSizes.end(), size) != kSectorSizes.end();
}

OpenedImage failed(const std::string& path, const ImageFailure& failure) {
  return {nullptr, failure.error, format("%s: %s", path.c_str(), failure.reason.c_str())};
}

}  // namespace

OpenedImage openImageFile(const std::string& path, DiskAccess access, u8 kind, u32 sectorSizeBytes,
                          const SectorSizeProbe& probe) {
  ImageFailure failure;
  if (sectorSizeBytes != 0 && !isSectorSize(sectorSizeBytes))
    return failed(path, {Error::unsupportedForm,
                         "A sector has 512, 1024, 2048 or 4096 bytes, and no other number."});
  std::unique_ptr<ImageFile> file = openHostImageFile(
      path, access == DiskAccess::readOnly ? ImageAccess::readOnly : ImageAccess::readWrite,
      failure);
  if (!file) return failed(path, failure);
  std::unique_ptr<ImageContainer> image =
      kind == kOpticalKind ? openRaw(file, failure) : openImage(file, failure);
  if (!image) return failed(path, failure);

  if (image->sectorCount() == 0)
    return failed(path, {Error::unsupportedForm,
                         "The file is smaller than one sector, so it cannot be a disk."});
  const bool isRaw = image->form() == ImageForm::raw;
  auto disk = std::make_unique<ImageDisk>(std::move(image), path, kind, kContainerSectorBytes);
  if (kind == kOpticalKind) {
    disk->setSectorSize(kOpticalSectorBytes);
  } else if (sectorSizeBytes != 0) {
    disk->setSectorSize(sectorSizeBytes);
  } else if (isRaw && probe) {
    disk->setSectorSize(probe(*disk));
  }
  return {std::move(disk), Error::none, {}};
}

}  // namespace tallowin
