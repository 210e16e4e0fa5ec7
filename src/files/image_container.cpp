#include "files/image_container.h"

namespace tallowin {

std::unique_ptr<ImageContainer> openImage(std::unique_ptr<ImageFile>& file, ImageFailure& failure) {
  for (const auto open : {openVhd, openVmdk, openRaw}) {
    failure = {};
    auto image = open(file, failure);
    if (failure.error == Error::corrupt)
      failure.reason += " Restore it from a copy, or have the program that made it repair it.";
    if (image || failure.error != Error::notThisFormat) return image;
  }
  return nullptr;
}

}  // namespace tallowin
