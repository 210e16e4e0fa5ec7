// What a disk without partitions holds all the same.
#pragma once

#include <optional>
#include <string>

#include "disk/sector_range.h"

namespace tallowin {

// Names what is on a disk without a table, or with an empty one, as the object of a sentence ("a
// LUKS container"): known headers, a GPT that the first sector does not tell of, or, where that has
// no boot signature, anything in it but a disk signature. Nothing when the disk may be taken for a
// blank one. What cannot be read counts as something.
std::optional<std::string> namedDiskContent(DiskDevice& disk);
// The same of a part of a disk.
std::optional<std::string> namedContent(const SectorRange& range);

}  // namespace tallowin
