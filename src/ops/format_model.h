// The Format dialog: the cluster size.
#pragma once

#include <array>
#include <string>

#include "ops/dialog_model.h"

namespace tallowin {

class FormatModel : public DialogModel {
 public:
  static constexpr std::array<const char*, 9> kClusterChoices = {
      "Auto", "512B", "1KiB", "2KiB", "4KiB", "8KiB", "16KiB", "32KiB", "64KiB"};

  explicit FormatModel(bool isFat);

  std::string title = "Format";

  std::size_t clusterChoice = 0;  // index into kClusterChoices
  Control clusterControl;
  Control winNtOnlyLabel;  // "Win NT+ Only!"
  bool alignForNtfs = false;
  Control alignForNtfsControl;

  // Set by OK.
  bool confirmed = false;

  // 0: automatic.
  u32 clusterBytes() const;
  // False when there is no such choice.
  [[nodiscard]] bool setClusterBytes(u32 bytes);

  void pass() override;
  void ok() override;

 private:
  bool isFat_;
};

}  // namespace tallowin
