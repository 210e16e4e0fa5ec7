// What a flow may ask of whoever sits in front of it: a window, a terminal, or a test.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/text.h"
#include "base/types.h"
#include "ops/dialog_model.h"

namespace tallowin {

class FileSource;

enum class MessageKind { error, question, notice, warning };

enum class ButtonSet { ok, okCancel, yesNo, yesNoCancel, continueCancel };

// What Yes (OK, Continue) would agree to. A front end that is answered in advance answers each kind
// by an order of its own; a window puts the focus on No where Yes gives something up.
enum class Consent {
  none,         // nothing: a notice, or a question whose answers are both harmless
  general,      // what the user asked for
  insist,       // giving up something that the user did not ask to change
  diskError,    // passing over sectors that cannot be read or written
  withoutCopy,  // changing a table of which no copy could be kept
};

enum class MessageResult : u32 {
  none = 0,
  ok = 1,
  cancel = 3,
  yes = 5,
  no = 6,
  goOn = 7,
  extra = 8
};

struct MessageBox {
  MessageKind kind = MessageKind::notice;
  std::string title;  // empty: "Error", "Question", "Notice" or "Warning" by kind
  std::string text;   // shown cut to 2047 bytes
  ButtonSet buttons = ButtonSet::ok;
  Consent consent = Consent::none;
  // A further button for something that is not an answer yet; empty: none. Only a window has it.
  std::string extraButton = {};
};

struct TextInput {
  std::string title;
  std::string prompt;
  std::size_t maxLength = 255;
  std::string text;  // in and out
};

struct ChoiceBox {
  std::string title;
  MessageKind icon = MessageKind::question;
  std::string text;
  // Up to three; one that starts with the Escape character (0x1B) is pressed by Escape.
  std::vector<std::string> labels;
};

struct FileChoice {
  enum Flags : u32 { save = 1, mustExist = 4, askOverwrite = 8, joinRelative = 64 };
  std::string startPath;
  std::string patterns = "*.*";  // separated by ";"
  u32 flags = 0;
  FileSource* source = nullptr;  // borrowed; null: the files of the host
};

// A small window that stays while work goes on; closed by its destructor.
class ProgressBox {
 public:
  virtual ~ProgressBox() = default;
  virtual void setText(const std::string& text) = 0;
};

// A text above a bar from 0 to 100, with an optional button; closed by its destructor.
class ProgressDialog {
 public:
  virtual ~ProgressDialog() = default;
  virtual void setText(const std::string& text) = 0;
  // Percent, and below the bar what else is known: bytes done, speed, time left.
  virtual void setProgress(u32 percent, const std::string& details) = 0;
  // An empty label removes the button.
  virtual void setButton(const std::string& label) = 0;
  // Serves pending events without waiting, then answers whether the button was pressed, Escape
  // was typed or the window was closed since the last setButton.
  virtual bool isCancelled() = 0;
  // What is shown stays until the user closes it, by a button "Close"; where nobody looks at it
  // nothing is waited for.
  virtual void waitForClose() {}
};

class FrontEnd {
 public:
  virtual ~FrontEnd() = default;

  virtual MessageResult messageBox(const MessageBox& box) = 0;
  // True for OK, with the text in `input`; false for Cancel, with the text as it was.
  virtual bool textInput(TextInput& input) = 0;
  // The index of the pressed button.
  virtual std::size_t choiceBox(const ChoiceBox& box) = 0;
  virtual std::unique_ptr<ProgressBox> progressBox(const std::string& title, MessageKind icon,
                                                   const std::string& text) = 0;
  virtual std::unique_ptr<ProgressDialog> progressDialog(const std::string& title,
                                                         const std::string& text,
                                                         const std::string& buttonLabel) = 0;
  // The full name of the chosen file, or nothing.
  virtual std::optional<std::string> chooseFile(const FileChoice& choice) = 0;
  // Shows a dialog model until it is closed.
  virtual void run(DialogModel& model) = 0;

  void errorBox(const std::string& text) { messageBox({MessageKind::error, "Error", text}); }
  void noticeBox(const std::string& text, const std::string& title = {}) {
    messageBox({MessageKind::notice, title, text});
  }
  // True for Yes (or Continue).
  bool confirm(Consent consent, const std::string& title, const std::string& text,
               MessageKind kind = MessageKind::warning, ButtonSet buttons = ButtonSet::yesNo) {
    const MessageResult result = messageBox({kind, title, text, buttons, consent});
    return result == MessageResult::yes || result == MessageResult::goOn;
  }
};

}  // namespace tallowin
