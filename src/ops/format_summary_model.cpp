#include "ops/format_summary_model.h"

#include "base/text.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

// "Type: FAT-16/FAT16   " and "Type: NTFS".
std::string typeLine(const FormatSummary& summary) {
  const std::string line = summaryLine("Type", summary.typeName);
  if (summary.isFat) return line + "/" + summary.fileSystemText;
  return line.substr(0, line.find(' ') + 1) + summary.fileSystemText;
}

std::string countLine(const char* what, u64 count) {
  return format("%s: %llu", what, static_cast<unsigned long long>(count));
}

}  // namespace

FormatSummaryModel::FormatSummaryModel(const FormatSummary& summary)
    : scanSkipped(summary.scanSkipped) {
  lines = {summaryLine("Name", summary.name), typeLine(summary),
           summaryLine("Size", summary.sizeText),
           format("%s: %u %s", "Cluster size", summary.clusterBytes, "byte(s)"),
           countLine("Total clusters", summary.totalClusters)};
  if (!summary.isFat) return;
  lines.push_back(countLine("Bad clusters", summary.badClusters) +
                  (summary.scanSkipped ? " (skipped)" : ""));
  const u64 used = u64{summary.badClusters} + (summary.isFat32 ? 1 : 0);
  lines.push_back(
      countLine("Free clusters", summary.totalClusters > used ? summary.totalClusters - used : 0));
}

}  // namespace tallowin
