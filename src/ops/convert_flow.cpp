#include "ops/convert_flow.h"

#include <algorithm>

#include "base/text.h"
#include "disk/disk_handles.h"
#include "disk/mount_check.h"
#include "ops/convert_text.h"
#include "ops/error_text.h"
#include "ops/restore_table_flow.h"
#include "ops/synchronize_flow.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ptable/convert.h"
#include "ptable/first_track.h"
#include "ptable/gpt/gpt_types.h"
#include "settings/program_folders.h"

namespace tallowin {
namespace {

constexpr const char* kTitle = "Change Disk Type";
constexpr const char* kSure = "Are you sure you want to continue?";

FlowResult refuse(const OperationContext& context, const std::string& text,
                  Failure code = Error::none) {
  context.ui.errorBox(text);
  return {FlowEnd::refused, code};
}

FlowResult stoppedByUser() { return {FlowEnd::cancelled, Error::cancelled}; }

bool hasTable(const Drive& drive) {
  return drive.table().slots != 0 && (drive.table().status & kTableNone) == 0;
}

// Images have their kept tables; a track that belongs to a number would be taken for another's.
bool isPlainHardDisk(const Drive& drive) { return drive.biosNumber().has_value(); }

std::string firstTrackPath(const OperationContext& context, const Drive& drive) {
  return context.folders.state + "/" + firstTrackFileName(drive);
}

bool holdsEfiSystem(const Drive& drive) {
  return drive.isGpt() && std::ranges::any_of(drive.table().entries, [](const auto& entry) {
           return !entry->isFree() && entry->typeGuid == kGptEfiSystem;
         });
}

const char* nameOf(Scheme scheme) {
  switch (scheme) {
    case Scheme::gpt:
      return "GPT";
    case Scheme::embr:
      return "EMBR";
    default:
      return "MBR";
  }
}

// Of the errors that come after the first write.
bool saysWhichTable(Failure error) {
  return error == Error::write || error == Error::writeFailedNewTable ||
         error == Error::writeFailedTableUnknown;
}

// What would be lost is named, and only who insists goes on; nothing, when the user does not.
std::optional<TrackContent> acceptedLoss(const OperationContext& context, Drive& drive,
                                         Scheme target) {
  const auto lost = overwrittenByTable(drive, target);
  if (!lost) return TrackContent::keep;
  const bool insists = context.ui.confirm(Consent::insist, kTitle,
                                          format("This change would destroy %s.\n"
                                                 "What needs it will not work any more.\n\n%s",
                                                 lost->c_str(), kSure));
  return insists ? std::optional(TrackContent::overwrite) : std::nullopt;
}

Failure convert(const OperationContext& context, Drive& drive, Scheme target,
                bool allowWithoutTable, TrackContent content, const EarlierMbr* earlier) {
  switch (target) {
    case Scheme::gpt:
      return convertToGpt(drive, true, content);
    case Scheme::embr:
      return convertToEmbr(drive, context.options.limitPrimaries, content);
    default:
      return convertToMbr(drive, allowWithoutTable, content, earlier);
  }
}

bool saveTrack(const OperationContext& context, Drive& drive) {
  const std::string path = firstTrackPath(context, drive);
  Failure failed = makeFolders(context.folders.state);
  if (!failed) failed = saveFirstTrack(drive, path);
  if (!failed) return true;
  context.ui.errorBox(
      format("The first track of the disk could not be saved to\n%s.\n%s\n\n"
             "Nothing was changed. Please make room there and try again.",
             path.c_str(), errorText(failed).c_str()));
  return false;
}

// The table is changed and the disk left in order; the answer is about the table.
Failure convertAndRestore(const OperationContext& context, Drive& drive, Scheme target,
                          bool allowWithoutTable, TrackContent content, const EarlierMbr* earlier) {
  const bool hadTable = hasTable(drive) && earlier == nullptr;
  const Failure error = convert(context, drive, target, allowWithoutTable, content, earlier);
  if (error != Error::none || target != Scheme::mbr || !hadTable || !isPlainHardDisk(drive))
    return error;
  static_cast<void>(drive.reread());
  const BootCode code = context.options.win7Mbr ? BootCode::measuring : BootCode::standard;
  if (restoreFirstTrack(drive, firstTrackPath(context, drive), code) != Error::none)
    context.ui.noticeBox(
        "The disk has an MBR now, but what lay behind it before could not be put back.\n"
        "It is still in " +
            firstTrackPath(context, drive) + ".",
        kTitle);
  return error;
}

FlowResult changeTo(const OperationContext& context, Drive& drive, Scheme scheme,
                    const WriteTarget& target, std::string& keptTable,
                    const EarlierMbr* earlier = nullptr) {
  if (drive.scheme() == scheme && !lacksBootSector(drive)) return {};
  const auto content = acceptedLoss(context, drive, scheme);
  if (!content) return stoppedByUser();
  TableChange change(context, drive);
  if (const auto stopped = change.begin(target)) return *stopped;
  const bool keepsTrack = isPlainHardDisk(drive) && drive.scheme() == Scheme::mbr;
  if (keepsTrack && !saveTrack(context, drive)) return {FlowEnd::refused, Error::cannotCreate};
  const Failure error = change.end(convertAndRestore(
      context, drive, scheme, drive.scheme() == Scheme::wholeDisk, *content, earlier));
  keptTable = change.keptTable();
  if (error == Error::none) return {};
  context.ui.errorBox("The partition layout could not be changed to match your selection.\n\n" +
                      tableErrorText(error));
  return {saysWhichTable(error) ? FlowEnd::failed : FlowEnd::refused, error};
}

std::optional<FlowResult> refuseWhenReadOnlyOrMounted(const OperationContext& context,
                                                      Drive& drive) {
  if (auto stopped = refuseWhenReadOnlyDisk(context, drive)) return stopped;
  return refuseWhenDriveInUse(context, drive);
}

FlowResult makeFirstTable(const OperationContext& context, Drive& drive, std::string& keptTable) {
  const std::string text =
      "This option will convert the unpartitioned disk to a partitioned disk.\n\n"
      "WARNING: All existing data on the drive will be deleted!\n\n" +
      describeDisk(drive.disk()) + "\n\n" + kSure;
  if (!context.ui.confirm(Consent::general, kTitle, text)) return stoppedByUser();
  return changeTo(context, drive, Scheme::mbr, WriteTarget::wholeDisk(), keptTable);
}

std::vector<Scheme> otherSchemes(Scheme present) {
  switch (present) {
    case Scheme::gpt:
      return {Scheme::embr, Scheme::mbr};
    case Scheme::embr:
      return {Scheme::gpt, Scheme::mbr};
    default:
      return {Scheme::gpt, Scheme::embr};
  }
}

}  // namespace

std::string undoText(const std::string& disk, const std::string& keptTable) {
  return format(
      "The old partition table is kept. To undo the change:\ntallowinctl table restore %s %s",
      disk.c_str(), keptTable.c_str());
}

FlowResult convertFlow(const OperationContext& context, Drive& drive, Scheme target,
                       std::string& keptTable) {
  if (const auto stopped = refuseWhenReadOnlyOrMounted(context, drive)) return *stopped;
  if (target == Scheme::mbr && lacksBootSector(drive))
    return makeFirstTable(context, drive, keptTable);
  if (!hasTable(drive)) {
    if (target == Scheme::mbr) return makeFirstTable(context, drive, keptTable);
    return refuse(context, "The disk has no partition table.\nMake an MBR first.", Error::noTable);
  }
  if (const auto unreadable = refuseWhenReadOnlyTable(context, drive)) return *unreadable;
  if (drive.scheme() == target) return {};
  if (const std::string why = drive.schemeChangeRefusal(); !why.empty())
    return refuse(context, why);
  if (holdsEfiSystem(drive))
    return refuse(context, "Your request is being ignored because EFI Systems required a GPT.");
  if (const std::string repair = repairFirstText(drive); !repair.empty())
    return refuse(context, repair, Error::gptTableCheck);
  if (isBehindMbr(drive))
    return refuse(context,
                  "Another program has changed the boot sector. Let the EMBR follow it first:\n"
                  "tallowinctl table synchronize " +
                      drive.disk().displayName(),
                  Error::tableInError);
  const auto earlier =
      target == Scheme::mbr ? findEarlierMbr(drive, context.folders.backupFolder()) : std::nullopt;
  const EarlierMbr* wayBack = earlier ? &*earlier : nullptr;
  const std::string text = "Are you sure you want to change the partitioning type?\n\n" +
                           describeDisk(drive.disk()) +
                           format("\n%s to %s\n\n", drive.schemeName(), nameOf(target)) +
                           convertConsequences(drive, target, wayBack);
  if (!context.ui.confirm(Consent::general, kTitle, text)) return stoppedByUser();
  return changeTo(context, drive, target, WriteTarget::wholeDisk(), keptTable, wayBack);
}

FlowResult changeDiskTypeFlow(const OperationContext& context, Drive& drive) {
  if (const auto stopped = refuseWhenReadOnlyOrMounted(context, drive)) return *stopped;
  std::string keptTable;
  if (!hasTable(drive)) return makeFirstTable(context, drive, keptTable);
  const std::vector<Scheme> offered = otherSchemes(drive.scheme());
  ChoiceBox box;
  box.title = kTitle;
  box.text =
      "This option allows you to change the partitioning scheme used on a given disk.\n\n"
      "Special partition flags are not retained when converting from a GPT or EMBR disk to "
      "another type.\n\n"
      "WARNING: GPT disks are not appropriate for bootable disks on standard PCs.\n"
      "A GPT disk allows partitioning above 2TiB and should only be created on a\n"
      "hard drive dedicated to data storage.\n\n"
      "Please select the partition style to use:";
  for (const Scheme scheme : offered) box.labels.push_back(std::string("&") + nameOf(scheme));
  box.labels.push_back(
      "\x1B"
      "Cancel");
  const std::size_t pressed = context.ui.choiceBox(box);
  if (pressed >= offered.size()) return stoppedByUser();
  const FlowResult result = convertFlow(context, drive, offered[pressed], keptTable);
  if (result.succeeded() && !keptTable.empty())
    tellWithUndo(context, drive, kTitle, "The disk has the new type now.", keptTable);
  return result;
}

FlowResult offerEmbr(const OperationContext& context, Drive& drive) {
  const bool isPlainMbr = !drive.isGpt() && !drive.isEmbr();
  if (!isPlainMbr || context.options.limitPrimaries) {
    context.ui.noticeBox("The partition limit has been reached.", "Limit Primaries");
    return {FlowEnd::refused, Error::noFreeEntry};
  }
  const bool insists =
      context.ui.confirm(Consent::insist, "EMBR needed",
                         "In order to create more primary partitions an EMBR must be created.\n"
                         "Once created, you should be sure to NOT use another partitioning\n"
                         "utility unless it is compatible with the EMBR.\n\nDisk: " +
                             describeDisk(drive.disk()) + "\n\nWould you like to create an EMBR?",
                         MessageKind::question);
  if (!insists) return stoppedByUser();
  std::string keptTable;
  return changeTo(context, drive, Scheme::embr, WriteTarget::tableOnly(), keptTable);
}

Failure limitPrimaries(const OperationContext& context, Drive& drive, bool limit) {
  TableChange change(context, drive);
  if (const auto stopped = change.begin(WriteTarget::tableOnly())) return stopped->code;
  const bool makesActive = context.options.makeHd0Active && drive.isFirstBiosDisk();
  return change.end(drive.setLimitPrimaries(limit, makesActive));
}

}  // namespace tallowin
