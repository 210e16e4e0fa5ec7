// File systems that are recognised by a superblock: ext, XFS, Btrfs, F2FS, HFS+, ReiserFS.
#include <algorithm>
#include <array>

#include "base/utf8.h"
#include "probe/content_record.h"
#include "probe/type_catalogue.h"
#include "probe/volume_forms.h"

namespace tallowin {
namespace {

using namespace std::string_view_literals;

constexpr u64 kSuperblockOffset = 1024;

// --- ext2, ext3, ext4

constexpr u32 kExtCompatJournal = 0x4;
constexpr u32 kExtCompatTwoCopies = 0x200;
constexpr u32 kExtIncompatExtents = 0x40;
constexpr u32 kExtIncompat64Bit = 0x80;
constexpr u32 kExtReadOnlyClusters = 0x200;
constexpr u32 kExtReadOnlyExt4 = 0x8 | 0x10 | 0x20 | 0x40 | 0x400;  // what came with ext4

u64 blockBytesOf(const ExtSuperRecord& super) { return u64{1024} << super.blockShift; }

u64 blocksIn(const ExtSuperRecord& super) {
  const bool is64Bit = (super.incompatibleFeatures & kExtIncompat64Bit) != 0;
  return (is64Bit ? u64{super.blockCountHigh} << 32 : 0) | super.blockCount;
}

bool isSane(const ExtSuperRecord& super) {
  constexpr u32 kLargestBlockShift = 6;
  const bool hasClusters = (super.readOnlyFeatures & kExtReadOnlyClusters) != 0;
  return super.firstDataBlock < 2 && super.blockShift <= kLargestBlockShift &&
         (super.clusterShift == super.blockShift || hasClusters) &&
         (super.mountCount != 0 || super.state != 0) && super.blocksPerGroup != 0 &&
         blocksIn(super) > super.firstDataBlock && super.groupNumber == 0;
}

// The inode of the root directory lies where the first group descriptor says. A copy of the
// superblock, such as one in a journal, leads somewhere else.
bool hasExtRoot(SuspectedVolume& volume, const ExtSuperRecord& super) {
  constexpr u16 kFormatMask = 0xF000;
  constexpr u16 kDirectory = 0x4000;
  constexpr u64 kRootIndex = 1;
  constexpr u64 kOldInodeBytes = 128;
  const u64 blockBytes = blockBytesOf(super);
  const auto group = volume.at<ExtGroupRecord>((u64{super.firstDataBlock} + 1) * blockBytes);
  if (!group || group->inodeTable == 0 || group->inodeTable >= blocksIn(super)) return false;
  const u64 inodeBytes = super.revision != 0 ? u64{super.inodeBytes} : kOldInodeBytes;
  const auto mode = volume.at<Le16>(group->inodeTable * blockBytes + kRootIndex * inodeBytes);
  return mode && (*mode & kFormatMask) == kDirectory;
}

// The second group has a copy, but for file systems that say where theirs are.
bool hasExtCopy(SuspectedVolume& volume, const ExtSuperRecord& super) {
  const u64 second = u64{super.firstDataBlock} + super.blocksPerGroup;
  if (second >= blocksIn(super) || (super.compatibleFeatures & kExtCompatTwoCopies) != 0)
    return true;
  const auto copy = volume.at<ExtSuperRecord>(second * blockBytesOf(super));
  return copy && copy->magic == super.magic && copy->uuid == super.uuid;
}

std::string extKind(const ExtSuperRecord& super) {
  if ((super.incompatibleFeatures & (kExtIncompatExtents | kExtIncompat64Bit)) != 0 ||
      (super.readOnlyFeatures & kExtReadOnlyExt4) != 0)
    return "ext4";
  return (super.compatibleFeatures & kExtCompatJournal) != 0 ? "ext3" : "ext2";
}

std::optional<LostVolume> ext(SuspectedVolume& volume, u64 offset) {
  const auto super = volume.at<ExtSuperRecord>(offset);
  if (!super || !isSane(*super)) return std::nullopt;
  const bool hasRoot = hasExtRoot(volume, *super);
  const bool hasCopy = hasExtCopy(volume, *super);
  const bool isSmall = u64{super->firstDataBlock} + super->blocksPerGroup >= blocksIn(*super);
  Confidence confidence = Confidence::sure;
  if (!hasRoot) confidence = hasCopy && !isSmall ? Confidence::likely : Confidence::doubtful;
  if (hasRoot && !hasCopy) confidence = Confidence::likely;
  return LostVolume{.kind = extKind(*super),
                    .type = types::kLinux,
                    .sectorCount = volume.sectorsOf(blocksIn(*super), blockBytesOf(*super)),
                    .label = fieldText(super->label),
                    .confidence = confidence,
                    .usedAt = super->writeTime};
}

// --- XFS

std::optional<LostVolume> xfs(SuspectedVolume& volume, u64) {
  constexpr u32 kSmallestBlock = 512;
  constexpr u32 kLargestBlock = 64 * kKiB;
  const auto super = volume.at<XfsSuperRecord>(0);
  if (!super || !isPowerOfTwo(super->blockBytes) || super->blockBytes < kSmallestBlock ||
      super->blockBytes > kLargestBlock || !isPowerOfTwo(super->sectorBytes) ||
      super->groupBlocks == 0 || super->groupCount == 0)
    return std::nullopt;
  const u64 lastGroup = (u64{super->groupCount} - 1) * super->groupBlocks;
  if (super->blockCount <= lastGroup || super->blockCount - lastGroup > super->groupBlocks ||
      super->blockCount > kAllOnes64 / super->blockBytes)
    return std::nullopt;
  // Only the first of the groups is where the volume begins.
  const auto group = volume.at<XfsGroupRecord>(super->sectorBytes);
  if (!group || !textAt(bytesOf(*group), 0, "XAGF") || group->number != 0) return std::nullopt;
  const auto copy = volume.at<XfsSuperRecord>(lastGroup * super->blockBytes);
  const bool hasCopy = copy && copy->magic == super->magic && copy->uuid == super->uuid;
  return LostVolume{.kind = "XFS",
                    .type = types::kLinux,
                    .sectorCount = volume.sectorsOf(super->blockCount, super->blockBytes),
                    .label = fieldText(super->label),
                    .confidence = hasCopy ? Confidence::sure : Confidence::likely};
}

// --- Btrfs

constexpr u64 kBtrfsOffset = 64 * kKiB;

std::optional<LostVolume> btrfs(SuspectedVolume& volume, u64 offset) {
  constexpr u64 kCopyOffset = 64 * kMiB;
  constexpr u64 kSuperBytes = 4 * kKiB;
  const auto super = volume.at<BtrfsSuperRecord>(offset);
  if (!super || super->position != kBtrfsOffset || super->deviceBytes < kBtrfsOffset + kSuperBytes)
    return std::nullopt;
  bool hasCopy = true;
  if (super->deviceBytes >= kCopyOffset + kSuperBytes) {
    const auto copy = volume.at<BtrfsSuperRecord>(kCopyOffset);
    hasCopy = copy && copy->magic == super->magic && copy->uuid == super->uuid;
  }
  return LostVolume{.kind = "Btrfs",
                    .type = types::kLinux,
                    .sectorCount = volume.sectorsOf(super->deviceBytes, 1),
                    .label = fieldText(super->label),
                    .confidence = hasCopy ? Confidence::sure : Confidence::likely};
}

// --- F2FS

std::optional<LostVolume> f2fs(SuspectedVolume& volume, u64 offset) {
  constexpr u32 kSmallestShift = 12;
  constexpr u32 kLargestShift = 16;
  constexpr u64 kCopyDistance = 4 * kKiB;
  const auto super = volume.at<F2fsSuperRecord>(offset);
  if (!super || super->blockShift < kSmallestShift || super->blockShift > kLargestShift ||
      super->blockCount == 0)
    return std::nullopt;
  // The copy has none behind it.
  const auto copy = volume.at<F2fsSuperRecord>(offset + kCopyDistance);
  if (!copy || copy->magic != super->magic || copy->uuid != super->uuid) return std::nullopt;
  std::string label;
  for (const u16 unit : super->label) {
    if (unit == 0) break;
    appendUtf8(label, unit);
  }
  return LostVolume{.kind = "F2FS",
                    .type = types::kLinux,
                    .sectorCount = volume.sectorsOf(super->blockCount, u64{1} << super->blockShift),
                    .label = printableFromUtf8(label),
                    .confidence = Confidence::sure};
}

// --- HFS+

std::optional<LostVolume> hfsPlus(SuspectedVolume& volume, u64 offset) {
  constexpr u64 kNodeKindOffset = 8;
  constexpr u8 kHeaderNode = 1;
  const auto header = volume.at<HfsPlusHeaderRecord>(offset);
  if (!header || header->version != (header->signature[1] == '+' ? 4 : 5) ||
      !isPowerOfTwo(header->blockBytes) || header->blockBytes < 512 || header->blockCount == 0 ||
      header->catalogBlock >= header->blockCount)
    return std::nullopt;
  // The copy near the end does not find the catalogue from where it lies.
  const u64 catalog = u64{header->catalogBlock} * header->blockBytes;
  if (volume.at<u8>(catalog + kNodeKindOffset) != kHeaderNode) return std::nullopt;
  const u64 bytes = u64{header->blockCount} * header->blockBytes;
  const auto copy = volume.at<HfsPlusHeaderRecord>(bytes - kSuperblockOffset);
  const bool hasCopy = copy && copy->signature == header->signature;
  return LostVolume{.kind = "HFS+",
                    .type = types::kHfsPlus,
                    .sectorCount = volume.sectorsOf(bytes, 1),
                    .confidence = hasCopy ? Confidence::sure : Confidence::likely};
}

// --- ReiserFS

constexpr u64 kReiserSector = 128;

std::optional<LostVolume> reiserFs(SuspectedVolume& volume, u64 offset) {
  constexpr u16 kHighestLevel = 7;
  const auto super = volume.at<ReiserSuperRecord>(offset);
  if (!super || (super->state & 1) == 0 || !isPowerOfTwo(super->blockBytes) ||
      super->blockCount == 0)
    return std::nullopt;
  const std::string_view magic(super->magic.data(), super->magic.size());
  if (!magic.starts_with("ReIsErFs") && !magic.starts_with("ReIsEr2Fs") &&
      !magic.starts_with("ReIsEr3Fs"))
    return std::nullopt;
  const auto level = volume.at<Le16>(u64{super->rootBlock} * super->blockBytes);
  const bool hasRoot = level && *level >= 1 && *level <= kHighestLevel;
  return LostVolume{.kind = "ReiserFS",
                    .type = types::kLinux,
                    .sectorCount = volume.sectorsOf(super->blockCount, super->blockBytes),
                    .confidence = hasRoot ? Confidence::sure : Confidence::likely};
}

}  // namespace

std::span<const VolumeForm> superblockForms() {
  static constexpr VolumeForm kForms[] = {
      {.headerOffset = kSuperblockOffset, .magicOffset = 56, .magic = "\x53\xEF"sv, .examine = ext},
      {.headerOffset = kSuperblockOffset, .magicOffset = 56, .magic = "\x51\xEF"sv, .examine = ext},
      {.magic = "XFSB"sv, .examine = xfs},
      {.headerOffset = kBtrfsOffset, .magicOffset = 64, .magic = "_BHRfS_M"sv, .examine = btrfs},
      {.headerOffset = kSuperblockOffset, .magic = "\x10\x20\xF5\xF2"sv, .examine = f2fs},
      {.headerOffset = kSuperblockOffset, .magic = "H+"sv, .examine = hfsPlus},
      {.headerOffset = kSuperblockOffset, .magic = "HX"sv, .examine = hfsPlus},
      {.headerOffset = kReiserSector,
       .inSectors = true,
       .magicOffset = 52,
       .magic = "ReIsEr"sv,
       .examine = reiserFs}};
  return kForms;
}

}  // namespace tallowin
