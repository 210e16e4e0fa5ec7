#include "ops/format_flow.h"

#include <algorithm>

#include "base/text.h"
#include "disk/disk_handles.h"
#include "fat/fat_format.h"
#include "move/move_callback.h"
#include "ops/error_text.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"
#include "ops/operation_progress.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "ops/trace_log.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u64 kSmallFat16Sectors = 65535;

FatKind kindOfType(u16 type) {
  if (types::unhide(type) == 0x01) return FatKind::fat12;
  return types::isFat32(type) ? FatKind::fat32 : FatKind::fat16;
}

FlowResult cancelled() { return {FlowEnd::cancelled, Error::cancelled, 0}; }

class Formatting {
 public:
  Formatting(const OperationContext& context, Drive& drive, PartitionEntry& entry,
             const FormatOptions& options)
      : context_(context),
        drive_(drive),
        entry_(&entry),
        options_(options),
        type_(options.type.value_or(entry.type)) {}

  FlowResult run() {
    if (const auto stopped = checkTarget()) return *stopped;
    if (!askForClusters() || !confirmErase()) return cancelled();
    if (const auto stopped = changeType()) return *stopped;
    DiskWriteScope scope(context_, drive_);
    if (const auto stopped =
            scope.begin(WriteTarget::sectors({entry_->startSector, entry_->endSector})))
      return *stopped;
    entry_->type = type_;
    return tell(format());
  }

 private:
  std::optional<FlowResult> refuse(const std::string& text, Failure code) {
    context_.ui.errorBox(text);
    return FlowResult{FlowEnd::refused, code, 0};
  }

  std::optional<FlowResult> checkTarget() {
    if (const std::string why = whyNotFormattable(type_); !why.empty()) {
      context_.ui.noticeBox(why);
      return FlowResult{FlowEnd::refused, Error::unsupportedFileSystem, 0};
    }
    if (auto stopped = refuseWhenReadOnlyDisk(context_, drive_)) return stopped;
    if (entry_->isInError())
      return refuse(tableErrorText(Error::tableInError), Error::tableInError);
    if (type_ != entry_->type) {
      if (const auto refused = refuseWhenReadOnlyTable(context_, drive_)) return refused;
    }
    if (entry_->sectorCount() > kAllOnes32 || !types::sizeFits(type_, entry_->sectorCount()))
      return refuse(formatErrorText(Error::invalidSizeForType), Error::invalidSizeForType);
    if (auto refused = refuseWhenInUse(context_, drive_, {entry_->startSector, entry_->endSector}))
      return refused;
    if (options_.mode == FormatMode::afterCreate) return std::nullopt;
    return askAboutBootManager(context_, drive_, *entry_);
  }

  bool askForClusters() {
    if (takesAutomaticClusters(type_)) return true;
    FormatModel model(types::isFat(type_));
    context_.ui.run(model);
    clusterBytes_ = model.clusterBytes();
    alignForNtfs_ = model.alignForNtfs;
    return model.confirmed;
  }

  bool confirmErase() {
    if (options_.mode == FormatMode::afterCreate) return true;
    const std::string erased = tallowin::format("All data on %s '%s' will be erased.",
                                                kindWord(*entry_), entry_->name.c_str());
    const std::string text =
        tallowin::format("%s\n\n%s", erased.c_str(), "Are you sure you want to continue?") +
        "\n\n" + describeTarget(drive_, *entry_);
    return context_.ui.confirm(Consent::general, "Format", text, MessageKind::question);
  }

  std::optional<FlowResult> changeType() {
    if (type_ == entry_->type) return std::nullopt;
    const bool isStored =
        drive_.scheme() != Scheme::wholeDisk && (!drive_.isGpt() || entry_->mbrSlot != kNoMbrSlot);
    if (!isStored) return std::nullopt;  // only what lies in the partition says it
    const u64 start = entry_->startSector;
    TableChange change(context_, drive_);
    if (auto stopped = change.begin(WriteTarget::sectors({entry_->startSector, entry_->endSector})))
      return stopped;
    const Failure error = change.end(drive_.changeProperties(*entry_, {.type = type_}));
    entry_ = findByStart(drive_, start);
    if (error == Error::none && entry_) return std::nullopt;
    const Failure code = error != Error::none ? error : Error::tableChangedMeanwhile;
    context_.ui.errorBox(tableErrorText(code));
    return FlowResult{FlowEnd::failed, code, 0};
  }

  void fillRequest(FatFormatRequest& request) {
    request.device = &drive_.disk();
    request.startSector = entry_->startSector;
    request.lengthSectors = static_cast<u32>(entry_->sectorCount());
    if (clusterBytes_ != 0)
      request.sectorsPerCluster = std::max<u32>(1, clusterBytes_ / drive_.sectorSize());
    request.typeId = type_;
    request.driveNumber = context_.options.useHd0InBpb
                              ? kFirstBiosDisk
                              : drive_.biosNumber().value_or(kFirstBiosDisk);
    request.label = options_.label.value_or(ownName());
    if (options_.surfaceScan) request.options |= kFatScanSurface;
    if (alignForNtfs_) request.options |= kFatAlignForNtfs;
    request.geometry = drive_.geometry();
    if (entry_->isVolume()) request.hiddenSectors = static_cast<u32>(drive_.volumeGap(*entry_));
    request.secondsSinceEpoch = context_.host.secondsSinceEpoch();
  }

  std::string ownName() const {
    return entry_->name == kUnlabelledWholeDisk ? std::string() : entry_->name;
  }

  Failure format() {
    traceLine(context_.folders, "Format: %s, start %llu, %llu sectors, type %Xh",
              describeDisk(drive_.disk()).c_str(),
              static_cast<unsigned long long>(entry_->startSector),
              static_cast<unsigned long long>(entry_->sectorCount()), type_);
    OperationProgress progress(context_.ui, context_.host, "Format", "Formatting", {});
    FatFormatRequest request;
    fillRequest(request);
    request.callback = [&](FatFormatRequest&, u32 id, u32 value) {
      return step(progress, id, value);
    };
    Failure error = formatFat(request);
    badClusters_ = request.badClusters;
    if (drive_.disk().flush() != Error::none && formatErrorText(error).empty())
      error = Error::write;
    drive_.disk().dropCachesOf(entry_->startSector, entry_->sectorCount());
    traceLine(context_.folders, "Format: ended with %u, %u bad clusters", codeOf(error),
              badClusters_);
    return error;
  }

  bool step(OperationProgress& progress, u32 id, u32 value) {
    if (id == CALLBACKidStatus && value == kFatScanBegins) {
      traceLine(context_.folders, "Format: surface scan");
      progress.begin("Checking for surface defects...", "&Skip",
                     entry_->sectorCount() * drive_.sectorSize());
    } else if (id == CALLBACKidProgress) {
      progress.setPercent(value);
    } else if (id != CALLBACKidStatus) {
      context_.ui.errorBox(tallowin::format("Unexpected ID (%u) in SlideCallBack()", id));
      return false;
    }
    return !progress.isCancelled();
  }

  FlowResult tell(Failure error) {
    if (error == Error::cancelled) {
      context_.ui.noticeBox(
          "Formatting was stopped.\n"
          "The partition is partly overwritten and must be formatted before it can be used.");
      return cancelled();
    }
    if (const std::string text = formatErrorText(error); !text.empty()) {
      context_.ui.errorBox(text);
      return {FlowEnd::failed, error, 0};
    }
    showSummary(error == Error::scanStopped);
    return {};
  }

  void showSummary(bool scanSkipped) {
    const auto volume = FatVolume::open(drive_, *entry_);
    if (!volume || !volume->isValid()) return;
    FormatSummary summary;
    summary.name = entry_->name;
    summary.typeName = types::name(type_);
    summary.sizeText = sizeText(entry_->startSector, entry_->endSector, drive_.sectorSize());
    summary.fileSystemText = volume->typeText();
    summary.clusterBytes = volume->bytesPerSector() * volume->sectorsPerCluster();
    summary.totalClusters = volume->clusterCount();
    summary.isFat32 = volume->isFat32();
    summary.badClusters = badClusters_;
    summary.scanSkipped = scanSkipped;
    FormatSummaryModel model(summary);
    context_.ui.run(model);
  }

  const OperationContext& context_;
  Drive& drive_;
  PartitionEntry* entry_;
  const FormatOptions& options_;
  u16 type_;  // what the partition is to be
  u32 clusterBytes_ = 0;
  bool alignForNtfs_ = false;
  u32 badClusters_ = 0;
};

}  // namespace

std::string whyNotFormattable(u16 type) {
  if (types::isFat(type)) return {};
  return types::isNtfs(type) ? "NTFS cannot be formatted by this version."
                             : "Only partitions of a FAT or NTFS type can be formatted.";
}

bool takesAutomaticClusters(u16 type) {
  const u16 plain = types::unhide(type);
  return plain == 0x01 || plain == 0x04 || plain == 0xDF;
}

u16 typeForKind(const Drive& drive, const PartitionEntry& entry, FormatKind kind) {
  if (types::isFat(entry.type) && kindOfType(entry.type) == kind) return entry.type;
  u16 type = 0x01;
  if (kind == FatKind::fat16) type = entry.sectorCount() <= kSmallFat16Sectors ? 0x04 : 0x06;
  if (kind == FatKind::fat32) type = 0x0B;
  type = drive.typeForEnd(type, entry.endSector);
  return types::isHidden(entry.type) ? types::hide(type) : type;
}

FlowResult formatFlow(const OperationContext& context, Drive& drive, PartitionEntry& entry,
                      const FormatOptions& options) {
  return Formatting(context, drive, entry, options).run();
}

}  // namespace tallowin
