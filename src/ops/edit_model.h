// The dialog in which a file is edited.
#pragma once

#include <functional>
#include <string>

#include "ops/dialog_model.h"
#include "ops/edit_text.h"
#include "ops/front_end.h"

namespace tallowin {

class EditModel : public DialogModel {
 public:
  static constexpr int kHelpTopic = 15;

  // Where the file goes; true: it is there, whole, and what was saved is this text. Else the reason
  // was told, or the user has gone back to the text.
  using Save = std::function<bool()>;

  EditModel(FrontEnd& ui, Save save, Save saveAs);

  // Of the file with this path. `limits`, when not empty, says at the lower edge why the window
  // shows less than the file holds.
  void setFile(const std::string& path, const std::string& limits);
  // Why nothing can be written: the text cannot be changed then.
  void setReadOnly(const std::string& why);

  std::string title;  // at most 64 characters
  EditText text;
  std::size_t cursor = 0;  // bytes of text.text(), from the view
  // The file holds more than the text, so that it is not to be written in its place.
  bool needsOtherName = false;

  Control saveControl;
  Control saveAsControl;
  bool isReadOnly = false;
  std::string stateText;  // what is particular to the file
  std::string placeText;  // "Line 1, column 1"

  void pass() override;
  // Saves what was changed, and closes.
  void ok() override;
  // Asks first when something was changed.
  void cancel() override;
  // The buttons "&Save" and "Sa&ve As".
  bool save();
  bool saveAs();

  // Shows the help; empty: there is none.
  std::function<void()> help;

 private:
  std::string whereCursorIs() const;

  FrontEnd& ui_;
  Save save_;
  Save saveAs_;
  std::string limits_;
};

// "Line 3, column 7" of a place in a text, in characters.
std::string placeIn(std::string_view text, std::size_t position);

}  // namespace tallowin
