#include "ptable/sector_size.h"

#include <algorithm>
#include <array>
#include <optional>

#include "disk/mbr_record.h"
#include "probe/identify.h"
#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_record.h"

namespace tallowin {
namespace {

constexpr u32 kUsual = 512;
constexpr std::array<u32, 3> kLarger = {1024, 2048, 4096};

bool hasGptHeader(DiskDevice& image, u32 size) {
  std::array<u8, kUsual> sector{};
  if (image.readSectors(size / kUsual, sector.data(), 1)) return false;
  return textAt(sector, 0, kGptSignature) &&
         recordAt<GptHeaderRecord>(std::span<const u8>(sector))->myLba == kGptPrimaryHeaderLba;
}

bool isUsed(const MbrSlotRecord& slot) { return slot.type != 0 && slot.startLba != 0; }

// What is left of a GPT under a table of another kind proves nothing.
std::optional<u32> sizeByGpt(DiskDevice& image, const MbrRecord& mbr) {
  const bool isOther = mbr.signature.isValid() && std::ranges::any_of(mbr.slots, isUsed) &&
                       std::ranges::none_of(mbr.slots, [](const MbrSlotRecord& slot) {
                         return slot.type == types::kGptReserved;
                       });
  if (isOther) return std::nullopt;
  if (hasGptHeader(image, kUsual)) return kUsual;
  for (const u32 size : kLarger)
    if (hasGptHeader(image, size)) return size;
  return std::nullopt;
}

// What starts there by that sector size; nothing when no file system is known.
std::optional<Content> contentAt(DiskDevice& image, const MbrSlotRecord& slot, u32 size) {
  Content content;
  if (identify(image, u64{slot.startLba} * (size / kUsual), content) ||
      content.code == ContentCode::unknownVolume)
    return std::nullopt;
  return content;
}

u32 sizeByPartitions(DiskDevice& image, const MbrRecord& mbr) {
  if (!mbr.signature.isValid()) return kUsual;
  for (const MbrSlotRecord& slot : mbr.slots)
    if (isUsed(slot) && contentAt(image, slot, kUsual)) return kUsual;
  const u64 sectors = image.sectorCount().value_or(0);
  for (const u32 size : kLarger) {
    const u64 sectorsOfSize = sectors / (size / kUsual);
    const bool fits = std::ranges::all_of(mbr.slots, [&](const MbrSlotRecord& slot) {
      return !isUsed(slot) || u64{slot.startLba} + slot.sectorCount <= sectorsOfSize;
    });
    const bool isStated = std::ranges::any_of(mbr.slots, [&](const MbrSlotRecord& slot) {
      if (!isUsed(slot)) return false;
      const auto content = contentAt(image, slot, size);
      return content && content->sectorSizeBytes == size;
    });
    if (fits && isStated) return size;
  }
  return kUsual;
}

}  // namespace

u32 detectSectorSize(DiskDevice& image) {
  std::array<u8, kUsual> first{};
  if (image.readSectors(0, first.data(), 1)) return kUsual;
  const MbrRecord& mbr = *recordAt<MbrRecord>(std::span<const u8>(first));
  if (const auto size = sizeByGpt(image, mbr)) return *size;
  Content content;
  if (identify(image, 0, content)) return sizeByPartitions(image, mbr);
  return std::ranges::count(kLarger, content.sectorSizeBytes) != 0 ? content.sectorSizeBytes
                                                                   : kUsual;
}

}  // namespace tallowin
