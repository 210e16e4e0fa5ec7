#include "ops/dialog_model.h"

#include <algorithm>

#include "base/text.h"

namespace tallowin {

void NumberField::setRange(u32 low, u32 high) {
  minimum = low;
  maximum = high;
  if (value < low || value > high) setValue(value);
}

void NumberField::setValue(u32 wanted) {
  value = std::clamp(wanted, minimum, maximum);
  typed.reset();
}

void NumberField::type(const std::string& text) {
  const bool isDecimal = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  u64 number = 0;
  // A leading zero would be taken for another base.
  const std::size_t first = std::min(text.find_first_not_of('0'), text.size() - 1);
  if (isDecimal && parseNumber(std::string_view(text).substr(first), number) && number >= minimum &&
      number <= maximum) {
    setValue(static_cast<u32>(number));
  } else {
    typed = text;
  }
}

std::string NumberField::problem(const char* fieldName) const {
  if (!typed) return {};
  return format("%s: \"%s\" is no whole number from %u to %u.", fieldName, typed->c_str(), minimum,
                maximum);
}

}  // namespace tallowin
