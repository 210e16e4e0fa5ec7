// What a change of the disk type means for the user: told before the question is answered.
#pragma once

#include <string>

#include "ptable/convert.h"

namespace tallowin {

// What comes with the new table, what comes back from the `earlier` MBR, and what is not kept; ends
// with a line break where it says anything.
std::string convertConsequences(Drive& drive, Scheme target, const EarlierMbr* earlier);

// Why the table has to be repaired first, and how; empty when it is sound.
std::string repairFirstText(Drive& drive);

}  // namespace tallowin
