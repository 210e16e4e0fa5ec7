#include "fat/fat_format.h"

#include <algorithm>

#include "base/text.h"
#include "base/utf8.h"
#include "fat/fat_boot_area.h"
#include "fat/fat_layout.h"
#include "fat/fat_names.h"
#include "fat/fat_surface_scan.h"
#include "fs/names.h"

namespace tallowin {
namespace {

// Between two questions whether to go on.
constexpr u64 kClearBytes = 16 * kMiB;
// How many clusters are tried for a root directory that cannot stay in the first one.
constexpr u32 kRootCandidates = 64;
constexpr std::string_view kNoLabel = "           ";
static_assert(kNoLabel.size() == kFatLabelLength);

FatLayoutWish layoutWishOf(const SectorRange& range, const FormatWish& wish) {
  const u32 sectorBytes = range.disk.sectorSize();
  return {.type = wish.type,
          .totalSectors = range.sectorCount,
          .bytesPerSector = sectorBytes,
          .sectorsPerCluster =
              wish.clusterBytes == 0 ? 0 : std::max<u32>(1, wish.clusterBytes / sectorBytes),
          .alignForNtfs = wish.alignForNtfs};
}

FatPlace placeOf(const SectorRange& range, const FormatWish& wish) {
  FatPlace place;
  place.media = fatMediaOf(range.sectorCount);
  if (wish.driveNumber) place.media.driveNumber = *wish.driveNumber;
  place.geometry = wish.geometry;
  place.hiddenSectors = wish.hiddenSectors <= kAllOnes32 ? static_cast<u32>(wish.hiddenSectors) : 0;
  return place;
}

class FatFormatter {
 public:
  FatFormatter(const SectorRange& range, const FormatWish& wish, const FatLayout& layout, Job& job,
               FormatReport& report)
      : range_(range),
        disk_(range.disk),
        wish_(wish),
        layout_(layout),
        job_(job),
        report_(report),
        codePage_(wish.codePage),
        label_(fatLabelText(wish.label, codePage_)),
        boot_(FatBootArea::fresh(disk_.sectorSize(), static_cast<u32>(wish.secondsSinceEpoch))),
        table_(range, layout) {
    boot_.setLayout(layout, placeOf(range, wish));
    if (label_ != kNoLabel) boot_.setLabel(label_);
  }

  Failure run();

 private:
  void noteWhatDiffers();
  u64 clearedSectors() const { return layout_.firstDataSector() + layout_.sectorsPerCluster; }
  Failure invalidate();
  Failure clear();
  Failure writeTables();
  Failure scanSurface(FatSurfaceScan& scan);
  Failure finish();
  u64 rootDirLba() const;
  Failure writeLabel();
  Failure moveRootFromBadCluster();
  Failure makeRootAt(u32 cluster);

  const SectorRange& range_;
  DiskDevice& disk_;
  const FormatWish& wish_;
  const FatLayout& layout_;
  Job& job_;
  FormatReport& report_;
  const FatCodePage codePage_;
  const std::string label_;
  FatBootArea boot_;
  FatTable table_;
};

Failure FatFormatter::run() {
  FatSurfaceScan scan(range_, table_, job_);
  if (wish_.surfaceScan)
    if (const Failure failed = scan.prepare()) return failed;
  if (const Failure failed = table_.setUp()) return failed;
  noteWhatDiffers();
  job_.phase(Phase::formatting, clearedSectors() * disk_.sectorSize());
  if (job_.shouldStop()) return Error::cancelled;

  report_.touched = true;
  const Failure uncleared = invalidate();
  if (const Failure failed = uncleared ? uncleared : clear())
    return failed == Error::write ? failed.as(Error::clearingFailed) : failed;
  if (const Failure failed = writeTables()) return failed;
  if (wish_.surfaceScan)
    if (const Failure failed = scanSurface(scan)) return failed;
  return finish();
}

void FatFormatter::noteWhatDiffers() {
  const FatKind wanted = fatKindOfType(wish_.type);
  if (layout_.kind != wanted)
    report_.notes.push_back(format("A volume of this size is made as %s, not as %s.",
                                   fatKindName(layout_.kind), fatKindName(wanted)));
  if (wish_.clusterBytes != 0 && layout_.clusterBytes() != wish_.clusterBytes)
    report_.notes.push_back(format("Clusters of %u bytes are not possible here; they have %u.",
                                   wish_.clusterBytes, layout_.clusterBytes()));
  const std::string kept = utf8Of(fatLabelOf(
      std::span<const char, kFatLabelLength>(label_.data(), kFatLabelLength), codePage_));
  if (!isSameName(kept, trimRight(wish_.label), {}))
    report_.notes.push_back(
        format("The label '%s' was stored as '%s'.", wish_.label.c_str(), kept.c_str()));
  if (wish_.hiddenSectors > kAllOnes32)
    report_.notes.push_back(
        "The volume begins too far behind for its boot sector to say where, so that it says 0: "
        "old systems cannot start from it.");
}

// While this volume is made, nobody is to find the one that was here: neither by its boot sector
// nor by the copy that a FAT32 keeps of that.
Failure FatFormatter::invalidate() {
  FatBootArea old(disk_.sectorSize());
  // What cannot be read has no copy that anybody knows of.
  const bool isKnown = !old.read(range_);
  if (const Failure failed = disk_.writeZeros(range_.firstSector, 1)) {
    FatBootArea now(disk_.sectorSize());
    report_.touched = !isKnown || now.read(range_) || !std::ranges::equal(now.bytes(), old.bytes());
    return failed;
  }
  if (const Failure failed = disk_.flush()) return failed;
  const u32 copy = isKnown ? old.backupBootSector() : 0;
  if (copy == 0 || copy >= range_.sectorCount) return {};
  if (const Failure failed = disk_.writeZeros(range_.firstSector + copy, 1)) return failed;
  return disk_.flush();
}

// Boot area, FATs, root directory and the first cluster.
Failure FatFormatter::clear() {
  const u64 total = clearedSectors();
  const u64 piece = kClearBytes / disk_.sectorSize();
  for (u64 done = 0; done < total;) {
    const u64 count = std::min(piece, total - done);
    if (const Failure failed = disk_.clearSectors(range_.firstSector + done, count)) return failed;
    done += count;
    job_.advance(count * disk_.sectorSize());
    if (job_.shouldStop()) return Error::cancelled;
  }
  return {};
}

Failure FatFormatter::writeTables() {
  if (const Failure failed = table_.set(0, 0xFFFFFF00 | boot_.bpb().media)) return failed;
  if (const Failure failed = table_.set(1, kAllOnes32)) return failed;
  if (layout_.isFat32())
    if (const Failure failed = table_.markEnd(boot_.bpb32().rootCluster)) return failed;
  return writeLabel();
}

Failure FatFormatter::scanSurface(FatSurfaceScan& scan) {
  job_.note("Format: surface scan");
  const Failure ended = scan.run();
  report_.badClusters = scan.badClusters();
  report_.scanStopped = ended == Error::cancelled;
  if (ended && !report_.scanStopped) return ended;
  return moveRootFromBadCluster();
}

Failure FatFormatter::finish() {
  if (const Failure failed = table_.flush()) return failed;
  if (const Failure failed = boot_.writeBehindBootSector(range_)) return failed;
  if (const Failure failed = disk_.flush()) return failed;
  report_.usedClusters = layout_.isFat32() ? 1 : 0;
  if (const Failure failed = boot_.writeBootSector(range_)) return failed;
  return disk_.flush();
}

u64 FatFormatter::rootDirLba() const {
  return range_.firstSector + (layout_.isFat32()
                                   ? layout_.clusterToSector(boot_.bpb32().rootCluster)
                                   : layout_.rootDirSector());
}

Failure FatFormatter::writeLabel() {
  if (label_ == kNoLabel) return {};
  std::vector<u8> sector(disk_.sectorSize());
  auto& entry = *recordAt<FatDirectoryEntryRecord>(std::span(sector));
  label_.copy(entry.name, sizeof(entry.name));
  entry.attributes = kFatVolumeLabel;
  return disk_.writeSectors(rootDirLba(), sector.data(), 1);
}

// The root directory of a FAT32 was made in the first cluster before that was tested.
Failure FatFormatter::moveRootFromBadCluster() {
  if (!layout_.isFat32()) return {};
  const u32 root = boot_.bpb32().rootCluster;
  u32 value = 0;
  if (const Failure failed = table_.get(root, value)) return failed;
  if (value != layout_.badMark()) return {};
  Failure last = Error::write;
  u32 candidates = 0;
  for (u32 cluster = root + 1; cluster <= layout_.highestCluster() && candidates < kRootCandidates;
       ++cluster) {
    if (const Failure failed = table_.get(cluster, value)) return failed;
    if (value != 0) continue;
    last = makeRootAt(cluster);
    if (!last) return {};
    ++candidates;
  }
  return last;
}

Failure FatFormatter::makeRootAt(u32 cluster) {
  const u32 sectors = layout_.sectorsPerCluster;
  const u64 lba = range_.firstSector + layout_.clusterToSector(cluster);
  std::vector<u8> readBack(std::size_t{sectors} * disk_.sectorSize());
  boot_.bpb32().rootCluster = cluster;
  if (const Failure failed = disk_.clearSectors(lba, sectors)) return failed;
  if (const Failure failed = writeLabel()) return failed;
  if (const Failure failed = disk_.readSectors(lba, readBack.data(), sectors)) return failed;
  return table_.markEnd(cluster);
}

}  // namespace

std::string fatLabelText(std::string_view label, const FatCodePage& codePage) {
  constexpr std::string_view kAllowed = " !#$%&()-^_{}~";
  std::string text;
  for (std::size_t at = 0; at < label.size() && text.size() < kFatLabelLength;) {
    const char32_t wide = nextCharacter(label, at);
    const char16_t unit = wide < 0x10000 ? static_cast<char16_t>(wide) : u'\0';
    const char c = static_cast<char>(codePage.capitalByteOf(unit).value_or(0));
    const bool isAlphanumeric = (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    const bool isAllowed = unit >= 0x80 ? c != 0 : kAllowed.find(c) != std::string_view::npos;
    text += isAlphanumeric || isAllowed ? c : '_';
  }
  text.resize(kFatLabelLength, ' ');
  if (static_cast<u8>(text[0]) == kFatDeleted) text[0] = static_cast<char>(kFatStandsForE5);
  return text;
}

Failure formatFat(const SectorRange& range, const FormatWish& wish, Job& job,
                  FormatReport& report) {
  report = {};
  const std::optional<FatLayout> layout = newFatLayout(layoutWishOf(range, wish));
  if (!layout) return Error::invalidSizeForType;
  return FatFormatter(range, wish, *layout, job, report).run();
}

}  // namespace tallowin
