// A front end without a window: answers come from the command line, else from the terminal, else
// the answer is no.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/progress_line.h"
#include "ops/front_end.h"

namespace tallowin {

class ConsoleFrontEnd : public FrontEnd {
 public:
  // Fills a dialog from the command line and closes it; one left open is cancelled.
  using DialogHandler = std::function<void(DialogModel&)>;

  explicit ConsoleFrontEnd(bool showsProgress = true);

  // An order of the command line: every question of this kind is answered with yes.
  void agreeTo(Consent consent) { agreedTo_ |= bitOf(consent); }
  // What the command has in place of a terminal for Consent::insist, as "or with --overwrite": said
  // where that lacks.
  void offerInsistence(const char* words) { insistence_ = words; }
  const char* insistence() const { return insistence_; }  // empty: there is nothing
  // Nothing is at stake: what would have to be insisted on is told.
  void rehearse() { rehearses_ = true; }
  // Presses "&Skip" as soon as it is offered.
  void skipScans() { skipsScans_ = true; }

  void setDialogHandler(DialogHandler handler) { handler_ = std::move(handler); }

  // Something to tell beside the result, in words and to scripts.
  void note(const std::string& text) { told_.push_back(text); }
  // What notes and message boxes with nothing but an OK button said, each on one line.
  const std::vector<std::string>& told() const { return told_; }
  // The consent that was wanted and that nobody gave; that of Consent::general only when nobody was
  // there to give it. For the others the text of the question was told.
  std::optional<Consent> lackedConsent() const { return lackedConsent_; }

  MessageResult messageBox(const MessageBox& box) override;
  bool textInput(TextInput& input) override;
  std::size_t choiceBox(const ChoiceBox& box) override;
  std::unique_ptr<ProgressBox> progressBox(const std::string& title, MessageKind icon,
                                           const std::string& text) override;
  std::unique_ptr<ProgressDialog> progressDialog(const std::string& title, const std::string& text,
                                                 const std::string& buttonLabel) override;
  std::optional<std::string> chooseFile(const FileChoice& choice) override;
  void run(DialogModel& model) override;

 private:
  static constexpr u32 bitOf(Consent consent) { return u32{1} << static_cast<u32>(consent); }
  bool consents(const MessageBox& box);
  bool ask(const std::string& question, const std::string& hint);
  std::optional<std::string> readLine(const std::string& prompt);

  u32 agreedTo_ = 0;
  const char* insistence_ = "";
  bool rehearses_ = false;
  bool skipsScans_ = false;
  bool hasTerminal_;
  ProgressLine progressLine_;
  DialogHandler handler_;
  std::vector<std::string> told_;
  std::optional<Consent> lackedConsent_;
};

}  // namespace tallowin
