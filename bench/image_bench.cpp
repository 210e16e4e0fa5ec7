// Bulk transfers through growing and fixed images, against the same through a raw image: each goal
// is at most 1.2 times its time.
#include <unistd.h>

#include <array>
#include <cstdio>

#include "disk/image_disk.h"
#include "disk/transfer_buffer.h"
#include "stopwatch.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

constexpr u64 kBytes = 512 * kMiB;
// A VHD has whole cylinders only, so the images are somewhat larger than what is transferred.
constexpr u64 kImageBytes = kBytes + 4 * kMiB;
constexpr u32 kPiece = kMiB;
constexpr u32 kPieceSectors = kPiece / 512;
constexpr int kRounds = 5;

struct Form {
  const char* name;
  const char* format;  // as the program that makes it calls it
  const char* options;
};
constexpr std::array kForms = {
    Form{"raw", "raw", "preallocation=off"},
    Form{"fixed VHD", "vpc", "subformat=fixed,force_size=on"},
    Form{"dynamic VHD", "vpc", "subformat=dynamic,force_size=on"},
    Form{"sparse VMDK", "vmdk", "subformat=monolithicSparse"},
};

class Image {
 public:
  Image(const TempFolder& folder, const Form& form)
      : form_(form), path_(folder.file(form.format) + form.options) {}
  ~Image() { ::unlink(path_.c_str()); }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  const char* name() const { return form_.name; }

  bool make() {
    disk_.reset();
    ::unlink(path_.c_str());
    const ProgramResult made = runProgram({"qemu-img", "create", "-q", "-f", form_.format, "-o",
                                           form_.options, path_, std::to_string(kImageBytes)});
    if (made.status == 0)
      disk_ = openImageFile(path_, DiskAccess::readWrite, kHardDiskKind, 512).disk;
    return disk_ != nullptr;
  }
  bool write(const u8* buffer) {
    for (u64 lba = 0; lba < kBytes / 512; lba += kPieceSectors) {
      if (disk_->writeSectors(lba, buffer, kPieceSectors) != Error::none) return false;
    }
    return disk_->flush() == Error::none;
  }
  bool read(u8* buffer) {
    for (u64 lba = 0; lba < kBytes / 512; lba += kPieceSectors) {
      if (disk_->readSectors(lba, buffer, kPieceSectors) != Error::none) return false;
    }
    return true;
  }

 private:
  Form form_;
  std::string path_;
  std::unique_ptr<DiskDevice> disk_;
};

int run() {
  const TempFolder folder;
  TransferBuffer buffer(kPiece);
  for (std::size_t i = 0; i < kPiece; ++i) buffer.data()[i] = static_cast<u8>(i * 7 + 1);
  std::vector<std::unique_ptr<Image>> images;
  images.reserve(kForms.size());
  for (const Form& form : kForms) images.push_back(std::make_unique<Image>(folder, form));

  const auto contenders = [&](const auto& work) {
    std::vector<Contender> all;
    all.reserve(images.size());
    for (const auto& image : images) all.push_back({image->name(), [&] { return work(*image); }});
    return all;
  };
  constexpr auto kMebibytes = static_cast<double>(kBytes) / kMiB;
  const bool done =
      compare(
          "make, then the first write and flush", kMebibytes, kRounds,
          contenders([&](Image& image) { return image.make() && image.write(buffer.data()); })) &&
      compare("write over it and flush", kMebibytes, kRounds,
              contenders([&](Image& image) { return image.write(buffer.data()); })) &&
      compare("read", kMebibytes, kRounds,
              contenders([&](Image& image) { return image.read(buffer.data()); }));
  return done ? 0 : 1;
}

}  // namespace
}  // namespace tallowin

int main() { return tallowin::run(); }
