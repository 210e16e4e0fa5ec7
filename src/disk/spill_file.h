// A file without a name, for what does not fit into memory.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "base/error.h"
#include "base/types.h"

namespace tallowin {

// Gone when the object is, whatever happens. Holes take no room.
class SpillFile {
 public:
  // In this folder. cannotCreate.
  static Failure create(const std::string& folder, std::optional<SpillFile>& file);
  ~SpillFile();
  SpillFile(SpillFile&& other) noexcept;
  SpillFile& operator=(SpillFile&& other) noexcept;
  SpillFile(const SpillFile&) = delete;
  SpillFile& operator=(const SpillFile&) = delete;

  // write, noSpaceLeft.
  Failure write(u64 offset, std::span<const u8> bytes);
  // What was never written reads as zeros. read.
  Failure read(u64 offset, std::span<u8> bytes) const;

 private:
  explicit SpillFile(int descriptor) : descriptor_(descriptor) {}

  int descriptor_ = -1;  // owned
};

}  // namespace tallowin
