// Files of the machine the program runs on: handles, whole files, and replacing one durably.
#pragma once

#include <string>
#include <string_view>

#include "base/error.h"
#include "base/types.h"

namespace tallowin {

// A file descriptor; -1 is invalid.
using FileHandle = i32;
inline constexpr FileHandle kNoFile = -1;

// Open flags: the Linux values.
inline constexpr u32 kOpenRead = 0;
inline constexpr u32 kOpenWrite = 1;
inline constexpr u32 kOpenReadWrite = 2;
inline constexpr u32 kOpenCreate = 0x40;
inline constexpr u32 kOpenExclusive = 0x80;
inline constexpr u32 kOpenTruncate = 0x200;
inline constexpr u32 kOpenAppend = 0x400;

enum class SeekOrigin : u32 { start = 0, current = 1, end = 2 };

// kNoFile, with errno set, when the file cannot be opened. `mode` is that of a created file.
[[nodiscard]] FileHandle fileOpen(const std::string& path, u32 openFlags, u32 mode = 0600);
// Closing kNoFile succeeds.
bool fileClose(FileHandle file);
// none or read. `done` is what came; fewer bytes than asked for is no error here. `systemError`
// receives errno when it failed.
Failure fileRead(FileHandle file, void* buffer, u32 length, u32& done, u32* systemError = nullptr);
// none, write, or noSpaceLeft. As above.
Failure fileWrite(FileHandle file, const void* buffer, u32 length, u32& done,
                  u32* systemError = nullptr);
// none or seekFailed.
Failure fileSeek(FileHandle file, u64 offset, SeekOrigin origin);
// Leaves the position as it was.
[[nodiscard]] bool fileSize(FileHandle file, u64& sizeBytes);

// `count` bytes from `offset`, fewer when the file ends before; `done` is what came.
// cannotOpenForReading, seekFailed (the offset lies beyond the end), read.
Failure readFileRange(const std::string& path, void* buffer, u64 offset, u32 count, u32& done);
// Creates or truncates the file (mode 0600). cannotCreate, write, noSpaceLeft; after the last two
// the file holds the first `written` bytes.
Failure writeWholeFile(const std::string& path, const void* data, u32 length, u32& written);
// The whole file, whatever bytes it holds. cannotOpenForReading, read, fileTooLarge (a size above
// 32 bits; `text` is empty then), outOfMemory.
Failure loadTextFile(const std::string& path, std::string& text);
// As writeWholeFile.
Failure saveTextFile(const std::string& path, std::string_view text);
// none or noSuchFile.
Failure hostFileSize(const std::string& path, u64& sizeBytes);

// Puts `text` in the place of the file, so that after a power cut there is either the old or the
// new content, whole. A symbolic link stays one; mode and owner of an existing file are kept, a
// new file has mode 0600. cannotCreate, write, noSpaceLeft: the old file is untouched, except
// that after a failed flush of the folder the new text is in place but may not survive a cut.
Failure replaceFileDurably(const std::string& path, std::string_view text);

}  // namespace tallowin
