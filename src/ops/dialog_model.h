// The base of every dialog's state.
#pragma once

#include <algorithm>
#include <string>

#include "base/types.h"

namespace tallowin {

// What one control of a dialog looks like; its value stands beside it in the model.
struct Control {
  bool shown = true;
  bool enabled = true;
  std::string whyDisabled;  // the tooltip while it is disabled; never empty then
};

// The value and the range of a number field.
struct NumberField {
  u32 value = 0;
  u32 minimum = 0;
  u32 maximum = 0;

  // The value moves into the new range.
  void setRange(u32 low, u32 high) {
    minimum = low;
    maximum = high;
    setValue(value);
  }
  void setValue(u32 wanted) { value = std::clamp(wanted, minimum, maximum); }
};

// A plain object with the dialog's fields, which of them are shown, enabled and valid. It knows
// no widget; FrontEnd::run shows it with the view that was made for its type, and returns when
// the model is closed.
class DialogModel {
 public:
  virtual ~DialogModel() = default;
  DialogModel(const DialogModel&) = delete;
  DialogModel& operator=(const DialogModel&) = delete;

  // Compares the fields with what they were at the last pass and recomputes what depends on
  // them. The view calls it once per step of the main loop.
  virtual void pass() {}
  // The OK (or Yes) button. May leave the dialog open, having said why.
  virtual void ok() { close(); }
  virtual void cancel() { close(); }

  bool isOpen() const { return open_; }

 protected:
  DialogModel() = default;
  void close() { open_ = false; }

 private:
  bool open_ = true;
};

}  // namespace tallowin
