#include "disk/spill_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tallowin {
namespace {

// Not every file system makes files without a name.
int openUnnamed(const std::string& folder) {
  const int unnamed = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (unnamed >= 0) return unnamed;
  std::string name = folder + "/tallowin-XXXXXX";
  const int named = ::mkostemp(name.data(), O_CLOEXEC);
  if (named >= 0) ::unlink(name.c_str());
  return named;
}

}  // namespace

Failure SpillFile::create(const std::string& folder, std::optional<SpillFile>& file) {
  const int descriptor = openUnnamed(folder);
  if (descriptor < 0) return {Error::cannotCreate, errno};
  file.emplace(SpillFile(descriptor));
  return {};
}

SpillFile::~SpillFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

SpillFile::SpillFile(SpillFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)) {}

SpillFile& SpillFile::operator=(SpillFile&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

Failure SpillFile::write(u64 offset, std::span<const u8> bytes) {
  while (!bytes.empty()) {
    const ssize_t put =
        ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return {errno == ENOSPC ? Error::noSpaceLeft : Error::write, errno};
    bytes = bytes.subspan(static_cast<std::size_t>(put));
    offset += static_cast<u64>(put);
  }
  return {};
}

Failure SpillFile::read(u64 offset, std::span<u8> bytes) const {
  while (!bytes.empty()) {
    const ssize_t got =
        ::pread(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {Error::read, errno};
    if (got == 0) {
      std::ranges::fill(bytes, u8{0});
      return {};
    }
    bytes = bytes.subspan(static_cast<std::size_t>(got));
    offset += static_cast<u64>(got);
  }
  return {};
}

}  // namespace tallowin
