#include "fs/whole_file.h"

namespace tallowin {

Failure readFileRange(FileSystem& files, std::string_view path, std::span<u8> buffer, u64 offset,
                      u64& done) {
  done = 0;
  File file;
  FileInfo info;
  if (const Failure failed = files.open(path, {}, file)) return failed;
  if (const Failure failed = file.info(info)) return failed;
  if (offset > info.sizeBytes) return Error::seekFailed;
  if (const Failure failed = file.seek(static_cast<i64>(offset))) return failed;
  return file.read(buffer, done);
}

}  // namespace tallowin
