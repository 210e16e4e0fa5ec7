// An image whose sector n lies at byte n x 512 of the file: raw images and fixed VHDs.
#pragma once

#include "files/image_container.h"

namespace tallowin {

class FlatImage : public ImageContainer {
 public:
  FlatImage(std::unique_ptr<ImageFile> file, ImageForm form, u64 sectorCount,
            std::optional<Geometry> geometry = std::nullopt)
      : ImageContainer(std::move(file)),
        form_(form),
        sectorCount_(sectorCount),
        geometry_(geometry) {}

  ImageForm form() const override { return form_; }
  u64 sectorCount() const override { return sectorCount_; }
  std::optional<Geometry> geometry() const override { return geometry_; }

  Failure read(u64 sector, std::span<u8> bytes) override {
    if (!isInside(sector, bytes.size() / kSectorBytes)) return {Error::read, 0, sector};
    return file_->readAt(sector * kSectorBytes, bytes);
  }
  void willRead(u64 sector, u64 count) override {
    file_->willRead(sector * kSectorBytes, count * kSectorBytes);
  }
  Failure write(u64 sector, std::span<const u8> bytes) override {
    const Failure refused = beginChange(sector, bytes.size() / kSectorBytes);
    return refused ? refused : file_->writeAt(sector * kSectorBytes, bytes);
  }
  Failure clear(u64 sector, u64 count) override {
    const Failure refused = beginChange(sector, count);
    return refused ? refused : clearRange(*file_, sector * kSectorBytes, count * kSectorBytes);
  }
  Failure flush() override { return isReadOnly() ? Failure() : file_->flush(); }

 private:
  ImageForm form_;
  u64 sectorCount_;
  std::optional<Geometry> geometry_;
};

}  // namespace tallowin
