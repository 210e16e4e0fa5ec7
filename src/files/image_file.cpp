#include "files/image_file.h"

#include <algorithm>
#include <vector>

namespace tallowin {

Failure clearRange(ImageFile& file, u64 offset, u64 bytes) {
  if (bytes == 0) return {};
  if (const std::optional<Failure> cleared = file.clearFast(offset, bytes)) return *cleared;
  const std::vector<u8> zeros(std::min<u64>(bytes, kMiB));
  while (bytes != 0) {
    const u64 piece = std::min<u64>(bytes, zeros.size());
    if (const Failure failed = file.writeAt(offset, std::span(zeros).first(piece))) return failed;
    offset += piece;
    bytes -= piece;
  }
  return {};
}

}  // namespace tallowin
