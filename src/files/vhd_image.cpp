// Opening a VHD: the footer, and for a growing image the header and the block allocation table.
#include <algorithm>
#include <array>
#include <new>

#include "base/text.h"
#include "files/dynamic_vhd.h"
#include "files/flat_image.h"
#include "files/vhd_record.h"

namespace tallowin {
namespace {

constexpr u32 kSectorBytes = ImageContainer::kSectorBytes;
// 2 TiB, all that a table's entries can address, in blocks of 128 KiB.
constexpr u64 kMaxTableEntries = 16 * kMiB;
constexpr u32 kMaxBlockBytes = 256 * kMiB;

std::nullptr_t fail(ImageFailure& failure, Failure error, const char* reason) {
  failure = {error, reason};
  return nullptr;
}

std::nullptr_t unreadable(ImageFailure& failure, Failure error) {
  return fail(failure, error, "The VHD cannot be read.");
}

template <DiskRecord Record>
Failure readRecord(ImageFile& file, u64 offset, Record& record) {
  return file.readAt(offset, {reinterpret_cast<u8*>(&record), sizeof record});
}

// No block may lie over the headers, the table or another block, or pass the footer.
const char* flawOfBlocks(const DynamicVhd::Layout& layout, u64 tableBytes, u64 footerOffset) {
  const u64 storedBytes =
      VhdBitmaps(0, layout.blockSectors).bitmapBytes() + u64{layout.blockSectors} * kSectorBytes;
  const u64 tableEnd = layout.tableOffset + tableBytes;
  std::vector<u32> starts;
  for (const VhdTableEntry& entry : layout.table)
    if (entry != kVhdNotAllocated) starts.push_back(entry);
  std::sort(starts.begin(), starts.end());
  u64 end = kVhdFirstFreeOffset;
  for (const u32 start : starts) {
    const u64 offset = u64{start} * kSectorBytes;
    const bool isOverTable = offset < tableEnd && layout.tableOffset < offset + storedBytes;
    if (offset < end || isOverTable) return "Blocks of the VHD lie over each other or its headers.";
    end = offset + storedBytes;
  }
  return end > footerOffset ? "A block of the VHD lies outside the file, which may have been cut."
                            : nullptr;
}

std::unique_ptr<ImageContainer> openDynamic(std::unique_ptr<ImageFile>& file,
                                            const VhdFooter& footer, ImageFailure& failure) {
  VhdDynamicHeader header;
  const u64 footerOffset = file->sizeBytes() - sizeof(VhdFooter);
  if (footerOffset < kVhdFirstFreeOffset)
    return fail(failure, Error::corrupt, "The VHD is too short for its headers.");
  if (const Failure failed = readRecord(*file, kVhdDynamicHeaderOffset, header))
    return unreadable(failure, failed);
  if (footer.dataOffset != kVhdDynamicHeaderOffset ||
      !textAt(bytesOf(header), 0, kVhdHeaderCookie) || header.checksum != vhdChecksum(header))
    return fail(failure, Error::corrupt, "The VHD's dynamic header is damaged.");

  DynamicVhd::Layout layout;
  layout.footer = footer;
  layout.sectorCount = vhdSectorCount(footer);
  const u32 blockBytes = header.blockSizeBytes;
  if (blockBytes < kSectorBytes || blockBytes % kSectorBytes != 0 || blockBytes > kMaxBlockBytes)
    return fail(failure, Error::corrupt, "The VHD states an impossible block size.");
  layout.blockSectors = blockBytes / kSectorBytes;

  const u64 blocks = (layout.sectorCount - 1) / layout.blockSectors + 1;
  const u64 tableBytes = u64{header.maxTableEntries} * sizeof(VhdTableEntry);
  if (header.maxTableEntries < blocks)
    return fail(failure, Error::corrupt, "The VHD's block table is too small for its disk.");
  layout.tableOffset = header.tableOffset;
  if (layout.tableOffset < kVhdFirstFreeOffset || layout.tableOffset > footerOffset ||
      tableBytes > footerOffset - layout.tableOffset)
    return fail(failure, Error::corrupt, "The VHD's block table lies outside the file.");
  if (blocks > kMaxTableEntries)
    return fail(failure, Error::unsupportedForm,
                "The VHD's block table is larger than any disk of this format needs.");
  layout.table.resize(blocks);
  if (const Failure failed = file->readAt(
          layout.tableOffset,
          {reinterpret_cast<u8*>(layout.table.data()), blocks * sizeof(VhdTableEntry)}))
    return unreadable(failure, failed);
  if (const char* flaw = flawOfBlocks(layout, tableBytes, footerOffset))
    return fail(failure, Error::corrupt, flaw);
  return std::make_unique<DynamicVhd>(std::move(file), std::move(layout));
}

bool hasCookie(ImageFile& file, u64 offset, Failure& failed) {
  std::array<u8, kVhdFooterCookie.size()> bytes{};
  failed = file.readAt(offset, bytes);
  return !failed && textAt(bytes, 0, kVhdFooterCookie);
}

bool isNamedVhd(const ImageFile& file) {
  constexpr std::string_view kEnding = ".vhd";
  const std::string path = file.path();
  return path.size() >= kEnding.size() &&
         equalsIgnoreCase(std::string_view(path).substr(path.size() - kEnding.size()), kEnding);
}

// Where no footer stands in the last sector: an old or cut VHD, or no VHD at all.
std::nullptr_t failWithoutFooter(ImageFile& file, ImageFailure& failure) {
  // As very old programs wrote it.
  constexpr u64 kShortFooterBytes = 511;
  Failure failed;
  if (hasCookie(file, file.sizeBytes() - kShortFooterBytes, failed))
    return fail(failure, Error::unsupportedForm,
                "This VHD has a footer of 511 bytes, which is not supported. Convert it to a VHD "
                "with a footer of 512 bytes, or to a raw image.");
  if (!failed && hasCookie(file, 0, failed))
    return fail(failure, Error::unsupportedForm,
                "This VHD has a footer only at its start; the one at its end is missing, so the "
                "file may have been cut. Restore it from a copy, or convert it to a raw image.");
  if (failed) return unreadable(failure, failed);
  // A fixed VHD is nothing but sectors before its footer: when that is lost, only the name is left.
  if (isNamedVhd(file))
    return fail(failure, Error::corrupt,
                "The file is called a VHD and has no footer of one, so it has been cut or was "
                "never finished. If it is a raw image, give it a name that does not end in .vhd.");
  return fail(failure, Error::notThisFormat, "");
}

std::unique_ptr<ImageContainer> openByFooter(std::unique_ptr<ImageFile>& file,
                                             ImageFailure& failure) {
  VhdFooter footer;
  if (file->sizeBytes() < sizeof footer) return fail(failure, Error::notThisFormat, "");
  const u64 footerOffset = file->sizeBytes() - sizeof footer;
  if (const Failure failed = readRecord(*file, footerOffset, footer))
    return unreadable(failure, failed);
  if (!textAt(bytesOf(footer), 0, kVhdFooterCookie)) return failWithoutFooter(*file, failure);
  if (footer.checksum != vhdChecksum(footer))
    return fail(failure, Error::corrupt, "The VHD's footer is damaged.");
  if (vhdSectorCount(footer) == 0)
    return fail(failure, Error::corrupt, "The VHD's footer states no size.");
  switch (static_cast<VhdDiskType>(u32{footer.diskType})) {
    case VhdDiskType::fixed:
      if (footer.currentSizeBytes > footerOffset)
        return fail(failure, Error::corrupt, "The VHD is shorter than its footer says.");
      return std::make_unique<FlatImage>(std::move(file), ImageForm::vhd, vhdSectorCount(footer),
                                         vhdGeometry(footer));
    case VhdDiskType::dynamic:
      return openDynamic(file, footer, failure);
    case VhdDiskType::differencing:
      return fail(failure, Error::unsupportedForm,
                  "This is a differencing VHD, which needs its parent and is not supported. "
                  "Merge it into its parent, or convert it to a dynamic VHD first.");
  }
  return fail(failure, Error::unsupportedForm,
              "This VHD is of an unknown type. Convert it to a fixed or dynamic VHD first.");
}

}  // namespace

std::optional<Geometry> vhdGeometry(const VhdFooter& footer) {
  if (footer.cylinders == 0 || footer.heads == 0 || footer.sectorsPerTrack == 0 ||
      footer.sectorsPerTrack > 63)
    return std::nullopt;
  return Geometry{static_cast<u16>(std::min<u32>(footer.cylinders, 1024) - 1),
                  static_cast<u8>(footer.heads - 1), footer.sectorsPerTrack};
}

u64 vhdSectorCount(const VhdFooter& footer) {
  const u64 sectors = footer.currentSizeBytes / kSectorBytes;
  const u32 cylinderSectors = u32{footer.heads} * footer.sectorsPerTrack;
  return cylinderSectors == 0 ? sectors : sectors - sectors % cylinderSectors;
}

std::unique_ptr<ImageContainer> openVhd(std::unique_ptr<ImageFile>& file, ImageFailure& failure) {
  try {
    return openByFooter(file, failure);
  } catch (const std::bad_alloc&) {
    return fail(failure, Error::outOfMemory, "There is not enough memory for the VHD's table.");
  }
}

}  // namespace tallowin
