#include "iso/iso_file_system.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "fat/fat_names.h"
#include "iso/iso_directory.h"

namespace tallowin {
namespace {

constexpr NameRules kRules{.hasShortNames = true, .longestName = 256};
constexpr u64 kLargestFile = u64{kAllOnes32} * kIsoSectorBytes;  // of several records
constexpr std::size_t kMostDirectories = 64;                     // that are held in memory
constexpr u32 kPieceSectors = 128;

// A directory goes by its extent, a file by the place of its record.
constexpr u64 kIsFile = u64{1} << 63;
FileId directoryId(const IsoExtent& extent) {
  return u64{extent.bytes / kIsoSectorBytes} << 32 | extent.sector;
}
IsoExtent extentOf(FileId directory) {
  return {static_cast<u32>(directory), static_cast<u32>(directory >> 32) * kIsoSectorBytes};
}
FileId fileId(FileId directory, u32 index) {
  return kIsFile | u64{static_cast<u32>(directory)} << 24 | index;
}

IsoExtent wholeSectors(const IsoExtent& extent) {
  return {extent.sector, (extent.bytes + kIsoSectorBytes - 1) / kIsoSectorBytes * kIsoSectorBytes};
}

struct IsoNode : FileNode {
  using FileNode::FileNode;
  FileInfo info;
  u32 sector = 0;
};

class IsoFileSystem : public FileSystem {
 public:
  IsoFileSystem(IsoVolume volume, const OpenWish& wish)
      : FileSystem(kRules, kLargestFile, directoryId(wholeSectors(volume.root)), false),
        volume_(std::move(volume)),
        codePage_(wish.codePage) {}

  u64 serialNumber() const override { return volume_.serial; }
  Failure space(SpaceInfo& space) override {
    space = {volume_.usedSectors, 0, kIsoSectorBytes};
    return {};
  }
  Failure label(std::string& label) override {
    label = volume_.label;
    return {};
  }

 protected:
  Failure lookUp(FileId directory, std::string_view name, FileInfo& found) override;
  Failure readDirectory(FileId directory, std::unique_ptr<DirectoryReader>& reader) override;
  Failure openNode(FileId directory, const FileInfo& entry,
                   std::shared_ptr<FileNode>& node) override;
  Failure nodeInfo(FileNode& node, FileInfo& info) override;
  Failure readNode(FileNode& node, u64 position, std::span<u8> buffer) override;

 private:
  struct Listed {
    FileInfo info;
    u32 sector = 0;
  };
  using Directory = std::shared_ptr<const std::vector<Listed>>;
  class Reader;

  Failure directoryOf(FileId id, Directory& directory);
  Listed listed(FileId directory, const IsoEntry& entry) const;

  IsoVolume volume_;
  FatCodePage codePage_;  // of the short names that are made
  std::map<FileId, Directory> directories_;
};

class IsoFileSystem::Reader : public DirectoryReader {
 public:
  explicit Reader(Directory directory) : directory_(std::move(directory)) {}

  Failure next(std::optional<FileInfo>& entry) override {
    entry.reset();
    if (at_ < directory_->size()) entry = (*directory_)[at_++].info;
    return {};
  }

 private:
  Directory directory_;
  std::size_t at_ = 0;
};

// The number of the record tells two names apart that are cut to the same one.
IsoFileSystem::Listed IsoFileSystem::listed(FileId directory, const IsoEntry& entry) const {
  const FatShortNameMaker maker(entry.name, codePage_);
  const FatShortName shortName = maker.isWhole() ? maker.whole() : maker.numbered(entry.index);
  Listed found;
  FileInfo& info = found.info;
  info.name = utf8Of(entry.name);
  info.shortName = utf8Of(fatShortNameText(shortName, 0, codePage_));
  info.rawMode = entry.flags;
  info.attributes = kFileReadOnly;
  if ((entry.flags & kIsoHidden) != 0) info.attributes |= kFileHidden;
  info.times = {entry.recordedAt, entry.recordedAt, entry.recordedAt};
  found.sector = entry.extent.sector;
  if (entry.isDirectory()) {
    info.attributes |= kFileDirectory;
    info.id = directoryId(wholeSectors(entry.extent));
  } else {
    info.sizeBytes = entry.sizeBytes;
    info.id = fileId(directory, entry.index);
  }
  return found;
}

Failure IsoFileSystem::directoryOf(FileId id, Directory& directory) {
  if (const auto known = directories_.find(id); known != directories_.end()) {
    directory = known->second;
    return {};
  }
  std::vector<IsoEntry> entries;
  if (const Failure failed = readIsoDirectory(volume_, extentOf(id), entries)) return failed;
  auto made = std::make_shared<std::vector<Listed>>();
  made->reserve(entries.size());
  for (const IsoEntry& entry : entries) made->push_back(listed(id, entry));
  if (directories_.size() >= kMostDirectories) directories_.clear();
  directory = directories_[id] = std::move(made);
  return {};
}

Failure IsoFileSystem::lookUp(FileId directory, std::string_view name, FileInfo& found) {
  Directory in;
  if (const Failure failed = directoryOf(directory, in)) return failed;
  // The first of several that are called the same; a long name before a short one.
  for (const auto field : {&FileInfo::name, &FileInfo::shortName})
    for (const Listed& entry : *in)
      if (isSameName(entry.info.*field, name, rules())) {
        found = entry.info;
        return {};
      }
  return Error::noSuchFile;
}

Failure IsoFileSystem::readDirectory(FileId directory, std::unique_ptr<DirectoryReader>& reader) {
  Directory in;
  if (const Failure failed = directoryOf(directory, in)) return failed;
  reader = std::make_unique<Reader>(std::move(in));
  return {};
}

Failure IsoFileSystem::openNode(FileId directory, const FileInfo& entry,
                                std::shared_ptr<FileNode>& node) {
  Directory in;
  if (const Failure failed = directoryOf(directory, in)) return failed;
  const auto found =
      std::ranges::find_if(*in, [&](const Listed& listed) { return listed.info.id == entry.id; });
  if (found == in->end()) return Error::corrupt;
  auto made = std::make_shared<IsoNode>(entry.id);
  made->info = found->info;
  made->sizeBytes = found->info.sizeBytes;
  made->sector = found->sector;
  node = std::move(made);
  return {};
}

Failure IsoFileSystem::nodeInfo(FileNode& node, FileInfo& info) {
  info = static_cast<IsoNode&>(node).info;
  return {};
}

// Whole sectors in the middle go straight into the buffer.
Failure IsoFileSystem::readNode(FileNode& node, u64 position, std::span<u8> buffer) {
  u64 sector = static_cast<IsoNode&>(node).sector + position / kIsoSectorBytes;
  std::size_t skipped = position % kIsoSectorBytes;
  std::vector<u8> bounce(kIsoSectorBytes);
  while (!buffer.empty()) {
    const std::size_t whole = buffer.size() / kIsoSectorBytes;
    if (skipped == 0 && whole != 0) {
      const std::size_t count = std::min<std::size_t>(whole, kPieceSectors);
      const std::span<u8> piece = buffer.first(count * kIsoSectorBytes);
      if (const Failure failed = volume_.readSectors(sector, piece)) return failed;
      sector += count;
      buffer = buffer.subspan(piece.size());
      continue;
    }
    if (const Failure failed = volume_.readSectors(sector, bounce)) return failed;
    const std::size_t count = std::min(buffer.size(), bounce.size() - skipped);
    std::memcpy(buffer.data(), bounce.data() + skipped, count);
    buffer = buffer.subspan(count);
    skipped = 0;
    ++sector;
  }
  return {};
}

}  // namespace

Failure openIsoFiles(const SectorRange& range, u16, const OpenWish& wish,
                     std::unique_ptr<FileSystem>& files) {
  if (wish.writable) return Error::accessDenied;
  std::optional<IsoVolume> volume;
  if (const Failure failed = openIso(range, volume)) return failed;
  files = std::make_unique<IsoFileSystem>(std::move(*volume), wish);
  return {};
}

}  // namespace tallowin
