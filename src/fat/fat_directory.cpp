#include "fat/fat_directory.h"

#include <algorithm>

#include "fs/names.h"

namespace tallowin {
namespace {

constexpr u32 kEntryBytes = sizeof(FatDirectoryEntryRecord);

u8 firstByte(const FatDirectoryEntryRecord& entry) { return static_cast<u8>(entry.name[0]); }

bool isDeleted(const FatDirectoryEntryRecord& entry) { return firstByte(entry) == kFatDeleted; }

bool isLongNamePart(const FatDirectoryEntryRecord& entry) {
  return (entry.attributes & kFatLongNameMask) == kFatLongName;
}

bool isLabel(const FatDirectoryEntryRecord& entry) {
  return !isDeleted(entry) && (entry.attributes & kFatVolumeLabel) != 0 && !isLongNamePart(entry);
}

const FatLongNameRecord& asPart(const FatDirectoryEntryRecord& entry) {
  return reinterpret_cast<const FatLongNameRecord&>(entry);
}

FatDirectoryEntryRecord dotEntry(const char* name, u32 cluster,
                                 const FatDirectoryEntryRecord& times) {
  FatDirectoryEntryRecord entry = times;
  std::copy_n(name, sizeof(entry.name), entry.name);
  entry.attributes = kFatDirectory;
  entry.caseFlags = 0;
  entry.sizeBytes = 0;
  setFirstCluster(entry, cluster);
  return entry;
}

}  // namespace

// --- Reading

Failure FatDirectory::read(const FatVolume& volume, FatClusters& clusters, u32 firstCluster,
                           const FatCodePage& codePage, std::shared_ptr<FatDirectory>& directory) {
  std::shared_ptr<FatDirectory> found(new FatDirectory(volume, firstCluster, codePage));
  const u32 cluster = firstCluster != 0 ? firstCluster : volume.rootCluster();
  const u64 most = u64{kFatMostDirectoryEntries} * kEntryBytes;
  if (cluster != 0) {
    const u32 clusterBytes = volume.layout.clusterBytes();
    found->chain_ = FatChain(cluster);
    const u32 mostClusters = static_cast<u32>((most + clusterBytes - 1) / clusterBytes);
    if (const Failure failed = found->chain_.follow(clusters, mostClusters + 1)) return failed;
    if (found->chain_.length() > mostClusters) return Error::corrupt;
  } else if (volume.layout.isFat32()) {
    return Error::corrupt;
  }
  if (const Failure failed = found->readBytes()) return failed;
  found->forgetBehindEnd();
  found->buildIndex();
  directory = std::move(found);
  return {};
}

Failure FatDirectory::readBytes() {
  const SectorRange& range = volume_.range;
  const FatLayout& layout = volume_.layout;
  if (chain_.length() == 0) {
    bytes_.resize(std::size_t{layout.rootDirSectors()} * layout.bytesPerSector);
    return range.disk.readSectors(range.firstSector + layout.rootDirSector(), bytes_.data(),
                                  layout.rootDirSectors());
  }
  bytes_.resize(std::size_t{chain_.length()} * layout.clusterBytes());
  for (u32 index = 0; index < chain_.length();) {
    const ClusterRun run = chain_.runAt(index);
    if (const Failure failed =
            range.disk.readSectors(range.firstSector + layout.clusterToSector(run.first),
                                   bytes_.data() + std::size_t{index} * layout.clusterBytes(),
                                   u64{run.count} * layout.sectorsPerCluster))
      return failed;
    index += run.count;
  }
  return {};
}

// What lies behind the mark of the end means nothing, and must not come to light when the mark is
// overwritten: sectors in which that would happen are written as if it were not there.
void FatDirectory::forgetBehindEnd() {
  end_ = 0;
  while (end_ < size() && firstByte(entry(end_)) != kFatEndOfDirectory) ++end_;
  std::fill(bytes_.begin() + static_cast<std::ptrdiff_t>(std::size_t{end_} * kEntryBytes),
            bytes_.end(), u8{0});
}

std::shared_ptr<FatDirectory> FatDirectory::create(const FatVolume& volume, u32 cluster, u32 parent,
                                                   const FatDirectoryEntryRecord& times,
                                                   const FatCodePage& codePage) {
  std::shared_ptr<FatDirectory> made(new FatDirectory(volume, cluster, codePage));
  const ClusterRun run{cluster, 1};
  made->chain_ = FatChain(std::span(&run, 1));
  made->bytes_.resize(volume.layout.clusterBytes());
  made->end_ = 2;
  for (u32 sector = 0; sector < volume.layout.sectorsPerCluster; ++sector)
    made->changedSectors_.insert(sector);
  made->change(0) = dotEntry(kFatDot, cluster, times);
  made->change(1) = dotEntry(kFatDotDot, parent, times);
  return made;
}

// --- Looking

const FatDirectoryEntryRecord& FatDirectory::entry(u32 index) const {
  return *recordAt<FatDirectoryEntryRecord>(std::span(bytes_), std::size_t{index} * kEntryBytes);
}

FatDirectoryEntryRecord& FatDirectory::change(u32 index) {
  markChanged(index);
  return *recordAt<FatDirectoryEntryRecord>(std::span(bytes_), std::size_t{index} * kEntryBytes);
}

std::optional<u32> FatDirectory::nextEntry(u32 from) const {
  for (u32 at = from; at < end_; ++at) {
    const FatDirectoryEntryRecord& found = entry(at);
    if (!isDeleted(found) && (found.attributes & kFatVolumeLabel) == 0 && !isDotEntry(found))
      return at;
  }
  return std::nullopt;
}

std::optional<u32> FatDirectory::label() const {
  for (u32 at = 0; at < end_; ++at)
    if (isLabel(entry(at))) return at;
  return std::nullopt;
}

Failure FatDirectory::findLabel(const FatVolume& volume, FatClusters& clusters,
                                FatDirectoryEntryRecord& label, bool& found) {
  const FatLayout& layout = volume.layout;
  const u64 first = volume.range.firstSector;
  constexpr u64 kMostBytes = u64{kFatMostDirectoryEntries} * kEntryBytes;
  found = false;
  bool isEnd = false;
  const auto look = [&](u64 lba, u32 sectors) -> Failure {
    std::vector<u8> bytes(std::size_t{sectors} * layout.bytesPerSector);
    if (const Failure failed = volume.range.disk.readSectors(lba, bytes.data(), sectors))
      return failed;
    for (std::size_t at = 0; at + kEntryBytes <= bytes.size() && !isEnd; at += kEntryBytes) {
      const auto& entry = *recordAt<FatDirectoryEntryRecord>(std::span(bytes), at);
      found = isLabel(entry);
      isEnd = found || firstByte(entry) == kFatEndOfDirectory;
      if (found) label = entry;
    }
    return {};
  };
  if (!layout.isFat32()) return look(first + layout.rootDirSector(), layout.rootDirSectors());
  u32 cluster = volume.rootCluster();
  if (!clusters.isCluster(cluster)) return Error::corrupt;
  for (u64 read = 0; cluster != 0 && read < kMostBytes; read += layout.clusterBytes()) {
    if (const Failure failed =
            look(first + layout.clusterToSector(cluster), layout.sectorsPerCluster))
      return failed;
    if (isEnd) break;
    if (const Failure failed = clusters.next(cluster, cluster)) return failed;
  }
  return {};
}

// A long name counts when its parts are all there, in order, and are of this entry.
u32 FatDirectory::firstPartOf(u32 index) const {
  const u8 checksum = fatNameChecksum(entry(index).name);
  for (u32 sequence = 1; sequence <= index; ++sequence) {
    const u32 at = index - sequence;
    const FatLongNameRecord& part = asPart(entry(at));
    if (isDeleted(entry(at)) || !isLongNamePart(entry(at)) || part.checksum != checksum) break;
    if (part.sequence == (sequence | kFatLastPart)) return at;
    if (part.sequence != sequence || sequence * kFatUnitsPerPart > kFatLongestName) break;
  }
  return index;
}

std::u16string FatDirectory::longNameOf(u32 index) const {
  std::u16string name;
  for (u32 at = index, first = firstPartOf(index); at > first; --at)
    name += fatUnitsOf(asPart(entry(at - 1)));
  return name;
}

std::u16string FatDirectory::nameOf(u32 index) const {
  std::u16string name = longNameOf(index);
  return !name.empty() ? name
                       : fatShortNameText(entry(index).name, entry(index).caseFlags, codePage_);
}

std::optional<u32> FatDirectory::find(std::u16string_view name) const {
  const auto found = names_.find(upperCase(name));
  if (found == names_.end()) return std::nullopt;
  // Other systems may have written names that differ in case alone.
  if (hasSameNames_ && nameOf(found->second) != name)
    for (std::optional<u32> at = nextEntry(0); at; at = nextEntry(*at + 1))
      if (nameOf(*at) == name) return at;
  return found->second;
}

void FatDirectory::buildIndex() {
  names_.clear();
  hasSameNames_ = false;
  for (std::optional<u32> at = nextEntry(0); at; at = nextEntry(*at + 1)) index(*at);
}

void FatDirectory::index(u32 at) {
  if ((entry(at).attributes & kFatVolumeLabel) != 0) return;
  // The first of several that are called the same is the one that everybody finds.
  const auto add = [&](std::u16string name) {
    const auto [found, isNew] = names_.try_emplace(std::move(name), at);
    hasSameNames_ = hasSameNames_ || (!isNew && found->second != at);
  };
  if (const std::u16string name = longNameOf(at); !name.empty()) add(upperCase(name));
  add(upperCase(fatShortNameText(entry(at).name, 0, codePage_)));
}

// --- Changing

FatNewName FatDirectory::newNameFor(std::u16string_view longName,
                                    std::optional<u32> replaces) const {
  const FatShortNameMaker maker(longName, codePage_);
  FatNewName name;
  if (maker.needsLongName()) name.longName = longName;
  name.caseFlags = maker.caseFlags();
  const auto isTaken = [&](const FatShortName& candidate) {
    const auto found = names_.find(upperCase(fatShortNameText(candidate, 0, codePage_)));
    return found != names_.end() && found->second != replaces;
  };
  name.shortName = maker.whole();
  if (maker.isWhole() && !isTaken(name.shortName)) return name;
  name.longName = longName;
  name.caseFlags = 0;
  // Numbers below the last one that was given are still taken.
  const FatShortName stem = maker.numbered(0);
  name.stem.assign(stem.begin(), stem.end());
  if (const auto last = lastNumbers_.find(name.stem); last != lastNumbers_.end())
    name.number = last->second;
  do name.shortName = maker.numbered(++name.number);
  while (isTaken(name.shortName));
  return name;
}

bool FatDirectory::isFree(u32 index) const { return index >= end_ || isDeleted(entry(index)); }

std::optional<u32> FatDirectory::roomFor(u32 count) {
  u32 run = 0;
  for (u32 at = count >= searchLength_ ? searchFrom_ : 0; at < size(); ++at) {
    run = isFree(at) ? run + 1 : 0;
    if (run == count) return at + 1 - count;
  }
  return std::nullopt;
}

Failure FatDirectory::grow(u32 entries, FatClusters& clusters) {
  const u32 perCluster = volume_.layout.clusterBytes() / kEntryBytes;
  u32 free = 0;
  while (free < size() && isFree(size() - 1 - free)) ++free;
  const u32 count = (entries - free + perCluster - 1) / perCluster;
  if (chain_.length() == 0 || size() + count * perCluster > kFatMostDirectoryEntries)
    return Error::directoryFull;
  if (clusters.availableCount() < count) return Error::volumeFull;
  const u32 last = chain_.lastCluster();
  const std::vector<ClusterRun> runs = clusters.allocate(count, last);
  clusters.link(last, runs.front().first);
  chain_.append(runs);
  const u32 oldSize = size();
  bytes_.resize(bytes_.size() + std::size_t{count} * volume_.layout.clusterBytes());
  for (u32 at = oldSize; at < size(); at += entriesPerSector()) markChanged(at);
  return {};
}

Failure FatDirectory::add(const FatNewName& name, const FatDirectoryEntryRecord& record,
                          FatClusters& clusters, u32& index) {
  const u32 count = name.entries();
  std::optional<u32> first = roomFor(count);
  if (!first) {
    if (const Failure failed = grow(count, clusters)) return failed;
    first = roomFor(count);
  }
  if (!first) return Error::directoryFull;
  searchLength_ = count;
  searchFrom_ = *first + count;
  place(*first, name, record);
  index = *first + count - 1;
  return {};
}

void FatDirectory::place(u32 first, const FatNewName& name, const FatDirectoryEntryRecord& record) {
  const u32 parts = name.entries() - 1;
  const u8 checksum = fatNameChecksum(name.shortName);
  for (u32 i = 0; i < parts; ++i) {
    const FatLongNameRecord part = fatLongNamePart(name.longName, parts - i, checksum);
    std::ranges::copy(bytesOf(part), reinterpret_cast<u8*>(&change(first + i)));
  }
  FatDirectoryEntryRecord& entry = change(first + parts);
  entry = record;
  std::ranges::copy(name.shortName, entry.name);
  entry.caseFlags = name.caseFlags;
  if (first + parts >= end_) {
    end_ = first + parts + 1;
    // The mark of the end may be one of the disk's old ones.
    if (end_ < size()) markChanged(end_);
  }
  if (name.number != 0) lastNumbers_[name.stem] = name.number;
  index(first + parts);
}

void FatDirectory::remove(u32 index) {
  const std::u16string names[] = {upperCase(longNameOf(index)),
                                  upperCase(fatShortNameText(entry(index).name, 0, codePage_))};
  for (u32 at = firstPartOf(index); at <= index; ++at)
    change(at).name[0] = static_cast<char>(kFatDeleted);
  for (const std::u16string& name : names)
    if (const auto found = names_.find(name); found != names_.end() && found->second == index)
      names_.erase(found);
  if (hasSameNames_) buildIndex();
  searchLength_ = 1;
  searchFrom_ = 0;
  lastNumbers_.clear();
}

bool FatDirectory::renameInPlace(u32 index, std::u16string_view newName, Within within) {
  const FatNewName name = newNameFor(newName, index);
  const u32 oldFirst = firstPartOf(index);
  if (name.entries() > index - oldFirst + 1 ||
      (within == Within::oneSector && sectorOf(oldFirst) != sectorOf(index)))
    return false;
  const FatDirectoryEntryRecord record = entry(index);
  remove(index);
  place(index + 1 - name.entries(), name, record);
  return true;
}

// --- On the disk

u32 FatDirectory::entriesPerSector() const { return volume_.layout.bytesPerSector / kEntryBytes; }

void FatDirectory::markChanged(u32 index) { changedSectors_.insert(sectorOf(index)); }

u32 FatDirectory::clusterOf(u32 sector) const {
  return chain_.runAt(sector / volume_.layout.sectorsPerCluster).first;
}

u64 FatDirectory::lbaOf(u32 sector) const {
  const FatLayout& layout = volume_.layout;
  if (chain_.length() == 0) return volume_.range.firstSector + layout.rootDirSector() + sector;
  return volume_.range.firstSector + layout.clusterToSector(clusterOf(sector)) +
         sector % layout.sectorsPerCluster;
}

// Sectors that lie in a row go out in one write.
Failure FatDirectory::write(const FatClusters& clusters, Part part, bool& wrote) {
  const auto belongs = [&](u32 sector) {
    const bool isNew = chain_.length() != 0 && clusters.isNew(clusterOf(sector));
    return isNew == (part == Part::ofNewClusters);
  };
  const u32 sectorBytes = volume_.layout.bytesPerSector;
  for (auto at = changedSectors_.begin(); at != changedSectors_.end();) {
    const u32 first = *at;
    u32 count = 0;
    for (; at != changedSectors_.end() && *at == first + count && belongs(*at) &&
           lbaOf(*at) == lbaOf(first) + count;
         ++at)
      ++count;
    if (count == 0) {
      ++at;
      continue;
    }
    wrote = true;
    if (const Failure failed = volume_.range.disk.writeSectors(
            lbaOf(first), bytes_.data() + std::size_t{first} * sectorBytes, count))
      return failed;
  }
  std::erase_if(changedSectors_, belongs);
  return {};
}

}  // namespace tallowin
