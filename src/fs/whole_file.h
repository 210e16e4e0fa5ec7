// A part of a file by its path.
#pragma once

#include <span>
#include <string_view>

#include "fs/file_system.h"

namespace tallowin {

// From `offset` on, as much as the buffer takes and the file has; `done` is what came. seekFailed:
// the offset lies beyond the end; else those of FileSystem::open and File::read.
Failure readFileRange(FileSystem& files, std::string_view path, std::span<u8> buffer, u64 offset,
                      u64& done);

}  // namespace tallowin
