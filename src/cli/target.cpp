#include "cli/target.h"

#include <cstdio>

#include "ops/rehearsal.h"
#include "ops/target_text.h"

namespace tallowin {
namespace {

constexpr std::size_t kShownRanges = 20;

CommandResult cannotOpen(CommandContext& context, Failure error) {
  const std::string& told = context.session.handles().lastFailure();
  const bool isTold = error == Error::deviceNotOpened || error == Error::deviceChanged;
  if (isTold && !told.empty()) return refused(onOneLine(told), error);
  return failedBecause("'" + context.options.target + "' cannot be opened.", error);
}

// Not to be told as an empty one.
CommandResult unreadTable(const std::string& path) {
  return failedBecause("The table of '" + path + "' could not be read.", Error::tableReadFailed);
}

std::string writtenText(const OverlayDisk& overlay, const std::string& path) {
  std::string text =
      "Rehearsed; nothing was written to " + path + ". It would write " +
      format("%llu bytes:\n", static_cast<unsigned long long>(overlay.writtenBytes()));
  const auto ranges = overlay.writtenRanges();
  for (std::size_t i = 0; i < std::min(ranges.size(), kShownRanges); ++i)
    text += format("  sectors %llu..%llu\n", static_cast<unsigned long long>(ranges[i].first),
                   static_cast<unsigned long long>(ranges[i].first + ranges[i].count - 1));
  if (ranges.size() > kShownRanges)
    text += format("  and %zu ranges more (--json has them all)\n", ranges.size() - kShownRanges);
  return text;
}

void writeRehearsal(JsonWriter& json, const FileSystemKinds& kinds, const OverlayDisk& overlay,
                    Drive& drive) {
  json.boolean("rehearsal", true);
  json.number("bytes", overlay.writtenBytes());
  json.beginArray("writes");
  for (const OverlayDisk::SectorRange& range : overlay.writtenRanges()) {
    json.beginObject();
    json.number("start", range.first);
    json.number("sectors", range.count);
    json.endObject();
  }
  json.endArray();
  writeRows(json, kinds, drive);
}

}  // namespace

CommandResult openTarget(CommandContext& context, TargetUse use, Target& target) {
  const bool rehearse = context.options.rehearse && use != TargetUse::read;
  const bool readOnly = use != TargetUse::change || rehearse;
  const std::optional<u32> stated = context.options.sectorSizeBytes;
  if (stated) context.session.handles().stateSectorSize(*stated);
  if (!readOnly) context.mayHaveChanged = true;
  u32 driveNumber = kUnlistedDrive;
  Failure error = context.session.handles().openPath(
      context.options.target, readOnly ? DiskAccess::readOnly : DiskAccess::readWrite, target.disk,
      driveNumber);
  if (error != Error::none) return cannotOpen(context, error);
  if (stated && target.disk->sectorSize() != *stated)
    return refused(format("'%s' has sectors of %u bytes, which --sector-size cannot change.",
                          context.options.target.c_str(), target.disk->sectorSize()));
  if (rehearse) target.overlay = rehearsalDisk(context.session.folders(), *target.disk);
  std::shared_ptr<DiskDevice> disk = target.disk;
  if (target.overlay) disk = target.overlay;
  if (use == TargetUse::look) disk = target.looked = std::make_shared<ReadOnceDisk>(*target.disk);
  error = context.session.openDrive(std::move(disk), driveNumber, target.drive);
  return error == Error::none ? CommandResult{} : cannotOpen(context, error);
}

CommandResult openPart(CommandContext& context, TargetUse use, Target& target, ListedRow& row) {
  CommandResult result = openTarget(context, use, target);
  return result.succeeded() ? findPart(context, *target.drive, row) : result;
}

CommandResult findPart(CommandContext& context, Drive& drive, ListedRow& row) {
  std::string numbers;
  for (const ListedRow& candidate : listedRows(drive)) {
    if (candidate.kind == ListedRow::Kind::free || !candidate.number) continue;
    if (candidate.number == context.options.part) {
      row = candidate;
      return {};
    }
    numbers += (numbers.empty() ? "" : ", ") + std::to_string(*candidate.number);
  }
  if (drive.table().isUnread()) return unreadTable(context.options.target);
  return refused(format("'%s' has no partition %u; ", context.options.target.c_str(),
                        context.options.part.value_or(0)) +
                 (numbers.empty() ? "it has none at all." : "choose from " + numbers + "."));
}

CommandResult noFreeBlock(const std::string& path, const std::optional<u32>& wanted,
                          const Drive& drive) {
  if (drive.table().isUnread()) return unreadTable(path);
  if (const std::string why = drive.changeRefusal(); !why.empty()) return refused(why);
  if (const std::string why = emptyTableText(drive); !why.empty()) return refused(why);
  if (!wanted) return refused("'" + path + "' has no free block; delete a partition first.");
  return refused(
      format("'%s' has no free block %u; see the free rows of the list.", path.c_str(), *wanted));
}

CommandResult endChange(CommandContext& context, Target& target, bool hadErrors,
                        CommandResult result) {
  if (!target.overlay) return result;
  if (target.overlay->isFull())
    return refused(
        "There is no room for the rehearsal in the folder for temporary files; set TMPDIR.",
        Error::noSpaceLeft);
  if (const Failure error = target.drive->reread(); error != Error::none)
    return failedBecause("The rehearsed table cannot be read back.", error);
  if (!hadErrors && target.drive->table().hasErrors())
    return refused("The rehearsed table has errors; do not run this on the disk.",
                   Error::tableInError);
  if (context.options.json) {
    writeRehearsal(context.json, context.session.fileSystems(), *target.overlay, *target.drive);
  } else {
    std::fputs(writtenText(*target.overlay, context.options.target).c_str(), stdout);
    std::fputs(("\nThe table would then be:\n\n" +
                listingText(context.session.fileSystems(), *target.drive))
                   .c_str(),
               stdout);
  }
  return result;
}

}  // namespace tallowin
