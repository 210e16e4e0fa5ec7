#include "ops/rehearsal.h"

#include <algorithm>

#include "base/text.h"
#include "disk/transfer_buffer.h"
#include "ops/error_text.h"
#include "ops/file_systems.h"
#include "ops/job_of_front_end.h"
#include "ops/proof_step.h"
#include "ops/table_change.h"

namespace tallowin {
namespace {

constexpr u64 kSampleBytes = 64 * kMiB;
constexpr std::size_t kPieceBytes = 4 * kMiB;
constexpr double kNanosecondsPerSecond = 1e9;
constexpr u64 kPassesPerSector = 2;  // each is read before it is written

// Seconds a byte, of reading from the start of the disk; 0 when that is not known.
double secondsPerByte(Host& host, DiskDevice& disk) {
  TransferBuffer buffer(kPieceBytes);
  const u64 sectors = std::min(disk.sectorCount().value_or(0), kSampleBytes / disk.sectorSize());
  const u64 piece = kPieceBytes / disk.sectorSize();
  if (!buffer || sectors == 0) return 0;
  const u64 begun = host.monotonicNanoseconds();
  for (u64 at = 0; at < sectors; at += piece)
    if (disk.readSectors(at, buffer.data(), std::min(piece, sectors - at))) return 0;
  const double seconds =
      static_cast<double>(host.monotonicNanoseconds() - begun) / kNanosecondsPerSecond;
  return seconds / static_cast<double>(sectors * disk.sectorSize());
}

std::string proofText(const OperationContext& context, Drive& before, Drive& after,
                      const Rehearsal& rehearsal) {
  ContentProof old;
  ContentProof now;
  Failure failed = proveEntry(context, before, rehearsal.startSector, old);
  if (!failed) failed = proveEntry(context, after, rehearsal.startAfter, now);
  if (failed == Error::unsupportedFileSystem)
    return "Its files cannot be read by this version, so they were not compared.";
  if (failed == Error::cancelled) return "The comparison of its files was stopped.";
  if (failed) return "Its files could not be compared. " + errorText(failed);
  return proofResultText(compareProofs(old, now)) + ".";
}

}  // namespace

bool isRehearsal(Drive& drive) { return dynamic_cast<OverlayDisk*>(&drive.disk()) != nullptr; }

std::shared_ptr<OverlayDisk> rehearsalDisk(const ProgramFolders& folders, DiskDevice& disk) {
  std::optional<SpillFile> spill;
  if (!makeFolders(folders.state)) static_cast<void>(SpillFile::create(folders.state, spill));
  return std::make_shared<OverlayDisk>(disk, OverlayDisk::kMaxBytes, std::move(spill));
}

std::string checkedText(const OperationContext& context, Drive& drive, u64 startSector) {
  const PartitionEntry* entry = findByStart(drive, startSector);
  const FileSystemKind* kind = entry ? kindIn(context.fileSystems, drive, *entry) : nullptr;
  if (!kind || !kind->check) return {};
  CheckReport report;
  JobOfFrontEnd job(context);
  const Failure failed = kind->check(rangeOf(drive, *entry), entry->type, job, report);
  if (failed) return "Its file system could not be checked afterwards. " + errorText(failed);
  return report.isSound ? "A check of its file system finds no fault."
                        : format("A check of its file system finds fault %u: ", report.fault) +
                              report.faultText + ".";
}

std::string effortText(const OperationContext& context, OverlayDisk& overlay, DiskDevice& disk) {
  const u64 bytes = overlay.writtenBytes();
  std::string text =
      format("%llu sectors (%s) would be written",
             static_cast<unsigned long long>(bytes / disk.sectorSize()), bytesText(bytes).c_str());
  const double perByte = secondsPerByte(context.host, disk);
  if (perByte == 0) return text + ".";
  const double seconds = perByte * static_cast<double>(kPassesPerSector * bytes);
  return text + ", in about " + timeText(static_cast<u64>(seconds) + 1) + ".";
}

void rehearse(const OperationContext& context, Drive& drive, const Rehearsal& rehearsal,
              const RehearsedChange& change) {
  const std::shared_ptr<OverlayDisk> overlay = rehearsalDisk(context.folders, drive.disk());
  std::unique_ptr<Drive> rehearsed;
  if (const Failure failed = drive.openOn(overlay, rehearsed)) {
    context.ui.errorBox("The disk cannot be rehearsed on.\n" + errorText(failed));
    return;
  }
  Options options = context.options;
  options.keepJournal = false;
  options.rehearses = true;
  options.proveContent = false;
  ProgramFolders folders = context.folders;
  folders.keptTables = "";
  const OperationContext onOverlay{context.ui, context.host,        options,
                                   folders,    context.fileSystems, context.mounts};
  const FlowResult result = change(onOverlay, *rehearsed);
  if (overlay->isFull()) {
    context.ui.errorBox(
        "There is no room for the rehearsal in the state folder of the program.\n"
        "Nothing was changed.");
    return;
  }
  if (!result.succeeded()) {
    context.ui.noticeBox("The rehearsal ended early. Nothing was changed.", rehearsal.title);
    return;
  }
  static_cast<void>(rehearsed->reread());
  std::string text = "Rehearsed; nothing was changed on the disk.\n\n" +
                     effortText(context, *overlay, drive.disk());
  if (const std::string checked = checkedText(onOverlay, *rehearsed, rehearsal.startAfter);
      !checked.empty())
    text += "\n" + checked;
  text += "\n" + proofText(onOverlay, drive, *rehearsed, rehearsal);
  context.ui.noticeBox(text, rehearsal.title);
}

}  // namespace tallowin
