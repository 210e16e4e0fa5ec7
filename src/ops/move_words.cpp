#include "ops/move_words.h"

#include "base/text.h"
#include "ops/error_text.h"

namespace tallowin {
namespace {

unsigned long long wide(u64 number) { return number; }

}  // namespace

bool hasBadSectors(const MoveReport& report) {
  return report.readErrors != 0 || report.writeErrors != 0;
}

std::string completedText(const MoveReport& report) {
  if (!hasBadSectors(report)) return "Completed";
  return format("Completed with bad sectors - Read:%llu Write:%llu", wide(report.readErrors),
                wide(report.writeErrors));
}

std::string moveFailedText(const char* operation, u32 typeFound, const Failure& failure) {
  const std::string reason = errorText(failure);
  return format("The %s operation failed.\n(Type:%u, Error:%u)", operation, typeFound,
                codeOf(failure)) +
         (reason.empty() ? "" : "\n\n" + reason);
}

std::string leftBehindText(const MoveReport& report) {
  if (!report.touchedSource) return {};
  if (!report.rolledBack)
    return "The partition lies half at its old and half at its new place: what was moved could\n"
           "not be put back. Do not use it before it is restored.";
  if (!hasBadSectors(report)) return {};
  return format(
      "What was moved was put back, but with bad sectors - Read:%llu Write:%llu\n"
      "What they held is lost.",
      wide(report.readErrors), wide(report.writeErrors));
}

}  // namespace tallowin
