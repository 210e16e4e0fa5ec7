// Opening an image that is the disk's sectors and nothing else.
#include <array>

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
constexpr std::array kForeignForms = {
    ForeignForm{0, "QFI\xFB"sv, "qcow2"},
    ForeignForm{0, "QED\0"sv, "QED"},
    ForeignForm{0, "vhdxfile"sv, "VHDX"},
    ForeignForm{0x40, "\x7F\x10\xDA\xBE"sv, "VDI"},
    ForeignForm{0, "COWD"sv, "sparse VMDK extent of the old kind (COWD)"},
    ForeignForm{0, "# Disk DescriptorFile"sv,
                "VMDK descriptor of a disk in several files (split, flat or with a parent)"},
};

}  // namespace

std::unique_ptr<ImageContainer> openRaw(std::unique_ptr<ImageFile>& file, ImageFailure& failure) {
  std::array<u8, 512> start{};
  if (file->readAt(0, start) != Error::none) {
    failure = {Error::read, "The start of the image cannot be read."};
    return nullptr;
  }
  for (const ForeignForm& form : kForeignForms) {
    if (!textAt(start, form.offset, form.magic)) continue;
    failure = {Error::unsupportedForm,
               format("This is a %s, which is not supported. Convert it to a raw image, a VHD or a "
                      "monolithic sparse VMDK first.",
                      form.name)};
    return nullptr;
  }
  const u64 sectors = file->sizeBytes() / ImageContainer::kSectorBytes;
  return std::make_unique<FlatImage>(std::move(file), ImageForm::raw, sectors);
}

}  // namespace tallowin
