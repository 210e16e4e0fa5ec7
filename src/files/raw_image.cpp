// Opening an image that is the disk's sectors and nothing else.
#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "base/bytes.h"
#include "base/text.h"
#include "files/flat_image.h"

namespace tallowin {
namespace {

// Containers that are recognised so that nobody partitions the container itself.
struct ForeignForm {
  std::size_t offset;
  std::string_view magic;
  const char* name;
};
using namespace std::string_view_literals;
constexpr std::array kAtStart = {
    ForeignForm{0, "QFI\xFB\0\0\0\x01"sv, "qcow"},
    ForeignForm{0, "QFI\xFB"sv, "qcow2"},
    ForeignForm{0, "QED\0"sv, "QED"},
    ForeignForm{0, "vhdxfile"sv, "VHDX"},
    ForeignForm{0x40, "\x7F\x10\xDA\xBE"sv, "VDI"},
    ForeignForm{0, "WithoutFreeSpace"sv, "Parallels disk"},
    ForeignForm{0, "WithouFreSpacExt"sv, "Parallels disk"},
    ForeignForm{0, "Bochs Virtual HD Image"sv, "Bochs disk"},
    ForeignForm{0, "COWD"sv, "sparse VMDK extent of the old kind (COWD)"},
    ForeignForm{0, "\xBE\xBA\xFE\xCA\0\0\0\0"sv, "sparse VMDK extent of the kind SESPARSE"},
    ForeignForm{0, "# Disk DescriptorFile"sv,
                "VMDK descriptor of a disk in several files (split, flat or with a parent)"},
    ForeignForm{0, "EVF\x09\x0D\x0A\xFF\0"sv, "EWF evidence file"},
    ForeignForm{0, "MSWIM\0\0\0"sv, "WIM archive"},
    ForeignForm{0, "\x1F\x8B\x08"sv, "file packed with gzip"},
    ForeignForm{0,
                "\xFD"
                "7zXZ\0"sv,
                "file packed with xz"},
    ForeignForm{0, "\x28\xB5\x2F\xFD"sv, "file packed with zstd"},
    ForeignForm{0, "7z\xBC\xAF\x27\x1C"sv, "file packed with 7-Zip"},
    ForeignForm{0, "PK\x03\x04"sv, "zip archive"},
};
// In the last sector.
constexpr std::array kAtEnd = {
    ForeignForm{0, "koly"sv, "DMG image"},
};

const char* foreignName(std::span<const ForeignForm> forms, std::span<const u8> bytes) {
  const auto found = std::ranges::find_if(
      forms, [&](const ForeignForm& form) { return textAt(bytes, form.offset, form.magic); });
  return found == forms.end() ? nullptr : found->name;
}

}  // namespace

std::unique_ptr<ImageContainer> openRaw(std::unique_ptr<ImageFile>& file, ImageFailure& failure) {
  std::array<u8, ImageContainer::kSectorBytes> bytes{};
  const u64 size = file->sizeBytes();
  const std::span<u8> sector = std::span(bytes).first(std::min<u64>(bytes.size(), size));
  const char* foreign = nullptr;
  for (const auto& [forms, offset] :
       {std::pair(std::span<const ForeignForm>(kAtStart), u64{0}),
        std::pair(std::span<const ForeignForm>(kAtEnd), size - sector.size())}) {
    if (const Failure failed = file->readAt(offset, sector)) {
      failure = {failed, "The image cannot be read."};
      return nullptr;
    }
    if (foreign == nullptr) foreign = foreignName(forms, sector);
  }
  if (foreign != nullptr) {
    failure = {Error::unsupportedForm,
               format("This is a %s, which is not supported. Convert it to a raw image, a VHD or a "
                      "monolithic sparse VMDK first.",
                      foreign)};
    return nullptr;
  }
  const u64 sectors = file->sizeBytes() / ImageContainer::kSectorBytes;
  return std::make_unique<FlatImage>(std::move(file), ImageForm::raw, sectors);
}

}  // namespace tallowin
