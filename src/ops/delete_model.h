// The Confirm Delete dialog.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "ops/dialog_model.h"
#include "ops/wipe_operation.h"

namespace tallowin {

// What the dialog shows of the partition and its disk.
struct DeleteFacts {
  bool insideExtended = false;
  bool inError = false;    // overlapping or impossible: nothing may be overwritten
  std::string nameLine;    // "Name: ..."
  std::string typeLine;    // "Type: ..."
  std::string sizeLine;    // "Size: ..."
  std::string targetText;  // disk (model, serial, size, path) and partition number, two lines
  std::string warning;     // empty: none
};

class DeleteModel : public DialogModel {
 public:
  explicit DeleteModel(const DeleteFacts& facts);

  std::string title = "Confirm Delete";
  std::string groupLabel;  // "Partition Information", "Volume Information"
  std::string nameLine;
  std::string typeLine;
  std::string sizeLine;
  std::string targetText;  // two lines

  bool clearBootSector = false;
  Control clearBootSectorControl;
  bool wipePartition = false;
  Control wipePartitionControl;
  bool secureWipe = false;
  Control secureWipeControl;

  std::string warning;
  Control warningLine;
  std::string question = "Are you sure you want to continue?";

  // Whether Shift was held as Yes was pressed; the view sets it just before ok().
  bool shiftHeld = false;

  // The Wipe Pattern dialog, which a secure wipe asks for first; nothing: cancelled, and this one
  // stays.
  std::function<std::optional<WipeMethodChoice>()> chooseMethod;

  // Set by Yes.
  bool confirmed = false;
  WipeMethodChoice wipeMethod;  // of a secure wipe

  void pass() override;
  void ok() override;
};

}  // namespace tallowin
