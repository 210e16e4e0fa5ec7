// The editor of one drive's settings: the dialog "Drive Settings", and a page of the dialog
// "Settings".
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "ops/dialog_model.h"
#include "settings/drive_settings.h"
#include "settings/options.h"

namespace tallowin {

// A check box.
struct Tick {
  bool ticked = false;
  Control control;
};

// What an EMBR drive says of its primary partitions.
struct EmbrPrimaries {
  bool limited = false;  // to the four slots of the MBR
  u32 usedEntries = 0;
  std::string whyFixed;  // why the limit cannot be changed; empty when it can
};

class DriveSettingsModel : public DialogModel {
 public:
  // `embr` for EMBR drives only. `record` and `options` are copied: nothing is changed here.
  DriveSettingsModel(const DriveSettingsRecord& record, const Options& options,
                     const DriveFacts& facts, const std::optional<EmbrPrimaries>& embr);

  std::string title = "Drive Settings";
  std::string driveLine;  // "Drive: 0", or "Drive: disk.img"

  NumberField cylinders;
  NumberField heads;
  NumberField sectors;
  Control geometryControl;  // of the three numbers
  Tick useMbrGeometry;
  Tick validateMbrGeometry;
  Tick useOriginalGeometry;

  Tick alignOnEnd;
  Tick alignEndByResizing;
  Tick align1MiB;
  Tick alignEndHs;
  Tick alignHsOnTruncate;

  Tick useGlobalSettings;
  Tick saveAsDefault;
  Tick limitPrimaries;  // shown for EMBR drives

  // The global settings of the other pages, while they are being edited.
  void setOptions(const Options& options) { options_ = options; }

  void pass() override;
  // Runs `store`; the dialog closes when that answers true, and stays open otherwise.
  void ok() override;
  std::function<bool()> store;
  bool confirmed = false;  // set by OK

  // What is wrong with a number that was typed, as a sentence; empty when nothing is.
  std::string problem() const;
  // What OK makes of the record, and the keys that it writes with Save as Default.
  DriveSettingsRecord result() const;
  DriveKeys keysToSave() const;
  // The limit that OK asks for; nothing when it stays as it is.
  std::optional<bool> wantedLimit() const;

 private:
  // What the numbers depend on.
  struct GeometrySource {
    bool global = false;
    bool mbr = false;
    bool validate = false;
    bool original = false;
    friend bool operator==(const GeometrySource&, const GeometrySource&) = default;
  };

  bool isGlobalInForce() const;
  bool takesNumbers() const;
  void readTicks();
  void showTicks(const EffectiveDriveSettings& settings);
  void showNumbers(const EffectiveDriveSettings& settings);
  void enable();

  const DriveSettingsRecord before_;
  DriveSettingsRecord own_;  // with the ticks as they stand; kept while global values are shown
  Options options_;
  DriveFacts facts_;
  std::optional<EmbrPrimaries> embr_;
  bool showsGlobal_ = false;
  std::optional<GeometrySource> shownSource_;
  Geometry shown_;  // the numbers as they were shown last
};

}  // namespace tallowin
