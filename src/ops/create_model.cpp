#include "ops/create_model.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "ops/placement.h"
#include "ops/type_field.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

// What the File System menu offers unless the full list is wanted.
constexpr auto kUsualTypes = std::to_array<u16>(
    {0x01, 0x04, 0x05, 0x06, 0x07, 0x0B, 0x63, 0x82, 0x83, 0xBE, 0xDB, 0xDF, 0xEB, 0xEF});
constexpr u16 kMaxTypeByte = 255;
constexpr u32 kNtOnlyMiB = 2048;  // older systems read FAT-16 with clusters up to 32 KiB only

bool isOffered(u16 type, const CreateFacts& facts) {
  if (facts.fullPartitionList) return types::hasName(type);
  if (type == types::kEfiSystem && !facts.isGpt) return false;
  return std::find(kUsualTypes.begin(), kUsualTypes.end(), type) != kUsualTypes.end();
}

std::vector<CreateModel::TypeChoice> typeChoices(const CreateFacts& facts) {
  std::vector<CreateModel::TypeChoice> choices;
  for (u16 type = 1; type <= kMaxTypeByte; ++type) {
    if (isOffered(type, facts)) choices.push_back({type, typeChoiceText(type)});
  }
  return choices;
}

std::size_t nameLimit(const CreateFacts& facts) {
  if (!facts.isEmbr) return 32;
  return facts.insideExtended ? 8 : 15;
}

Control formatControlFor(const FileSystemKinds* kinds, u16 type) {
  Control control;
  const FileSystemKind* kind = kinds ? kinds->byType(type) : nullptr;
  if (kind && kind->format) return control;
  control.enabled = false;
  if (type == types::kFree) {
    control.whyDisabled = "Choose a file system first.";
  } else if (types::isNtfs(type)) {
    control.whyDisabled = "NTFS cannot be formatted by this version.";
  } else {
    control.whyDisabled = "This file system cannot be formatted here.";
  }
  return control;
}

// Beyond the table's type ids no rule of a type applies.
u16 typeOf(u32 fileSystemValue) { return static_cast<u16>(std::min<u32>(fileSystemValue, 0xFFFF)); }

}  // namespace

CreateModel::CreateModel(const CreateFacts& facts)
    : title(tallowin::format(
          "%s - %s Block", facts.copy ? "Copy" : "Create",
          sizeText(facts.startSector, facts.endSector, facts.sectorSizeBytes).c_str())),
      groupLabel(facts.insideExtended ? "Volume Information" : "Partition Information"),
      nameMaxLength(nameLimit(facts)),
      fileSystemChoices(typeChoices(facts)),
      formatControl(formatControlFor(facts.fileSystems, types::kFree)),
      facts_(facts),
      blockMiB_(sizeInMiB(facts.startSector, facts.endSector, facts.sectorSizeBytes)) {
  winNtOnlyLabel.shown = false;
  if (!facts.isEmbr && !facts.isGpt && !facts.volumeLabels && !facts.insideExtended) {
    name = kNewMbrEntryName;
    nameControl = {true, false, "An MBR keeps no names of its primary partitions."};
  }
  if (!facts.isEmbr || facts.insideExtended)
    multiOsControl = {true, false, "Only primary partitions of an EMBR disk can be Multi-OS."};
  sizeMiB = {blockMiB_, 0, blockMiB_};
  seenSizeMiB_ = blockMiB_;
  formatControl.shown = !isCopy();
  deleteSourceControl.shown = dataOnlyControl.shown = isCopy();
  if (isCopy()) showSource();
  sizeChanged();
}

void CreateModel::showSource() {
  const CopySourceFacts& source = *facts_.copy;
  if (!source.name.empty()) name = source.name;
  nameIsOptional = source.name.empty();  // a copy without a name is as good as its source
  fileSystem = typeChoiceText(source.type);
  seenFileSystem_ = fileSystemValue();
  fileSystemControl =
      sizeControl = {true, false, "A copy has the type and the size of its source."};
  exactSectors = source.sectors;
  sizeMiB.setValue(static_cast<u32>(
      std::min<u64>(sectorsToMiB(source.sectors, source.sectorSizeBytes), kAllOnes32)));
  seenSizeMiB_ = sizeMiB.value;
  if (multiOsControl.enabled) multiOs = source.isMultiOs;
  dataOnly = source.whyNotDataOnly.empty();
  if (!source.whyNotDeleted.empty()) deleteSourceControl = {true, false, source.whyNotDeleted};
  if (!dataOnly) dataOnlyControl = {true, false, source.whyNotDataOnly};
}

u32 CreateModel::fileSystemValue() const { return typeNumberIn(fileSystem); }

u64 CreateModel::sizeSectors() const {
  if (exactSectors) return *exactSectors;
  const u64 block = facts_.endSector - facts_.startSector + 1;
  if (sizeMiB.value == blockMiB_) return block;
  return std::min(block, u64{sizeMiB.value} * (kMiB / facts_.sectorSizeBytes));
}

u32 CreateModel::placement() const {
  // Less than a MiB that is left over stays behind the partition.
  if (exactSectors && roomMiB_ == 0) return 0;
  return freeAfterMiB.value == 0 ? kPlaceAtEnd : freeBeforeMiB.value;
}

void CreateModel::fileSystemChanged() {
  const u16 type = typeOf(fileSystemValue());
  const u64 unitBytes = facts_.alignmentUnitSectors * facts_.sectorSizeBytes;
  if (requestedSizeMiB_ == 0) requestedSizeMiB_ = sizeMiB.value;
  sizeMiB.setRange(0, std::min(maxSizeMiBForType(type, unitBytes), blockMiB_));
  sizeMiB.setValue(requestedSizeMiB_);
  formatControl = formatControlFor(facts_.fileSystems, type);
  format = formatControl.enabled;
}

void CreateModel::sizeChanged() {
  const u16 type = types::unhide(typeOf(fileSystemValue()));
  const u64 unitBytes = facts_.alignmentUnitSectors * facts_.sectorSizeBytes;
  const bool onMiB = unitBytes != 0 && kMiB % unitBytes == 0;
  winNtOnlyLabel.shown = (type == 0x06 || type == 0x0E) &&
                         (sizeMiB.value > kNtOnlyMiB || (sizeMiB.value == kNtOnlyMiB && onMiB));
  roomMiB_ = blockMiB_ - std::min(sizeMiB.value, blockMiB_);
  freeBeforeMiB.setRange(0, roomMiB_);
  freeAfterMiB.setRange(0, roomMiB_);
  freeAfterMiB.setValue(roomMiB_ - freeBeforeMiB.value);
}

void CreateModel::pass() {
  if (fileSystemValue() != seenFileSystem_) {
    fileSystemChanged();
    sizeChanged();
  } else if (sizeMiB.value != seenSizeMiB_) {
    sizeMiB.setValue(sizeMiB.value);
    requestedSizeMiB_ = 0;
    sizeChanged();
  } else if (freeBeforeMiB.value != seenBeforeMiB_) {
    freeBeforeMiB.setValue(freeBeforeMiB.value);
    freeAfterMiB.setValue(roomMiB_ - freeBeforeMiB.value);
  } else if (freeAfterMiB.value != seenAfterMiB_) {
    freeAfterMiB.setValue(freeAfterMiB.value);
    freeBeforeMiB.setValue(roomMiB_ - freeAfterMiB.value);
  }
  seenFileSystem_ = fileSystemValue();
  seenSizeMiB_ = sizeMiB.value;
  seenBeforeMiB_ = freeBeforeMiB.value;
  seenAfterMiB_ = freeAfterMiB.value;
}

void CreateModel::ok() {
  pass();
  if (create && create()) close();
}

}  // namespace tallowin
