// A front end for tests: a list of expected questions with the answers to give.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

#include "ops/front_end.h"

namespace tallowin {

// Questions are answered in the order in which they were expected; a question that was not
// expected, and an expected one that never came, fail the test. Everything shown is recorded.
//
//   ScriptedFrontEnd ui;
//   ui.expect<FormatModel>([](FormatModel& m) { m.setClusterBytes(4096); m.pass(); m.ok(); });
//   ui.expectMessage("will be erased", MessageResult::yes);
class ScriptedFrontEnd : public FrontEnd {
 public:
  ~ScriptedFrontEnd() override;

  // A message box whose title or text contains `part`.
  void expectMessage(const std::string& part, MessageResult answer = MessageResult::ok);
  // OK with `answer`, or Cancel with nothing.
  void expectInput(const std::string& part, std::optional<std::string> answer);
  void expectChoice(const std::string& part, std::size_t answer);
  void expectFile(std::optional<std::string> answer);
  // A dialog of this model. `act` is the user: it sets fields, calls pass() and at the end ok() or
  // cancel(). pass() was called once before, as the view does.
  template <typename Model>
  void expect(std::function<void(Model&)> act) {
    Expected& next = expected_.emplace_back();
    next.kind = Kind::dialog;
    next.part = typeid(Model).name();
    next.act = [act](DialogModel& model) {
      auto* mine = dynamic_cast<Model*>(&model);
      if (mine) act(*mine);
      return mine != nullptr;
    };
  }

  // Message boxes that were not expected are answered like this instead of failing the test; for
  // loops in which each round tells something else.
  void answerOthers(MessageResult answer) { others_ = answer; }

  // Called while the next expected question or dialog stands: what the world does meanwhile.
  void meanwhile(std::function<void()> act) { meanwhile_ = std::move(act); }

  // What is expected and has not come need not come any more.
  void forget() { expected_.clear(); }

  // From the n-th look of a progress dialog at its button on (from 0), it was pressed.
  void cancelAtPoll(u64 n) {
    cancelWhen([this, n] { return polls_ > n; });
  }
  void cancelWhen(std::function<bool()> isPressed) { isPressed_ = std::move(isPressed); }
  u64 polls() const { return polls_; }

  struct Progress {
    u32 percent = 0;
    std::string details;
  };
  std::vector<MessageBox> messages;
  std::vector<std::string> progressTexts;  // titles, texts and buttons of progress windows
  std::vector<Progress> progress;
  // Whether a message with this part was shown.
  bool wasTold(const std::string& part) const;

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
  enum class Kind { message, input, choice, file, dialog };
  struct Expected {
    Kind kind = Kind::message;
    std::string part;
    std::function<bool(DialogModel&)> act;
    MessageResult answer = MessageResult::none;
    std::optional<std::string> text = std::nullopt;
    std::size_t index = 0;

    bool matches(Kind asked, const std::string& shown) const {
      return kind == asked && shown.find(part) != std::string::npos;
    }
  };
  class Bar;

  // The next expectation when it is of this kind and `shown` contains its part.
  std::optional<Expected> take(Kind kind, const std::string& shown);

  std::deque<Expected> expected_;
  std::function<void()> meanwhile_;
  std::optional<MessageResult> others_;
  std::function<bool()> isPressed_ = [] { return false; };
  u64 polls_ = 0;
};

}  // namespace tallowin
