// A VHD from the input, behind a byte that says whether it is read-only and the work done on it.
#include "files/vhd_record.h"
#include "image_work.h"

using namespace tallowin;

namespace {

// No input would find checksums by itself.
template <typename Record>
void setChecksum(std::vector<u8>& bytes, u64 offset) {
  if (auto* record = recordAt<Record>(std::span(bytes), offset))
    record->checksum = vhdChecksum(*record);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  constexpr std::size_t kHead = 1 + ImageWork::kInputBytes;
  if (size < kHead || size > 64 * kKiB) return 0;
  const auto bytes = std::make_shared<std::vector<u8>>(data + kHead, data + size);
  setChecksum<VhdDynamicHeader>(*bytes, kVhdDynamicHeaderOffset);
  if (bytes->size() >= sizeof(VhdFooter))
    setChecksum<VhdFooter>(*bytes, bytes->size() - sizeof(VhdFooter));
  ImageWork(openVhd, bytes, data[0] == 1).run({data + 1, ImageWork::kInputBytes});
  return 0;
}
