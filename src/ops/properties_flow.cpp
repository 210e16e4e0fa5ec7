#include "ops/properties_flow.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "boot/boot_sector.h"
#include "disk/disk_handles.h"
#include "fat/fat_layout.h"
#include "fs/file_system.h"
#include "ops/error_text.h"
#include "ops/file_systems.h"
#include "ops/properties_model.h"
#include "ops/property_lines.h"
#include "ops/property_rules.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ops/volume_files.h"
#include "probe/identify.h"
#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_types.h"

namespace tallowin {
namespace {

bool isConfirmed(const OperationContext& context, const char* title, const std::string& text) {
  return context.ui.confirm(Consent::general, title,
                            text + "\n\nAre you sure you want to continue?");
}

// Whether the file system ends where the partition is to end, or before; not when it is not known.
bool holdsWhole(Drive& drive, const PartitionEntry& entry, u64 endSector) {
  Content content;
  if (identify(drive.disk(), entry.startSector, content)) return false;
  if (content.code == ContentCode::unknownVolume || content.code == ContentCode::linuxSwap)
    return false;
  return content.sectorCount <= endSector + 1 - entry.startSector;
}

// What lies behind a new end belongs to nobody any more. The volumes of an extended partition are
// never cut.
bool insistsOnEnd(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                  const EntryProperties& wanted) {
  if (!wanted.endSector || *wanted.endSector >= entry.endSector || types::isExtended(entry.type) ||
      holdsWhole(drive, entry, *wanted.endSector))
    return true;
  return context.ui.confirm(
      Consent::insist, "Properties",
      "The partition becomes smaller, and what it holds does not: files that lie behind the\n"
      "new end are lost, and the file system may not be usable any more.\n" +
          describeTarget(drive, entry) + "\n\nAre you sure you want to continue?");
}

FlowResult failWith(const OperationContext& context, const std::string& what, Failure error) {
  context.ui.errorBox(what + tableErrorText(error));
  return {FlowEnd::failed, error};
}

FlowResult writeProperties(const OperationContext& context, Drive& drive,
                           const PartitionEntry& entry, const EntryProperties& wanted) {
  if (!insistsOnEnd(context, drive, entry, wanted)) return {FlowEnd::cancelled, Error::cancelled};
  TableChange change(context, drive);
  const u64 end = std::max(wanted.endSector.value_or(0), entry.endSector);
  const WriteTarget target =
      wanted.endSector ? WriteTarget::sectors({entry.startSector, end}) : WriteTarget::tableOnly();
  if (const auto stopped = change.begin(target)) return *stopped;
  const Failure error = change.end(drive.changeProperties(entry, wanted));
  return error == Error::none ? FlowResult{} : failWith(context, "Update Failed!\n\n", error);
}

// The kind in the partition, when its labels can be written; else null.
const FileSystemKind* labelledKind(const OperationContext& context, Drive& drive,
                                   const PartitionEntry& entry) {
  const FileSystemKind* kind = context.fileSystems.byContent(rangeOf(drive, entry), entry.type);
  return kind && kind->open ? kind : nullptr;
}

// Told when it fails; a text that is no label is refused.
FlowResult writeLabel(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                      const std::string& label) {
  if (!labelledKind(context, drive, entry)) return {};
  FlowResult done = changeFiles(context, drive, entry, [&](FileSystem& files, Job&) -> FileFailure {
    return {files.setLabel(label), label};
  });
  if (done.code == Error::invalidName) done.end = FlowEnd::refused;
  return done;
}

bool isHibernated(const FileSystemKind* kind, const SectorRange& range, u16 type) {
  std::unique_ptr<FileSystem> files;
  if (!kind || !kind->open || kind->open(range, type, {}, files)) return false;
  std::array<char, 4> magic{};
  u64 done = 0;
  File file;
  return !files->open("\\hiberfil.sys", {}, file) &&
         !file.read({reinterpret_cast<u8*>(magic.data()), magic.size()}, done) &&
         done == magic.size() && equalsIgnoreCase({magic.data(), magic.size()}, "HIBR");
}

// The type of the last volume of an extended partition, 0 when it has none.
std::optional<u16> lastVolumeType(const PartitionEntry& entry) {
  const auto* top = dynamic_cast<const TableEntry*>(&entry);
  if (!top || !top->volumes) return std::nullopt;
  u16 last = types::kFree;
  for (const auto& volume : top->volumes->entries)
    if (!volume->isFree()) last = volume->mbrType;
  return last;
}

// One run of the dialog.
class Properties {
 public:
  Properties(const OperationContext& context, Drive& drive, const PartitionEntry& entry)
      : context_(context), drive_(drive), entry_(&entry) {}

  FlowResult run(bool offersEnd) {
    PropertiesModel model(facts(offersEnd));
    shownName_ = model.name;
    shownEnd_ = model.endText;
    model.apply = [&] { return apply(model); };
    model.details = [this] { showDetails(); };
    model.recalc = [this] { recalculate(); };
    context_.ui.run(model);
    return result_;
  }

 private:
  bool isPlainMbrPrimary() const { return drive_.scheme() == Scheme::mbr && !entry_->isVolume(); }

  std::string whyNameIsFixed() {
    if (drive_.scheme() == Scheme::wholeDisk) return "This disk has no partition table.";
    if (!isPlainMbrPrimary()) return {};
    if (!context_.options.volumeLabels) return "An MBR keeps no names of its primary partitions.";
    return labelledKind(context_, drive_, *entry_)
               ? ""
               : "The label of what it holds cannot be written by this version.";
  }

  PropertiesFacts facts(bool offersEnd) {
    PropertiesFacts facts;
    facts.id = entry_->id;
    facts.type = entry_->type;
    facts.tableType = entry_->mbrType == types::kHidden ? entry_->mbrType : entry_->type;
    facts.isVolume = entry_->isVolume();
    facts.isGpt = drive_.isGpt();
    facts.typeGuid = entry_->typeGuid;
    facts.uniqueGuid = entry_->uniqueGuid;
    facts.name = entry_->name;
    if (drive_.isEmbr()) facts.nameMaxLength = facts.isVolume ? 8 : 15;
    facts.whyNameIsFixed = whyNameIsFixed();
    facts.startSector = entry_->startSector;
    facts.endSector = entry_->endSector;
    facts.sectorSizeBytes = drive_.sectorSize();
    facts.hasEndField = offersEnd && !facts.isVolume;
    facts.attributes = entry_->attributes;
    facts.flags = flags();
    facts.lines = propertyLines(lineFacts());
    const u16 plain = types::unhide(facts.type);
    facts.hasDetails = types::isFat(facts.type) || plain == types::kNtfs || plain == types::kLinux;
    facts.isExtended = types::isExtended(facts.type);
    return facts;
  }

  // On a GPT one row a bit, those without a name too.
  std::vector<PropertiesFacts::Flag> flags() const {
    std::vector<PropertiesFacts::Flag> rows;
    if (entry_->isVolume()) return rows;
    const auto words = flagWords(drive_);
    for (const FlagWord& word : words) {
      if (word.mask == u64{1} << kGptReadOnly && drive_.isGpt())
        for (u32 bit = kGptLegacyBootable + 1; bit < kGptReadOnly; ++bit)
          rows.push_back({format("Bit %u", bit), u64{1} << bit});
      rows.push_back({word.label, word.mask});
    }
    return rows;
  }

  PropertyFacts lineFacts() {
    const SectorRange range = rangeOf(drive_, *entry_);
    PropertyFacts facts;
    facts.type = entry_->type;
    facts.isVolume = entry_->isVolume();
    facts.isGpt = drive_.isGpt();
    facts.startSector = entry_->startSector;
    facts.endSector = entry_->endSector;
    facts.lastChsSector = drive_.lastChsSector();
    facts.sectorsPerTrack = drive_.geometry().sectorsPerTrack;
    facts.typeForEnd = drive_.typeForEnd(entry_->type, entry_->endSector);
    facts.fitsType =
        !types::isFat(entry_->type) || isFatSizeValid(entry_->type, entry_->sectorCount());
    // What cannot be read says nothing of itself.
    static_cast<void>(facts.boot.read(range, entry_->type));
    if (!entry_->isVolume()) facts.lastVolumeType = lastVolumeType(*entry_);
    facts.isHibernated = isHibernated(labelledKind(context_, drive_, *entry_), range, entry_->type);
    facts.holdsBootManager = entry_->holdsBootManager();
    return facts;
  }

  bool refuse(const std::string& text) {
    context_.ui.noticeBox(text);
    result_ = {FlowEnd::refused, Error::none};
    return false;
  }

  // The OK button: true when the dialog is to close.
  bool apply(const PropertiesModel& model) {
    EntryProperties wanted;
    if (!takeType(model, wanted)) return false;
    const std::string name(trimRight(model.name));
    const bool isRenamed = model.nameControl.enabled && model.name != shownName_;
    if (isRenamed && !isPlainMbrPrimary()) wanted.name = name;
    if (!model.flags.empty() && model.attributes() != entry_->attributes)
      wanted.attributes = model.attributes();
    if (model.endControl.shown && model.endText != shownEnd_) {
      u64 end = 0;
      if (!parseDecimal(trim(model.endText), end)) return refuse("The end is a sector's number.");
      if (end != entry_->endSector) wanted.endSector = end;
    }
    if (wanted != EntryProperties{}) {
      if (const auto refusal = refusedProperty(drive_, *entry_, wanted))
        return refuse(refusal->why);
      if (const auto refused = refuseWhenReadOnlyTable(context_, drive_)) return end(*refused);
    }
    if (isRenamed && context_.options.volumeLabels) {
      const FlowResult labelled = writeLabel(context_, drive_, *entry_, name);
      // A name that the table keeps may be too long for a label; that was told.
      const bool isOnlyLabel = isPlainMbrPrimary() || labelled.end == FlowEnd::failed;
      if (!labelled.succeeded() && isOnlyLabel) return end(labelled);
      shownName_ = model.name;
    }
    if (wanted == EntryProperties{}) return end({});
    return end(writeProperties(context_, drive_, *entry_, wanted));
  }

  // What was refused leaves the dialog open; what failed has read the drive again.
  bool end(const FlowResult& result) {
    result_ = result;
    return result.succeeded() || result.end == FlowEnd::failed;
  }

  bool takeType(const PropertiesModel& model, EntryProperties& wanted) {
    if (drive_.isGpt()) {
      const auto guid = model.typeGuidValue();
      if (!guid || guid->isZero()) return refuse("The GUID entered is invalid.");
      if (*guid != entry_->typeGuid) wanted.typeGuid = *guid;
      return true;
    }
    const u32 value = model.typeValue();
    const bool lacksName = model.nameControl.enabled && !isPlainMbrPrimary() && model.name.empty();
    if (value == 0 || lacksName) return refuse("A Name and File System must be entered.");
    const u16 shown = entry_->mbrType == types::kHidden ? u16{types::kHidden} : entry_->type;
    if (value == shown) return true;
    if (std::string why = whyNotTyped(drive_, *entry_, value); !why.empty()) {
      const bool isExtended = value <= 0xFF && types::isExtended(static_cast<u16>(value));
      return refuse(entry_->isVolume() && isExtended
                        ? "You cannot use that file system in an extended partition."
                        : why);
    }
    wanted.type = static_cast<u16>(value);
    return true;
  }

  void showDetails() {
    const FileSystemKind* kind =
        context_.fileSystems.byContent(rangeOf(drive_, *entry_), entry_->type);
    FileSystemFacts facts;
    if (!kind || !kind->facts ||
        kind->facts(rangeOf(drive_, *entry_), entry_->type, CountClusters::yes, facts))
      return context_.ui.noticeBox("Unable to mount the file system.");
    const auto mebibytes = [](u64 bytes) { return static_cast<u32>((bytes + kMiB / 2) / kMiB); };
    const u64 length = entry_->sectorCount() * drive_.sectorSize();
    context_.ui.noticeBox(format("%s: %u MiB\n%s: %u MiB", "Free", mebibytes(facts.freeBytes()),
                                 "Used", mebibytes(length - facts.freeBytes())),
                          "Details");
  }

  void recalculate() {
    const u64 start = entry_->startSector;
    TableChange change(context_, drive_);
    if (change.begin(WriteTarget::tableOnly())) return;
    const Failure failed = change.end(drive_.refreshChain(*entry_));
    if (failed)
      context_.ui.errorBox("The Operation Failed.\n\n" + tableErrorText(failed));
    else
      context_.ui.noticeBox("The Operation Completed Successfully");
    if (const PartitionEntry* again = findByStart(drive_, start)) entry_ = again;
  }

  const OperationContext& context_;
  Drive& drive_;
  const PartitionEntry* entry_;  // of the drive's table
  std::string shownName_;
  std::string shownEnd_;
  FlowResult result_{FlowEnd::cancelled, Error::cancelled};
};

// Nothing: go on with `entry`, which is null when it is not there any more.
void offerToTruncate(const OperationContext& context, Drive& drive, const PartitionEntry*& entry) {
  const auto* top = dynamic_cast<const TableEntry*>(entry);
  if (!top || !top->volumes || top->volumes->status == 0) return;
  if (!context.ui.confirm(
          Consent::insist, "",
          "An invalid volume chain was found.  Truncate it?\n\n" + describeTarget(drive, *entry)))
    return;
  const u64 start = entry->startSector;
  TableChange change(context, drive);
  if (change.begin(WriteTarget::tableOnly())) return;
  if (const Failure failed = change.end(drive.truncateChain(*entry)))
    context.ui.errorBox("The Operation Failed.\n\n" + tableErrorText(failed));
  entry = findByStart(drive, start);
}

}  // namespace

FlowResult changePropertiesFlow(const OperationContext& context, Drive& drive,
                                const PartitionEntry& entry, const EntryProperties& wanted) {
  if (const auto refused = refuseWhenReadOnlyTable(context, drive)) return *refused;
  if (const auto refusal = refusedProperty(drive, entry, wanted)) {
    context.ui.noticeBox(refusal->why);
    return {FlowEnd::refused, Error::unsupportedForm};
  }
  if (!isConfirmed(context, "Properties",
                   "The entry of this partition is changed.\n" + describeTarget(drive, entry)))
    return {FlowEnd::cancelled, Error::cancelled};
  return writeProperties(context, drive, entry, wanted);
}

FlowResult repairBootSectorFlow(const OperationContext& context, Drive& drive,
                                const PartitionEntry& entry) {
  BootSector boot;
  if (const Failure failed = boot.read(rangeOf(drive, entry), entry.type))
    return failWith(context, "The boot sector cannot be read.\n\n", failed);
  const std::string target = "\n\n" + describeTarget(drive, entry);
  if (boot.hasOtherGeometry(drive.geometry()) &&
      context.ui.confirm(Consent::general, "",
                         "Invalid Head and SPT values exist in the BPB.  Fix it?" + target))
    boot.setGeometry(drive.geometry());
  const auto number =
      context.options.useHd0InBpb ? std::optional(kFirstBiosDisk) : drive.biosNumber();
  const bool isSound =
      !boot.hasOtherGeometry(drive.geometry()) && !(number && boot.hasOtherDriveNumber(*number));
  if (number && boot.hasOtherDriveNumber(*number) &&
      context.ui.confirm(Consent::general, "", "Correct BPB HDNum (Y/N)?" + target,
                         MessageKind::notice))
    boot.setDriveNumber(*number);
  if (!boot.isChanged())
    return isSound ? FlowResult() : FlowResult{FlowEnd::cancelled, Error::cancelled};
  if (const auto refused = refuseWhenReadOnlyDisk(context, drive)) return *refused;
  DiskWriteScope scope(context, drive);
  if (const auto stopped = scope.begin(WriteTarget::sectors({entry.startSector, entry.endSector})))
    return *stopped;
  const Failure failed = boot.write(rangeOf(drive, entry));
  drive.disk().dropCachesOf(entry.startSector, entry.sectorCount());
  if (!failed) return {};
  if (failed == Error::tableChangedMeanwhile) {
    context.ui.noticeBox(
        "The boot sector is not the one that was looked at any more.\n"
        "Nothing was changed. Please look at it again.");
    return {FlowEnd::refused, failed};
  }
  context.ui.errorBox("The boot sector could not be written.\n\n" + errorText(failed));
  return {FlowEnd::failed, failed};
}

FlowResult propertiesFlow(const OperationContext& context, Drive& drive,
                          const PartitionEntry& entry, bool offersEnd) {
  const PartitionEntry* shown = &entry;
  offerToTruncate(context, drive, shown);
  if (shown == nullptr) return {FlowEnd::failed, Error::tableChangedMeanwhile};
  // What it refused it has told, and the dialog shows the partition all the same.
  if (!shown->isInError()) static_cast<void>(repairBootSectorFlow(context, drive, *shown));
  return Properties(context, drive, *shown).run(offersEnd);
}

FlowResult repairGptFlow(const OperationContext& context, Drive& drive) {
  if (const auto refused = refuseWhenReadOnlyTable(context, drive)) return *refused;
  if (!drive.gptHealth() || drive.gptHealth()->isSound()) return {};
  if (!isConfirmed(context, "Repair Partition Table",
                   gptHealthText(*drive.gptHealth()) +
                       "\nBoth copies of the GPT are written anew from the one that was read;\n"
                       "partitions and data stay as they are.\n\nDisk: " +
                       describeDisk(drive.disk())))
    return {FlowEnd::cancelled, Error::cancelled};
  TableChange change(context, drive);
  if (const auto stopped = change.begin(WriteTarget::tableOnly())) return *stopped;
  const Failure error = change.end(drive.repairGpt());
  return error == Error::none ? FlowResult{} : failWith(context, "", error);
}

}  // namespace tallowin
