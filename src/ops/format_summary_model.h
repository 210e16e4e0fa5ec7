// The Format Summary dialog: what the new file system looks like.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ops/dialog_model.h"

namespace tallowin {

// What was read back from the new file system.
struct FormatSummary {
  std::string name;
  std::string typeName;        // as the catalogue has it
  std::string fileSystemText;  // the BPB's type text, or "NTFS"
  std::string sizeText;
  u32 clusterBytes = 0;
  u64 totalClusters = 0;
  bool isFat = true;
  bool isFat32 = false;
  u32 badClusters = 0;
  bool scanSkipped = false;
};

class FormatSummaryModel : public DialogModel {
 public:
  explicit FormatSummaryModel(const FormatSummary& summary);

  std::string title = "Format Summary";
  std::vector<std::string> lines;
  bool scanSkipped;  // before its end
};

}  // namespace tallowin
