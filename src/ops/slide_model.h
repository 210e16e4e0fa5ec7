// The Slide dialog: how a partition lies within the free space around it.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "ops/dialog_model.h"
#include "ops/target_text.h"

namespace tallowin {

struct SlideFacts {
  EntrySummary summary;
  bool isVolume = false;
  u32 freeBeforeMiB = 0;
  u32 freeAfterMiB = 0;
  std::string whyNotDataOnly;  // empty: it can be had
};

class SlideModel : public DialogModel {
 public:
  explicit SlideModel(const SlideFacts& facts);

  std::string title = "Slide";
  std::string groupLabel;  // "Partition Information", "Volume Information"
  EntrySummary summary;

  NumberField freeBeforeMiB;
  std::string beforeMaximum;  // "12 MiB"
  NumberField freeAfterMiB;
  std::string afterMaximum;
  // What a script asks for to the sector: where the partition is to begin.
  std::optional<u64> exactStart;

  bool dataOnly = false;
  Control dataOnlyControl;

  // One of the two fields was changed to something else than it was opened with.
  bool isPlaceChanged() const;

  void pass() override;
  // Runs `slide`; the dialog closes when that answers true, and stays open otherwise.
  void ok() override;

  // The flow's step behind the OK button.
  std::function<bool()> slide;

 private:
  u32 roomMiB_;
  u32 openedBeforeMiB_;
  u32 seenBeforeMiB_;
  u32 seenAfterMiB_;
};

}  // namespace tallowin
