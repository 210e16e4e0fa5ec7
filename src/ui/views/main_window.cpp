#include "ui/views/main_window.h"

#include <FL/Fl.H>

#include <algorithm>

#include "base/text.h"
#include "ui/views/dialog_view.h"
#include "ui/widgets/event_pump.h"
#include "ui/widgets/hint.h"
#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 587;
constexpr int kHeight = 400;
constexpr int kListRight = 426;

// The buttons of an area stand in rows, from its upper left corner on.
struct ButtonGrid {
  int x, y, width, height;
  int columns;
  int columnStep, rowStep;
  Fl_Fontsize fontSize;
};

ButtonGrid gridOf(Area area) {
  switch (area) {
    case Area::drive:
      return {312, 20, 125, 20, 2, 130, 25, kFontSize};
    case Area::aboveList:
      return {286, 76, 140, 18, 1, 0, 0, kSmallFontSize};
    case Area::besideList:
      return {436, 101, 65, 20, 2, 70, 25, kSmallFontSize};
    case Area::lowerEdge:
      return {176, 366, 75, 24, 3, 80, 0, kFontSize};
  }
  return {};
}

// Name, kind, what marks an entry in error, size, type.
constexpr ListColumn kColumns[] = {
    {160}, {52}, {13, FL_ALIGN_CENTER, FL_RED}, {70, FL_ALIGN_RIGHT}, {0}};

struct WindowKey {
  int toolkitKey;
  Key key;
};

constexpr WindowKey kWindowKeys[] = {
    {FL_Insert, Key::insert}, {FL_Delete, Key::del}, {FL_F + 1, Key::f1},
    {FL_F + 5, Key::f5},      {FL_F + 10, Key::f10}, {FL_Escape, Key::escape},
};

// The digit of a key, or -1. The keypad's digits count too.
int digitOf(int key) {
  if (key >= '0' && key <= '9') return key - '0';
  if (key >= FL_KP + '0' && key <= FL_KP + '9') return key - FL_KP - '0';
  return -1;
}

void setChoices(ChoiceField& field, const std::vector<std::string>& texts,
                std::optional<std::size_t> selected) {
  field.clearChoices();
  for (const std::string& text : texts) field.addChoice(text);
  field.value(selected ? static_cast<int>(*selected) : -1);
  field.copy_tooltip(selected ? texts[*selected].c_str() : nullptr);
  texts.empty() ? field.deactivate() : field.activate();
}

void setLabel(TextLabel& label, const std::string& text) {
  label.setText(text);
  text.empty() ? label.hide() : label.show();
}

}  // namespace

MainWindow::MainWindow(MainWindowModel& model, const std::string& helpFile)
    : DialogWindow(kWidth, kHeight, MainWindowModel::kTitle), model_(model), helpFile_(helpFile) {
  makeDriveArea();
  makeList();
  makeActions();
  geometry_ = addText(12, 369, 150, 18, {});
  paste_ = addText(0, 336, kWidth, 18, {}, FL_ALIGN_CENTER);
  addButtons(Area::lowerEdge);
  end();
  setCancelButton(buttons_[static_cast<std::size_t>(Action::close)]);
  model_.setHelpHook([this](int topic) { showHelp(topic); });
  model_.setShiftHook([] { return Fl::event_state(FL_SHIFT) != 0; });
  refill();
}

void MainWindow::makeDriveArea() {
  addFrame(10, 10, 567, 64, {});
  buses_ = new ChoiceField(65, 20, 120, 21, "B&us:");
  for (const std::string& bus : model_.buses()) buses_->addChoice(bus);
  drives_ = new ChoiceField(65, 42, 200, 21, "&Drives:");
  driveCount_ = addText(268, 42, 40, 21, {});
  addButtons(Area::drive);
}

void MainWindow::makeList() {
  scheme_ = addText(10, 76, 250, 18, {});
  errors_ = addText(kListRight - 166, 76, 166, 18, MainWindowModel::kErrorLabel, FL_ALIGN_RIGHT);
  errors_->labelcolor(FL_RED);
  addButtons(Area::aboveList);
  for (const Action action : {Action::repairTable, Action::resume})
    buttons_[static_cast<std::size_t>(action)]->labelcolor(FL_RED);
  list_ = new ColumnList(10, 96, 416, 236, kColumns);
  list_->textsize(kSmallFontSize);
  list_->callback(onList, this);
  whyEmpty_ = addText(20, 104, 396, 120, {}, FL_ALIGN_LEFT | FL_ALIGN_TOP | FL_ALIGN_WRAP);
}

void MainWindow::makeActions() {
  Fl_Widget* frame = addFrame(431, 96, 146, 236, {});
  frame->clear_visible_focus();
  addText(504 - 40, 76, 80, 18, "Actions", FL_ALIGN_CENTER);
  addButtons(Area::besideList);
}

void MainWindow::addButtons(Area area) {
  const ButtonGrid grid = gridOf(area);
  int placed = 0;
  for (std::size_t index = 0; index < kActionCount; ++index) {
    const auto action = static_cast<Action>(index);
    if (MainWindowModel::area(action) != area) continue;
    auto* button =
        new Fl_Button(grid.x + placed % grid.columns * grid.columnStep,
                      grid.y + placed / grid.columns * grid.rowStep, grid.width, grid.height);
    button->copy_label(model_.label(action).c_str());
    fitLabel(*button, grid.fontSize);
    watch(button);
    buttons_[index] = button;
    ++placed;
  }
}

void MainWindow::onList(Fl_Widget*, void* data) {
  auto& window = *static_cast<MainWindow*>(data);
  if (Fl::event() != FL_RELEASE || Fl::event_clicks() == 0) return;
  Fl::event_clicks(0);
  window.doubleClicked_ = true;
}

bool MainWindow::onKey(int key) {
  const bool inList = Fl::focus() == list_;
  if (inList && (key == FL_Enter || key == FL_KP_Enter)) return doubleClicked_ = true;
  const bool known = digitOf(key) >= 0 ||
                     std::any_of(std::begin(kWindowKeys), std::end(kWindowKeys),
                                 [key](const WindowKey& row) { return row.toolkitKey == key; });
  if (!known || Fl::event_state(FL_ALT | FL_CTRL | FL_META)) return false;
  keys_.push_back(key);
  return true;
}

void MainWindow::run() {
  showCentred();
  list_->take_focus();
  while (model_.isOpen() && waitForEvents()) pass();
  hide();
}

void MainWindow::pass() {
  if (help_) {
    help_->pass();
    if (!help_->shown()) help_.reset();
  }
  const int bus = buses_->value();
  const int drive = drives_->value();
  const int line = list_->value();
  model_.setScrollPosition(list_->position());
  if (bus >= 0 && static_cast<std::size_t>(bus) != model_.busIndex())
    model_.selectBus(static_cast<std::size_t>(bus));
  else if (drive >= 0 && static_cast<std::size_t>(drive) != model_.driveIndex())
    model_.selectDrive(static_cast<std::size_t>(drive));
  else if (line > 0 && static_cast<std::size_t>(line - 1) != model_.selectedRow())
    model_.selectRow(static_cast<std::size_t>(line - 1));
  if (model_.revision() != shownRevision_) refill();
  model_.offerResume();
  carryOut();
  if (model_.revision() != shownRevision_) refill();
}

void MainWindow::carryOut() {
  const Fl_Button* pressed = takePressed();
  const auto button = std::find(buttons_.begin(), buttons_.end(), pressed);
  if (pressed && button != buttons_.end()) {
    model_.press(static_cast<Action>(button - buttons_.begin()));
  } else if (doubleClicked_) {
    model_.doubleClick();
  } else if (!keys_.empty()) {
    const int key = keys_.front();
    keys_.pop_front();
    if (const int digit = digitOf(key); digit >= 0) model_.digit(static_cast<u32>(digit));
    for (const WindowKey& known : kWindowKeys)
      if (known.toolkitKey == key) model_.key(known.key);
  } else {
    return;
  }
  // What was pressed while the action ran was meant for a window that looked otherwise.
  takePressed();
  keys_.clear();
  doubleClicked_ = false;
}

void MainWindow::refill() {
  shownRevision_ = model_.revision();
  buses_->value(static_cast<int>(model_.busIndex()));
  setChoices(*drives_, model_.drives(), model_.driveIndex());
  if (!drives_->active()) drives_->copy_tooltip(model_.whyWithoutDrive().c_str());
  driveCount_->setText(model_.driveCountLabel());
  setLabel(*scheme_, model_.schemeLabel());
  setLabel(*whyEmpty_, model_.whyEmpty());
  setLabel(*geometry_, model_.geometryLabel());
  setLabel(*paste_, model_.pasteLabel());
  model_.hasErrors() ? errors_->show() : errors_->hide();
  const ButtonGrid repair = gridOf(Area::aboveList);
  const bool isBesideRepair =
      model_.control(Action::repairTable).shown || model_.control(Action::resume).shown;
  errors_->position((isBesideRepair ? repair.x - kGap : kListRight) - errors_->w(), errors_->y());
  refillRows();
  for (std::size_t index = 0; index < kActionCount; ++index) {
    const auto action = static_cast<Action>(index);
    if (model_.label(action) != buttons_[index]->label())
      buttons_[index]->copy_label(model_.label(action).c_str());
    apply(model_.control(action), *buttons_[index]);
  }
  // A button that was just disabled leaves the window without a focus.
  if (shown() && !contains(Fl::focus())) list_->take_focus();
}

void MainWindow::refillRows() {
  list_->clearRows();
  for (const PartitionRow& row : model_.rows())
    list_->addRow({(row.isVolume ? "    " : "") + row.name, row.kind,
                   row.isUnfinished ? "U"
                   : row.isInError  ? "E"
                                    : "",
                   row.size, row.type});
  list_->position(model_.scrollPosition());
  if (const auto selected = model_.selectedRow()) {
    list_->value(static_cast<int>(*selected) + 1);
    list_->make_visible(static_cast<int>(*selected) + 1);
  }
}

// While a dialog is open nothing beside it is served, so its help stands in front of it.
void MainWindow::showHelpAbove(int topic) {
  HelpWindow help(helpFile_);
  help.set_modal();
  help.showTopic(topic);
  while (help.shown() && waitForEvents()) help.pass();
}

void MainWindow::showHelp(int topic) {
  if (Fl::modal()) return showHelpAbove(topic);
  if (!help_) help_ = std::make_unique<HelpWindow>(helpFile_);
  help_->showTopic(topic);
}

}  // namespace tallowin
