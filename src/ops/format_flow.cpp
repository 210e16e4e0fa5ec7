#include "ops/format_flow.h"

#include "base/text.h"
#include "ops/create_model.h"
#include "ops/error_text.h"
#include "ops/format_step.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "probe/disk_content.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

FlowResult cancelled() { return {FlowEnd::cancelled, Error::cancelled}; }

// Of a partition that no table and no file system gives a name.
bool isUnnamed(const PartitionEntry& entry) {
  return entry.name == kUnlabelledWholeDisk || entry.name == kNewMbrEntryName ||
         isPlaceholderName(entry);
}

// One run of the flow, for a partition or, without an entry, for the whole disk.
class Formatting {
 public:
  Formatting(const OperationContext& context, Drive& drive, PartitionEntry* entry,
             const FormatOptions& options)
      : context_(context), drive_(drive), entry_(entry), options_(options), step_(context, drive) {
    kind_ = options.kind;
    if (!kind_ && options.type) kind_ = context.fileSystems.byType(*options.type);
    if (!kind_ && !options.type && entry_) kind_ = kindOf(context.fileSystems, *entry_);
    mayChooseKind_ = !kind_ && (!entry_ || mayHoldAnyKind(context.fileSystems, *entry_));
    settleTarget();
  }

  FlowResult run() {
    if (const auto stopped = checkTarget()) return *stopped;
    if (!runDialog()) return cancelled();
    if (const auto stopped = checkSize()) return *stopped;
    if (!confirmErase()) return cancelled();
    if (entry_ && tableWish_ != EntryProperties{}) return changeTableAndFormat();
    if (!entry_) return formatInPlaceOfTable();
    DiskWriteScope scope(context_, drive_);
    if (const auto stopped = scope.begin(WriteTarget::sectors(target_.extent))) return *stopped;
    return step_.tell(format(), name_);
  }

 private:
  std::optional<FlowResult> refuse(const std::string& text, Failure code) {
    context_.ui.errorBox(text);
    return FlowResult{FlowEnd::refused, code};
  }

  void settleTarget() {
    if (!entry_) {
      name_ = "Whole disk";
      if (kind_)
        target_ = wholeDiskTarget(drive_, *kind_);
      else
        target_.extent = {0, drive_.lastLba()};
      return;
    }
    name_ = entry_->name;
    isPlaceholder_ = isUnnamed(*entry_);
    u16 type = options_.type.value_or(entry_->type);
    if (kind_ && !options_.type) type = typeForKind(drive_, *entry_, *kind_);
    target_ = formatTargetOf(drive_, *entry_, type);
    if (kind_) tableWish_ = propertiesForKind(drive_, *entry_, type, *kind_);
  }

  std::optional<FlowResult> checkTarget() {
    const u16 isNow = entry_ ? entry_->type : u16{0};
    if (types::isExtended(isNow))
      return refuse(
          "An extended partition holds volumes and no file system of its own.\n"
          "Nothing was changed. Please format its volumes, or delete it first.",
          Error::unsupportedFileSystem);
    if (!mayChooseKind_) {
      if (const std::string why = whyNotFormattable(kind_, target_.type); !why.empty()) {
        context_.ui.noticeBox(why);
        return FlowResult{FlowEnd::refused, Error::unsupportedFileSystem};
      }
    }
    if (auto stopped = refuseWhenReadOnlyDisk(context_, drive_)) return stopped;
    if (!entry_) {
      if (auto stopped = checkWholeDisk()) return stopped;
    } else if (entry_->isInError()) {
      return refuse(tableErrorText(Error::tableInError), Error::tableInError);
    }
    if (kind_)
      if (auto stopped = checkSize()) return stopped;
    if (auto stopped = refuseWhenInUse(context_, drive_, target_.extent)) return stopped;
    if (!entry_) return std::nullopt;
    return askAboutBootManager(context_, drive_, *entry_);
  }

  std::optional<FlowResult> checkSize() {
    if (tableWish_ != EntryProperties{})
      if (auto stopped = refuseWhenReadOnlyTable(context_, drive_)) return stopped;
    const u64 sectors = target_.extent.endSector + 1 - target_.extent.startSector;
    const std::string why = whyNotFormattable(kind_, target_.type, sectors, drive_.sectorSize());
    if (why.empty()) return std::nullopt;
    return refuse(formatErrorText(Error::invalidSizeForType) + "\n\n" + why,
                  Error::invalidSizeForType);
  }

  // A volume without a table takes the place of every table.
  std::optional<FlowResult> checkWholeDisk() {
    if (drive_.partitionCount() != 0 && drive_.scheme() != Scheme::wholeDisk)
      return refuse("This disk has partitions.\nNothing was changed. Please delete them first.",
                    Error::slotNotFree);
    if (const Failure unreadable = drive_.changesAllowed())
      return refuse(drive_.changeRefusal(), unreadable);
    if (drive_.isGpt() || drive_.isEmbr())
      return refuse(tallowin::format("This disk has a %s.\nNothing was changed. Please change the "
                                     "disk to an MBR first.",
                                     drive_.schemeName()),
                    Error::unsupportedForm);
    return std::nullopt;
  }

  bool runDialog() {
    std::vector<const FileSystemKind*> kinds;
    if (kind_) {
      kinds.push_back(kind_);
    } else {
      const u64 sectors = target_.extent.endSector + 1 - target_.extent.startSector;
      for (const FileSystemKind* kind : context_.fileSystems.all())
        if (kind->wantedType &&
            whyNotFormattable(kind, kind->wantedType(sectors), sectors, drive_.sectorSize())
                .empty())
          kinds.push_back(kind);
    }
    if (kinds.empty()) {
      context_.ui.errorBox(formatErrorText(Error::invalidSizeForType));
      return false;
    }
    if (!step_.ask(std::move(kinds), target_.type)) return false;
    if (!kind_) {
      kind_ = &step_.kind();
      settleTarget();
    }
    return true;
  }

  bool confirmErase() {
    const std::string erased = entry_ ? tallowin::format("All data on %s '%s' will be erased.",
                                                         kindWord(*entry_), name_.c_str())
                                      : std::string(
                                            "All data on this disk will be erased.\n"
                                            "It will hold one volume and no partition table.");
    const std::string target =
        entry_ ? describeTarget(drive_, *entry_) : "Disk: " + describeDisk(drive_.disk());
    const std::string text = erased + "\n\nAre you sure you want to continue?\n\n" + target;
    if (!context_.ui.confirm(Consent::general, "Format", text, MessageKind::question)) return false;
    if (entry_ || drive_.scheme() == Scheme::wholeDisk) return true;
    const std::optional<std::string> content = namedDiskContent(drive_.disk());
    return !content ||
           context_.ui.confirm(Consent::insist, "Format",
                               tallowin::format("This disk has no partitions, but it holds %s.\n"
                                                "Are you sure you want to continue?\n\n",
                                                content->c_str()) +
                                   target);
  }

  // Under one lock, with one kept table.
  FlowResult changeTableAndFormat() {
    TableChange change(context_, drive_);
    if (auto stopped = change.begin(WriteTarget::sectors(target_.extent))) return *stopped;
    const Failure failed = change.end(drive_.changeProperties(*entry_, tableWish_));
    if (failed) {
      context_.ui.errorBox(tableErrorText(failed));
      return {FlowEnd::failed, failed};
    }
    return step_.tell(format(), name_,
                      tallowin::format("Its type in the partition table was changed to %s.",
                                       std::string(kind_->name).c_str()));
  }

  // The kept table is the way back as long as nothing but the first sectors was overwritten.
  FlowResult formatInPlaceOfTable() {
    TableChange change(context_, drive_);
    if (auto stopped = change.begin(WriteTarget::wholeDisk())) return *stopped;
    return step_.tell(change.end(format()), name_);
  }

  Failure format() {
    const std::string own = entry_ && !isPlaceholder_ ? name_ : std::string();
    return step_.format(target_, options_.label.value_or(own), options_.surfaceScan);
  }

  const OperationContext& context_;
  Drive& drive_;
  PartitionEntry* entry_;  // stale once the table was changed; null for the whole disk
  const FormatOptions& options_;
  const FileSystemKind* kind_ = nullptr;
  bool mayChooseKind_ = false;  // the user says in the dialog what nothing else does
  FormatStep step_;
  FormatTarget target_;
  EntryProperties tableWish_;
  std::string name_;
  bool isPlaceholder_ = false;
};

}  // namespace

FlowResult formatFlow(const OperationContext& context, Drive& drive, PartitionEntry& entry,
                      const FormatOptions& options) {
  return Formatting(context, drive, &entry, options).run();
}

FlowResult formatWholeFlow(const OperationContext& context, Drive& drive,
                           const FormatOptions& options) {
  return Formatting(context, drive, nullptr, options).run();
}

}  // namespace tallowin
