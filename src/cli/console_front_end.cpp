#include "cli/console_front_end.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "base/stop_request.h"
#include "base/text.h"

namespace tallowin {
namespace {

constexpr const char* kSkipLabel = "&Skip";

class ConsoleProgress : public ProgressDialog, public ProgressBox {
 public:
  ConsoleProgress(ProgressLine& line, const std::string& text, std::string button, bool skipScan)
      : line_(line), text_(text), button_(std::move(button)), skipScan_(skipScan) {}
  ~ConsoleProgress() override { line_.end(); }

  // Another text is another phase: how far the one before it came stays on the screen.
  void setText(const std::string& text) override {
    if (text != text_) line_.end();
    text_ = text;
  }
  void setButton(const std::string& label) override { button_ = label; }
  void setProgress(u32 percent, const std::string& details) override {
    line_.draw(text_, percent, details);
  }
  bool isCancelled() override { return stopRequested() || (skipScan_ && button_ == kSkipLabel); }

 private:
  ProgressLine& line_;
  std::string text_;
  std::string button_;
  bool skipScan_;
};

std::string withoutMnemonics(std::string label) {
  std::erase(label, '&');
  std::erase(label, '\x1B');
  return label;
}

}  // namespace

ConsoleFrontEnd::ConsoleFrontEnd(bool showsProgress)
    : hasTerminal_(::isatty(STDIN_FILENO) == 1 && ::isatty(STDERR_FILENO) == 1),
      progressLine_(::isatty(STDERR_FILENO) == 1 && showsProgress) {}

std::optional<std::string> ConsoleFrontEnd::readLine(const std::string& prompt) {
  if (!hasTerminal_ || stopRequested()) return std::nullopt;
  progressLine_.end();
  // Names from a disk stand in it.
  for (std::string_view rest = prompt; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::fputs(printableFromUtf8(rest.substr(0, end)).c_str(), stderr);
    if (end != rest.size()) std::fputc('\n', stderr);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  std::fflush(stderr);
  // Unlike a read, this wait ends when Ctrl-C is pressed.
  if (!waitForInput(STDIN_FILENO)) {
    std::fputc('\n', stderr);
    return std::nullopt;
  }
  std::string line;
  for (char c = 0; ::read(STDIN_FILENO, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

bool ConsoleFrontEnd::ask(const std::string& question, const std::string& hint) {
  const auto answer = readLine(question + "\n" + hint + " [y/N] ");
  return answer && (*answer == "y" || *answer == "Y" || *answer == "yes");
}

bool ConsoleFrontEnd::consents(const MessageBox& box) {
  if (stopRequested()) return false;
  if ((agreedTo_ & bitOf(box.consent)) != 0) return true;
  if (rehearses_ && box.consent == Consent::insist) {
    told_.push_back("It would be asked, and --yes would not answer that: " + onOneLine(box.text));
    return true;
  }
  const bool isDiskError = box.consent == Consent::diskError;
  if (ask(box.text, isDiskError ? "Ignore all errors?" : "Continue?")) return true;
  if (stopRequested()) return false;
  if (box.consent == Consent::general) {
    if (!hasTerminal_) lackedConsent_ = box.consent;
  } else if (!isDiskError) {
    lackedConsent_ = box.consent;
    told_.push_back(onOneLine(box.text));
  }
  return false;
}

MessageResult ConsoleFrontEnd::messageBox(const MessageBox& box) {
  switch (box.buttons) {
    case ButtonSet::okCancel:
      return consents(box) ? MessageResult::ok : MessageResult::cancel;
    case ButtonSet::yesNo:
    case ButtonSet::yesNoCancel:
      return consents(box) ? MessageResult::yes : MessageResult::no;
    case ButtonSet::continueCancel:
      return consents(box) ? MessageResult::goOn : MessageResult::cancel;
    case ButtonSet::ok:
      break;
  }
  told_.push_back(onOneLine(box.text));
  return MessageResult::ok;
}

bool ConsoleFrontEnd::textInput(TextInput& input) {
  const auto answer = readLine(input.prompt + " ");
  if (!answer || answer->size() > input.maxLength) return false;
  input.text = *answer;
  return true;
}

std::size_t ConsoleFrontEnd::choiceBox(const ChoiceBox& box) {
  std::string prompt = box.text + "\n";
  for (std::size_t i = 0; i < box.labels.size(); ++i)
    prompt += format("  %zu  %s\n", i + 1, withoutMnemonics(box.labels[i]).c_str());
  u64 number = 0;
  const auto answer = readLine(prompt + "Number: ");
  if (answer && parseNumber(*answer, number) && number >= 1 && number <= box.labels.size())
    return static_cast<std::size_t>(number - 1);
  // The choice that Escape presses, else the last.
  for (std::size_t i = 0; i < box.labels.size(); ++i)
    if (box.labels[i].starts_with('\x1B')) return i;
  return box.labels.empty() ? 0 : box.labels.size() - 1;
}

std::unique_ptr<ProgressBox> ConsoleFrontEnd::progressBox(const std::string&, MessageKind,
                                                          const std::string& text) {
  return std::make_unique<ConsoleProgress>(progressLine_, text, "", skipsScans_);
}

std::unique_ptr<ProgressDialog> ConsoleFrontEnd::progressDialog(const std::string&,
                                                                const std::string& text,
                                                                const std::string& buttonLabel) {
  return std::make_unique<ConsoleProgress>(progressLine_, text, buttonLabel, skipsScans_);
}

std::optional<std::string> ConsoleFrontEnd::chooseFile(const FileChoice&) {
  return readLine("File: ");
}

void ConsoleFrontEnd::run(DialogModel& model) {
  model.pass();
  if (handler_) handler_(model);
  if (model.isOpen()) model.cancel();
}

}  // namespace tallowin
