// What Slide and Copy say.
#pragma once

#include <string>

#include "ops/move_partition.h"

namespace tallowin {

// "Completed", or with the numbers of bad sectors.
std::string completedText(const MoveReport& report);
bool hasBadSectors(const MoveReport& report);

// `operation` "slide", "copy": that it failed, by the numbers and in words.
std::string moveFailedText(const char* operation, u32 typeFound, const Failure& failure);

// What became of the sectors of a partition whose move was stopped within it; empty when all is
// where it was and nothing has to be said of it.
std::string leftBehindText(const MoveReport& report);

}  // namespace tallowin
