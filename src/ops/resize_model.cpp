#include "ops/resize_model.h"

#include <algorithm>

#include "base/text.h"
#include "ops/format_model.h"
#include "ops/placement.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u32 kMostMiB = 999999999;

std::string mibText(u32 mib) { return format("%u MiB", mib); }

}  // namespace

EndRange endRangeFor(const AlignmentRules& rules, u64 startSector, u64 endSector,
                     u64 minimumSectors, u64 regionEnd) {
  EndRange range{startSector, endSector, endSector, endSector};
  const u64 minimum = alignUp(rules, startSector + minimumSectors + 1) - 1;
  const u64 boundary = alignDown(rules, regionEnd + 1);
  if (boundary == 0 || minimum > boundary - 1) return range;
  range.minimumEnd = minimum;
  range.maximumEnd = boundary - 1;
  return range;
}

u64 endForSize(const AlignmentRules& rules, const EndRange& range, u64 sectors) {
  const u64 wanted = range.startSector + sectors;
  const u64 below = alignDown(rules, wanted);
  if (below == 0 || below - 1 <= range.minimumEnd) return range.minimumEnd;
  return std::min(alignUp(rules, wanted) - 1, range.maximumEnd);
}

ResizeModel::ResizeModel(const ResizeFacts& facts)
    : groupLabel(facts.isVolume ? "Volume Information" : "Partition Information"),
      summary(facts.summary),
      targetText(facts.targetText),
      facts_(facts) {
  const auto mib = [&](u64 end) {
    return sizeInMiB(facts.range.startSector, end, facts.sectorSizeBytes);
  };
  minimumText = mibText(mib(facts.range.minimumEnd));
  maximumText = mibText(mib(facts.range.maximumEnd));
  // What is typed outside becomes the limit itself.
  newSizeMiB = {mib(facts.range.endSector), 0, kMostMiB};
  seenSizeMiB_ = newSizeMiB.value;
  for (const ResizeForm& choice : facts.kind->resizeForms) forms.push_back({choice.label, {}});
  clusterControl.shown = !forms.empty();
  winNtOnlyLabel.shown = false;
  clusterChoices = {"Auto"};
  for (const u32 bytes : facts.kind->clusterChoices) clusterChoices.push_back(clusterText(bytes));
  for (std::size_t i = 0; i < forms.size(); ++i)
    if (facts.kind->word == facts.kind->resizeForms[i].word) form = wantedForm_ = seenForm_ = i;
  sizeChanged();
}

u32 ResizeModel::newMiB() const {
  return sizeInMiB(facts_.range.startSector, newEndSector(), facts_.sectorSizeBytes);
}

u64 ResizeModel::newEndSector() const {
  const EndRange& range = facts_.range;
  const u32 present = sizeInMiB(range.startSector, range.endSector, facts_.sectorSizeBytes);
  if (!exactSectors && newSizeMiB.value == present) return range.endSector;
  const u64 wished = exactSectors.value_or(u64{newSizeMiB.value} * (kMiB / facts_.sectorSizeBytes));
  if (wished == range.endSector + 1 - range.startSector) return range.endSector;
  return endForSize(facts_.rules, range, std::min(wished, facts_.kind->resizeMostSectors));
}

u32 ResizeModel::clusterBytes() const {
  const auto& choices = facts_.kind->clusterChoices;
  return clusterChoice == 0 || clusterChoice > choices.size() ? 0 : choices[clusterChoice - 1];
}

u16 ResizeModel::forcedType() const {
  return forms.empty() ? u16{0} : facts_.kind->resizeForms[form].type;
}

bool ResizeModel::setClusterBytes(u32 bytes) {
  const auto& choices = facts_.kind->clusterChoices;
  const auto found = std::find(choices.begin(), choices.end(), bytes);
  if (bytes != 0 && found == choices.end()) return false;
  clusterChoice = bytes == 0 ? 0 : static_cast<std::size_t>(found - choices.begin()) + 1;
  return true;
}

bool ResizeModel::setForm(std::string_view word) {
  for (std::size_t i = 0; i < forms.size(); ++i) {
    if (facts_.kind->resizeForms[i].word != word || !forms[i].control.enabled) continue;
    form = i;
    return true;
  }
  return false;
}

// What the size leaves to choose from.
void ResizeModel::sizeChanged() {
  const u32 mib = newMiB();
  for (std::size_t i = 0; i < forms.size(); ++i) {
    const ResizeForm& row = facts_.kind->resizeForms[i];
    Control& control = forms[i].control;
    control.enabled = row.fromMiB <= mib && mib <= row.toMiB;
    control.whyDisabled = mib > row.toMiB ? format("At most %u MiB.", row.toMiB)
                                          : format("At least %u MiB.", row.fromMiB);
  }
  if (forms.empty()) return;
  form = wantedForm_;
  for (std::size_t i = 0; i < forms.size() && !forms[form].control.enabled; ++i)
    if (forms[i].control.enabled) form = i;
  seenForm_ = form;
}

void ResizeModel::pass() {
  if (form != seenForm_) wantedForm_ = seenForm_ = form;
  if (newSizeMiB.value != seenSizeMiB_ || exactSectors) sizeChanged();
  seenSizeMiB_ = newSizeMiB.value;
  winNtOnlyLabel.shown =
      !forms.empty() && (clusterBytes() > facts_.kind->widelyReadClusterBytes ||
                         newMiB() > facts_.kind->resizeForms[form].widelyReadToMiB);
}

void ResizeModel::again(const std::string& why) {
  refusal = why;
  confirmed = false;
  reopen();
}

void ResizeModel::ok() {
  pass();
  confirmed = true;
  close();
}

}  // namespace tallowin
