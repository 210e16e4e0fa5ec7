// Whole files of the machine the program runs on, and replacing one durably.
#pragma once

#include <string>
#include <string_view>

#include "base/error.h"
#include "base/types.h"

namespace tallowin {

// In all of these `systemError` of the failure is the errno of the call that failed.

// `count` bytes from `offset`, fewer when the file ends before; `done` is what came.
// cannotOpenForReading, seekFailed (the offset lies beyond the end), read.
Failure readFileRange(const std::string& path, void* buffer, u64 offset, u32 count, u32& done);
// The whole file, whatever bytes it holds. cannotOpenForReading, read, fileTooLarge (more than
// `mostBytes`; `text` is empty then), outOfMemory.
Failure loadTextFile(const std::string& path, std::string& text, u64 mostBytes = kAllOnes32);
// none or noSuchFile.
Failure hostFileSize(const std::string& path, u64& sizeBytes);

// Makes an empty file of mode 0600 where there was none. cannotCreate: nothing was made, or what
// stands there is untouched.
Failure createNewFile(const std::string& path);
// Puts `text` in the place of the file, so that after a power cut there is either the old or the
// new content, whole. A symbolic link stays one; mode and owner of an existing file are kept, a
// new file has mode 0600. cannotCreate (also for what exists and is no regular file, as a device),
// write, noSpaceLeft, flush: the old file is untouched, except that after a failed flush of the
// folder the new text is in place but may not survive a cut.
Failure replaceFileDurably(const std::string& path, std::string_view text);

}  // namespace tallowin
