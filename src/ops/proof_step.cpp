#include "ops/proof_step.h"

#include <algorithm>

#include "base/text.h"
#include "fs/file_system.h"
#include "ops/error_text.h"
#include "ops/job_of_front_end.h"
#include "ops/table_change.h"
#include "ops/volume_files.h"

namespace tallowin {
namespace {

constexpr std::size_t kNamedDifferences = 10;

}  // namespace

Failure proveEntry(const OperationContext& context, Drive& drive, u64 startSector,
                   ContentProof& proof) {
  const PartitionEntry* entry = findByStart(drive, startSector);
  if (!entry) return Error::tableChangedMeanwhile;
  const FileSystemKind* kind = kindIn(context.fileSystems, drive, *entry);
  if (!kind || !kind->open) return Error::unsupportedFileSystem;
  std::unique_ptr<FileSystem> files;
  if (const Failure failed = kind->open(rangeOf(drive, *entry), entry->type,
                                        openWishOf(context, FilesUse::look), files))
    return failed;
  JobOfFrontEnd job(context);
  return proveContent(*files, "/", job, proof).failure;
}

bool holdsTheSame(const ProofComparison& comparison) {
  return std::all_of(comparison.differences.begin(), comparison.differences.end(),
                     [](const ProofDifference& one) { return one.change == FileChange::time; });
}

std::string proofResultText(const ProofComparison& comparison) {
  std::string text = comparisonText(comparison);
  std::size_t named = 0;
  for (const ProofDifference& one : comparison.differences) {
    if (one.change == FileChange::time) continue;
    if (named++ == kNamedDifferences) return text + "\n...";
    text += format("\n%s: ", changeWord(one.change)) + one.path;
  }
  return text;
}

std::optional<FlowResult> ProofStep::before(Drive& drive, u64 startSector) {
  if (!context_.options.proveContent) return std::nullopt;
  ContentProof proof;
  const Failure failed = proveEntry(context_, drive, startSector, proof);
  if (failed == Error::cancelled) return FlowResult{FlowEnd::cancelled, failed};
  if (failed == Error::unsupportedFileSystem) {
    context_.ui.noticeBox(
        "The files of this partition cannot be read by this version,\n"
        "so that they cannot be compared afterwards.");
    return std::nullopt;
  }
  if (failed) {
    context_.ui.errorBox("The files could not be read before the operation.\n" + errorText(failed) +
                         "\n\nNothing was changed.");
    return FlowResult{FlowEnd::refused, failed};
  }
  before_ = std::move(proof);
  return std::nullopt;
}

FlowResult ProofStep::after(Drive& drive, u64 startSector, const FlowResult& result) {
  if (!before_) return result;
  ContentProof now;
  if (const Failure failed = proveEntry(context_, drive, startSector, now)) {
    context_.ui.errorBox(
        "The operation is done, but the files could not be read afterwards to compare them.\n" +
        errorText(failed));
    return {FlowEnd::failed, failed == Error::cancelled ? Failure(Error::corrupt) : failed};
  }
  ProofComparison comparison = compareProofs(*before_, now);
  const auto isExpected = [this](const ProofDifference& one) {
    return one.change == FileChange::content && one.path == mayChange_;
  };
  comparison.identical += std::erase_if(comparison.differences, isExpected);
  if (holdsTheSame(comparison)) {
    context_.ui.noticeBox(proofResultText(comparison));
    return result;
  }
  context_.ui.errorBox("The operation is done, but not every file holds what it held:\n" +
                       proofResultText(comparison));
  return {FlowEnd::failed, Error::corrupt};
}

}  // namespace tallowin
