#include "ops/create_flow.h"

#include <algorithm>
#include <optional>

#include "base/text.h"
#include "ops/add_entry.h"
#include "ops/create_model.h"
#include "ops/error_text.h"
#include "ops/format_step.h"
#include "ops/free_block.h"
#include "ops/table_change.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "probe/type_catalogue.h"
#include "ptable/embr/embr_record.h"

namespace tallowin {
namespace {

constexpr u32 kMaxTypeByte = 255;
// Where swap and Linux partitions keep a superblock of their own that would be found again.
constexpr u64 kFarSuperblockSector = 128;

// The sectors at the start of a new partition that old content is recognised by. That of an
// extended partition holds its first EBR.
u64 sectorsToClear(const FileSystemKinds& kinds, u16 type) {
  if (types::isExtended(type)) return 0;
  const FileSystemKind* kind = kinds.byType(type);
  const u64 count = kind ? kind->bootSectors : 1;
  const u16 plain = types::unhide(type);
  return plain == types::kLinuxSwap || plain == types::kLinux ? count + 7 : count;
}

Failure clearFirstSectors(DiskDevice& disk, const FileSystemKinds& kinds, u16 type,
                          const SectorExtent& extent) {
  const u64 length = extent.endSector - extent.startSector + 1;
  const u64 count = std::min(sectorsToClear(kinds, type), length);
  if (const Failure failed = disk.writeZeros(extent.startSector, count)) return failed;
  if (count <= 7 || length <= kFarSuperblockSector) return {};
  return disk.writeZeros(extent.startSector + kFarSuperblockSector, 1);
}

// The name that an MBR cannot keep is no label.
std::string labelOf(const CreateModel& model) {
  return model.name == kNewMbrEntryName ? std::string() : model.name;
}

// One run of the dialog: its OK button may be pressed several times until all is well.
class Creation {
 public:
  Creation(const OperationContext& context, Drive& drive, PartitionEntry& block)
      : context_(context), drive_(drive), block_(&block) {}

  CreateFacts facts() {
    const AlignmentRules rules = drive_.alignment();
    return {block_->startSector,
            block_->endSector,
            drive_.sectorSize(),
            alignmentUnit(rules),
            isInsideExtended(),
            drive_.isGpt(),
            drive_.isEmbr(),
            context_.options.volumeLabels,
            context_.options.fullPartitionList,
            &context_.fileSystems};
  }

  // The OK button: true when the dialog is to close, because the entry was written, or could not
  // be written. False, with the reason told, leaves the block and the disk as they are.
  bool tryToCreate(const CreateModel& model) {
    for (const std::string& why :
         {model.sizeMiB.problem("Size"), model.freeBeforeMiB.problem("Free Space Before"),
          model.freeAfterMiB.problem("Free Space After")})
      if (!why.empty()) return refuse(why);
    const u32 value = model.fileSystemValue();
    if ((model.name.empty() && !model.nameIsOptional) || value == 0 || model.sizeMiB.value == 0)
      return refuse("You must enter a Name, File System, and Size to continue.");
    if (value > kMaxTypeByte) return refuse("The file system value cannot be larger than 255.");
    type_ = static_cast<u16>(value);
    if (!drive_.isGpt() && !types::isForPartitions(type_))
      return refuse(
          "This value marks a partition table and is no file system.\n"
          "Please choose another one.");
    if (!isInsideExtended() && !hasRoomForPrimary()) return false;

    const PlacementTarget target = placementTargetOf(drive_, *block_);
    auto found = createPlacement(target, type_, model.sizeSectors(), model.placement());
    if (types::isExtended(type_) && !admitExtended(target, found)) return false;
    if (!found) return refuse(kCannotAlign);
    format_.reset();
    if (model.format && (!canBeFormatted(*found) || !askHowToFormat())) return false;
    return write(model, target, *found);
  }

  // What comes when the dialog has closed, still under the lock of the change.
  FlowResult finish(const CreateModel& model) {
    if (!result_.succeeded() || !format_) return result_;
    const PartitionEntry* created = findByStart(drive_, extent_.startSector);
    if (created == nullptr) return result_;
    // What is read back of a GPT depends on what lies in the partition: its type is what was
    // wished.
    const FormatTarget target = formatTargetOf(drive_, *created, type_);
    const std::string name = created->name;
    format_->contentIsGone();  // Create has cleared its first sectors
    return format_->tell(format_->format(target, model.label.value_or(labelOf(model))), name);
  }

 private:
  bool isInsideExtended() { return drive_.containerOf(*block_) != nullptr; }

  bool refuse(const std::string& text, const std::string& title = {}, Failure code = Error::none) {
    context_.ui.noticeBox(text, title);
    result_ = {FlowEnd::refused, code};
    return false;
  }

  // Before anything is written, by the rule that Format goes by.
  bool canBeFormatted(const SectorExtent& found) {
    const u64 sectors = found.endSector + 1 - found.startSector;
    const std::string why =
        whyNotFormattable(context_.fileSystems.byType(type_), type_, sectors, drive_.sectorSize());
    return why.empty() || refuse(why + "\nNothing was changed. Please choose another size or type.",
                                 {}, Error::invalidSizeForType);
  }

  // Before the table is written: who cancels goes on in the dialog of Create.
  bool askHowToFormat() {
    format_.emplace(context_, drive_);
    if (format_->ask({context_.fileSystems.byType(type_)}, type_)) return true;
    format_.reset();
    result_ = {FlowEnd::cancelled, Error::cancelled};
    return false;
  }

  bool hasRoomForPrimary() {
    result_ = makeRoomForPrimary(context_, drive_, block_);
    return block_ != nullptr && result_.succeeded();
  }

  // An extended partition leaves the first alignment unit to the boot code.
  bool admitExtended(const PlacementTarget& target, std::optional<SectorExtent>& found) {
    if (target.insideExtended)
      return refuse("You cannot use that file system in an extended partition.");
    if (const std::string why = whyNoExtended(drive_, nullptr); !why.empty()) return refuse(why);
    const u64 unit = alignmentUnit(target.rules);
    const u64 lastSector = found ? found->endSector : target.entry.endSector;
    if (lastSector <= unit) return refuse("An extended partition cannot be created here.");
    if (found) found->startSector = std::max(found->startSector, unit);
    return true;
  }

  u64 attributes(const CreateModel& model) const {
    if (!drive_.isEmbr()) return 0;
    return kNewEmbrEntryFlags | (model.multiOs ? u64{kMptMultiOs} : 0);
  }

  NewEntry newEntry(const CreateModel& model, const PlacementTarget& target,
                    const SectorExtent& found) const {
    NewEntry entry{.startSector = found.startSector, .endSector = found.endSector, .type = type_};
    if (target.insideExtended) entry.ebrSector = found.startSector - target.volumeGap;
    entry.attributes = attributes(model);
    entry.name = model.name;
    return entry;
  }

  bool write(const CreateModel& model, const PlacementTarget& target, const SectorExtent& found) {
    change_.emplace(context_, drive_);
    if (const auto stopped =
            change_->begin(WriteTarget::sectors({block_->startSector, block_->endSector}))) {
      change_.reset();
      result_ = *stopped;
      return false;
    }
    extent_ = found;
    type_ = drive_.typeForEnd(type_, found.endSector);
    Failure uncleared;
    Failure failed = addEntry(context_, *change_, drive_, newEntry(model, target, found), "Create");
    if (!failed) uncleared = clearFirstSectors(drive_.disk(), context_.fileSystems, type_, found);
    failed = change_->end(failed);
    if (failed) return keepTyped(failed, target.entry);
    result_ = {};
    if (!uncleared) return true;
    context_.ui.errorBox(
        "The partition was created, but its first sectors could not be cleared,\n"
        "so that it may still show what was there before.\n\n" +
        errorText(uncleared));
    result_ = {FlowEnd::failed, uncleared.as(Error::clearingFailed)};
    return true;
  }

  // The dialog stays open, with all that was typed, where it can be tried again: not when the
  // partition may be there already.
  bool keepTyped(const Failure& failed, const SectorExtent& block) {
    change_.reset();
    context_.ui.errorBox(createErrorText(failed));
    result_ = {FlowEnd::failed, failed};
    const bool mayBeThere =
        failed == Error::writeFailedNewTable || failed == Error::writeFailedTableUnknown;
    block_ = mayBeThere ? nullptr : findFreeBlock(drive_, block);
    return block_ == nullptr;
  }

  const OperationContext& context_;
  Drive& drive_;
  PartitionEntry* block_;  // owned by the drive's table
  u16 type_ = 0;
  SectorExtent extent_;
  std::optional<FormatStep> format_;   // when the new partition is to be formatted
  std::optional<TableChange> change_;  // from the first write to the end
  FlowResult result_{FlowEnd::cancelled, Error::cancelled};
};

}  // namespace

FlowResult createFlow(const OperationContext& context, Drive& drive, PartitionEntry& block) {
  if (!block.isFree()) {
    context.ui.errorBox(
        "Unsupported type for Setup Free Before/After during create/copy partition");
    return {FlowEnd::refused, Error::none};
  }
  if (const auto refused = refuseWhenReadOnlyTable(context, drive)) return *refused;
  if (const auto refused = refuseWhenInUse(context, drive, {block.startSector, block.endSector}))
    return *refused;

  Creation creation(context, drive, block);
  CreateModel model(creation.facts());
  model.create = [&] { return creation.tryToCreate(model); };
  context.ui.run(model);
  return creation.finish(model);
}

}  // namespace tallowin
