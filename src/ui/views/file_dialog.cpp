#include "ui/views/file_dialog.h"

#include <FL/Fl.H>
#include <FL/Fl_Input.H>
#include <FL/fl_draw.H>

#include <algorithm>
#include <cmath>

#include "base/text.h"
#include "ops/file_chooser.h"
#include "ui/views/question_window.h"
#include "ui/widgets/dialog_window.h"
#include "ui/widgets/event_pump.h"
#include "ui/widgets/layout.h"
#include "ui/widgets/list_box.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kHeight = 340;
constexpr int kNameHeight = 25;
constexpr int kMaxNameLength = 1023;
constexpr int kDialogButtonWidth = 70;
constexpr int kButtonsFromBottom = 35;
constexpr int kFreeSpaceWidth = 120;
constexpr int kSizeDigits = 10;
constexpr int kDateDigits = 18;
constexpr int kScrollReserve = 25;
constexpr char kFormatEscape = 0x0F;

// Control characters would format the row, or end it.
std::string asField(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c >= 0 && c < ' '; }, '?');
  return text;
}

class NameInput : public Fl_Input {
 public:
  NameInput(int x, int y, int width, int height) : Fl_Input(x, y, width, height, "&Name:") {}
  void setList(Fl_Widget* list) { list_ = list; }

 private:
  int handle(int event) override {
    if (event == FL_KEYBOARD && Fl::event_key() == FL_Down) return list_->take_focus();
    return Fl_Input::handle(event);
  }

  Fl_Widget* list_ = nullptr;
};

class FileDialog : public DialogWindow {
 public:
  explicit FileDialog(FileChooser& chooser);
  std::optional<std::string> choose();

 private:
  bool onKey(int key) override;
  static void onList(Fl_Widget*, void* dialog);

  const FileChooser::Row* selectedRow() const;
  void fill();
  bool accept();  // true: the dialog ends
  void deleteSelected();

  FileChooser& chooser_;
  NameInput* name_;
  ListBox* list_;
  TextLabel* location_;
  TextLabel* freeSpace_;
  Fl_Button* ok_;
  int columns_[3] = {};
  bool listAccepted_ = false;  // by a double-click, or Enter in the list
  bool deleteAsked_ = false;
};

FileDialog::FileDialog(FileChooser& chooser)
    : DialogWindow(Fl::w() / 10 * 8, kHeight, chooser.title()), chooser_(chooser) {
  const int labelWidth = measureText("Name:", 0, kFontSize).width + kLabelGap;
  const int width = w() - 2 * kMargin;
  name_ = new NameInput(kMargin + labelWidth, kMargin, width - labelWidth, kNameHeight);
  name_->labelsize(kFontSize);
  name_->textsize(kFontSize);
  name_->maximum_size(kMaxNameLength);
  name_->value(chooser.initialName().c_str());

  const int buttonY = kHeight - kButtonsFromBottom;
  const int statusY = buttonY - kLineHeight - kLabelGap;
  const int listY = kMargin + kNameHeight + kGap;
  list_ = new ListBox(kMargin, listY, width, statusY - kLabelGap - listY);
  list_->textsize(kFontSize);
  list_->format_char(kFormatEscape);
  list_->callback(onList, this);
  fl_font(FL_HELVETICA, kFontSize);
  const int digit = static_cast<int>(std::lround(fl_width('0')));
  columns_[0] = width - (kSizeDigits + kDateDigits) * digit - kScrollReserve;
  columns_[1] = kSizeDigits * digit;
  list_->column_widths(columns_);
  name_->setList(list_);

  location_ = addText(kMargin, statusY, width - kFreeSpaceWidth, kLineHeight, {});
  freeSpace_ = addText(kMargin + width - kFreeSpaceWidth, statusY, kFreeSpaceWidth, kLineHeight, {},
                       FL_ALIGN_RIGHT);

  const int buttonX = (w() - 2 * kDialogButtonWidth - kMargin) / 2;
  ok_ = new Fl_Button(buttonX, buttonY, kDialogButtonWidth, kButtonHeight, "OK");
  auto* cancel = new Fl_Button(buttonX + kDialogButtonWidth + kMargin, buttonY, kDialogButtonWidth,
                               kButtonHeight, "Cancel");
  for (Fl_Button* button : {ok_, cancel}) {
    button->labelsize(kFontSize);
    watch(button);
  }
  setAcceptButton(ok_);
  setCancelButton(cancel);
  end();
  set_modal();
  fill();
}

void FileDialog::onList(Fl_Widget*, void* data) {
  auto& dialog = *static_cast<FileDialog*>(data);
  const FileChooser::Row* row = dialog.selectedRow();
  if (!row) return;
  if (!row->isDirectory) dialog.name_->value(row->name.c_str());
  if (Fl::event() == FL_RELEASE && Fl::event_clicks() > 0) {
    Fl::event_clicks(0);
    dialog.listAccepted_ = true;
  }
}

bool FileDialog::onKey(int key) {
  if (Fl::focus() != list_) return false;
  if (key == FL_Enter || key == FL_KP_Enter) return listAccepted_ = true;
  if (key == FL_Delete) return deleteAsked_ = true;
  return false;
}

const FileChooser::Row* FileDialog::selectedRow() const {
  const int line = list_->value();
  return line > 0 ? &chooser_.rows()[static_cast<std::size_t>(line - 1)] : nullptr;
}

void FileDialog::fill() {
  list_->clear();
  for (const FileChooser::Row& row : chooser_.rows()) {
    const std::string text =
        format("%s\t%cr%s\t%cr%s", asField(row.name).c_str(), kFormatEscape,
               chooser_.sizeText(row).c_str(), kFormatEscape, chooser_.dateText(row).c_str());
    list_->add(text.c_str());
  }
  location_->setText(chooser_.locationText());
  freeSpace_->setText(chooser_.freeSpaceText());
}

bool FileDialog::accept() {
  const FileChooser::Row* row = selectedRow();
  std::string name = name_->value();
  if (row && (listAccepted_ || name.empty())) name = row->name;
  listAccepted_ = false;
  switch (chooser_.enter(name)) {
    case FileChooser::Outcome::nothing:
      return false;
    case FileChooser::Outcome::listChanged:
      fill();
      name_->value("");
      return false;
    case FileChooser::Outcome::notFound:
      showMessageBox({MessageKind::notice, chooser_.title(), "File not found."});
      return false;
    case FileChooser::Outcome::askOverwrite:
      return showMessageBox({MessageKind::question, chooser_.title(),
                             format("Overwrite \"%s\"?", chooser_.result().c_str()),
                             ButtonSet::yesNo, Consent::general}) == MessageResult::yes;
    case FileChooser::Outcome::chosen:
      return true;
  }
  return false;
}

void FileDialog::deleteSelected() {
  deleteAsked_ = false;
  const FileChooser::Row* row = selectedRow();
  if (!row || row->isDirectory) return;
  const std::string name = row->name;
  if (showMessageBox({MessageKind::warning, "Warning", format("Delete %s?", name.c_str()),
                      ButtonSet::yesNo, Consent::general}) != MessageResult::yes)
    return;
  const std::string reason = chooser_.remove(name);
  if (name == name_->value()) name_->value("");
  if (!reason.empty())
    showMessageBox(
        {MessageKind::error, {}, format("%s was not deleted.\n%s", name.c_str(), reason.c_str())});
  fill();
}

std::optional<std::string> FileDialog::choose() {
  showCentred();
  name_->take_focus();
  name_->position(name_->size(), 0);  // what is typed replaces it
  bool done = false;
  while (!done && waitForEvents()) {
    const Fl_Button* pressed = takePressed();
    if (pressed && pressed != ok_) break;
    if (deleteAsked_) deleteSelected();
    if (pressed || listAccepted_) done = accept();
  }
  hide();
  return done ? std::optional(chooser_.result()) : std::nullopt;
}

}  // namespace

std::optional<std::string> showFileDialog(const FileChoice& choice, bool isoDates) {
  FileChooser chooser(choice, isoDates);
  return FileDialog(chooser).choose();
}

}  // namespace tallowin
