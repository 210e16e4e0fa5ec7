// The Wipe Pattern dialog: how a wipe is done.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ops/dialog_model.h"
#include "ops/wipe_operation.h"

namespace tallowin {

class WipeModel : public DialogModel {
 public:
  WipeModel();

  std::string title = "Wipe Pattern";
  struct Choice {
    WipeType type;
    std::string label;
  };
  std::vector<Choice> choices;  // the last one is that of the user's own passes
  std::size_t choice = 0;
  std::string passesText;  // at most kMostPatternBytes characters
  Control passesControl;
  bool verifies = false;

  // Set by OK.
  bool confirmed = false;
  // Says why the passes are none; the dialog stays then.
  std::function<void(const std::string& why)> refuse;

  WipeMethodChoice method() const;

  void pass() override;
  void ok() override;
};

}  // namespace tallowin
