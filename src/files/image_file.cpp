#include "files/image_file.h"

#include <algorithm>
#include <vector>

namespace tallowin {

Failure writeZerosAt(ImageFile& file, u64 offset, u64 bytes) {
  if (bytes == 0 || file.zeroFast(offset, bytes)) return Error::none;
  const std::vector<u8> zeros(std::min<u64>(bytes, kMiB));
  while (bytes != 0) {
    const u64 piece = std::min<u64>(bytes, zeros.size());
    if (const Failure error = file.writeAt(offset, std::span(zeros).first(piece));
        error != Error::none)
      return error;
    offset += piece;
    bytes -= piece;
  }
  return Error::none;
}

}  // namespace tallowin
