#include "app/main_window_model.h"

#include <algorithm>
#include <array>

#include "app/enabled_actions.h"
#include "app/mbr_view_model.h"
#include "app/settings_flow.h"
#include "base/text.h"
#include "ops/convert_flow.h"
#include "ops/create_flow.h"
#include "ops/delete_flow.h"
#include "ops/format_flow.h"
#include "ops/properties_flow.h"
#include "ops/target_text.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

// What is fixed about a button.
struct ActionRow {
  Action action;
  const char* label;
  u32 bit = 0;                    // of enabledActions; 0: does not depend on the row
  const char* missing = nullptr;  // the engine that comes with a later release
};
constexpr std::array<ActionRow, kActionCount> kActions = {{
    {Action::create, "Crea&te", kCreateBit},
    {Action::deleteOrUndelete, "De&lete", kDeleteBit},
    {Action::format, "&Format", kFormatBit},
    {Action::resize, "&Resize", kResizeBit, "Resizing"},
    {Action::slide, "&Slide", kSlideBit, "Sliding"},
    {Action::copy, "&Copy", kCopyBit, "Copying"},
    {Action::align, "&Align", kAlignBit, "Aligning"},
    {Action::paste, "&Paste", kPasteBit, "Copying"},
    {Action::groups, "&Groups", 0, "Groups"},
    {Action::properties, "Proper&ties", kPropertiesBit, "Editing properties"},
    {Action::editFile, "&Edit File", kEditFileBit, "Editing files"},
    {Action::bcdEdit, "&BCD Edit", kBcdEditBit, "Editing the boot configuration"},
    {Action::trim, "Tri&m", kTrimBit, "Trimming"},
    {Action::driveSettings, "Dr&ive Settings"},
    {Action::changeDiskType, "C&hange Disk Type"},
    {Action::wipeEntireDrive, "&Wipe Entire Drive", 0, "Wiping a drive"},
    {Action::viewMbr, "&View MBR"},
    {Action::close, "Close"},
    {Action::help, "Help"},
    {Action::settings, "Settings"},
}};

const ActionRow& rowOf(Action action) { return kActions[static_cast<std::size_t>(action)]; }

// What a row must be for the action, said to somebody who has selected another one.
const char* wantedRow(Action action) {
  switch (action) {
    case Action::create:
      return "Select free space to create a partition in.";
    case Action::format:
      return "Select a FAT partition or volume to format.";
    default:
      return "Select a partition that this works with.";
  }
}

Control disabled(std::string why) { return {true, false, std::move(why)}; }

}  // namespace

MainWindowModel::MainWindowModel(Session& session, FrontEnd& frontEnd)
    : session_(session), frontEnd_(frontEnd) {
  // A bus with something to show comes first.
  for (std::size_t bus = buses().size(); bus-- > 0;)
    if (!session_.driveNames(static_cast<DriveClass>(bus)).empty()) busIndex_ = bus;
  fillDrives();
}

MainWindowModel::~MainWindowModel() = default;

const std::vector<std::string>& MainWindowModel::buses() const { return Session::busNames(); }

void MainWindowModel::selectBus(std::size_t index) {
  if (index >= buses().size() || index == busIndex_) return;
  busIndex_ = index;
  fillDrives();
}

void MainWindowModel::fillDrives() {
  driveNames_ = session_.driveNames(static_cast<DriveClass>(busIndex_));
  driveIndex_ = driveNames_.empty() ? std::nullopt : std::optional<std::size_t>(0);
  refresh(Refresh::initial);
}

void MainWindowModel::selectDrive(std::size_t index) {
  if (index >= driveNames_.size() || driveIndex_ == index) return;
  driveIndex_ = index;
  refresh(Refresh::initial);
}

std::string MainWindowModel::driveCountLabel() const {
  return format("(%u)", static_cast<unsigned>(driveNames_.size()));
}

void MainWindowModel::refresh(Refresh kind) {
  std::optional<PartitionId> id;
  std::optional<std::size_t> row;
  if (kind == Refresh::initial) {
    scrollPosition_ = 0;
  } else {
    row = selectedRow_;
    if (row) id = rows_[*row].id;
    if (drive_) static_cast<void>(drive_->settle());
  }
  openCurrentDrive();
  rows_ = drive_ ? partitionRows(*drive_, RowMode::mainList) : std::vector<PartitionRow>{};
  selectAgain(id, row);
  ++revision_;
}

void MainWindowModel::openCurrentDrive() {
  drive_.reset();
  whyNoDrive_.clear();
  if (!driveIndex_) return;
  const u32 number =
      driveNumberOf(static_cast<DriveClass>(busIndex_), static_cast<u32>(*driveIndex_));
  const Failure error = session_.openDrive(number, drive_);
  if (error == Error::none) return;
  drive_.reset();
  whyNoDrive_ = session_.openFailure(error);
}

// The row with the same id; when that is gone, the row that took its place.
void MainWindowModel::selectAgain(std::optional<PartitionId> id, std::optional<std::size_t> row) {
  selectedRow_.reset();
  if (rows_.empty()) return;
  const auto same = std::find_if(rows_.begin(), rows_.end(),
                                 [&](const PartitionRow& r) { return id && r.id == *id; });
  selectedRow_ = same != rows_.end() ? static_cast<std::size_t>(same - rows_.begin())
                                     : std::min(row.value_or(0), rows_.size() - 1);
}

void MainWindowModel::selectRow(std::size_t index) {
  if (index >= rows_.size() || selectedRow_ == index) return;
  selectedRow_ = index;
  ++revision_;
}

const PartitionEntry* MainWindowModel::selection() const {
  return drive_ && selectedRow_ ? drive_->findById(rows_[*selectedRow_].id) : nullptr;
}

PartitionEntry* MainWindowModel::selectedEntry() {
  return const_cast<PartitionEntry*>(selection());
}

std::string MainWindowModel::schemeLabel() const {
  return drive_ ? format("%s %s", drive_->schemeName(), "Partitions") : std::string();
}

bool MainWindowModel::hasErrors() const { return drive_ && drive_->table().hasErrors(); }

std::string MainWindowModel::geometryLabel() const {
  if (!drive_) return {};
  const Geometry& geometry = drive_->geometry();
  return format("%u/%u/%u", geometry.maxCylinder, geometry.maxHead, geometry.sectorsPerTrack);
}

std::string MainWindowModel::label(Action action) const {
  const PartitionEntry* entry = selection();
  if (action == Action::deleteOrUndelete && entry && entry->isFree()) return "Unde&lete";
  return rowOf(action).label;
}

Control MainWindowModel::control(Action action) const {
  const ActionRow& row = rowOf(action);
  if (row.missing) return disabled(std::string(row.missing) + " comes with a later release.");
  std::string why;
  if (row.bit != 0)
    why = whyUnavailable(action);
  else if (action == Action::driveSettings)
    why = whyWithoutDrive();
  else if (action == Action::viewMbr)
    why = whyWithoutTable();
  else if (action == Action::changeDiskType)
    why = whyTypeIsFixed();
  return why.empty() ? Control{} : disabled(std::move(why));
}

std::string MainWindowModel::whyWithoutTable() const {
  if (std::string why = whyWithoutDrive(); !why.empty()) return why;
  return drive_->table().isWholeDisk()
             ? "This disk has no partition table; a file system fills all of it."
             : "";
}

std::string MainWindowModel::whyTypeIsFixed() const {
  if (std::string why = whyWithoutDrive(); !why.empty()) return why;
  return drive_->schemeChangeRefusal();
}

std::string MainWindowModel::errorLabel() const {
  if (hasErrors()) return kErrorLabel;
  const bool isSound = !drive_ || !drive_->gptHealth() || drive_->gptHealth()->isSound();
  return isSound ? "" : "* GPT Needs Repair *";
}

std::string MainWindowModel::whyWithoutDrive() const {
  if (!whyNoDrive_.empty()) return whyNoDrive_;
  if (drive_) return {};
  if (busIndex_ == static_cast<std::size_t>(DriveClass::image))
    return "No image is open; start with -img:FILE to open one.";
  return session_.whyNoDevices();
}

std::string MainWindowModel::whyEmpty() const {
  return drive_ && whyNoDrive_.empty() ? emptyTableText(*drive_) : whyWithoutDrive();
}

std::string MainWindowModel::whyUnavailable(Action action) const {
  if (std::string why = whyWithoutDrive(); !why.empty()) return why;
  const PartitionEntry* entry = selection();
  if (!entry) {
    const std::string why = whyEmpty();
    return !why.empty() ? why : "Select a row of the list first.";
  }
  if (action == Action::deleteOrUndelete && entry->isFree())
    return "Recovering deleted partitions comes with a later release.";
  if (entry->isInError() && action != Action::deleteOrUndelete)
    return "This entry overlaps another one or cannot be right; it can only be deleted.";
  const ActionFacts facts{.isGpt = drive_->isGpt()};
  if ((enabledActions(*entry, facts) & rowOf(action).bit) == 0) return wantedRow(action);
  return action == Action::format ? whyNotFormattable(entry->type) : drive_->changeRefusal();
}

void MainWindowModel::press(Action action) {
  if (!control(action).enabled) return;
  if (action == Action::close) return closeWindow();
  if (action == Action::help) {
    if (showHelp_) showHelp_(kHelpTopic);
    return;
  }
  if (action == Action::settings || action == Action::driveSettings) return runSettings(action);
  if (action == Action::viewMbr) return runViewMbr();
  if (action == Action::changeDiskType) return runChangeDiskType();
  runFlow(action);
}

void MainWindowModel::runSettings(Action action) {
  const SettingsContext context{session_, frontEnd_,
                                [this](Drive& drive, bool limit) {
                                  return limitPrimaries(session_.context(frontEnd_), drive, limit);
                                },
                                showHelp_};
  const bool changed = action == Action::settings
                           ? editSettings(context, drive_.get(), whyWithoutDrive())
                           : editDriveSettings(context, *drive_);
  if (changed) refresh(Refresh::afterAction);
}

void MainWindowModel::runViewMbr() {
  // The flow has told the user how it ended.
  static_cast<void>(viewMbr(session_.context(frontEnd_), *drive_, showHelp_));
  drive_->setFlags(kDriveChanged, kDriveChanged);
  refresh(Refresh::afterAction);
}

// Before a change of the table: offers to repair a GPT of which one copy is not sound. False when
// the action makes no sense any more.
bool MainWindowModel::offerRepair(Action action) {
  if (!drive_->gptHealth() || drive_->gptHealth()->isSound()) return true;
  // Whatever the answer, the flow that follows is the one that says what it cannot do.
  static_cast<void>(repairGptFlow(session_.context(frontEnd_), *drive_));
  refresh(Refresh::afterAction);
  return control(action).enabled;
}

void MainWindowModel::runChangeDiskType() {
  if (!offerRepair(Action::changeDiskType)) return;
  // The flow has told the user how it ended.
  static_cast<void>(changeDiskTypeFlow(session_.context(frontEnd_), *drive_));
  refresh(Refresh::afterAction);
}

void MainWindowModel::runFlow(Action action) {
  const OperationContext context = session_.context(frontEnd_);
  if (action != Action::format && !offerRepair(action)) return;
  PartitionEntry& entry = *selectedEntry();
  // The flow has told the user how it ended.
  switch (action) {
    case Action::create:
      static_cast<void>(createFlow(context, *drive_, entry));
      break;
    case Action::deleteOrUndelete:
      static_cast<void>(deleteFlow(context, *drive_, entry));
      break;
    case Action::format:
      static_cast<void>(formatFlow(context, *drive_, entry));
      break;
    default:
      return;
  }
  refresh(Refresh::afterAction);
}

void MainWindowModel::closeWindow() {
  drive_.reset();
  rows_.clear();
  selectedRow_.reset();
  open_ = false;
  ++revision_;
}

void MainWindowModel::key(Key key) {
  switch (key) {
    case Key::insert:
      return press(Action::create);
    case Key::del:
      return press(Action::deleteOrUndelete);
    case Key::f1:
      return press(Action::help);
    case Key::f5:
      return refresh(Refresh::afterAction);
    case Key::f10:
    case Key::escape:
      return press(Action::close);
  }
}

void MainWindowModel::digit(u32 digit) {
  if (digit <= 9) selectDrive(digit);
}

void MainWindowModel::doubleClick() {
  press(control(Action::create).enabled ? Action::create : Action::properties);
}

}  // namespace tallowin
