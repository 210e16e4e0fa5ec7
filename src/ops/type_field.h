// The text of a field that takes the type of a partition: a number, or a choice that begins with
// it.
#pragma once

#include <string>
#include <string_view>

#include "base/types.h"

namespace tallowin {

// "131/83h: Linux Native".
std::string typeChoiceText(u16 type);
// The number in a field, as 131, 0x83 or 0203, or of a choice; 0 when there is none.
u32 typeNumberIn(std::string_view text);

}  // namespace tallowin
