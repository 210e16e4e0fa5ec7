// Writes a new, empty FAT file system.
#pragma once

#include <string>

#include "fat/fat_code_page.h"
#include "probe/file_system_kind.h"

namespace tallowin {

// The `format` of the FAT kinds: see FileSystemKind. The boot sector is invalid from the first
// write to the last, which comes when all else is on the medium: a format that was cut leaves no
// volume. clearingFailed, beside what stands there: a write failed before the FATs were written.
Failure formatFat(const SectorRange& range, const FormatWish& wish, Job& job, FormatReport& report);

// The label as it is stored: upper case, 11 bytes, '_' for what may not stand in it or is not in
// the code page. All blanks when there is none.
std::string fatLabelText(std::string_view label, const FatCodePage& codePage);

}  // namespace tallowin
