#include "ops/wipe_model.h"

namespace tallowin {

WipeModel::WipeModel() {
  for (const WipeMethod& method : wipeMethods())
    if (method.label[0] != '\0') choices.push_back({method.type, method.label});
  choices.push_back({WipeType::userDefined, "&User Defined"});
  passesControl = {true, false, "Choose User Defined to write passes of your own."};
}

WipeMethodChoice WipeModel::method() const {
  const WipeType type = choices[choice].type;
  return {type, type == WipeType::userDefined ? passesText : std::string(), verifies};
}

void WipeModel::pass() {
  passesControl.enabled = choices[choice].type == WipeType::userDefined;
  passesControl.whyDisabled = "Choose User Defined to write passes of your own.";
}

void WipeModel::ok() {
  pass();
  if (choices[choice].type == WipeType::userDefined &&
      !parsePasses(passesText, kMostPatternBytes)) {
    if (refuse) refuse("Invalid wipe pattern");
    return;
  }
  confirmed = true;
  close();
}

}  // namespace tallowin
