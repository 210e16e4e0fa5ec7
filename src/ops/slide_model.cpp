#include "ops/slide_model.h"

#include "base/text.h"

namespace tallowin {

SlideModel::SlideModel(const SlideFacts& facts)
    : groupLabel(facts.isVolume ? "Volume Information" : "Partition Information"),
      summary(facts.summary),
      dataOnly(facts.whyNotDataOnly.empty()),
      roomMiB_(facts.freeBeforeMiB + facts.freeAfterMiB),
      openedBeforeMiB_(facts.freeBeforeMiB),
      seenBeforeMiB_(facts.freeBeforeMiB),
      seenAfterMiB_(facts.freeAfterMiB) {
  freeBeforeMiB = {facts.freeBeforeMiB, 0, roomMiB_};
  freeAfterMiB = {facts.freeAfterMiB, 0, roomMiB_};
  beforeMaximum = afterMaximum = format("%u MiB", roomMiB_);
  if (!dataOnly) dataOnlyControl = {true, false, facts.whyNotDataOnly};
}

bool SlideModel::isPlaceChanged() const {
  return exactStart || freeBeforeMiB.value != openedBeforeMiB_;
}

void SlideModel::pass() {
  if (freeBeforeMiB.value != seenBeforeMiB_) {
    freeBeforeMiB.setValue(freeBeforeMiB.value);
    freeAfterMiB.setValue(roomMiB_ - freeBeforeMiB.value);
  } else if (freeAfterMiB.value != seenAfterMiB_) {
    freeAfterMiB.setValue(freeAfterMiB.value);
    freeBeforeMiB.setValue(roomMiB_ - freeAfterMiB.value);
  }
  seenBeforeMiB_ = freeBeforeMiB.value;
  seenAfterMiB_ = freeAfterMiB.value;
}

void SlideModel::ok() {
  pass();
  if (slide && slide()) close();
}

}  // namespace tallowin
