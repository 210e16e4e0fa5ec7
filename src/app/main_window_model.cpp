#include "app/main_window_model.h"

#include <algorithm>
#include <cassert>

#include "app/enabled_actions.h"
#include "app/mbr_view_model.h"
#include "base/text.h"
#include "ops/convert_flow.h"
#include "ops/copy_flow.h"
#include "ops/create_flow.h"
#include "ops/delete_flow.h"
#include "ops/edit_file_flow.h"
#include "ops/format_flow.h"
#include "ops/properties_flow.h"
#include "ops/resize_flow.h"
#include "ops/resume_flow.h"
#include "ops/slide_flow.h"
#include "ops/table_change.h"
#include "ops/target_text.h"
#include "ops/undelete_flow.h"
#include "ops/wipe_flow.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

Control disabled(std::string why) { return {true, false, std::move(why)}; }

}  // namespace

struct MainWindowModel::ActionRow {
  Action action;
  Area area;
  const char* label;
  Key key = Key::none;
  // Of enabledActions; 0: it does not depend on the selected row, else `wantedRow` says to somebody
  // who has selected another one what is to be selected.
  u32 bit = 0;
  const char* wantedRow = "Select a partition that this works with.";
  // What else must be so; null: nothing.
  std::string (MainWindowModel::*whyNot)() const = nullptr;
  // Null: the engine comes with a later release.
  void (MainWindowModel::*run)() = nullptr;
};

using Model = MainWindowModel;
const std::array<Model::ActionRow, kActionCount> Model::kActions = {{
    {.action = Action::driveSettings,
     .area = Area::drive,
     .label = "Dr&ive Settings",
     .whyNot = &Model::whyWithoutDrive,
     .run = &Model::runDriveSettings},
    {.action = Action::changeDiskType,
     .area = Area::drive,
     .label = "C&hange Disk Type",
     .whyNot = &Model::whyTypeIsFixed,
     .run = &Model::runChangeDiskType},
    {.action = Action::wipeEntireDrive,
     .area = Area::drive,
     .label = "&Wipe Entire Drive",
     .whyNot = &Model::whyWithoutDrive,
     .run = &Model::runWipe},
    {.action = Action::viewMbr,
     .area = Area::drive,
     .label = "&View MBR",
     .whyNot = &Model::whyWithoutTable,
     .run = &Model::runViewMbr},
    {.action = Action::repairTable,
     .area = Area::aboveList,
     .label = "* GPT Needs Repair *",
     .run = &Model::runRepair},
    {.action = Action::resume,
     .area = Area::aboveList,
     .label = "* Unfinished *",
     .run = &Model::runResume},
    {.action = Action::create,
     .area = Area::besideList,
     .label = "Crea&te",
     .key = Key::insert,
     .bit = kCreateBit,
     .wantedRow = "Select free space to create a partition in.",
     .whyNot = &Model::whyTableIsFixed,
     .run = &Model::runCreate},
    {.action = Action::deleteOrUndelete,
     .area = Area::besideList,
     .label = "De&lete",
     .key = Key::del,
     .bit = kDeleteBit,
     .whyNot = &Model::whyTableIsFixed,
     .run = &Model::runDelete},
    {.action = Action::format,
     .area = Area::besideList,
     .label = "&Format",
     .bit = kFormatBit,
     .wantedRow =
         "Select a partition or volume to format, or the free space of a disk without any.",
     .whyNot = &Model::whyNotThisType,
     .run = &Model::runFormat},
    {.action = Action::resize,
     .area = Area::besideList,
     .label = "&Resize",
     .bit = kResizeBit,
     .wantedRow = "Select a partition or volume to resize.",
     .whyNot = &Model::whyNotResizable,
     .run = &Model::runResize},
    {.action = Action::slide,
     .area = Area::besideList,
     .label = "&Slide",
     .bit = kSlideBit,
     .wantedRow = "Select a partition or volume to slide within the free space around it.",
     .whyNot = &Model::whyNotSlid,
     .run = &Model::runSlide},
    {.action = Action::copy,
     .area = Area::besideList,
     .label = "&Copy",
     .bit = kCopyBit,
     .wantedRow = "Select a partition or volume to copy.",
     .run = &Model::runCopy},
    {.action = Action::align, .area = Area::besideList, .label = "&Align", .bit = kAlignBit},
    {.action = Action::paste,
     .area = Area::besideList,
     .label = "&Paste",
     .bit = kPasteBit,
     .wantedRow = "Copy a partition first, and then select free space that is as large.",
     .whyNot = &Model::whyTableIsFixed,
     .run = &Model::runPaste},
    {.action = Action::groups, .area = Area::besideList, .label = "&Groups"},
    {.action = Action::properties,
     .area = Area::besideList,
     .label = "Proper&ties",
     .bit = kPropertiesBit,
     .run = &Model::runProperties},
    {.action = Action::editFile,
     .area = Area::besideList,
     .label = "&Edit File",
     .bit = kEditFileBit,
     .whyNot = &Model::whyNoFiles,
     .run = &Model::runEditFile},
    {.action = Action::bcdEdit, .area = Area::besideList, .label = "&BCD Edit", .bit = kBcdEditBit},
    {.action = Action::trim, .area = Area::besideList, .label = "Tri&m", .bit = kTrimBit},
    {.action = Action::close,
     .area = Area::lowerEdge,
     .label = "Close",
     .key = Key::escape,
     .run = &Model::runClose},
    {.action = Action::help,
     .area = Area::lowerEdge,
     .label = "Help",
     .key = Key::f1,
     .run = &Model::runHelp},
    {.action = Action::settings,
     .area = Area::lowerEdge,
     .label = "Settings",
     .run = &Model::runSettings},
}};

const MainWindowModel::ActionRow& MainWindowModel::rowOf(Action action) {
  const ActionRow& row = kActions[static_cast<std::size_t>(action)];
  assert(row.action == action);
  return row;
}

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
    isResumeOffered_ = false;
  } else {
    row = selectedRow_;
    if (row) id = rows_[*row].id;
    if (drive_) static_cast<void>(drive_->settle());
  }
  openCurrentDrive();
  rows_ = drive_ ? partitionRows(*drive_) : std::vector<PartitionRow>{};
  selectAgain(id, row);
  ++revision_;
}

void MainWindowModel::openCurrentDrive() {
  drive_.reset();
  whyNoDrive_.clear();
  if (!driveIndex_) return;
  const Failure error = session_.openDrive(currentDriveNumber(), drive_);
  if (error == Error::none) return;
  drive_.reset();
  whyNoDrive_ = session_.openFailure(error);
}

u32 MainWindowModel::currentDriveNumber() const {
  return driveNumberOf(static_cast<DriveClass>(busIndex_), static_cast<u32>(*driveIndex_));
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

Area MainWindowModel::area(Action action) { return rowOf(action).area; }

std::string MainWindowModel::label(Action action) const {
  const PartitionEntry* entry = selection();
  if (action == Action::deleteOrUndelete && entry && entry->isFree()) return "Unde&lete";
  return rowOf(action).label;
}

Control MainWindowModel::control(Action action) const {
  const ActionRow& row = rowOf(action);
  // They stand in the same place; nothing is repaired before what is unfinished.
  const bool isUnfinished = drive_ && drive_->hasUnfinished();
  if (action == Action::resume && !isUnfinished) return {false, true, {}};
  if (action == Action::repairTable && (isUnfinished || !needsRepair())) return {false, true, {}};
  if (!row.run) return disabled("This comes with a later release.");
  std::string why = row.bit != 0 ? whyNotOnRow(row) : std::string();
  if (why.empty() && row.whyNot) why = (this->*row.whyNot)();
  return why.empty() ? Control{} : disabled(std::move(why));
}

std::string MainWindowModel::whyWithoutTable() const {
  if (std::string why = whyWithoutDrive(); !why.empty()) return why;
  return drive_->table().isWholeDisk() && !drive_->table().isBesideVolume()
             ? "This disk has no partition table; a file system fills all of it."
             : "";
}

std::string MainWindowModel::whyTypeIsFixed() const {
  if (std::string why = whyWithoutDrive(); !why.empty()) return why;
  return drive_->schemeChangeRefusal();
}

bool MainWindowModel::needsRepair() const {
  return drive_ && drive_->gptHealth() && !drive_->gptHealth()->isSound();
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

std::string MainWindowModel::whyNotOnRow(const ActionRow& row) const {
  if (std::string why = whyWithoutDrive(); !why.empty()) return why;
  const PartitionEntry* entry = selection();
  if (!entry) {
    const std::string why = whyEmpty();
    return !why.empty() ? why : "Select a row of the list first.";
  }
  const FileSystemKinds& kinds = session_.fileSystems();
  const ActionFacts facts{
      .isGpt = drive_->isGpt(),
      .holdsFiles = row.bit == kEditFileBit && holdsFiles(*entry),
      .holdsNothing = drive_->scheme() == Scheme::mbr && drive_->partitionCount() == 0,
      .pendingCopySectors = clipboard_ ? clipboard_->sectors : kAllOnes64};
  if ((enabledActions(kinds, *entry, facts) & row.bit) != 0) return {};
  if (const auto fault = faultText(*entry))
    return "This partition can only be deleted: " + *fault + ".";
  return row.wantedRow;
}

// The disk is asked once a selection, and where the type does not say it.
bool MainWindowModel::holdsFiles(const PartitionEntry& entry) const {
  const FileSystemKinds& kinds = session_.fileSystems();
  if (entry.isFree() || types::isExtended(entry.type) || kindOf(kinds, entry)) return false;
  if (!filesFound_ || filesFound_->revision != revision_) {
    const FileSystemKind* kind = kindIn(kinds, *drive_, entry);
    filesFound_ = {revision_, kind != nullptr && kind->open != nullptr};
  }
  return filesFound_->areThere;
}

std::string MainWindowModel::whyNoFiles() const {
  const PartitionEntry& entry = *selection();
  return kindOf(session_.fileSystems(), entry) || holdsFiles(entry)
             ? ""
             : "The files of this file system cannot be reached by this version.";
}

std::string MainWindowModel::whyTableIsFixed() const { return drive_->changeRefusal(); }

std::string MainWindowModel::whyNotThisType() const {
  const PartitionEntry& entry = *selection();
  const FileSystemKinds& kinds = session_.fileSystems();
  if (entry.isFree() || mayHoldAnyKind(kinds, entry)) return {};
  return whyNotFormattable(kindOf(kinds, entry), entry.type);
}

std::string MainWindowModel::whyNotResizable() const {
  const FileSystemKind* kind = kindIn(session_.fileSystems(), *drive_, *selection());
  if (kind != nullptr && kind->resize != nullptr) return whyTableIsFixed();
  return "What this partition holds cannot be resized by this version.";
}

// A volume that fills its disk has no free space around it.
std::string MainWindowModel::whyNotSlid() const {
  if (drive_->table().isWholeDisk())
    return "A file system fills all of this disk: there is no free space to slide it in.";
  return whyTableIsFixed();
}

// Whatever is done first ends a copy that has not been pasted.
void MainWindowModel::press(Action action) {
  const Control button = control(action);
  if (!button.shown || !button.enabled) return;
  if (action != Action::paste && action != Action::help && clipboard_) {
    clipboard_.reset();
    ++revision_;
  }
  // Nothing else is changed before it is ended.
  const bool isUnfinished = drive_ && drive_->hasUnfinished();
  if (isUnfinished && area(action) == Area::besideList) return runResume();
  (this->*rowOf(action).run)();
}

std::string MainWindowModel::pasteLabel() const {
  if (!clipboard_) return {};
  return format("* Paste Pending for Copy (%uMiB) *",
                static_cast<unsigned>(sectorsToMiB(clipboard_->sectors, clipboard_->sectorBytes)));
}

SettingsContext MainWindowModel::settingsContext() {
  return {session_, frontEnd_,
          [this](Drive& drive, bool limit) {
            return limitPrimaries(session_.context(frontEnd_), drive, limit);
          },
          showHelp_};
}

void MainWindowModel::runSettings() {
  if (editSettings(settingsContext(), drive_.get(), whyWithoutDrive()))
    refresh(Refresh::afterAction);
}

void MainWindowModel::runDriveSettings() {
  if (editDriveSettings(settingsContext(), *drive_)) refresh(Refresh::afterAction);
}

void MainWindowModel::runHelp() {
  if (showHelp_) showHelp_(kHelpTopic);
}

void MainWindowModel::runViewMbr() {
  // The flow has told the user how it ended.
  static_cast<void>(viewMbr(session_.context(frontEnd_), *drive_, showHelp_));
  drive_->setFlags(kDriveChanged, kDriveChanged);
  refresh(Refresh::afterAction);
}

// The flows below have told the user how they ended.

void MainWindowModel::runRepair() {
  static_cast<void>(repairGptFlow(session_.context(frontEnd_), *drive_));
  refresh(Refresh::afterAction);
}

void MainWindowModel::runWipe() {
  WipeRecord record;
  static_cast<void>(wipeFlow(session_.context(frontEnd_), *drive_, {}, record));
  refresh(Refresh::afterAction);
}

void MainWindowModel::runResume() {
  static_cast<void>(tallowin::offerResume(session_.context(frontEnd_), *drive_));
  refresh(Refresh::afterAction);
}

void MainWindowModel::offerResume() {
  if (isResumeOffered_ || !drive_) return;
  isResumeOffered_ = true;
  if (drive_->hasUnfinished()) runResume();
}

// Before a change of the table: offers to repair a GPT of which one copy is not sound. Whatever the
// answer, the flow that follows is the one that says what it cannot do. False when the action makes
// no sense any more.
bool MainWindowModel::offerRepair(Action action) {
  if (!needsRepair()) return true;
  runRepair();
  return control(action).enabled;
}

void MainWindowModel::runChangeDiskType() {
  if (!offerRepair(Action::changeDiskType)) return;
  static_cast<void>(changeDiskTypeFlow(session_.context(frontEnd_), *drive_));
  refresh(Refresh::afterAction);
}

void MainWindowModel::runCreate() {
  if (!offerRepair(Action::create)) return;
  const std::vector<PartitionRow> before = rows_;
  static_cast<void>(createFlow(session_.context(frontEnd_), *drive_, *selectedEntry()));
  refresh(Refresh::afterAction);
  selectNew(before);
}

// The partition that was not there before, when there is one.
void MainWindowModel::selectNew(const std::vector<PartitionRow>& before) {
  const auto isNew = [&](const PartitionRow& row) {
    return !row.isFree && std::ranges::none_of(before, [&](const PartitionRow& old) {
      return !old.isFree && old.startSector == row.startSector && old.isVolume == row.isVolume;
    });
  };
  if (const auto found = std::ranges::find_if(rows_, isNew); found != rows_.end())
    selectedRow_ = static_cast<std::size_t>(found - rows_.begin());
}

void MainWindowModel::runDelete() {
  if (!offerRepair(Action::deleteOrUndelete)) return;
  const OperationContext context = session_.context(frontEnd_);
  PartitionEntry& entry = *selectedEntry();
  const bool isUndelete = entry.isFree();
  const std::vector<PartitionRow> before = rows_;
  static_cast<void>(isUndelete ? undeleteFlow(context, *drive_, entry)
                               : deleteFlow(context, *drive_, entry));
  refresh(Refresh::afterAction);
  if (isUndelete) selectNew(before);
}

void MainWindowModel::runFormat() {
  const OperationContext context = session_.context(frontEnd_);
  PartitionEntry& entry = *selectedEntry();
  static_cast<void>(entry.isFree() ? formatWholeFlow(context, *drive_)
                                   : formatFlow(context, *drive_, entry));
  refresh(Refresh::afterAction);
}

void MainWindowModel::runResize() {
  if (!offerRepair(Action::resize)) return;
  static_cast<void>(resizeFlow(session_.context(frontEnd_), *drive_, *selectedEntry()));
  refresh(Refresh::afterAction);
}

void MainWindowModel::runSlide() {
  if (!offerRepair(Action::slide)) return;
  static_cast<void>(slideFlow(session_.context(frontEnd_), *drive_, *selectedEntry()));
  refresh(Refresh::afterAction);
}

void MainWindowModel::runCopy() {
  const PartitionEntry& entry = *selectedEntry();
  clipboard_ =
      Clipboard{currentDriveNumber(), entry.startSector, entry.sectorCount(), drive_->sectorSize()};
  ++revision_;
}

void MainWindowModel::runPaste() {
  const Clipboard source = *clipboard_;
  clipboard_.reset();
  ++revision_;
  if (!offerRepair(Action::create)) return;
  std::unique_ptr<Drive> other;
  const bool isSameDrive = source.driveNumber == currentDriveNumber();
  if (!isSameDrive) {
    if (const Failure failed = session_.openDrive(source.driveNumber, other))
      return frontEnd_.errorBox(session_.openFailure(failed));
  }
  Drive& sourceDrive = isSameDrive ? *drive_ : *other;
  PartitionEntry* entry = findByStart(sourceDrive, source.startSector);
  if (entry == nullptr || entry->sectorCount() != source.sectors)
    return frontEnd_.noticeBox("The partition that was copied is not there any more.");
  const std::vector<PartitionRow> before = rows_;
  static_cast<void>(
      copyFlow(session_.context(frontEnd_), sourceDrive, *entry, *drive_, *selectedEntry()));
  refresh(Refresh::afterAction);
  selectNew(before);
}

void MainWindowModel::runProperties() {
  const bool offersEnd = isShiftHeld_ && isShiftHeld_();
  static_cast<void>(
      propertiesFlow(session_.context(frontEnd_), *drive_, *selectedEntry(), offersEnd));
  refresh(Refresh::afterAction);
}

void MainWindowModel::runEditFile() {
  static_cast<void>(
      editFileFlow(session_.context(frontEnd_), *drive_, *selectedEntry(), showHelp_));
  refresh(Refresh::afterAction);
}

void MainWindowModel::runClose() {
  drive_.reset();
  rows_.clear();
  selectedRow_.reset();
  open_ = false;
  ++revision_;
}

void MainWindowModel::key(Key key) {
  if (key == Key::f5) return refresh(Refresh::afterAction);
  if (key == Key::f10) key = Key::escape;
  for (const ActionRow& row : kActions)
    if (key != Key::none && row.key == key) return press(row.action);
}

void MainWindowModel::digit(u32 digit) {
  if (digit <= 9) selectDrive(digit);
}

void MainWindowModel::doubleClick() {
  press(control(Action::create).enabled ? Action::create : Action::properties);
}

}  // namespace tallowin
