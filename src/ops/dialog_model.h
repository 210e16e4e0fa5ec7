// The base of every dialog's state.
#pragma once

#include <optional>
#include <string>

#include "base/types.h"

namespace tallowin {

// What one control of a dialog looks like; its value stands beside it in the model.
struct Control {
  bool shown = true;
  bool enabled = true;
  std::string whyDisabled;  // the tooltip while it is disabled; never empty then
};

// A whole number of a range. What is typed is taken over as soon as it is one; until then it stays
// as it was typed, and the value as it was before.
struct NumberField {
  u32 value = 0;
  u32 minimum = 0;
  u32 maximum = 0;
  std::optional<std::string> typed = {};  // what is no number of the range

  // A value that leaves the new range moves into it.
  void setRange(u32 low, u32 high);
  void setValue(u32 wanted);
  void type(const std::string& text);
  std::string text() const { return typed.value_or(std::to_string(value)); }
  // What is wrong with what was typed, as a sentence; empty when nothing is.
  std::string problem(const char* fieldName) const;
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
  // To be shown once more.
  void reopen() { open_ = true; }

 private:
  bool open_ = true;
};

}  // namespace tallowin
