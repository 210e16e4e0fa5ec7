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
  u64 number = 0;
  if (parseDecimal(text, number) && number >= minimum && number <= maximum) {
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
