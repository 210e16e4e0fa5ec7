#include "ops/type_field.h"

#include "base/text.h"
#include "probe/type_catalogue.h"

namespace tallowin {

std::string typeChoiceText(u16 type) {
  return format("%i/%Xh: %s", type, type, types::name(type).c_str());
}

u32 typeNumberIn(std::string_view text) {
  const std::string_view number = trim(text.substr(0, text.find('/')));
  u64 value = 0;
  return parseNumber(number, value) && value <= kAllOnes32 ? static_cast<u32>(value) : 0;
}

}  // namespace tallowin
