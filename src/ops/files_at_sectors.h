// Which files lie on given sectors.
#pragma once

#include <string>
#include <vector>

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// For the user: the files and directories of a volume that these sectors of the disk cost, found
// by reading it as if the sectors could not be read. Empty without sectors.
std::string filesAtSectorsText(const OperationContext& context, const SectorRange& volume, u16 type,
                               const std::vector<u64>& sectors);

}  // namespace tallowin
