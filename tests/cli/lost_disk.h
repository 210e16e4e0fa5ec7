// Disks with partitions of many kinds, made by the programs that make such volumes, on random data
// and on what older volumes have left.
#pragma once

#include <string>

#include "support/temp_folder.h"

namespace tallowin {

enum class LostTable { mbr, gpt };

// The same for the same seed. The image lies in the folder, and its table is still there.
std::string makeLostDisk(TempFolder& folder, LostTable table, unsigned seed);
// Takes the table away: of an MBR the first sector, which leaves the EBRs; of a GPT its entries.
void loseTable(const std::string& path, LostTable table);

}  // namespace tallowin
