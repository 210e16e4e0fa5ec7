// Work on an image from a fuzzer's input, and what must hold of any image that opens.
#pragma once

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>

#include "files/image_container.h"
#include "support/image_files.h"

namespace tallowin {

inline void require(bool holds) {
  if (!holds) std::abort();
}

// On a small host: images that state large blocks meet the end of the space.
class SmallHostFile : public MemoryImageFile {
 public:
  static constexpr u64 kMaxBytes = kMiB;

  using MemoryImageFile::MemoryImageFile;

  Failure writeAt(u64 offset, std::span<const u8> bytes, std::span<const u8> following) override {
    const u64 size = bytes.size() + following.size();
    if (offset > kMaxBytes || size > kMaxBytes - offset) return Error::noSpaceLeft;
    return MemoryImageFile::writeAt(offset, bytes, following);
  }
  Failure resize(u64 newSizeBytes) override {
    return newSizeBytes > kMaxBytes ? Error::noSpaceLeft : MemoryImageFile::resize(newSizeBytes);
  }
};

// A sector is filled with one byte; sectors whose content is not known are not in the map.
class ImageWork {
 public:
  using Open = decltype(&openVhd);
  static constexpr std::size_t kStepBytes = 4;
  static constexpr std::size_t kSteps = 12;
  static constexpr std::size_t kInputBytes = kSteps * kStepBytes;

  ImageWork(Open open, FileBytes bytes, bool readOnly)
      : open_(open), bytes_(std::move(bytes)), readOnly_(readOnly) {}

  void run(std::span<const u8> steps) {
    if (!reopen()) return;
    const std::vector<u8> before = *bytes_;
    const u64 sectors = image_->sectorCount();
    const bool mayWrite = !image_->isReadOnly();
    for (std::size_t i = 0; i < kSteps; ++i) step(steps.subspan(i * kStepBytes, kStepBytes), i);
    if (image_->flush() != Error::none) known_.clear();
    image_.reset();
    require(bytes_->size() <= std::max<u64>(before.size(), SmallHostFile::kMaxBytes));
    require(mayWrite || *bytes_ == before);
    require(reopen() && image_->sectorCount() == sectors);
    for (const auto& [sector, fill] : known_) requireFill(sector, fill);
  }

 private:
  static constexpr u32 kSector = ImageContainer::kSectorBytes;

  bool reopen() {
    std::unique_ptr<ImageFile> file = std::make_unique<SmallHostFile>(bytes_, readOnly_);
    ImageFailure failure;
    image_ = open_(file, failure);
    require((image_ == nullptr) == (failure.error != Error::none));
    return image_ != nullptr;
  }

  // Byte 0: what to do, byte 1: sectors, bytes 2 and 3: where, counted from the start or the end.
  void step(std::span<const u8> bytes, std::size_t number) {
    const u64 sectors = image_->sectorCount();
    const u64 distance = (u64{bytes[2]} << 8 | bytes[3]) % sectors;
    const u64 first = (bytes[0] & 0x80) != 0 ? sectors - 1 - distance : distance;
    const u64 count = bytes[1];
    const bool isInside = count <= sectors - first;
    switch (bytes[0] % 8) {
      case 0: {
        std::vector<u8> got(count * kSector);
        const Failure error = image_->read(first, got);
        require(isInside || error == Error::read);
        break;
      }
      case 1:
        expect(image_->clear(first, count), first, count, isInside, 0);
        break;
      case 2:
        if (image_->flush() != Error::none) known_.clear();
        break;
      case 3:
        if (image_->flush() != Error::none) known_.clear();
        require(reopen());
        break;
      default: {
        const auto fill = static_cast<u8>(number + 1);
        const std::vector<u8> data(count * kSector, fill);
        expect(image_->write(first, data), first, count, isInside, fill);
      }
    }
  }

  // After a change that answered `error`.
  void expect(Failure error, u64 first, u64 count, bool isInside, u8 fill) {
    if (!isInside || image_->isReadOnly()) {
      require(error != Error::none);
      return;
    }
    for (u64 sector = first; sector < first + count; ++sector) {
      if (error != Error::none) {
        known_.erase(sector);
        continue;
      }
      known_[sector] = fill;
    }
    if (error == Error::none && count != 0) requireFill(first + count - 1, fill);
  }

  void requireFill(u64 sector, u8 fill) {
    std::array<u8, kSector> got{};
    require(image_->read(sector, got) == Error::none);
    require(std::ranges::all_of(got, [&](u8 byte) { return byte == fill; }));
  }

  Open open_;
  FileBytes bytes_;
  bool readOnly_;
  std::unique_ptr<ImageContainer> image_;
  std::map<u64, u8> known_;
};

}  // namespace tallowin
