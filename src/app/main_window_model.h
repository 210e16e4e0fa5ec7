// What the main window shows and does, without a widget.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/partition_rows.h"
#include "app/session.h"
#include "app/settings_flow.h"
#include "ops/dialog_model.h"
#include "ops/front_end.h"

namespace tallowin {

// One value per button of the window, in the order of the Tab key within its area.
enum class Action {
  driveSettings,
  changeDiskType,
  wipeEntireDrive,
  viewMbr,
  repairTable,
  resume,
  create,
  deleteOrUndelete,  // one button with two labels
  format,
  resize,
  slide,
  copy,
  align,
  paste,
  groups,
  properties,
  editFile,
  bcdEdit,
  trim,
  close,
  help,
  settings,
};
inline constexpr std::size_t kActionCount = static_cast<std::size_t>(Action::settings) + 1;

// Where the button of an action stands.
enum class Area { drive, aboveList, besideList, lowerEdge };

// The keys that the window answers to wherever its focus is.
enum class Key : u8 { none, insert, del, f1, f5, f10, escape };

// The view shows the model's answers, reports what the user did, and fills its widgets again
// whenever revision() has changed. Everything that is asked or said goes through the front end.
class MainWindowModel {
 public:
  static constexpr const char* kTitle = "Tallowin 1.32";

  // Selects the first bus that has a drive, its first drive and that drive's first row. The
  // session and the front end are borrowed for the model's life.
  MainWindowModel(Session& session, FrontEnd& frontEnd);
  ~MainWindowModel();
  MainWindowModel(const MainWindowModel&) = delete;
  MainWindowModel& operator=(const MainWindowModel&) = delete;

  // Grows with every change of what is shown.
  u32 revision() const { return revision_; }
  // False after Close, Escape or F10: the window is to be destroyed.
  bool isOpen() const { return open_; }

  const std::vector<std::string>& buses() const;
  std::size_t busIndex() const { return busIndex_; }
  void selectBus(std::size_t index);

  const std::vector<std::string>& drives() const { return driveNames_; }
  std::optional<std::size_t> driveIndex() const { return driveIndex_; }
  void selectDrive(std::size_t index);
  std::string driveCountLabel() const;  // "(%u)"

  const std::vector<PartitionRow>& rows() const { return rows_; }
  std::optional<std::size_t> selectedRow() const { return selectedRow_; }
  void selectRow(std::size_t index);
  // Pixels; the view reports where the list stands, and after a refresh goes back to it.
  int scrollPosition() const { return scrollPosition_; }
  void setScrollPosition(int position) { scrollPosition_ = position; }

  std::string schemeLabel() const;  // "MBR Partitions"; empty without a drive
  // Why there is no drive to show, and what would help; empty when there is one.
  std::string whyWithoutDrive() const;
  // Why there are no rows; empty when there are, and of a table that cannot be read.
  std::string whyEmpty() const;
  bool hasErrors() const;  // of the rows
  static constexpr const char* kErrorLabel = "* Errors Exist *";
  std::string geometryLabel() const;  // "%u/%u/%u"; empty without a drive
  // "* Paste Pending for Copy (100MiB) *"; empty unless a partition was copied.
  std::string pasteLabel() const;

  static Area area(Action action);
  // With its mnemonic; only that of deleteOrUndelete changes.
  std::string label(Action action) const;
  // A disabled button says in `whyDisabled` what is missing; that of repairTable is shown when
  // there is something to repair.
  Control control(Action action) const;

  // Does nothing when the action's button is disabled.
  void press(Action action);
  void key(Key key);
  // Asks about an operation on the drive that was cut short, once for each time that the drive is
  // chosen. The view calls it when the window is there.
  void offerResume();
  // A typed digit 0..9 selects that drive when it exists.
  void digit(u32 digit);
  // On a row of the list.
  void doubleClick();

  // The open drive, or null.
  Drive* drive() { return drive_.get(); }
  PartitionEntry* selectedEntry();

  // Shows the help window at a topic; it stays open beside the main window. Set by the view.
  void setHelpHook(std::function<void(int topic)> hook) { showHelp_ = std::move(hook); }
  // Whether the Shift key is held now. Set by the view.
  void setShiftHook(std::function<bool()> hook) { isShiftHeld_ = std::move(hook); }
  static constexpr int kHelpTopic = 4;

 private:
  enum class Refresh { initial, afterAction };

  void fillDrives();
  void refresh(Refresh kind);
  void openCurrentDrive();
  u32 currentDriveNumber() const;
  void selectNew(const std::vector<PartitionRow>& before);
  void selectAgain(std::optional<PartitionId> id, std::optional<std::size_t> row);
  // One row per action: where it is, what it is called, when it can be had, what it does.
  struct ActionRow;
  static const std::array<ActionRow, kActionCount> kActions;
  static const ActionRow& rowOf(Action action);

  void runCreate();
  void runDelete();
  void runFormat();
  void runResize();
  void runSlide();
  void runCopy();
  void runPaste();
  void runProperties();
  void runEditFile();
  void runViewMbr();
  void runChangeDiskType();
  void runRepair();
  void runResume();
  void runWipe();
  void runSettings();
  void runDriveSettings();
  void runHelp();
  void runClose();

  bool offerRepair(Action action);
  bool needsRepair() const;
  SettingsContext settingsContext();
  std::string whyNotOnRow(const ActionRow& row) const;
  std::string whyNotThisType() const;
  std::string whyNoFiles() const;
  std::string whyNotResizable() const;
  std::string whyNotSlid() const;
  bool holdsFiles(const PartitionEntry& entry) const;
  std::string whyWithoutTable() const;
  std::string whyTypeIsFixed() const;
  std::string whyTableIsFixed() const;
  const PartitionEntry* selection() const;

  Session& session_;
  FrontEnd& frontEnd_;
  std::function<void(int)> showHelp_;
  std::function<bool()> isShiftHeld_;
  u32 revision_ = 0;
  bool open_ = true;
  std::size_t busIndex_ = 0;
  std::vector<std::string> driveNames_;
  std::optional<std::size_t> driveIndex_;
  std::unique_ptr<Drive> drive_;
  std::string whyNoDrive_;  // could not be opened; empty otherwise
  std::vector<PartitionRow> rows_;
  std::optional<std::size_t> selectedRow_;
  int scrollPosition_ = 0;
  bool isResumeOffered_ = false;
  // What Copy remembers for Paste.
  struct Clipboard {
    u32 driveNumber = 0;
    u64 startSector = 0;
    u64 sectors = 0;
    u32 sectorBytes = 512;
  };
  std::optional<Clipboard> clipboard_;
  struct FilesFound {
    u32 revision = 0;
    bool areThere = false;
  };
  mutable std::optional<FilesFound> filesFound_;  // in the selected row
};

}  // namespace tallowin
