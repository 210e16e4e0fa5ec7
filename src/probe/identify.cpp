#include "probe/identify.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include "base/text.h"
#include "disk/mbr_record.h"
#include "probe/content_record.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

using Bytes = std::span<const u8>;

bool textAtIgnoringCase(Bytes bytes, std::size_t offset, std::string_view text) {
  return offset <= bytes.size() && text.size() <= bytes.size() - offset &&
         equalsIgnoreCase({reinterpret_cast<const char*>(bytes.data()) + offset, text.size()},
                          text);
}

bool containsText(Bytes bytes, std::size_t first, std::size_t end, std::string_view text) {
  const Bytes range = bytes.subspan(0, std::min(end, bytes.size()));
  for (std::size_t at = first; at < range.size(); ++at)
    if (textAt(range, at, text)) return true;
  return false;
}

bool hasSwapSignature(Bytes firstPage, std::size_t endOffset) {
  constexpr std::size_t kSignatureBytes = 10;
  return textAt(firstPage, endOffset - kSignatureBytes, "SWAPSPACE2") ||
         textAt(firstPage, endOffset - kSignatureBytes, "SWAP_SPACE");
}

// One look at a volume: its first sector, and others on demand.
class Probe {
 public:
  Probe(DiskDevice& disk, u64 startLba) : disk_(disk), startLba_(startLba) {}

  bool isPartition() const { return startLba_ != 0; }
  bool readFirst();
  Bytes first() const { return {head_.get(), disk_.sectorSize()}; }
  template <DiskRecord Record>
  const Record* firstAs() const {
    return recordAt<Record>(first());
  }

  bool boot(Content& content);
  bool superblock(Content& content);
  bool namedVolume(Content& content);
  bool optical(Content& content);
  bool isBootLoader() const;
  bool isTextInsteadOfTable() const;
  u64 deviceSectors() { return disk_.sectorCount().value_or(0); }

 private:
  static constexpr u64 kSuperblockOffset = 1024;
  static constexpr u64 kPageBytes = 4096;

  // Until the next call. Nothing: it could not be read.
  std::optional<Bytes> sector(u64 relativeLba);
  bool fatCondition(const VolumeBootRecord& boot) const;
  bool ext(Bytes sector, Content& content) const;
  bool hfsPlus(Bytes sector, Content& content) const;
  bool xfs(Content& content) const;
  bool reiserFs(Content& content);
  bool swap(Content& content);
  u64 sectorsOf(u64 blocks, u64 blockBytes) const;

  DiskDevice& disk_;
  u64 startLba_;
  std::unique_ptr<u8[]> head_;  // the first sectors, read at once
  u64 headSectors_ = 0;
  std::vector<u8> other_;
};

// A table may have many partitions, so each costs one read, of what nearly every content shows
// itself in; only content that shows itself nowhere there costs another.
bool Probe::readFirst() {
  const u64 sectors = std::max<u64>(1, kPageBytes / disk_.sectorSize());
  const u64 end = deviceSectors();
  head_ = std::make_unique_for_overwrite<u8[]>(sectors * disk_.sectorSize());
  const bool isInside = startLba_ < end && sectors <= end - startLba_;
  if (isInside && disk_.readSectors(startLba_, head_.get(), sectors) == Error::none)
    headSectors_ = sectors;
  else if (disk_.readSectors(startLba_, head_.get(), 1) == Error::none)
    headSectors_ = 1;
  return headSectors_ != 0;
}

std::optional<Bytes> Probe::sector(u64 relativeLba) {
  const std::size_t sectorBytes = disk_.sectorSize();
  if (relativeLba < headSectors_)
    return Bytes{head_.get() + relativeLba * sectorBytes, sectorBytes};
  other_.resize(sectorBytes);
  if (relativeLba > kAllOnes64 - startLba_ ||
      disk_.readSectors(startLba_ + relativeLba, other_.data(), 1) != Error::none)
    return std::nullopt;
  return other_;
}

// blocks x block size / sector size, as far as 64 bits go.
u64 Probe::sectorsOf(u64 blocks, u64 blockBytes) const {
  const u64 sectorBytes = disk_.sectorSize();
  const u64 whole = blocks / sectorBytes;
  if (blockBytes != 0 && whole > kAllOnes64 / blockBytes) return kAllOnes64;
  const u64 rest = blocks % sectorBytes * blockBytes / sectorBytes;
  const u64 sectors = whole * blockBytes;
  return sectors > kAllOnes64 - rest ? kAllOnes64 : sectors + rest;
}

// A master boot record may carry a parameter block for the sake of old systems; it tells itself
// by its help text and by having no sectors before it.
bool Probe::fatCondition(const VolumeBootRecord& boot) const {
  return boot.hiddenSectors != 0 || !containsText(first(), 304, 432, "MBR-help");
}

bool Probe::boot(Content& content) {
  const auto& boot = *firstAs<VolumeBootRecord>();
  if (boot.jump[0] != 0xE9 && boot.jump[0] != 0xEB) return false;
  if (textAtIgnoringCase(first(), 3, "NTFS")) {
    content.code = ContentCode::ntfs;
    content.sectorCount = boot.ntfsSectorCount + 1;
  } else if (textAtIgnoringCase(first(), 82, "FAT") && fatCondition(boot)) {
    content.code = textAt(first(), 3, "-FVE-FS-") ? ContentCode::bitLocker : ContentCode::fat32;
    content.sectorCount = boot.sectorCount32;
  } else if ((textAtIgnoringCase(first(), 54, "FAT") ||
              (boot.fatCount == 2 && boot.media >= 0xF0)) &&
             fatCondition(boot)) {
    content.code = ContentCode::fat;
    content.sectorCount =
        boot.sectorCount16 != 0 ? u64{boot.sectorCount16} : u64{boot.sectorCount32};
  } else {
    return false;
  }
  content.geometry.maxHead = static_cast<u8>(boot.headCount - 1);
  content.geometry.sectorsPerTrack = static_cast<u8>(boot.sectorsPerTrack);
  content.sectorSizeBytes = boot.sectorSizeBytes;
  return true;
}

bool Probe::ext(Bytes sector, Content& content) const {
  constexpr u16 kMagic = 0xEF53;
  constexpr u32 kFeature64Bit = 0x80;
  const auto* super = recordAt<ExtSuperRecord>(sector, kSuperblockOffset % disk_.sectorSize());
  if (super == nullptr || super->magic != kMagic) return false;
  const u64 high =
      (super->incompatibleFeatures & kFeature64Bit) != 0 ? u64{super->blockCountHigh} : 0;
  content.code = ContentCode::ext;
  // A shift that no file system has must not pass the width of the number.
  content.sectorCount =
      sectorsOf(high << 32 | super->blockCount, u64{1024} << std::min<u32>(super->blockShift, 32));
  return true;
}

bool Probe::hfsPlus(Bytes sector, Content& content) const {
  const std::size_t offset = kSuperblockOffset % disk_.sectorSize();
  if (!textAt(sector, offset, "H+") && !textAt(sector, offset, "HX")) return false;
  const auto* header = recordAt<HfsPlusHeaderRecord>(sector, offset);
  if (header == nullptr) return false;
  content.code = ContentCode::hfsPlus;
  content.sectorCount = sectorsOf(header->blockCount, header->blockBytes);
  return true;
}

bool Probe::xfs(Content& content) const {
  if (!textAt(first(), 0, "XFSB")) return false;
  const auto& super = *firstAs<XfsSuperRecord>();
  content.code = ContentCode::xfs;
  content.sectorCount = sectorsOf(super.blockCount, super.blockBytes);
  return true;
}

bool Probe::reiserFs(Content& content) {
  constexpr u64 kReiserSector = 128;
  const auto found = sector(kReiserSector);
  if (!found) return false;
  const auto& super = *recordAt<ReiserSuperRecord>(*found);
  const std::string_view magic(super.magic.data(), super.magic.size());
  if (!magic.starts_with("ReIsErFs") && !magic.starts_with("ReIsEr2Fs") &&
      !magic.starts_with("ReIsEr3Fs"))
    return false;
  content.code = ContentCode::reiserFs;
  content.sectorCount = sectorsOf(super.blockCount, super.blockBytes);
  return true;
}

bool Probe::swap(Content& content) {
  const u64 relative = (kPageBytes - 1) / disk_.sectorSize();
  const auto found = sector(relative);
  if (!found || !hasSwapSignature(*found, kPageBytes - relative * disk_.sectorSize())) return false;
  content.code = ContentCode::linuxSwap;
  content.sectorCount = deviceSectors();
  return true;
}

bool Probe::superblock(Content& content) {
  const auto found = sector(kSuperblockOffset / disk_.sectorSize());
  return (found && (ext(*found, content) || hfsPlus(*found, content))) || xfs(content) ||
         reiserFs(content) || swap(content);
}

bool Probe::namedVolume(Content& content) {
  if (textAt(first(), 3, {"ReFS\0\0\0\0", 8})) {
    const auto& boot = *firstAs<ReFsBootRecord>();
    content.code = ContentCode::reFs;
    content.sectorCount = boot.sectorCount;
    content.sectorSizeBytes = boot.sectorSizeBytes;
    return true;
  }
  if (!textAtIgnoringCase(first(), 3, "EXFAT   ")) return false;
  const auto& boot = *firstAs<ExFatBootRecord>();
  content.code = ContentCode::exFat;
  content.sectorCount = boot.sectorCount;
  content.sectorSizeBytes = boot.sectorShift < 32 ? u32{1} << boot.sectorShift : 0;
  return true;
}

bool Probe::optical(Content& content) {
  // Sector 16 of the last session, also where an image lies on a disk of smaller sectors.
  constexpr u64 kVolumeDescriptorByte = u64{16} * 2048;
  if (isPartition()) return false;
  const u64 session = disk_.lastDataTrack().value_or(DataTrack()).firstSector;
  const auto found = sector(session + kVolumeDescriptorByte / disk_.sectorSize());
  if (!found || !textAt(*found, 1, "CD001")) return false;
  content.code = ContentCode::iso9660;
  content.sectorSizeBytes = 2048;
  return true;
}

bool Probe::isBootLoader() const {
  return bootLoaderMark(first()) != BootLoaderMark::none || textAt(first(), 6, "LILO") ||
         textAt(first(), 3, "SYSLINUX");
}

bool Probe::isTextInsteadOfTable() const {
  constexpr std::size_t kLastSlot = 494;
  constexpr std::size_t kSignature = 510;
  const Bytes slot = first().subspan(kLastSlot, kSignature - kLastSlot);
  const auto isText = [](u8 byte) {
    return byte == 0 || byte == '\r' || byte == '\n' || (byte >= 0x20 && byte <= 0x7E);
  };
  return std::all_of(slot.begin(), slot.end(), isText) &&
         std::any_of(slot.begin(), slot.end(), [](u8 byte) { return byte != 0; });
}

Failure unknownVolume(Probe& probe, Content& content) {
  content.code = ContentCode::unknownVolume;
  content.sectorCount = probe.deviceSectors();
  return Error::none;
}

Failure examine(Probe& probe, Content& content) {
  if (!probe.readFirst()) return Error::read;
  if (probe.firstAs<MbrRecord>()->signature.isValid()) {
    if (probe.boot(content) || (probe.isBootLoader() && probe.superblock(content)) ||
        probe.namedVolume(content))
      return Error::none;
    if (probe.isPartition() || probe.isTextInsteadOfTable()) return unknownVolume(probe, content);
    return Error::notAFileSystem;
  }
  if (probe.superblock(content) || probe.namedVolume(content) || probe.optical(content))
    return Error::none;
  return probe.isPartition() ? unknownVolume(probe, content) : Error::notAFileSystem;
}

}  // namespace

Failure identify(DiskDevice& disk, u64 startLba, Content& content) {
  if (disk.sectorSize() < sizeof(MbrRecord)) return Error::notAFileSystem;
  Content found;
  Probe probe(disk, startLba);
  const Failure error = examine(probe, found);
  if (error == Error::none) content = found;
  return error;
}

std::optional<u16> contentType(ContentCode code) {
  switch (code) {
    case ContentCode::fat:
      return 0x06;
    case ContentCode::fat32:
      return 0x0B;
    case ContentCode::ntfs:
    case ContentCode::bitLocker:
    case ContentCode::exFat:
    case ContentCode::reFs:
      return 0x07;
    case ContentCode::ext:
    case ContentCode::reiserFs:
    case ContentCode::xfs:
    case ContentCode::otherLinux:
      return types::kLinux;
    case ContentCode::hfsPlus:
      return types::kHfsPlus;
    case ContentCode::linuxSwap:
      return types::kLinuxSwap;
    case ContentCode::none:
    case ContentCode::iso9660:
    case ContentCode::unknownVolume:
      break;
  }
  return std::nullopt;
}

u16 typeOfContent(DiskDevice& disk, u64 startLba) {
  Content content;
  if (identify(disk, startLba, content) != Error::none) return types::kFree;
  return contentType(content.code).value_or(types::kFree);
}

BootLoaderMark bootLoaderMark(std::span<const u8> sector) {
  constexpr std::size_t kMarkOffset = 62;
  constexpr u16 kMark = 0x0203;
  if (sector.size() >= 2 && sector[0] == 0xEB && sector[1] == 0x63 &&
      containsText(sector, 0, 508, "GRUB"))
    return BootLoaderMark::grub;
  const auto* mark = recordAt<Le16>(sector, kMarkOffset);
  return mark != nullptr && *mark == kMark ? BootLoaderMark::marked : BootLoaderMark::none;
}

}  // namespace tallowin
