// A VMDK from the input, behind a byte that says whether it is read-only and the work done on it.
#include "image_work.h"

using namespace tallowin;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  constexpr std::size_t kHead = 1 + ImageWork::kInputBytes;
  if (size < kHead || size > 64 * kKiB) return 0;
  const auto bytes = std::make_shared<std::vector<u8>>(data + kHead, data + size);
  ImageWork(openVmdk, bytes, data[0] == 1).run({data + 1, ImageWork::kInputBytes});
  return 0;
}
