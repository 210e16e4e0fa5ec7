// What is no file system but fills a partition: swap areas, LUKS and LVM.
#include <algorithm>

#include "probe/content_record.h"
#include "probe/type_catalogue.h"
#include "probe/volume_forms.h"

namespace tallowin {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kSwapSignatureBytes = 10;

// The signature ends the first page, whose size is that of the machine.
template <u64 kPageBytes>
std::optional<LostVolume> swapOf(SuspectedVolume& volume, u64) {
  constexpr u64 kHeaderOffset = 1024;
  constexpr u32 kVersion = 1;
  constexpr u64 kBadPageBytes = 4;
  const auto header = volume.at<SwapHeaderRecord>(kHeaderOffset);
  if (!header || header->version != kVersion || header->lastPage == 0 ||
      header->badPages > kPageBytes / kBadPageBytes)
    return std::nullopt;
  return LostVolume{.kind = "Swap",
                    .type = types::kLinuxSwap,
                    .sectorCount = volume.sectorsOf(u64{header->lastPage} + 1, kPageBytes),
                    .label = fieldText(header->label),
                    .confidence = Confidence::sure};
}

// What a hibernated machine leaves in its place is put back when it wakes up.
template <u64 kPageBytes>
constexpr VolumeForm swapForm(std::string_view magic) {
  return {.magicOffset = kPageBytes - kSwapSignatureBytes,
          .magic = magic,
          .examine = swapOf<kPageBytes>};
}

// The size of the container is that of its partition, and stands nowhere.
std::optional<LostVolume> luks(SuspectedVolume& volume, u64) {
  constexpr u32 kSlotInUse = 0x00AC71F3;
  constexpr u32 kSlotFree = 0x0000DEAD;
  const auto header = volume.at<LuksHeaderRecord>(0);
  const bool hasUuid = header && header->uuid[0] != '\0' && header->uuid.back() == '\0';
  if (!hasUuid) return std::nullopt;
  LostVolume found{.kind = format("LUKS%u", unsigned{header->version}),
                   .type = types::kLinux,
                   .sectorCount = 0,
                   .confidence = Confidence::sure};
  if (header->version == 1) {
    const u32 slot = header->firstKeySlot;
    return slot == kSlotInUse || slot == kSlotFree ? std::optional(found) : std::nullopt;
  }
  if (header->version != 2 || header->position != 0) return std::nullopt;
  found.label = fieldText(header->label);
  if (!volume.hasText(header->headerBytes, "SKUL\xBA\xBE"sv)) found.confidence = Confidence::likely;
  return found;
}

constexpr u64 kLvmSectorBytes = 512;

std::optional<LostVolume> lvm(SuspectedVolume& volume, u64 offset) {
  constexpr u64 kMetadataOffset = 4 * kKiB + 4;
  const auto label = volume.at<LvmLabelRecord>(offset);
  if (!label || label->sector != offset / kLvmSectorBytes ||
      !textAt(bytesOf(label->type), 0, "LVM2 001") || label->contentOffset < sizeof *label ||
      label->contentOffset > kLvmSectorBytes - sizeof(LvmVolumeRecord))
    return std::nullopt;
  const auto content = volume.at<LvmVolumeRecord>(offset + label->contentOffset);
  if (!content || content->deviceBytes == 0) return std::nullopt;
  const bool hasMetadata = volume.hasText(kMetadataOffset, " LVM2 x["sv);
  return LostVolume{.kind = "LVM",
                    .type = types::kLinuxLvm,
                    .sectorCount = volume.sectorsOf(content->deviceBytes, 1),
                    .confidence = hasMetadata ? Confidence::sure : Confidence::likely};
}

constexpr VolumeForm lvmForm(u64 sector) {
  return {.headerOffset = sector * kLvmSectorBytes, .magic = "LABELONE"sv, .examine = lvm};
}

}  // namespace

std::span<const VolumeForm> containerForms() {
  static constexpr VolumeForm kForms[] = {{.magic = "LUKS\xBA\xBE"sv, .examine = luks},
                                          lvmForm(0),
                                          lvmForm(1),
                                          lvmForm(2),
                                          lvmForm(3),
                                          swapForm<4 * kKiB>("SWAPSPAC"),
                                          swapForm<8 * kKiB>("SWAPSPAC"),
                                          swapForm<16 * kKiB>("SWAPSPAC"),
                                          swapForm<64 * kKiB>("SWAPSPAC"),
                                          swapForm<4 * kKiB>("S1SUSPEN"),
                                          swapForm<4 * kKiB>("LINHIB00")};
  return kForms;
}

}  // namespace tallowin
