// Opening a VMDK: header, descriptor, and the grain directories.
#include <algorithm>
#include <bit>
#include <new>

#include "base/text.h"
#include "files/image_container.h"
#include "files/ini_text.h"
#include "files/sparse_vmdk.h"
#include "files/vmdk_record.h"

namespace tallowin {
namespace {

constexpr u32 kSectorBytes = ImageContainer::kSectorBytes;
constexpr u64 kMaxDescriptorSectors = 2048;
constexpr u64 kMaxGrainSectors = 128 * 1024;
constexpr u32 kMaxEntriesPerTable = 64 * 1024;
constexpr u64 kMaxDirectoryEntries = 16 * kMiB;
constexpr u32 kMaxVersion = 3;

bool fail(ImageFailure& failure, Failure error, std::string reason) {
  failure = {error, std::move(reason)};
  return false;
}

bool unreadable(ImageFailure& failure) {
  return fail(failure, Error::read, "The VMDK cannot be read.");
}

bool liesInside(u64 firstSector, u64 bytes, const ImageFile& file) {
  return firstSector <= file.sizeBytes() / kSectorBytes &&
         bytes <= file.sizeBytes() - firstSector * kSectorBytes;
}

std::string_view unquoted(std::string_view value) {
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
    return value.substr(1, value.size() - 2);
  return value;
}

bool checkForm(const VmdkHeader& header, ImageFailure& failure) {
  if ((header.flags & (kVmdkCompressed | kVmdkMarkers)) != 0 || header.compression != 0)
    return fail(failure, Error::unsupportedForm,
                "This is a compressed (stream-optimised) VMDK, which is not supported. Convert it "
                "to a monolithic sparse VMDK or a raw image first.");
  if (header.version == 0 || header.version > kMaxVersion)
    return fail(failure, Error::unsupportedForm,
                format("This is a VMDK of version %u, which is not known. Convert it to a raw "
                       "image first.",
                       u32{header.version}));
  if (header.descriptorOffset == 0 || header.descriptorSize == 0)
    return fail(failure, Error::unsupportedForm,
                "This is one extent of a VMDK in several files, which is not supported. Convert "
                "the disk to a monolithic sparse VMDK or a raw image first.");
  return true;
}

bool readDescriptor(ImageFile& file, const VmdkHeader& header, SparseVmdk::Layout& layout,
                    ImageFailure& failure) {
  if (header.descriptorSize > kMaxDescriptorSectors ||
      !liesInside(header.descriptorOffset, header.descriptorSize * kSectorBytes, file))
    return fail(failure, Error::corrupt, "The VMDK's descriptor lies outside the file.");
  layout.descriptorOffset = header.descriptorOffset * kSectorBytes;
  layout.descriptorBytes = header.descriptorSize * kSectorBytes;
  layout.descriptor.resize(layout.descriptorBytes - 1);
  if (file.readAt(layout.descriptorOffset, {reinterpret_cast<u8*>(layout.descriptor.data()),
                                            layout.descriptor.size()}) != Error::none)
    return unreadable(failure);
  layout.descriptor.resize(std::min(layout.descriptor.find('\0'), layout.descriptor.size()));

  const auto type = getValue(layout.descriptor, std::nullopt, "createType").value_or("");
  if (!equalsIgnoreCase(type, "\"monolithicSparse\""))
    return fail(failure, Error::unsupportedForm,
                format("This VMDK is of the form %s, which is not supported. Convert it to a "
                       "monolithic sparse VMDK or a raw image first.",
                       type.empty() ? "(none stated)" : printable(type.substr(0, 64)).c_str()));
  const auto parent = getValue(layout.descriptor, std::nullopt, "parentCID").value_or("");
  if (!equalsIgnoreCase(parent, "ffffffff"))
    return fail(failure, Error::unsupportedForm,
                "This VMDK needs a parent image, which is not supported. Merge it into its parent "
                "or convert it to a raw image first.");
  return true;
}

bool checkSizes(const VmdkHeader& header, SparseVmdk::Layout& layout, ImageFailure& failure) {
  layout.capacitySectors = header.capacity;
  layout.grainSectors = header.grainSize;
  layout.entriesPerTable = header.entriesPerTable;
  layout.hasZeroedGrains = (header.flags & kVmdkZeroedGrains) != 0;
  if (layout.capacitySectors == 0 || layout.capacitySectors > kAllOnes64 / kSectorBytes)
    return fail(failure, Error::corrupt, "The VMDK states an impossible size.");
  if (!std::has_single_bit(layout.grainSectors) || layout.grainSectors > kMaxGrainSectors)
    return fail(failure, Error::corrupt, "The VMDK states an impossible grain size.");
  if (layout.entriesPerTable == 0 || layout.entriesPerTable > kMaxEntriesPerTable)
    return fail(failure, Error::corrupt, "The VMDK states an impossible grain table size.");
  return true;
}

bool readDirectory(ImageFile& file, u64 sector, u64 entries, std::vector<VmdkEntry>& directory,
                   ImageFailure& failure) {
  const u64 bytes = entries * sizeof(VmdkEntry);
  if (sector == 0 || !liesInside(sector, bytes, file))
    return fail(failure, Error::corrupt, "The VMDK's grain directory lies outside the file.");
  directory.resize(entries);
  if (file.readAt(sector * kSectorBytes, {reinterpret_cast<u8*>(directory.data()), bytes}) !=
      Error::none)
    return unreadable(failure);
  return true;
}

// Header, descriptor, directories and tables must lie apart, the tables inside the file.
bool placeMetadata(const ImageFile& file, SparseVmdk::Layout& layout, ImageFailure& failure) {
  const auto add = [&](u64 firstSector, u64 bytes) {
    layout.metadata.push_back(
        {firstSector, firstSector + (bytes + kSectorBytes - 1) / kSectorBytes});
  };
  const u64 tableBytes = layout.entriesPerTable * sizeof(VmdkEntry);
  add(0, sizeof(VmdkHeader));
  add(layout.descriptorOffset / kSectorBytes, layout.descriptorBytes);
  for (const auto& [offset, directory] : {std::pair(layout.directoryOffset, &layout.directory),
                                          std::pair(layout.redundantOffset, &layout.redundant)}) {
    if (directory->empty()) continue;
    add(offset / kSectorBytes, directory->size() * sizeof(VmdkEntry));
    for (const VmdkEntry& entry : *directory) {
      if (entry == kVmdkNotAllocated) continue;
      if (!liesInside(entry, tableBytes, file))
        return fail(failure, Error::corrupt, "A grain table of the VMDK lies outside the file.");
      add(entry, tableBytes);
    }
  }
  std::sort(layout.metadata.begin(), layout.metadata.end(),
            [](const SectorExtent& a, const SectorExtent& b) { return a.first < b.first; });
  for (std::size_t i = 1; i < layout.metadata.size(); ++i)
    if (layout.metadata[i].first < layout.metadata[i - 1].end)
      return fail(failure, Error::corrupt, "Tables of the VMDK lie over each other.");
  return true;
}

bool readLayout(ImageFile& file, SparseVmdk::Layout& layout, ImageFailure& failure) {
  VmdkHeader header;
  if (file.sizeBytes() < sizeof header) return fail(failure, Error::notThisFormat, "");
  if (file.readAt(0, {reinterpret_cast<u8*>(&header), sizeof header}) != Error::none)
    return unreadable(failure);
  if (!textAt(bytesOf(header), 0, kVmdkMagic)) return fail(failure, Error::notThisFormat, "");
  if (!checkForm(header, failure) || !readDescriptor(file, header, layout, failure) ||
      !checkSizes(header, layout, failure))
    return false;

  const u64 grains = (layout.capacitySectors - 1) / layout.grainSectors + 1;
  const u64 entries = (grains - 1) / layout.entriesPerTable + 1;
  if (entries > kMaxDirectoryEntries)
    return fail(failure, Error::unsupportedForm,
                "The VMDK's grain directory is larger than any disk of this format needs.");
  if (!readDirectory(file, header.directoryOffset, entries, layout.directory, failure))
    return false;
  layout.directoryOffset = header.directoryOffset * kSectorBytes;
  if ((header.flags & kVmdkRedundantDirectory) != 0 && header.redundantDirectoryOffset != 0) {
    if (!readDirectory(file, header.redundantDirectoryOffset, entries, layout.redundant, failure))
      return false;
    layout.redundantOffset = header.redundantDirectoryOffset * kSectorBytes;
  }
  return placeMetadata(file, layout, failure);
}

}  // namespace

std::optional<Geometry> vmdkGeometry(std::string_view descriptor) {
  const auto number = [&](std::string_view key) {
    u64 value = 0;
    const auto text = getValue(descriptor, std::nullopt, key);
    return text && parseNumber(unquoted(*text), value) ? value : 0;
  };
  const u64 cylinders = number("ddb.geometry.cylinders");
  const u64 heads = number("ddb.geometry.heads");
  const u64 sectors = number("ddb.geometry.sectors");
  if (cylinders == 0 || heads == 0 || heads > 255 || sectors == 0 || sectors > 63)
    return std::nullopt;
  return Geometry{static_cast<u16>(std::min<u64>(cylinders, 1024) - 1), static_cast<u8>(heads - 1),
                  static_cast<u8>(sectors)};
}

std::unique_ptr<ImageContainer> openVmdk(std::unique_ptr<ImageFile>& file, ImageFailure& failure) {
  try {
    SparseVmdk::Layout layout;
    if (!readLayout(*file, layout, failure)) return nullptr;
    return std::make_unique<SparseVmdk>(std::move(file), std::move(layout));
  } catch (const std::bad_alloc&) {
    fail(failure, Error::outOfMemory, "There is not enough memory for the VMDK's directory.");
    return nullptr;
  }
}

}  // namespace tallowin
