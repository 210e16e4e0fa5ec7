// The Resize dialog: the new size of a partition, and what its file system becomes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ops/dialog_model.h"
#include "ops/target_text.h"
#include "probe/file_system_kind.h"
#include "ptable/alignment.h"

namespace tallowin {

// Where a partition that keeps its first sector may end; all are sectors of the disk, inclusive.
struct EndRange {
  u64 startSector = 0;
  u64 endSector = 0;  // as it is
  u64 minimumEnd = 0;
  u64 maximumEnd = 0;
};

// `regionEnd`: the last sector of the free region around the partition. The ends lie on alignment
// boundaries; where none is left between the two limits, both are the present end.
EndRange endRangeFor(const AlignmentRules& rules, u64 startSector, u64 endSector,
                     u64 minimumSectors, u64 regionEnd);
// The end that a wished size leads to: the next boundary at or above it, within the limits.
u64 endForSize(const AlignmentRules& rules, const EndRange& range, u64 sectors);

struct ResizeFacts {
  EntrySummary summary;
  std::string targetText;
  bool isVolume = false;
  EndRange range;
  AlignmentRules rules;
  u32 sectorSizeBytes = 512;
  const FileSystemKind* kind = nullptr;  // of what is in it; it can be resized
};

class ResizeModel : public DialogModel {
 public:
  explicit ResizeModel(const ResizeFacts& facts);

  std::string title = "Resize";
  std::string groupLabel;  // "Partition Information", "Volume Information"
  EntrySummary summary;
  std::string targetText;
  std::string minimumText;  // "12 MiB"
  std::string maximumText;

  NumberField newSizeMiB;
  // What a script asks for to the sector; the field then holds it in whole MiB.
  std::optional<u64> exactSectors;

  struct Form {
    std::string label;
    Control control;
  };
  std::vector<Form> forms;  // empty: the kind has but one
  std::size_t form = 0;
  std::vector<std::string> clusterChoices;  // "Auto", "512B", ...
  std::size_t clusterChoice = 0;
  Control clusterControl;  // shown with the forms
  Control winNtOnlyLabel;  // "Win NT+ Only!"

  // Why the last try was refused; shown before the dialog is used again.
  std::string refusal;
  // Set by OK.
  bool confirmed = false;

  u64 newEndSector() const;
  u32 clusterBytes() const;  // 0: automatic
  u16 forcedType() const;    // 0: automatic
  const EndRange& range() const { return facts_.range; }
  // Of the present size; nothing changes.
  bool isUnchangedSize() const { return newEndSector() == facts_.range.endSector; }
  [[nodiscard]] bool setClusterBytes(u32 bytes);
  // By its word; false when there is none, or not for this size.
  [[nodiscard]] bool setForm(std::string_view word);

  // Another round: the dialog as it is, with what stood in the way.
  void again(const std::string& why);

  void pass() override;
  void ok() override;

 private:
  void sizeChanged();
  u32 newMiB() const;

  ResizeFacts facts_;
  u32 seenSizeMiB_ = 0;
  // What was chosen; a size on the way to another one may not allow it.
  std::size_t wantedForm_ = 0;
  std::size_t seenForm_ = 0;
};

}  // namespace tallowin
