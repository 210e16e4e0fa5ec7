#include "support/scripted_front_end.h"

#include <utility>

#include <gtest/gtest.h>

#include <algorithm>

namespace tallowin {
namespace {

class Box : public ProgressBox {
 public:
  explicit Box(std::vector<std::string>& log) : log_(log) {}
  void setText(const std::string& text) override { log_.push_back(text); }

 private:
  std::vector<std::string>& log_;
};

std::string shownText(const std::string& title, const std::string& text) {
  return title + ": " + text;
}

}  // namespace

class ScriptedFrontEnd::Bar : public ProgressDialog {
 public:
  explicit Bar(ScriptedFrontEnd& owner) : owner_(owner) {}
  void setText(const std::string& text) override { owner_.progressTexts.push_back(text); }
  void setProgress(u32 percent, const std::string& details) override {
    EXPECT_LE(percent, 100U);
    owner_.progress.push_back({percent, details});
  }
  void setButton(const std::string& label) override { owner_.progressTexts.push_back(label); }
  bool isCancelled() override {
    ++owner_.polls_;
    return owner_.isPressed_();
  }

 private:
  ScriptedFrontEnd& owner_;
};

ScriptedFrontEnd::~ScriptedFrontEnd() {
  for (const Expected& missing : expected_) ADD_FAILURE() << "never asked: " << missing.part;
}

void ScriptedFrontEnd::expectMessage(const std::string& part, MessageResult answer) {
  expected_.push_back({Kind::message, part, {}, answer, {}, 0});
}

void ScriptedFrontEnd::expectInput(const std::string& part, std::optional<std::string> answer) {
  expected_.push_back({Kind::input, part, {}, MessageResult::none, std::move(answer), 0});
}

void ScriptedFrontEnd::expectChoice(const std::string& part, std::size_t answer) {
  expected_.push_back({Kind::choice, part, {}, MessageResult::none, {}, answer});
}

void ScriptedFrontEnd::expectFile(std::optional<std::string> answer) {
  expected_.push_back({Kind::file, {}, {}, MessageResult::none, std::move(answer), 0});
}

bool ScriptedFrontEnd::wasTold(const std::string& part) const {
  return std::any_of(messages.begin(), messages.end(), [&](const MessageBox& box) {
    return box.text.find(part) != std::string::npos;
  });
}

std::optional<ScriptedFrontEnd::Expected> ScriptedFrontEnd::take(Kind kind,
                                                                 const std::string& shown) {
  if (expected_.empty()) {
    ADD_FAILURE() << "not expected: " << shown;
    return std::nullopt;
  }
  Expected next = std::move(expected_.front());
  expected_.pop_front();
  if (meanwhile_) std::exchange(meanwhile_, nullptr)();
  if (next.matches(kind, shown)) return next;
  ADD_FAILURE() << "expected: " << next.part << "\nbut shown: " << shown;
  return std::nullopt;
}

MessageResult ScriptedFrontEnd::messageBox(const MessageBox& box) {
  messages.push_back(box);
  const std::string shown = shownText(box.title, box.text);
  const bool isExpected = !expected_.empty() && expected_.front().matches(Kind::message, shown);
  if (others_ && !isExpected) return *others_;
  const auto next = take(Kind::message, shown);
  return next ? next->answer : MessageResult::none;
}

bool ScriptedFrontEnd::textInput(TextInput& input) {
  const auto next = take(Kind::input, shownText(input.title, input.prompt));
  if (!next || !next->text) return false;
  input.text = next->text->substr(0, input.maxLength);
  return true;
}

std::size_t ScriptedFrontEnd::choiceBox(const ChoiceBox& box) {
  const auto next = take(Kind::choice, shownText(box.title, box.text));
  if (!next) return box.labels.empty() ? 0 : box.labels.size() - 1;
  return next->index;
}

std::unique_ptr<ProgressBox> ScriptedFrontEnd::progressBox(const std::string& title, MessageKind,
                                                           const std::string& text) {
  progressTexts.insert(progressTexts.end(), {title, text});
  return std::make_unique<Box>(progressTexts);
}

std::unique_ptr<ProgressDialog> ScriptedFrontEnd::progressDialog(const std::string& title,
                                                                 const std::string& text,
                                                                 const std::string& buttonLabel) {
  progressTexts.insert(progressTexts.end(), {title, text, buttonLabel});
  return std::make_unique<Bar>(*this);
}

std::optional<std::string> ScriptedFrontEnd::chooseFile(const FileChoice& choice) {
  const auto next = take(Kind::file, choice.startPath);
  return next ? next->text : std::nullopt;
}

void ScriptedFrontEnd::run(DialogModel& model) {
  model.pass();
  const auto next = take(Kind::dialog, typeid(model).name());
  if (next && !next->act(model)) ADD_FAILURE() << "not the expected dialog";
  if (!model.isOpen()) return;
  if (next) ADD_FAILURE() << "the dialog was left open: " << typeid(model).name();
  model.cancel();
}

}  // namespace tallowin
