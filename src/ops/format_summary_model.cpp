#include "ops/format_summary_model.h"

#include "base/text.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

// "Type: FAT-16/FAT16   ", or, where the file system does not spell its type, "Type: NTFS".
std::string typeLine(const FormatSummary& summary) {
  const std::string& stored = summary.facts.storedTypeText;
  return summaryLine("Type", stored.empty() ? summary.facts.name : summary.typeName + "/" + stored);
}

std::string countLine(const char* what, u64 count) {
  return format("%s: %llu", what, static_cast<unsigned long long>(count));
}

}  // namespace

FormatSummaryModel::FormatSummaryModel(const FormatSummary& summary)
    : notes(summary.report.notes), scanSkipped(summary.report.scanStopped) {
  const u64 bad = summary.report.badClusters;
  const u64 used = bad + summary.report.usedClusters;
  const u64 total = summary.facts.clusters;
  lines = {summaryLine("Name", summary.name),
           typeLine(summary),
           summaryLine("Size", summary.sizeText),
           format("%s: %u %s", "Cluster size", summary.facts.clusterBytes, "byte(s)"),
           countLine("Total clusters", total),
           countLine("Bad clusters", bad) + (scanSkipped ? " (skipped)" : ""),
           countLine("Free clusters", total > used ? total - used : 0)};
}

}  // namespace tallowin
