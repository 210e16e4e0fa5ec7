#include "ptable/first_track.h"

#include <algorithm>
#include <filesystem>

#include "base/text.h"
#include "disk/disk_handles.h"
#include "disk/mbr_record.h"
#include "files/host_file.h"
#include "ptable/embr/embr_record.h"
#include "ptable/gpt/gpt_record.h"

namespace tallowin {
namespace {

constexpr std::size_t kTrackBytes = 32 * kKiB;

// Another name for an older copy, by the time at which it was written.
bool keepOlder(const std::string& path) {
  std::error_code failure;
  if (!std::filesystem::exists(path, failure)) return !failure;
  const auto written = std::filesystem::last_write_time(path, failure);
  if (failure) return false;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
      std::chrono::file_clock::to_sys(written).time_since_epoch());
  constexpr int kMostOfOneSecond = 100;
  for (int n = 1; n <= kMostOfOneSecond; ++n) {
    const std::string older = path + "." + dateStamp(static_cast<u64>(seconds.count())) +
                              (n == 1 ? "" : format("_%02d", n));
    if (std::filesystem::exists(older, failure)) continue;
    // A second name rather than a move: the newest copy always has the first one.
    std::filesystem::create_hard_link(path, older, failure);
    if (failure) std::filesystem::copy_file(path, older, failure);
    return !failure;
  }
  return false;
}

// Where an EMBR header stands in the first sectors; nothing without one.
std::optional<u64> embrHeaderIn(std::span<const u8> track, std::size_t sectorSize) {
  for (const u64 sector : {1U, 2U})
    if (textAt(track, sector * sectorSize, "EMBR")) return sector;
  return std::nullopt;
}

// The track, and what a GPT is written over where the track is shorter than that.
u64 sectorsToSave(const Drive& drive) {
  const u64 sectorSize = drive.sectorSize();
  const u64 gptEnd = kGptPrimaryEntryLba + u64{kGptEntryCount} * kGptEntrySize / sectorSize;
  const u64 wanted = std::max<u64>(drive.geometry().sectorsPerTrack, gptEnd);
  return std::min({wanted, kTrackBytes / sectorSize, drive.lastLba() + 1});
}

class TrackRestore {
 public:
  TrackRestore(Drive& drive, BootCode bootCode)
      : drive_(drive), bootCode_(bootCode), sectorSize_(drive.sectorSize()) {
    track_.assign(kTrackBytes, 0);
    const auto used = drive.usedRegion();
    lowestStart_ = used ? used->first : kAllOnes64;
  }

  Failure run(const std::string& path) {
    Failure restored = Error::none;
    if (!load(path) || !mergeSectorZero()) {
      const u64 sectors = std::min<u64>(trackSectors(), drive_.lastLba() + 1);
      if (const Failure failed = drive_.disk().readSectors(0, track_.data(), sectors))
        return failed.as(Error::read);
    } else {
      restored = writeDifference();
    }
    const Failure cleared = clearEmbr();
    const Failure replaced = replaceEmbrBootCode();
    for (const Failure& failed : {restored, cleared, replaced})
      if (failed) return failed;
    return drive_.disk().flush().as(Error::write);
  }

 private:
  u64 trackSectors() const { return kTrackBytes / sectorSize_; }
  MbrRecord& mbr() { return *recordAt<MbrRecord>(std::span<u8>(track_)); }

  bool load(const std::string& path) {
    u32 done = 0;
    return readFileRange(path, track_.data(), 0, kTrackBytes, done) == Error::none && done != 0;
  }

  // The slots and the signature of the disk stay; boot code comes from the file, if it has any.
  bool mergeSectorZero() {
    constexpr std::size_t kSignatureAt = offsetof(MbrRecord, diskSignature);
    constexpr std::size_t kSlotsAt = offsetof(MbrRecord, slots);
    std::vector<u8> current(sectorSize_);
    if (drive_.disk().readSectors(0, current.data(), 1)) return false;
    const u32 savedSignature = mbr().diskSignature;
    if (savedSignature != 0 &&
        savedSignature != recordAt<MbrRecord>(std::span(current))->diskSignature) {
      std::ranges::fill(track_, u8{0});
      return false;
    }
    const bool hasBootCode =
        std::any_of(track_.begin(), track_.begin() + 4, [](u8 byte) { return byte != 0; });
    if (!hasBootCode) std::copy_n(current.begin(), kSlotsAt, track_.begin());
    std::copy(current.begin() + kSignatureAt, current.begin() + sizeof(MbrRecord),
              track_.begin() + kSignatureAt);
    return true;
  }

  Failure write(u64 lba, u64 count) {
    drive_.setFlags(kDriveChanged, kDriveChanged);
    return drive_.disk()
        .writeSectors(lba, track_.data() + lba * sectorSize_, count)
        .as(Error::write);
  }

  Failure writeDifference() {
    const u64 most = std::max<u64>(1, std::min(lowestStart_, sectorsToSave(drive_)));
    std::vector<u8> current(most * sectorSize_);
    u64 count = most;
    if (!drive_.disk().readSectors(0, current.data(), most)) {
      const auto differs = [&](u64 lba) {
        const auto at = static_cast<std::ptrdiff_t>(lba * sectorSize_);
        return !std::equal(current.begin() + at,
                           current.begin() + at + static_cast<std::ptrdiff_t>(sectorSize_),
                           track_.begin() + at);
      };
      while (count > 1 && !differs(count - 1)) --count;
    }
    return write(0, count);
  }

  Failure clearEmbr() {
    const auto header = embrHeaderIn(track_, sectorSize_);
    if (!header) return Error::none;
    const u64 at = *header;
    const u64 area =
        recordAt<EmbrHeaderRecord>(std::span<u8>(track_), at * sectorSize_)->areaSectors;
    std::fill_n(track_.begin() + static_cast<std::ptrdiff_t>(at * sectorSize_), 4, u8{0});
    const u64 behind = at + area;
    const bool isInTrack = behind < drive_.geometry().sectorsPerTrack && behind < trackSectors() &&
                           behind < lowestStart_;
    u64 count = 1;
    if (isInTrack && track_[behind * sectorSize_] == 0x55 &&
        track_[behind * sectorSize_ + 1] == 0xAA) {
      constexpr std::size_t kLoaderHeadBytes = 50;
      std::fill_n(track_.begin() + static_cast<std::ptrdiff_t>(behind * sectorSize_),
                  kLoaderHeadBytes, u8{0});
      count = area + 1;
    }
    return write(at, count);
  }

  Failure replaceEmbrBootCode() {
    constexpr std::size_t kNameAt = 11;
    if (!textAt(track_, kNameAt, "EMBRI")) return Error::none;
    installBootCode(bootCode_, mbr());
    return write(0, 1);
  }

  Drive& drive_;
  BootCode bootCode_;
  std::size_t sectorSize_;
  u64 lowestStart_ = 0;
  std::vector<u8> track_;
};

}  // namespace

std::string firstTrackFileName(const Drive& drive) {
  return format("SAVEMBR%X.UND", static_cast<unsigned>(drive.biosNumber().value_or(kFirstBiosDisk) -
                                                       kFirstBiosDisk));
}

Failure saveFirstTrack(Drive& drive, const std::string& path) {
  const u64 sectors = sectorsToSave(drive);
  std::vector<u8> track(sectors * drive.sectorSize());
  if (const Failure failed = drive.disk().readSectors(0, track.data(), sectors))
    return failed.as(Error::read);
  if (!keepOlder(path)) return Error::cannotCreate;
  const std::string_view text(reinterpret_cast<const char*>(track.data()), track.size());
  return replaceFileDurably(path, text).as(Error::cannotCreate);
}

Failure restoreFirstTrack(Drive& drive, const std::string& path, BootCode bootCode) {
  return TrackRestore(drive, bootCode).run(path);
}

}  // namespace tallowin
