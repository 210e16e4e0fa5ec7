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

enum class MessageKind : u32 { error = 1, question = 2, notice = 3, errorToo = 4, warning = 5 };

enum class ButtonSet : u32 {
  ok = 0,
  okCancel = 0x20,
  yesNo = 0x40,
  yesNoCancel = 0x50,
  continueCancel = 0x70,
};

// Kind + button set + kFocusOnNo. A kind that is not listed is shown as a notice.
inline constexpr u32 kMessageKindMask = 0xF;
inline constexpr u32 kButtonSetMask = 0xF0;
inline constexpr u32 kFocusOnNo = 0x8000;  // for destructive confirmations
// A Yes gives up something that the user did not ask to change: no general consent answers it.
inline constexpr u32 kInsist = 0x10000 | kFocusOnNo;
// Going on passes over sectors that cannot be read or written: no general consent answers it.
inline constexpr u32 kDiskError = 0x20000;

enum class MessageResult : u32 { none = 0, ok = 1, cancel = 3, yes = 5, no = 6, goOn = 7 };

struct MessageBox {
  u32 flags = 0;
  std::string title;  // empty: "Error", "Question", "Notice" or "Warning" by kind
  std::string text;   // shown cut to 2047 bytes
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

  void errorBox(const std::string& text) { messageBox({u32(MessageKind::error), "Error", text}); }
  void noticeBox(const std::string& text, const std::string& title = {}) {
    messageBox({u32(MessageKind::notice), title, text});
  }
  MessageResult questionBox(const std::string& title, ButtonSet buttons, MessageKind kind,
                            const std::string& text, u32 moreFlags = 0) {
    return messageBox({u32(kind) | u32(buttons) | moreFlags, title, text});
  }
};

}  // namespace tallowin
