#include "ui/views/question_window.h"

#include <FL/Fl.H>
#include <FL/Fl_Scroll.H>
#include <FL/fl_draw.H>

#include <algorithm>
#include <array>

#include "base/stop_request.h"
#include "ui/widgets/event_pump.h"
#include "ui/widgets/labels.h"
#include "ui/widgets/layout.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr std::size_t kMaxTextBytes = 2047;
constexpr int kMinTextWidth = 180;
constexpr int kMaxTextWidth = 520;
constexpr int kScreenReserve = 160;  // height kept for the buttons and the screen's panels

int widthOfButton(const std::string& label) {
  return std::max(kButtonWidth, measureText(label, 0, kFontSize).width + 2 * kGap);
}

struct ButtonSpec {
  std::string label;
  MessageResult result;
};

// The buttons of a set in their order; Escape presses the last one of every set.
std::vector<ButtonSpec> buttonsOf(ButtonSet set) {
  const ButtonSpec ok{"&OK", MessageResult::ok};
  const ButtonSpec cancel{"Cancel", MessageResult::cancel};
  const ButtonSpec yes{"&Yes", MessageResult::yes};
  const ButtonSpec no{"&No", MessageResult::no};
  switch (set) {
    case ButtonSet::okCancel:
      return {ok, cancel};
    case ButtonSet::yesNo:
      return {yes, no};
    case ButtonSet::yesNoCancel:
      return {yes, no, cancel};
    case ButtonSet::continueCancel:
      return {{"&Continue", MessageResult::goOn}, cancel};
    case ButtonSet::ok:
      break;
  }
  return {ok};
}

std::size_t noIndex(const std::vector<ButtonSpec>& buttons) {
  std::size_t index = 0;
  while (buttons[index].result != MessageResult::no) ++index;
  return index;
}

// Where Yes would give something up, Enter does not say it.
bool startsOnNo(const MessageBox& box) {
  return box.consent == Consent::general || box.consent == Consent::insist;
}

const char* titleOf(MessageKind kind) {
  switch (kind) {
    case MessageKind::error:
      return "Error";
    case MessageKind::question:
      return "Question";
    case MessageKind::warning:
      return "Warning";
    case MessageKind::notice:
      break;
  }
  return "Notice";
}

// The scheme tints what its boxes are filled with; the plate stays white.
class IconPlate : public Fl_Box {
 public:
  IconPlate(int x, int y, int size, Icon icon) : Fl_Box(x, y, size, size), icon_(icon) {}

 private:
  void draw() override {
    draw_box(FL_FLAT_BOX, FL_WHITE);
    draw_box(FL_THIN_UP_FRAME, FL_BACKGROUND_COLOR);
    fl_font(FL_TIMES_BOLD, kIconFontSize * w() / kIconSize);
    fl_color(icon_.color);
    fl_draw(&icon_.letter, 1, x() + (w() - static_cast<int>(fl_width(&icon_.letter, 1))) / 2,
            y() + (h() + fl_height()) / 2 - fl_descent());
  }

  Icon icon_;
};

// At most `bytes` of the text, without half a character at the end.
std::string cut(const std::string& text, std::size_t bytes) {
  if (text.size() <= bytes) return text;
  while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0) == 0x80) --bytes;
  return text.substr(0, bytes);
}

}  // namespace

Icon iconOf(MessageKind kind, bool asksYesOrNo) {
  Icon icon;
  switch (kind) {
    case MessageKind::error:
      icon = {'X', FL_RED};
      break;
    case MessageKind::question:
      icon = {'?', FL_BLUE};
      break;
    case MessageKind::warning:
      icon = {'Y', FL_YELLOW};
      break;
    case MessageKind::notice:
      icon = {'i', FL_BLUE};
      break;
  }
  if (asksYesOrNo) icon.letter = '?';
  return icon;
}

Fl_Widget* makeIcon(int x, int y, int size, Icon icon) { return new IconPlate(x, y, size, icon); }

QuestionWindow::QuestionWindow(const Question& question, const TextInput* input)
    : DialogWindow(1, 1, question.title), focusIndex_(question.focusIndex) {
  const int textX = question.icon ? 2 * kMargin + kIconSize : kMargin;
  const int topHeight = question.icon ? kIconSize : kLineHeight;
  TextSize text = measureText(question.text, 0, kFontSize);
  if (text.width > kMaxTextWidth) text = measureText(question.text, kMaxTextWidth, kFontSize);
  const int textHeight = std::min(text.height, Fl::h() - kScreenReserve);

  int buttonsWidth = -kGap;
  for (const std::string& label : question.buttons) buttonsWidth += widthOfButton(label) + kGap;
  const int textWidth = std::max({text.width + 4, kMinTextWidth, buttonsWidth + kMargin - textX});

  int bottom = kMargin + std::max(topHeight, textHeight);
  size(textX + textWidth + kMargin, 1);
  if (question.icon) makeIcon(kMargin, kMargin, kIconSize, *question.icon);
  // The group that is open owns what is made.
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
  addText(question.text, textX, textWidth, std::max(topHeight, textHeight));
  if (input) {
    input_ = new Fl_Input(textX, bottom + kGap, textWidth, kFieldHeight);
    input_->textsize(kFontSize);
    input_->maximum_size(static_cast<int>(input->maxLength));
    input_->value(input->text.c_str());
    bottom += kGap + kFieldHeight;
  }
  const int buttonY = bottom + kMargin + kGap / 2;
  addButtons(question, buttonY);
  size(w(), buttonY + kButtonHeight + kMargin);
  end();
  set_modal();
  setCloseIsNoted();
}

void QuestionWindow::addText(const std::string& text, int x, int width, int height) {
  const int needed = measureText(text, width, kFontSize).height;
  if (needed <= height) {
    const Fl_Align align = FL_ALIGN_LEFT | FL_ALIGN_WRAP;
    new TextLabel(x, kMargin, width, height, text, align);
    return;
  }
  auto* scroll = new Fl_Scroll(x, kMargin, width + Fl::scrollbar_size(), height);
  scroll->type(Fl_Scroll::VERTICAL);
  new TextLabel(x, kMargin, width, needed, text, FL_ALIGN_LEFT | FL_ALIGN_TOP | FL_ALIGN_WRAP);
  scroll->end();
  size(w() + Fl::scrollbar_size(), 1);
}

void QuestionWindow::addButtons(const Question& question, int y) {
  int width = -kGap;
  for (const std::string& label : question.buttons) width += widthOfButton(label) + kGap;
  int x = (w() - width) / 2;
  for (const std::string& label : question.buttons) {
    auto* button = new Fl_Button(x, y, widthOfButton(label), kButtonHeight);
    button->copy_label(label.c_str());
    button->labelsize(kFontSize);
    watch(button);
    buttons_.push_back(button);
    x += button->w() + kGap;
  }
  // What F10 and Enter press is what the focus starts on: never the destructive answer unasked.
  setAcceptButton(buttons_[focusIndex_]);
  if (question.escapeIndex) setCancelButton(buttons_[*question.escapeIndex]);
}

std::optional<std::size_t> QuestionWindow::ask() {
  showCentred();
  if (input_)
    input_->take_focus();
  else
    buttons_[focusIndex_]->take_focus();
  std::optional<std::size_t> answer;
  while (shown() && waitForEvents()) {
    if (const Fl_Button* button = takePressed()) {
      const auto found = std::find(buttons_.begin(), buttons_.end(), button);
      answer = static_cast<std::size_t>(found - buttons_.begin());
      break;
    }
    if (takeClosed()) break;
  }
  hide();
  return answer;
}

MessageResult showMessageBox(const MessageBox& box) {
  std::vector<ButtonSpec> buttons = buttonsOf(box.buttons);
  if (!box.extraButton.empty())
    buttons.insert(buttons.end() - 1, {box.extraButton, MessageResult::extra});
  const bool asksYesOrNo = buttons.front().result == MessageResult::yes;
  Question question;
  question.title = box.title.empty() ? titleOf(box.kind) : box.title;
  question.icon = iconOf(box.kind, asksYesOrNo);
  question.text = cut(box.text, kMaxTextBytes);
  for (const ButtonSpec& button : buttons) question.buttons.emplace_back(button.label);
  question.focusIndex = asksYesOrNo && startsOnNo(box) ? noIndex(buttons) : 0;
  question.escapeIndex = buttons.size() - 1;

  const auto index = stopRequested() ? std::nullopt : QuestionWindow(question).ask();
  if (index) return buttons[*index].result;
  if (buttons.size() == 1) return buttons.front().result;
  return box.buttons == ButtonSet::yesNoCancel ? MessageResult::cancel : MessageResult::none;
}

bool showTextInput(TextInput& input) {
  if (stopRequested()) return false;
  Question question;
  question.title = input.title;
  question.text = input.prompt;
  question.buttons = {"&OK", "Cancel"};
  question.escapeIndex = 1;
  QuestionWindow window(question, &input);
  if (window.ask() != 0u) return false;
  input.text = cut(window.inputText(), input.maxLength);
  return true;
}

std::size_t showChoiceBox(const ChoiceBox& box) {
  constexpr char kEscape = 0x1B;
  Question question;
  question.title = box.title;
  question.icon = iconOf(box.icon);
  question.text = box.text;
  for (const std::string& label : box.labels) {
    if (!label.empty() && label.front() == kEscape) question.escapeIndex = question.buttons.size();
    question.buttons.push_back(question.escapeIndex == question.buttons.size() ? label.substr(1)
                                                                               : label);
  }
  if (question.buttons.empty()) question.buttons = {"&OK"};
  // Closing the window must not choose anything: it is the cancel button's, else the last one's.
  const auto index = stopRequested() ? std::nullopt : QuestionWindow(question).ask();
  return index.value_or(question.escapeIndex.value_or(question.buttons.size() - 1));
}

}  // namespace tallowin
