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

// Sectors of the file.
struct Extent {
  u64 first = 0;
  u64 end = 0;  // one past
};

bool fail(ImageFailure& failure, Failure error, std::string reason) {
  failure = {error, std::move(reason)};
  return false;
}

bool unreadable(ImageFailure& failure, Failure error) {
  return fail(failure, error, "The VMDK cannot be read.");
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
  if (const Failure failed =
          file.readAt(layout.descriptorOffset,
                      {reinterpret_cast<u8*>(layout.descriptor.data()), layout.descriptor.size()}))
    return unreadable(failure, failed);
  layout.descriptor.resize(std::min(layout.descriptor.find('\0'), layout.descriptor.size()));

  const auto type = getValue(layout.descriptor, std::nullopt, "createType").value_or("");
  if (!equalsIgnoreCase(type, "\"monolithicSparse\""))
    return fail(failure, Error::unsupportedForm,
                format("This VMDK is of the form %s, which is not supported. Convert it to a "
                       "monolithic sparse VMDK or a raw image first.",
                       type.empty() ? "(none stated)" : printable(type.substr(0, 64)).c_str()));
  for (const char* key : {"encryption.keySafe", "encryption.data"})
    if (getValue(layout.descriptor, std::nullopt, key))
      return fail(failure, Error::unsupportedForm,
                  "This is an encrypted VMDK, which is not supported. Convert it to a monolithic "
                  "sparse VMDK without encryption, or a raw image first.");
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
  if (const Failure failed =
          file.readAt(sector * kSectorBytes, {reinterpret_cast<u8*>(directory.data()), bytes}))
    return unreadable(failure, failed);
  return true;
}

// A table that only the redundant directory knows was lost from the other one: what it holds would
// read as zeros, and be written over.
bool lacksTables(const SparseVmdk::Layout& layout) {
  for (std::size_t i = 0; i < layout.redundant.size(); ++i)
    if (layout.directory[i] == kVmdkNotAllocated && layout.redundant[i] != kVmdkNotAllocated)
      return true;
  return false;
}

// Where header, descriptor, directories and tables lie.
bool placeMetadata(const ImageFile& file, const SparseVmdk::Layout& layout,
                   std::vector<Extent>& extents, ImageFailure& failure) {
  const auto add = [&](u64 firstSector, u64 bytes) {
    extents.push_back({firstSector, firstSector + (bytes + kSectorBytes - 1) / kSectorBytes});
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
        return fail(failure, Error::corrupt,
                    "A grain table of the VMDK lies outside the file, which may have been cut.");
      add(entry, tableBytes);
    }
  }
  return true;
}

// Where the grains lie, neighbours as one extent; each must be in the file as far as the disk goes.
bool placeGrains(ImageFile& file, SparseVmdk::Layout& layout, std::vector<Extent>& extents,
                 ImageFailure& failure) {
  const u64 fileSectors = file.sizeBytes() / kSectorBytes;
  std::vector<VmdkEntry> table(layout.entriesPerTable);
  const std::span<u8> bytes(reinterpret_cast<u8*>(table.data()), table.size() * sizeof(VmdkEntry));
  Extent grains;
  u64 sector = 0;  // of the disk
  for (const VmdkEntry& tableSector : layout.directory) {
    const u64 tableEnd = sector + layout.entriesPerTable * layout.grainSectors;
    if (tableSector != kVmdkNotAllocated) {
      if (const Failure failed = file.readAt(u64{tableSector} * kSectorBytes, bytes))
        return unreadable(failure, failed);
      if (isAllZero(bytes)) {
        sector = tableEnd;
        continue;
      }
      for (const VmdkEntry& entry : table) {
        const u64 first = entry;
        const u64 wanted = std::min(layout.grainSectors, layout.capacitySectors - sector);
        sector += wanted;
        if (wanted == 0) break;
        if (first == kVmdkNotAllocated || (first == kVmdkZeroGrain && layout.hasZeroedGrains))
          continue;
        if (first + wanted > fileSectors)
          return fail(failure, Error::corrupt,
                      "A grain of the VMDK lies outside the file, which may have been cut.");
        if (first != grains.end) {
          if (grains.end != 0) extents.push_back(grains);
          grains.first = first;
        }
        grains.end = first + wanted;
        layout.endSector = std::max(layout.endSector, first + layout.grainSectors);
      }
    }
    sector = tableEnd;
  }
  if (grains.end != 0) extents.push_back(grains);
  return true;
}

bool checkExtents(ImageFile& file, SparseVmdk::Layout& layout, ImageFailure& failure) {
  std::vector<Extent> extents;
  if (!placeMetadata(file, layout, extents, failure) ||
      !placeGrains(file, layout, extents, failure))
    return false;
  std::sort(extents.begin(), extents.end(),
            [](const Extent& a, const Extent& b) { return a.first < b.first; });
  for (std::size_t i = 1; i < extents.size(); ++i)
    if (extents[i].first < extents[i - 1].end)
      return fail(failure, Error::corrupt, "Grains or tables of the VMDK lie over each other.");
  return true;
}

bool readLayout(ImageFile& file, SparseVmdk::Layout& layout, ImageFailure& failure) {
  VmdkHeader header;
  if (file.sizeBytes() < sizeof header) return fail(failure, Error::notThisFormat, "");
  if (const Failure failed = file.readAt(0, {reinterpret_cast<u8*>(&header), sizeof header}))
    return unreadable(failure, failed);
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
  if (lacksTables(layout))
    return fail(failure, Error::corrupt,
                "The VMDK's grain directory lacks tables that its redundant copy has.");
  return checkExtents(file, layout, failure);
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
