#include "ops/delete_model.h"

namespace tallowin {

DeleteModel::DeleteModel(const DeleteFacts& facts)
    : groupLabel(facts.insideExtended ? "Volume Information" : "Partition Information"),
      nameLine(facts.nameLine),
      typeLine(facts.typeLine),
      sizeLine(facts.sizeLine),
      targetText(facts.targetText),
      warning(facts.warning) {
  warningLine.shown = !warning.empty();
  secureWipeControl = {true, false, "Tick Wipe Partition first."};
  if (!facts.inError) return;
  const Control inError{true, false,
                        "The partition overlaps another one or is not possible, so none of its "
                        "sectors may be overwritten."};
  clearBootSectorControl = inError;
  wipePartitionControl = inError;
}

void DeleteModel::pass() {
  if (!clearBootSectorControl.enabled) clearBootSector = false;
  if (!wipePartitionControl.enabled) wipePartition = false;
  secureWipeControl = {true, wipePartition, "Tick Wipe Partition first."};
  if (!secureWipeControl.enabled) secureWipe = false;
  question = wipePartition ? "All of it will be overwritten. Are you sure you want to continue?"
                           : "Are you sure you want to continue?";
}

void DeleteModel::ok() {
  pass();
  if (secureWipe) {
    const std::optional<WipeMethodChoice> chosen = chooseMethod ? chooseMethod() : std::nullopt;
    if (!chosen) return;
    wipeMethod = *chosen;
  }
  confirmed = true;
  close();
}

}  // namespace tallowin
