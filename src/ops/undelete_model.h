// The dialog that shows which lost partitions were found, and takes the user's choice.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ops/dialog_model.h"
#include "ptable/lost_partitions.h"

namespace tallowin {

// "sure", "likely", "doubtful".
const char* confidenceWord(Confidence confidence);
// Why it is so sure, as a sentence.
const char* confidenceSentence(const LostPartition& found);
// Why the two cannot both come back, or nothing.
bool excludeEachOther(const LostPartition& a, const LostPartition& b);

class UndeleteModel : public DialogModel {
 public:
  struct Row {
    bool isPicked = false;
    std::string kind;   // "FAT32", "Extended, 2 volumes"
    std::string start;  // a sector
    std::string size;
    std::string label;
    std::string confidence;
  };

  // `isInsideExtended`: what is added becomes volumes.
  UndeleteModel(const LostReport& report, u32 sectorSizeBytes, bool isInsideExtended,
                std::string diskText);

  std::string title = "Undelete";
  std::string intro;     // what was found, and what could not be looked at
  std::string diskText;  // model, serial, size, path
  std::vector<Row> rows;
  std::optional<std::size_t> selected;
  std::string details;  // of the selected row, up to three lines

  Control addControl;     // "&Add": what is ticked
  Control addAllControl;  // "Add A&ll": everything that is not in doubt

  const std::vector<LostPartition>& found() const { return found_; }
  // Ticks the row, or takes the tick away.
  void toggle(std::size_t row);
  // Everything that is not in doubt, and has room.
  std::vector<std::size_t> notInDoubt() const;
  // What is not in doubt and has none: no sector is left before it for its EBR.
  std::vector<std::size_t> withoutRoom() const;
  // Names what the last addAll() had to leave out; empty when that was nothing.
  std::string leftOutText() const;
  // Why these cannot be added together; empty when they can.
  std::string whyNotAddable(const std::vector<std::size_t>& picked) const;

  void pass() override;
  // The button "&Add".
  void ok() override;
  void addAll();

  // The flow's step behind both buttons; true closes the dialog.
  std::function<bool(const std::vector<std::size_t>& picked)> add;

 private:
  std::vector<std::size_t> picked() const;
  std::string detailsOf(std::size_t row) const;
  void tryToAdd(const std::vector<std::size_t>& picked);

  std::vector<LostPartition> found_;
  std::vector<std::size_t> leftOut_;
  bool isInsideExtended_;
};

}  // namespace tallowin
