// The Format dialog: the kind of file system where nothing else says it, and the cluster size.
#pragma once

#include <string>
#include <vector>

#include "ops/dialog_model.h"
#include "probe/file_system_kind.h"

namespace tallowin {

// "512B", "4KiB".
std::string clusterText(u32 bytes);

class FormatModel : public DialogModel {
 public:
  // At least one kind; with more the user chooses. They are borrowed.
  explicit FormatModel(std::vector<const FileSystemKind*> kinds);

  std::string title = "Format";

  std::vector<std::string> kindChoices;
  std::size_t kindChoice = 0;
  Control kindControl;                      // shown while there is a choice
  std::vector<std::string> clusterChoices;  // "Auto", "512B", "1KiB" ...; by the kind
  std::size_t clusterChoice = 0;
  Control clusterControl;
  Control winNtOnlyLabel;  // "Win NT+ Only!"
  bool alignForNtfs = false;
  Control alignForNtfsControl;

  // Set by OK.
  bool confirmed = false;

  const FileSystemKind& kind() const { return *kinds_[kindChoice]; }
  // 0: automatic.
  u32 clusterBytes() const;
  // False when there is no such choice.
  [[nodiscard]] bool setClusterBytes(u32 bytes);

  void pass() override;
  void ok() override;

 private:
  void kindChanged();

  std::vector<const FileSystemKind*> kinds_;
  std::size_t seenKind_ = 0;
};

}  // namespace tallowin
