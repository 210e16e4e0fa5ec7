#include "ptable/gpt/gpt_image.h"

#include <algorithm>

#include "base/crc32.h"
#include "ptable/track_content.h"

namespace tallowin {
namespace {

constexpr u32 kHeaderSectors = 1;       // 512 bytes rounded up to any sector size
constexpr u32 kPrimaryHeadSectors = 2;  // boot sector and header

u64 sectorsFor(u64 bytes, u32 sectorSize) { return (bytes + sectorSize - 1) / sectorSize; }

u64 entryArrayBytes(const GptHeaderRecord& header) {
  return u64{header.entryCount} * header.entrySize;
}

const GptHeaderRecord& headerIn(std::span<const u8> sector) {
  return *recordAt<GptHeaderRecord>(sector);
}

bool hasSignature(std::span<const u8> headerSector) {
  return textAt(headerSector, 0, kGptSignature);
}

bool hasValidCrc(std::span<const u8> headerSector) {
  const u32 size = headerIn(headerSector).headerSize;
  if (size < kGptHeaderSize || size > kGptMaxHeaderSize) return false;
  std::vector<u8> copy(headerSector.begin(), headerSector.begin() + size);
  recordAt<GptHeaderRecord>(std::span(copy))->headerCrc = 0;
  return crc32(copy) == headerIn(headerSector).headerCrc;
}

// The entry array ends before the usable area. Boards keep a loader between the header and the
// array.
u64 lastPrimaryPlace(const GptHeaderRecord& header, u32 sectorSize) {
  return header.firstUsableLba - sectorsFor(entryArrayBytes(header), sectorSize);
}

bool hasSoundLayout(const GptHeaderRecord& header, u32 sectorSize) {
  if (header.entryCount == 0 || header.entrySize < kGptEntrySize) return false;
  const u64 tableSectors = kHeaderSectors + sectorsFor(entryArrayBytes(header), sectorSize);
  return header.firstUsableLba < header.alternateLba &&
         header.firstUsableLba < header.lastUsableLba &&
         header.firstUsableLba >= kGptPrimaryHeaderLba + tableSectors &&
         header.entryLba >= kGptPrimaryEntryLba &&
         header.entryLba <= lastPrimaryPlace(header, sectorSize) &&
         header.myLba == kGptPrimaryHeaderLba && tableSectors <= header.alternateLba &&
         header.lastUsableLba <= header.alternateLba - tableSectors;
}

// The slot that makes tools without GPT keep off. Its size is all ones whatever the disk's size.
void fillProtectiveMbr(std::span<u8> sector, const Guid& diskGuid) {
  constexpr std::size_t kSignatureAt = 440;
  constexpr std::size_t kFirstSlotAt = 446;
  constexpr std::array<u8, 16> kProtectiveSlot = {0x00, 0x00, 0x02, 0x00, 0xEE, 0xFF, 0xFF, 0xFF,
                                                  0x01, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF};
  std::copy_n(diskGuid.bytes.begin(), 4, sector.begin() + kSignatureAt);
  std::copy(kProtectiveSlot.begin(), kProtectiveSlot.end(), sector.begin() + kFirstSlotAt);
  sector[510] = 0x55;
  sector[511] = 0xAA;
}

bool isProtective(std::span<const u8> mbrSector) {
  for (const u32 typeAt : {450U, 466U, 482U, 498U}) {
    if (mbrSector[typeAt] == 0xEE) return true;
  }
  return false;
}

}  // namespace

// A disk, parts of which are in memory already.
class SectorSource {
 public:
  explicit SectorSource(DiskDevice& disk, std::span<const u8> track = {}) : disk_(disk) {
    if (!track.empty()) parts_.push_back({0, {track.begin(), track.end()}});
  }

  DiskDevice& disk() { return disk_; }
  // Brings a run into memory in one request; where that fails its sectors are read one by one.
  void prefetch(u64 lba, u64 count) {
    std::vector<u8> bytes(count * disk_.sectorSize());
    if (!disk_.readSectors(lba, bytes.data(), count)) parts_.push_back({lba, std::move(bytes)});
  }
  // tableReadFailed.
  Failure read(u64 lba, u8* out, u64 count) {
    const std::size_t sectorSize = disk_.sectorSize();
    for (const Part& part : parts_) {
      const u64 held = part.bytes.size() / sectorSize;
      if (lba < part.lba || lba - part.lba > held || count > held - (lba - part.lba)) continue;
      const auto from =
          part.bytes.begin() + static_cast<std::ptrdiff_t>((lba - part.lba) * sectorSize);
      std::copy_n(from, count * sectorSize, out);
      return {};
    }
    return disk_.readSectors(lba, out, count).as(Error::tableReadFailed);
  }

 private:
  struct Part {
    u64 lba;
    std::vector<u8> bytes;
  };
  DiskDevice& disk_;
  std::vector<Part> parts_;
};

std::size_t GptImage::at(u32 index) const {
  return std::size_t{2} * sectorSize_ + std::size_t{index} * header().entrySize;
}

std::span<const u8> GptImage::entryArray() const {
  return std::span<const u8>(bytes_).subspan(std::size_t{2} * sectorSize_,
                                             entryArrayBytes(header()));
}

u64 GptImage::entrySectors() const { return sectorsFor(entryArrayBytes(header()), sectorSize_); }

Failure GptImage::checkHeader(std::span<const u8> headerSector, u32 sectorSizeBytes) {
  if (!hasSignature(headerSector)) return Error::gptSignature;
  if (!hasValidCrc(headerSector)) return Error::gptTableCheck;
  const GptHeaderRecord& header = headerIn(headerSector);
  if (header.revision != kGptRevision) return Error::gptRevision;
  return hasSoundLayout(header, sectorSizeBytes) ? Error::none : Error::gptTableCheck;
}

void GptImage::seal() {
  header().entryCrc = crc32(entryArray());
  header().headerCrc = 0;
  header().headerCrc = crc32(std::span<const u8>(bytes_).subspan(sectorSize_, header().headerSize));
}

void GptImage::becomePrimary() {
  const u64 oldPlace = header().myLba;
  header().myLba = kGptPrimaryHeaderLba;
  header().alternateLba = oldPlace;
  header().entryLba = kGptPrimaryEntryLba;
  seal();
}

Failure GptImage::readCopy(SectorSource& source, u64 headerLba, GptImage& image) {
  const u32 sectorSize = source.disk().sectorSize();
  image.sectorSize_ = sectorSize;
  image.bytes_.assign(std::size_t{2} * sectorSize, 0);
  if (const Failure failed = source.read(0, image.bytes_.data(), 1)) return failed;
  if (const Failure failed = source.read(headerLba, image.bytes_.data() + sectorSize, 1))
    return failed;
  const auto headerSector = std::span<const u8>(image.bytes_).subspan(sectorSize);
  if (!hasSignature(headerSector) || !hasValidCrc(headerSector)) return Error::gptSignature;

  const GptHeaderRecord& header = image.header();
  const u64 sectors = sectorsFor(entryArrayBytes(header), sectorSize);
  if (sectors > (kMaxBytes - image.bytes_.size()) / sectorSize) return Error::entriesDoNotFit;
  if (header.entrySize < kGptEntrySize) return Error::gptTableCheck;
  image.bytes_.resize(image.bytes_.size() + sectors * sectorSize);
  if (const Failure failed = source.read(
          image.header().entryLba, image.bytes_.data() + std::size_t{2} * sectorSize, sectors))
    return failed;
  if (crc32(image.entryArray()) != image.header().entryCrc) return Error::gptTableCheck;

  if (headerLba != kGptPrimaryHeaderLba) image.becomePrimary();
  return checkHeader(std::span<const u8>(image.bytes_).subspan(sectorSize), sectorSize);
}

Failure GptImage::read(DiskDevice& disk, GptImage& image, std::span<const u8> track) {
  if (disk.sectorSize() < kGptMaxHeaderSize || disk.sectorSize() > kMaxBytes / 4)
    return Error::entriesDoNotFit;
  image.source_ = GptCopy::primary;
  SectorSource source(disk, track);
  const Failure problem = readCopy(source, kGptPrimaryHeaderLba, image);
  if (problem != Error::gptSignature && problem != Error::gptTableCheck) return problem;
  const std::optional<u64> sectors = disk.sectorCount();
  if (!sectors || *sectors == 0) return Error::diskSizeUnknown;
  image.source_ = GptCopy::backup;
  if (const Failure failed = readCopy(source, *sectors - 1, image)) return failed;
  image.placePrimaryArray(source);
  return Error::none;
}

bool GptImage::isArrayAt(SectorSource& source, u64 lba) const {
  std::vector<u8> sectors(entrySectors() * sectorSize_);
  return !source.read(lba, sectors.data(), entrySectors()) &&
         std::ranges::equal(std::span(sectors).first(entryArray().size()), entryArray());
}

// The backup does not say where the primary array lies. A header that is whole does, and so does an
// array that is; else it goes where nothing of another program is.
void GptImage::placePrimaryArray(SectorSource& source) {
  const u64 last = lastPrimaryPlace(header(), sectorSize_);
  const auto place = [this](u64 lba) {
    header().entryLba = lba;
    seal();
  };
  std::vector<u8> found(sectorSize_);
  if (!source.read(kGptPrimaryHeaderLba, found.data(), 1) && hasSignature(found) &&
      hasValidCrc(found)) {
    const u64 stated = headerIn(found).entryLba;
    if (stated >= kGptPrimaryEntryLba && stated <= last) return place(stated);
  }
  for (const u64 lba : {kGptPrimaryEntryLba, last})
    if (isArrayAt(source, lba)) return place(lba);
  if (last == kGptPrimaryEntryLba) return;
  for (const u64 lba : {kGptPrimaryEntryLba, last})
    if (!namedTrackContent(source.disk(), lba, lba + entrySectors())) return place(lba);
  isPrimaryPlaced_ = false;
}

Failure GptImage::create(u64 lastLba, u32 sectorSizeBytes, const Guid& diskGuid, GptImage& image) {
  const u64 entryBytes =
      sectorsFor(u64{kGptEntryCount} * kGptEntrySize, sectorSizeBytes) * sectorSizeBytes;
  if (sectorSizeBytes < kGptMaxHeaderSize || u64{2} * sectorSizeBytes + entryBytes > kMaxBytes)
    return Error::bufferTooSmall;
  const u64 tableSectors = kHeaderSectors + entryBytes / sectorSizeBytes;
  if (lastLba <= 2 * tableSectors + 1) return Error::sizeNotPossible;

  image.sectorSize_ = sectorSizeBytes;
  image.source_ = GptCopy::primary;
  image.bytes_.assign(std::size_t{2} * sectorSizeBytes + entryBytes, 0);
  GptHeaderRecord& header = image.header();
  std::copy_n(kGptSignature, sizeof header.signature, header.signature);
  header.revision = kGptRevision;
  header.headerSize = kGptHeaderSize;
  header.myLba = kGptPrimaryHeaderLba;
  header.alternateLba = lastLba;
  header.firstUsableLba = tableSectors + 1;
  header.lastUsableLba = lastLba - tableSectors;
  header.diskGuid = diskGuid;
  header.entryLba = kGptPrimaryEntryLba;
  header.entryCount = kGptEntryCount;
  header.entrySize = kGptEntrySize;
  fillProtectiveMbr(image.mbr(), diskGuid);
  image.seal();
  return Error::none;
}

bool GptImage::holdsSameTable(const GptImage& other) const {
  return std::ranges::equal(other.entryArray(), entryArray()) &&
         other.header().diskGuid == header().diskGuid &&
         other.header().firstUsableLba == header().firstUsableLba &&
         other.header().lastUsableLba == header().lastUsableLba;
}

GptBackupState GptImage::backupState(DiskDevice& disk) const {
  const u64 sectors = disk.sectorCount().value_or(0);
  const u64 expected = header().alternateLba;
  GptImage copy;
  SectorSource source(disk, std::span<const u8>(bytes_).first(sectorSize_));
  const u64 run = entrySectors() + kHeaderSectors;
  if (expected < sectors && run <= expected) source.prefetch(expected + 1 - run, run);
  u64 found = expected;
  if (readCopy(source, expected, copy)) {
    found = sectors - 1;
    if (sectors == 0 || found == expected || readCopy(source, found, copy))
      return expected < sectors ? GptBackupState::missing : GptBackupState::beyondEnd;
  }
  if (!holdsSameTable(copy)) return GptBackupState::differs;
  return found == sectors - 1 && found == expected ? GptBackupState::sound
                                                   : GptBackupState::misplaced;
}

Failure GptImage::moveBackupTo(u64 lastLba) {
  const u64 tableSectors = kHeaderSectors + entrySectors();
  if (lastLba < tableSectors) return Error::backupOverlaps;
  const u64 lastUsable = lastLba - tableSectors;
  if (lastUsable <= header().firstUsableLba) return Error::backupOverlaps;
  for (u32 i = 0; i < entryCount(); ++i) {
    if (entry(i).isUsed() && entry(i).lastLba > lastUsable) return Error::backupOverlaps;
  }
  header().alternateLba = lastLba;
  header().lastUsableLba = lastUsable;
  seal();
  return Error::none;
}

// Sectors of the image, which has the array behind the header wherever it lies on the disk.
Failure GptImage::put(DiskDevice& disk, u64 lba, u64 firstOfImage, u64 count) const {
  return disk.writeSectors(lba, bytes_.data() + firstOfImage * sectorSize_, count);
}

Failure GptImage::writePrimaryTable(DiskDevice& disk, u64 firstSector) const {
  const u64 sectors = kPrimaryHeadSectors + entrySectors();
  const u64 entryLba = header().entryLba;
  if (entryLba == kGptPrimaryEntryLba)
    return put(disk, firstSector, firstSector, sectors - firstSector);
  if (const Failure failed = put(disk, entryLba, kPrimaryHeadSectors, entrySectors()))
    return failed;
  return put(disk, firstSector, firstSector, kPrimaryHeadSectors - firstSector);
}

Failure GptImage::writePrimary(DiskDevice& disk, MbrOrder order) const {
  const auto stored = [&disk](Failure written) {
    if (!written) written = disk.flush();
    return written.as(Error::tableWriteFailed);
  };
  const auto writeMbr = [&] { return stored(put(disk, 0, 0, 1)); };
  const auto writeTable = [&] { return stored(writePrimaryTable(disk, kGptPrimaryHeaderLba)); };
  switch (order) {
    case MbrOrder::withTable:
      return stored(writePrimaryTable(disk, 0));
    case MbrOrder::afterTable:
      if (const Failure failed = writeTable()) return failed;
      return writeMbr();
    case MbrOrder::beforeTable:
      if (const Failure failed = writeMbr()) return failed;
      return writeTable();
  }
  return {};
}

bool GptImage::isInUse(u64 first, u64 last) const {
  for (u32 i = 0; i < entryCount(); ++i)
    if (entry(i).isUsed() && entry(i).firstLba <= last && entry(i).lastLba >= first) return true;
  return false;
}

// Where the header on the disk says, if that is a place for it; else just before the header.
u64 GptImage::backupArrayPlace(DiskDevice& disk) const {
  const u64 backupLba = header().alternateLba;
  const u64 usual = backupLba - entrySectors();
  std::vector<u8> found(sectorSize_);
  if (disk.readSectors(backupLba, found.data(), 1) || !hasSignature(found) || !hasValidCrc(found))
    return usual;
  const u64 stated = headerIn(found).entryLba;
  const bool isPlace = entryArrayBytes(headerIn(found)) == entryArrayBytes(header()) &&
                       stated > header().lastUsableLba && stated <= usual &&
                       !isInUse(stated, backupLba);
  return isPlace ? stated : usual;
}

// The usable area and every partition must end before the backup, and the primary array has to go
// where it was.
Failure GptImage::checkPlaces() const {
  if (!isPrimaryPlaced_) return Error::sectorsInUse;
  const u64 backupLba = header().alternateLba;
  if (backupLba < entrySectors()) return Error::backupOverlaps;
  const u64 first = backupLba - entrySectors();
  const bool isFree = first > header().lastUsableLba && !isInUse(first, backupLba);
  return isFree ? Error::none : Error::backupOverlaps;
}

void GptImage::addTableSectors(DiskDevice& disk, std::set<u64>& lbas) const {
  const auto add = [&](u64 first, u64 count) {
    for (u64 lba = first; lba < first + count; ++lba) lbas.insert(lba);
  };
  add(kGptPrimaryHeaderLba, 1);
  add(header().entryLba, entrySectors());
  const u64 sectors = disk.sectorCount().value_or(0);
  const u64 backupLba = header().alternateLba;
  if (backupLba < sectors && backupLba > entrySectors()) {
    add(backupArrayPlace(disk), entrySectors());
    add(backupLba, 1);
  }
  const u64 run = entrySectors() + kHeaderSectors;
  if (sectors > run && !isInUse(sectors - run, sectors - 1)) add(sectors - run, run);
}

Failure GptImage::writeBackup(DiskDevice& disk) const {
  const u64 backupLba = header().alternateLba;
  const u64 sectors = disk.sectorCount().value_or(0);
  if (backupLba == 0 || backupLba >= sectors) return {Error::backupWriteFailed, 0, backupLba};
  GptImage backup = *this;
  GptHeaderRecord& header = backup.header();
  header.myLba = backupLba;
  header.alternateLba = kGptPrimaryHeaderLba;
  header.entryLba = backupArrayPlace(disk);
  backup.seal();
  const auto headerSector = std::span<const u8>(backup.bytes_).subspan(sectorSize_, sectorSize_);
  std::vector<u8> run(backup.bytes_.begin() + std::ptrdiff_t{2} * sectorSize_, backup.bytes_.end());
  // Usually entries and header are one run on the disk, so one request writes both.
  const bool isOneRun = header.entryLba + entrySectors() == backupLba;
  if (isOneRun) run.insert(run.end(), headerSector.begin(), headerSector.end());
  Failure failed = disk.writeSectors(header.entryLba, run.data(), run.size() / sectorSize_);
  if (!failed && !isOneRun) failed = disk.writeSectors(backupLba, headerSector.data(), 1);
  if (!failed) failed = disk.flush();
  return failed.as(Error::backupWriteFailed);
}

// Whether the backup stands for the table on the disk while the primary is being written.
bool GptImage::backupStandsOn(DiskDevice& disk) const {
  SectorSource source(disk);
  GptImage backup;
  if (readCopy(source, header().alternateLba, backup) || !isProtective(backup.mbr())) return false;
  GptImage primary;
  return readCopy(source, kGptPrimaryHeaderLba, primary) || primary.holdsSameTable(backup);
}

Failure GptImage::write(DiskDevice& disk) {
  if (sectorSize_ != disk.sectorSize()) return Error::sectorSizeDiffers;
  if (const Failure problem = checkPlaces()) return problem;
  seal();
  // A valid copy of the old or the new table stays on the disk at any moment. Where the backup is
  // one, the primary goes first. Where it is not (it is damaged or differs, or the disk is only
  // becoming a GPT disk), what is there counts until the new backup is in place.
  if (backupStandsOn(disk)) {
    if (const Failure problem = writePrimary(disk, MbrOrder::withTable)) return problem;
    return writeBackup(disk);
  }
  if (const Failure problem = writeBackup(disk)) return problem;
  return writePrimary(disk, MbrOrder::afterTable);
}

Failure GptImage::writeOverHeaderTable(DiskDevice& disk) {
  if (sectorSize_ != disk.sectorSize()) return Error::sectorSizeDiffers;
  if (const Failure problem = checkPlaces()) return problem;
  seal();
  if (const Failure problem = writeBackup(disk)) return problem;
  return writePrimary(disk, MbrOrder::beforeTable);
}

Failure invalidateGptBackup(DiskDevice& disk) {
  const std::optional<u64> sectors = disk.sectorCount();
  if (!sectors || *sectors == 0) return Error::diskSizeUnknown;
  std::vector<u8> sector(disk.sectorSize());
  if (const Failure failed = disk.readSectors(*sectors - 1, sector.data(), 1))
    return failed.as(Error::tableReadFailed);
  if (!hasSignature(sector)) return Error::none;
  sector[0] = 0;
  return disk.writeSectors(*sectors - 1, sector.data(), 1).as(Error::tableWriteFailed);
}

}  // namespace tallowin
