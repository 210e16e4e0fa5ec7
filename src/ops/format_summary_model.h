// The Format Summary dialog: what the new file system looks like.
#pragma once

#include <string>
#include <vector>

#include "ops/dialog_model.h"
#include "probe/file_system_kind.h"

namespace tallowin {

struct FormatSummary {
  std::string name;
  std::string typeName;  // as the catalogue has it
  std::string sizeText;
  FileSystemFacts facts;  // read back
  FormatReport report;
};

class FormatSummaryModel : public DialogModel {
 public:
  explicit FormatSummaryModel(const FormatSummary& summary);

  std::string title = "Format Summary";
  std::vector<std::string> lines;
  std::vector<std::string> notes;  // what is not as it was wished for
  bool scanSkipped;                // before its end
};

}  // namespace tallowin
