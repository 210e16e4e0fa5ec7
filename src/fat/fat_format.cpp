#include "fat/fat_format.h"

#include <algorithm>
#include <cstring>

#include "base/text.h"
#include "base/utf8.h"
#include "fat/fat_layout.h"
#include "fat/fat_surface_scan.h"
#include "move/move_callback.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

// Between two questions whether to go on.
constexpr u64 kClearBytes = 16 * kMiB;
constexpr u32 kNtfsAlignmentBytes = 4096;
// Every system takes a volume with fewer clusters for the smaller kind.
constexpr u32 kFewestFat16Clusters = 4085;
constexpr u32 kFewestFat32Clusters = 65525;
// How many clusters are tried for a root directory that cannot stay in the first one.
constexpr u32 kRootCandidates = 64;
constexpr std::string_view kNoLabel = "           ";
static_assert(kNoLabel.size() == kFatLabelLength);

// --- The layout that formatting settles on

bool hasTooFewClusters(const FatVolume& volume) {
  if (volume.kind() == FatKind::fat12) return false;
  return volume.clusterCount() < (volume.isFat32() ? kFewestFat32Clusters : kFewestFat16Clusters);
}

bool growReserved(FatVolume& volume, u64 sectors) {
  if (sectors > u64{0xFFFF} - volume.reservedSectors()) return false;
  volume.bpb().reservedSectors = static_cast<u16>(volume.reservedSectors() + sectors);
  volume.classify();
  return volume.isValid();
}

// A FAT12 or FAT16 with more clusters than its kind can have gives up the last few.
bool limitClusters(FatVolume& volume) {
  if (volume.isFat32()) return true;
  const u32 most =
      (volume.kind() == FatKind::fat12 ? kFewestFat16Clusters : kFewestFat32Clusters) - 1;
  if (volume.clusterCount() <= most) return true;
  const u64 largest = (u64{most} + 1) * volume.sectorsPerCluster() - 1;
  return growReserved(volume, volume.totalSectors() - volume.firstDataSector() - largest);
}

bool alignDataArea(FatVolume& volume) {
  if (volume.bytesPerSector() >= kNtfsAlignmentBytes) return true;
  const u64 unit = kNtfsAlignmentBytes / volume.bytesPerSector();
  const u64 excess = volume.firstDataSector() % unit;
  return excess == 0 || growReserved(volume, unit - excess);
}

// Takes smaller clusters while there are too few of them for the kind.
bool settleLayout(FatVolume& volume, i32 wanted, bool align) {
  const u16 reserved = volume.bpb().reservedSectors;
  for (;;) {
    if (!limitClusters(volume) || (align && !alignDataArea(volume))) return false;
    const u32 size = volume.sectorsPerCluster();
    // A FAT32 is told from a FAT16 by more than its clusters, so the smallest are left as such.
    if (!hasTooFewClusters(volume) || (volume.isFat32() && size == 1)) return true;
    volume.bpb().reservedSectors = reserved;
    if (!(size > 1 ? layOutFat(volume, volume.kind(), static_cast<i32>(size / 2))
                   : layOutFat(volume, FatKind::fat12, wanted)))
      return false;
    volume.classify();
  }
}

class FatFormatter {
 public:
  explicit FatFormatter(FatFormatRequest& request)
      : request_(request), disk_(*request.device), label_(fatLabelText(request.label)) {}

  Failure run();

 private:
  bool report(u32 id, u32 value) {
    return !request_.callback || request_.callback(request_, id, value);
  }
  bool buildVolume();
  Failure clear();
  Failure writeFileSystem();
  Failure scanSurface(FatSurfaceScan& scan);
  bool flushFat() { return volume_->flushFat() && !volume_->hasError(); }
  u64 rootDirLba() const;
  bool writeLabel();
  bool moveRootFromBadCluster();
  bool makeRootAt(u32 cluster);

  FatFormatRequest& request_;
  DiskDevice& disk_;
  const std::string label_;
  std::unique_ptr<FatVolume> volume_;
};

Failure FatFormatter::run() {
  request_.badClusters = 0;
  if (!report(CALLBACKidStatus, kFatFormatBegins)) return Error::cancelled;
  if (!buildVolume()) return Error::invalidSizeForType;
  FatSurfaceScan scan(*volume_,
                      [this](u32 percent) { return report(CALLBACKidProgress, percent); });
  const bool scans = (request_.options & kFatScanSurface) != 0;
  if (scans && !scan.prepare()) return Error::outOfMemory;

  Failure result = clear();
  if (result == Error::none) result = writeFileSystem();
  if (result == Error::none && scans) result = scanSurface(scan);
  if (result != Error::none && result != Error::scanStopped) return result;
  return disk_.flush() == Error::none ? result : Error::write;
}

bool FatFormatter::buildVolume() {
  FatPlacement placement;
  placement.startSector = request_.startSector;
  placement.lengthSectors = request_.lengthSectors;
  placement.typeId = static_cast<u8>(types::unhide(request_.typeId));
  placement.geometry = request_.geometry;
  placement.hiddenValue = request_.hiddenSectors;
  volume_ = FatVolume::createEmpty(disk_, placement);
  const i32 wanted = static_cast<i32>(std::min(request_.sectorsPerCluster, u32{0x7FFFFFFF}));
  if (!buildBootSector(*volume_, BootSectorOrigin::fresh, request_.lengthSectors, wanted,
                       kDriveNumberDefault, static_cast<u32>(request_.secondsSinceEpoch)) ||
      !volume_->isValid() ||
      !settleLayout(*volume_, wanted, (request_.options & kFatAlignForNtfs) != 0))
    return false;
  if (request_.driveNumber < kDriveNumberDefault)
    volume_->identity().driveNumber = static_cast<u8>(request_.driveNumber);
  if (label_ != kNoLabel) volume_->setLabel(label_);
  return volume_->clusterCount() != 0;
}

// Boot area, FATs, root directory and the first cluster.
Failure FatFormatter::clear() {
  const u64 total = volume_->firstDataSector() + volume_->sectorsPerCluster();
  const u64 piece = kClearBytes / disk_.sectorSize();
  for (u64 done = 0; done < total;) {
    const u64 count = std::min(piece, total - done);
    if (disk_.clearSectors(request_.startSector + done, count) != Error::none)
      return Error::clearingFailed;
    done += count;
    if (!report(CALLBACKidProgress, static_cast<u32>(done * 100 / total))) return Error::cancelled;
  }
  return Error::none;
}

Failure FatFormatter::writeFileSystem() {
  if (!volume_->writeBootArea()) return Error::write;
  if (!volume_->setupFatCache(FatVolume::kUsualWindowSectors, FatVolume::kUsualSavedWindows))
    return Error::outOfMemory;
  volume_->setFat(0, 0xFFFFFF00 | volume_->bpb().media);
  volume_->setFat(1, kAllOnes32);
  if (volume_->isFat32()) volume_->markEnd(volume_->bpb32().rootCluster);
  return flushFat() && writeLabel() ? Error::none : Error::write;
}

u64 FatFormatter::rootDirLba() const {
  return volume_->isFat32() ? volume_->clusterToLba(volume_->bpb32().rootCluster)
                            : volume_->startSector() + volume_->rootDirSector();
}

bool FatFormatter::writeLabel() {
  if (label_ == kNoLabel) return true;
  std::vector<u8> sector(disk_.sectorSize());
  auto& entry = *recordAt<FatDirectoryEntryRecord>(std::span(sector));
  label_.copy(entry.name, sizeof(entry.name));
  entry.attributes = kFatVolumeLabel;
  return disk_.writeSectors(rootDirLba(), sector.data(), 1) == Error::none;
}

Failure FatFormatter::scanSurface(FatSurfaceScan& scan) {
  if (!report(CALLBACKidStatus, kFatScanBegins)) return Error::scanStopped;
  const bool finished = scan.run();
  request_.badClusters = scan.badClusters();
  if (!moveRootFromBadCluster() || !flushFat()) return Error::write;
  return finished ? Error::none : Error::scanStopped;
}

// The root directory of a FAT32 was made in the first cluster before that was tested.
bool FatFormatter::moveRootFromBadCluster() {
  const u32 root = volume_->isFat32() ? u32{volume_->bpb32().rootCluster} : 0;
  if (root == 0 || volume_->getFat(root) != volume_->badMark()) return true;
  u32 candidates = 0;
  for (u32 cluster = root + 1; cluster <= volume_->highestCluster() && candidates < kRootCandidates;
       ++cluster) {
    if (volume_->getFat(cluster) != 0) continue;
    if (makeRootAt(cluster)) return true;
    ++candidates;
  }
  return false;
}

bool FatFormatter::makeRootAt(u32 cluster) {
  const u32 sectors = volume_->sectorsPerCluster();
  const u64 lba = volume_->clusterToLba(cluster);
  std::vector<u8> readBack(std::size_t{sectors} * disk_.sectorSize());
  volume_->bpb32().rootCluster = cluster;
  if (disk_.clearSectors(lba, sectors) != Error::none || !writeLabel() ||
      disk_.readSectors(lba, readBack.data(), sectors) != Error::none)
    return false;
  volume_->markEnd(cluster);
  return volume_->writeBootArea();
}

}  // namespace

std::string fatLabelText(std::string_view label) {
  constexpr std::string_view kAllowed = " !#$%&()-^_{}~";
  std::string text;
  for (std::size_t at = 0; at < label.size() && text.size() < kFatLabelLength;) {
    const char32_t wide = nextCharacter(label, at);
    const char c = wide < 0x80 ? upperAscii(static_cast<char>(wide)) : '_';
    const bool isAlphanumeric = (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    text += isAlphanumeric || kAllowed.find(c) != std::string_view::npos ? c : '_';
  }
  text.resize(kFatLabelLength, ' ');
  return text;
}

Failure formatFat(FatFormatRequest& request) { return FatFormatter(request).run(); }

}  // namespace tallowin
