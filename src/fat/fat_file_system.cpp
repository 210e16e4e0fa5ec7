#include "fat/fat_file_system.h"

#include <algorithm>
#include <ctime>
#include <map>

#include "base/text.h"
#include "fat/fat_directory.h"
#include "fat/fat_file_data.h"
#include "fat/fat_time.h"

namespace tallowin {
namespace {

constexpr NameRules kRules{.hasShortNames = true, .longestName = kFatLongestName};
constexpr u64 kLargestFile = kAllOnes32;
constexpr std::size_t kMostChanges = 256 * 1024;  // entries of the FAT that are held back
constexpr std::size_t kMostDirectories = 256;     // that are held in memory
constexpr u64 kMostHeldEntries = 512 * 1024;      // of them
constexpr u64 kZeroBytes = 1 * kMiB;              // a piece of a file that grows
constexpr u32 kBadCluster = 1;                    // of an entry that leads nowhere
constexpr u32 kUpTo = kAllOnes32;

// A directory goes by its first cluster, a file by the place of its entry.
constexpr u64 kIsFile = u64{1} << 63;
constexpr u32 kPlaceShift = 17;
static_assert(kFatMostDirectoryEntries <= u32{1} << kPlaceShift);

FileId fileId(u32 directory, u32 index) { return kIsFile | u64{directory} << kPlaceShift | index; }

struct FatNode : FileNode {
  using FileNode::FileNode;
  std::shared_ptr<FatDirectory> directory;
  u32 index = 0;  // of its entry
  FatChain chain;

  const FatDirectoryEntryRecord& entry() const { return directory->entry(index); }
  FatDirectoryEntryRecord& change() const { return directory->change(index); }
};

FatNode& fatNode(FileNode& node) { return static_cast<FatNode&>(node); }

class FatFileSystem : public FileSystem {
 public:
  FatFileSystem(const FatVolume& volume, const OpenWish& wish)
      : FileSystem(kRules, kLargestFile, 0, wish.writable),
        volume_(volume),
        clusters_(volume_),
        data_(volume_),
        codePage_(wish.codePage),
        clock_(wish.clock) {}

  Failure setUp();
  // Entries in a directory that is there, for chains that no entry names.
  Failure adopt(std::string_view directory, std::span<const FatLostChain> chains);
  FileInfo infoOf(const FatDirectory& directory, u32 index) const;

  Failure sync() override;
  u64 serialNumber() const override { return volume_.boot.identity().serial; }
  Failure space(SpaceInfo& space) override;
  Failure label(std::string& label) override;
  Failure setLabel(std::string_view label) override;

 protected:
  Failure lookUp(FileId directory, std::string_view name, FileInfo& found) override;
  Failure readDirectory(FileId directory, std::unique_ptr<DirectoryReader>& reader) override;
  Failure openNode(FileId directory, const FileInfo& entry,
                   std::shared_ptr<FileNode>& node) override;
  Failure nodeInfo(FileNode& node, FileInfo& info) override;
  Failure readNode(FileNode& node, u64 position, std::span<u8> buffer) override;
  Failure createFile(FileId directory, std::string_view name) override;
  Failure createDirectory(FileId parent, std::string_view name) override;
  Failure remove(FileId directory, const FileInfo& entry) override;
  Failure moveEntry(FileId fromDirectory, const FileInfo& entry, FileId toDirectory,
                    std::string_view name) override;
  Failure replaceContent(FileId fromDirectory, const FileInfo& from, FileId toDirectory,
                         const FileInfo& to) override;
  Failure writeNode(FileNode& node, u64 position, std::span<const u8> bytes) override;
  Failure resizeNode(FileNode& node, u64 sizeBytes) override;
  Failure setNodeAttributes(FileNode& node, u32 attributes) override;
  Failure setNodeTimes(FileNode& node, const FileTimes& times) override;

 private:
  using Directory = std::shared_ptr<FatDirectory>;

  Failure directoryOf(FileId id, Directory& directory);
  FileId idOf(const FatDirectory& directory, u32 index) const;
  FileTime now() const;
  FatDirectoryEntryRecord newEntry(u8 attributes) const;

  Failure beginChange();
  Failure makeRoom(u32 clusters);
  Failure addEntry(FatDirectory& directory, std::string_view name,
                   const FatDirectoryEntryRecord& record, u32& index);
  Failure checkEmpty(u32 cluster);
  Failure setParent(u32 directory, u32 parent);
  Failure followOwn(FatNode& node);
  Failure extend(FatNode& node, u32 clusters, std::vector<ClusterRun>& added);
  Failure growWithZeros(FatNode& node, u64 sizeBytes);
  void setSize(FatNode& node, u64 sizeBytes);
  Failure changeLabelEntry(const std::optional<FatShortName>& name);

  Failure markInUse();
  Failure markSound();
  Failure writeDirectories(FatDirectory::Part part);
  Failure flushWritten();
  Failure commit();
  Failure commitIfMany();

  FatVolume volume_;
  FatClusters clusters_;
  FatFileData data_;
  FatCodePage codePage_;
  std::function<u64()> clock_;
  std::map<u32, Directory> directories_;
  bool isUnflushed_ = false;    // something was written since
  bool isMarkedInUse_ = false;  // by us
  bool wasSound_ = true;        // when we came
};

class FatReader : public DirectoryReader {
 public:
  FatReader(const FatFileSystem& system, std::shared_ptr<FatDirectory> directory)
      : system_(system), directory_(std::move(directory)) {}

  Failure next(std::optional<FileInfo>& entry) override {
    const std::optional<u32> index = directory_->nextEntry(at_);
    entry.reset();
    if (!index) return {};
    at_ = *index + 1;
    entry = system_.infoOf(*directory_, *index);
    return {};
  }

 private:
  const FatFileSystem& system_;
  std::shared_ptr<FatDirectory> directory_;
  u32 at_ = 0;
};

Failure FatFileSystem::setUp() {
  if (!isWritable()) return {};
  if (const Failure failed = clusters_.setUp()) return failed;
  if (const FatFsInfoRecord* info = volume_.boot.fsInfo()) clusters_.setHint(info->nextFreeCluster);
  return clusters_.isMarkedSound(wasSound_);
}

// --- Looking

Failure FatFileSystem::directoryOf(FileId id, Directory& directory) {
  const u32 cluster = static_cast<u32>(id);
  if (const auto known = directories_.find(cluster); known != directories_.end()) {
    directory = known->second;
    return {};
  }
  u64 entries = 0;
  for (const auto& [first, held] : directories_) entries += held->size();
  if (directories_.size() >= kMostDirectories || entries >= kMostHeldEntries)
    std::erase_if(directories_, [](const auto& held) {
      return !held.second->isChanged() && held.second.use_count() == 1;
    });
  if (const Failure failed = FatDirectory::read(volume_, clusters_, cluster, codePage_, directory))
    return failed;
  directories_.emplace(cluster, directory);
  return {};
}

FileId FatFileSystem::idOf(const FatDirectory& directory, u32 index) const {
  const FatDirectoryEntryRecord& entry = directory.entry(index);
  if ((entry.attributes & kFatDirectory) == 0) return fileId(directory.firstCluster(), index);
  const u32 cluster = firstClusterOf(entry, volume_.layout.isFat32());
  // The root is in no directory.
  return clusters_.isCluster(cluster) && cluster != volume_.rootCluster() ? cluster : kBadCluster;
}

FileInfo FatFileSystem::infoOf(const FatDirectory& directory, u32 index) const {
  const FatDirectoryEntryRecord& entry = directory.entry(index);
  FileInfo info;
  info.name = utf8Of(directory.nameOf(index));
  info.shortName = utf8Of(fatShortNameText(entry.name, 0, codePage_));
  info.rawMode = entry.attributes;
  info.attributes = entry.attributes & (kFileSettableAttributes | kFileDirectory);
  info.times = fatTimesOf(entry);
  info.sizeBytes = info.isDirectory() ? 0 : u32{entry.sizeBytes};
  info.id = idOf(directory, index);
  info.place = firstClusterOf(entry, volume_.layout.isFat32());
  // What no path can hold is reached by the other name.
  if (checkName(info.name, kRules)) info.name = info.shortName;
  return info;
}

Failure FatFileSystem::lookUp(FileId directory, std::string_view name, FileInfo& found) {
  Directory in;
  if (const Failure failed = directoryOf(directory, in)) return failed;
  const std::optional<std::u16string> units = utf16Of(name);
  const std::optional<u32> index = units ? in->find(*units) : std::nullopt;
  if (!index) return Error::noSuchFile;
  found = infoOf(*in, *index);
  return {};
}

Failure FatFileSystem::readDirectory(FileId directory, std::unique_ptr<DirectoryReader>& reader) {
  Directory in;
  if (const Failure failed = directoryOf(directory, in)) return failed;
  reader = std::make_unique<FatReader>(*this, std::move(in));
  return {};
}

Failure FatFileSystem::openNode(FileId directory, const FileInfo& entry,
                                std::shared_ptr<FileNode>& node) {
  const auto made = std::make_shared<FatNode>(entry.id);
  if (const Failure failed = directoryOf(directory, made->directory)) return failed;
  const std::optional<std::u16string> name = utf16Of(entry.name);
  const std::optional<u32> found = name ? made->directory->find(*name) : std::nullopt;
  // Of two that are called the same only one can be reached.
  if (!found || idOf(*made->directory, *found) != entry.id) return Error::corrupt;
  made->index = *found;
  made->sizeBytes = entry.sizeBytes;
  made->chain = FatChain(firstClusterOf(made->entry(), volume_.layout.isFat32()));
  node = made;
  return {};
}

Failure FatFileSystem::nodeInfo(FileNode& node, FileInfo& info) {
  info = infoOf(*fatNode(node).directory, fatNode(node).index);
  return {};
}

Failure FatFileSystem::readNode(FileNode& node, u64 position, std::span<u8> buffer) {
  FatChain& chain = fatNode(node).chain;
  const u32 clusterBytes = volume_.layout.clusterBytes();
  const u32 needed = static_cast<u32>((position + buffer.size() + clusterBytes - 1) / clusterBytes);
  // At the end of the file the chain ends, or at least leads somewhere else: what loops would be
  // read as the same clusters again.
  const bool isEnd = position + buffer.size() >= node.sizeBytes;
  if (const Failure failed = chain.follow(clusters_, isEnd ? kUpTo : needed)) return failed;
  if (chain.length() < needed) return Error::corrupt;
  return data_.read(chain, position, buffer);
}

Failure FatFileSystem::space(SpaceInfo& space) {
  if (const Failure failed = clusters_.prepare()) return failed;
  space = {volume_.layout.clusterCount(), clusters_.freeCount(), volume_.layout.clusterBytes()};
  return {};
}

Failure FatFileSystem::label(std::string& label) {
  label.clear();
  FatDirectoryEntryRecord entry = {};
  bool found = false;
  if (const auto root = directories_.find(0); root != directories_.end()) {
    const std::optional<u32> index = root->second->label();
    found = index.has_value();
    if (index) entry = root->second->entry(*index);
  } else if (const Failure failed = FatDirectory::findLabel(volume_, clusters_, entry, found)) {
    return failed;
  }
  if (found) label = utf8Of(fatLabelOf(entry.name, codePage_));
  return {};
}

// --- Entries

FileTime FatFileSystem::now() const {
  return fileTimeOfUnixSeconds(clock_ ? clock_() : static_cast<u64>(std::time(nullptr)));
}

FatDirectoryEntryRecord FatFileSystem::newEntry(u8 attributes) const {
  FatDirectoryEntryRecord entry = {};
  entry.attributes = attributes;
  setFatTimes(entry, {now(), now(), now()});
  return entry;
}

// Everything that changes something begins here.
Failure FatFileSystem::beginChange() {
  if (const Failure failed = clusters_.prepare()) return failed;
  return commitIfMany();
}

// So many clusters can be given out afterwards.
Failure FatFileSystem::makeRoom(u32 clusters) {
  if (clusters_.availableCount() >= clusters) return {};
  if (clusters_.freeCount() < clusters) return Error::volumeFull;
  return commit();
}

Failure FatFileSystem::addEntry(FatDirectory& directory, std::string_view name,
                                const FatDirectoryEntryRecord& record, u32& index) {
  const std::optional<std::u16string> units = utf16Of(name);
  if (!units) return Error::invalidName;
  const FatNewName made = directory.newNameFor(*units);
  const Failure failed = directory.add(made, record, clusters_, index);
  if (failed != Error::volumeFull || clusters_.freeCount() == clusters_.availableCount())
    return failed;
  // What was freed may be enough for the directory to grow.
  if (const Failure uncommitted = commit()) return uncommitted;
  return directory.add(made, record, clusters_, index);
}

Failure FatFileSystem::createFile(FileId directory, std::string_view name) {
  if (const Failure failed = beginChange()) return failed;
  Directory in;
  if (const Failure failed = directoryOf(directory, in)) return failed;
  u32 index = 0;
  return addEntry(*in, name, newEntry(kFatArchive), index);
}

Failure FatFileSystem::createDirectory(FileId parent, std::string_view name) {
  if (const Failure failed = beginChange()) return failed;
  Directory in;
  if (const Failure failed = directoryOf(parent, in)) return failed;
  if (const Failure failed = makeRoom(1)) return failed;
  const ClusterRun run = clusters_.allocate(1, 0).front();
  FatDirectoryEntryRecord entry = newEntry(kFatDirectory);
  setFirstCluster(entry, run.first);
  u32 index = 0;
  if (const Failure failed = addEntry(*in, name, entry, index)) {
    clusters_.release(run);
    return failed;
  }
  directories_[run.first] =
      FatDirectory::create(volume_, run.first, in->firstCluster(), entry, codePage_);
  return {};
}

Failure FatFileSystem::checkEmpty(u32 cluster) {
  Directory directory;
  if (const Failure failed = directoryOf(cluster, directory)) return failed;
  return directory->nextEntry(0) ? Failure(Error::directoryNotEmpty) : Failure();
}

// All clusters of a file that is changed: as many as its size needs. A chain that goes on behind
// them may have run into those of another file.
Failure FatFileSystem::followOwn(FatNode& node) {
  if (const Failure failed = node.chain.follow(clusters_, kUpTo)) return failed;
  const u64 clusterBytes = volume_.layout.clusterBytes();
  const u64 needed = (node.sizeBytes + clusterBytes - 1) / clusterBytes;
  const bool isDirectory = (node.entry().attributes & kFatDirectory) != 0;
  return isDirectory || node.chain.length() == needed ? Failure() : Error::corrupt;
}

Failure FatFileSystem::remove(FileId directory, const FileInfo& entry) {
  if (const Failure failed = beginChange()) return failed;
  std::shared_ptr<FileNode> node;
  if (const Failure failed = openNode(directory, entry, node)) return failed;
  if (entry.isDirectory())
    if (const Failure failed = checkEmpty(static_cast<u32>(entry.id))) return failed;
  FatNode& removed = fatNode(*node);
  if (const Failure failed = followOwn(removed)) return failed;
  removed.directory->remove(removed.index);
  if (entry.isDirectory()) directories_.erase(static_cast<u32>(entry.id));
  for (const ClusterRun& run : removed.chain.shorten(0)) clusters_.release(run);
  return {};
}

// ".." of a directory.
Failure FatFileSystem::setParent(u32 directory, u32 parent) {
  Directory moved;
  if (const Failure failed = directoryOf(directory, moved)) return failed;
  constexpr u32 kParentEntry = 1;
  if (moved->size() > kParentEntry && isNamed(moved->entry(kParentEntry), kFatDotDot))
    setFirstCluster(moved->change(kParentEntry), parent);
  return {};
}

// The new entry is on the disk before the old one goes, unless one write can do both.
Failure FatFileSystem::moveEntry(FileId fromDirectory, const FileInfo& entry, FileId toDirectory,
                                 std::string_view name) {
  if (const Failure failed = beginChange()) return failed;
  if (const Failure failed = commit()) return failed;
  std::shared_ptr<FileNode> node;
  if (const Failure failed = openNode(fromDirectory, entry, node)) return failed;
  const FatNode& old = fatNode(*node);
  Directory to;
  if (const Failure failed = directoryOf(toDirectory, to)) return failed;
  const std::optional<std::u16string> units = utf16Of(name);
  if (!units) return Error::invalidName;
  const bool isSame = to == old.directory;
  if (isSame && to->renameInPlace(old.index, *units, FatDirectory::Within::oneSector))
    return commit();
  // Read before anything is changed.
  Directory moved;
  if (entry.isDirectory())
    if (const Failure failed = directoryOf(entry.id, moved)) return failed;

  const FatDirectoryEntryRecord record = old.entry();
  u32 index = 0;
  if (const Failure failed = addEntry(*to, name, record, index)) {
    const bool isFull = failed == Error::directoryFull || failed == Error::volumeFull;
    if (isSame && isFull &&
        to->renameInPlace(old.index, *units, FatDirectory::Within::severalSectors))
      return commit();
    return failed;
  }
  if (const Failure failed = commit()) {
    to->remove(index);
    return failed;
  }
  old.directory->remove(old.index);
  if (entry.isDirectory() && !isSame)
    if (const Failure failed = setParent(static_cast<u32>(entry.id), to->firstCluster()))
      return failed;
  return commit();
}

// At no moment do two entries name the same clusters: first the one goes, then the other takes its
// clusters, by one write, and then what that had is free. After a cut either is lost clusters.
Failure FatFileSystem::replaceContent(FileId fromDirectory, const FileInfo& from,
                                      FileId toDirectory, const FileInfo& to) {
  if (const Failure failed = beginChange()) return failed;
  if (const Failure failed = commit()) return failed;
  std::shared_ptr<FileNode> newer, older;
  if (const Failure failed = openNode(fromDirectory, from, newer)) return failed;
  if (const Failure failed = openNode(toDirectory, to, older)) return failed;
  FatNode& source = fatNode(*newer);
  FatNode& target = fatNode(*older);
  for (FatNode* node : {&source, &target})
    if (const Failure failed = followOwn(*node)) return failed;

  const FatDirectoryEntryRecord taken = source.entry(), before = target.entry();
  source.directory->remove(source.index);
  Failure failed = commit();
  if (!failed) {
    FatDirectoryEntryRecord& entry = target.change();
    entry.sizeBytes = taken.sizeBytes;
    setFirstCluster(entry, source.chain.firstCluster());
    entry.attributes |= kFatArchive;
    entry.modifiedDate = taken.modifiedDate;
    entry.modifiedTime = taken.modifiedTime;
    entry.accessedDate = taken.accessedDate;
    failed = commit();
    if (failed) target.change() = before;
  }
  for (const ClusterRun& run : (failed ? source : target).chain.shorten(0)) clusters_.release(run);
  return failed ? failed : commit();
}

// --- The bytes of a file

void FatFileSystem::setSize(FatNode& node, u64 sizeBytes) {
  FatDirectoryEntryRecord& entry = node.change();
  node.sizeBytes = sizeBytes;
  entry.sizeBytes = static_cast<u32>(sizeBytes);
  setFirstCluster(entry, node.chain.firstCluster());
  entry.attributes |= kFatArchive;
  setFatTimes(entry, {0, now(), now()});
}

// New clusters so that the file has so many, not yet linked to those it has.
Failure FatFileSystem::extend(FatNode& node, u32 clusters, std::vector<ClusterRun>& added) {
  FatChain& chain = node.chain;
  if (const Failure failed = followOwn(node)) return failed;
  if (clusters <= chain.length()) return {};
  if (chain.length() != 0 && clusters_.isCut(chain.lastCluster()))
    if (const Failure failed = commit()) return failed;
  const u32 missing = clusters - chain.length();
  if (const Failure failed = makeRoom(missing)) return failed;
  added = clusters_.allocate(missing, chain.lastCluster());
  return {};
}

Failure FatFileSystem::writeNode(FileNode& opened, u64 position, std::span<const u8> bytes) {
  FatNode& node = fatNode(opened);
  if (const Failure failed = beginChange()) return failed;
  const u64 end = position + bytes.size();
  const u32 clusterBytes = volume_.layout.clusterBytes();
  std::vector<ClusterRun> added;
  if (const Failure failed =
          extend(node, static_cast<u32>((end + clusterBytes - 1) / clusterBytes), added))
    return failed;
  const u32 oldLength = node.chain.length();
  const u32 oldLast = node.chain.lastCluster();
  node.chain.append(added);
  isUnflushed_ = true;
  if (const Failure failed = data_.write(node.chain, position, bytes, node.sizeBytes)) {
    for (const ClusterRun& run : node.chain.shorten(oldLength)) clusters_.release(run);
    return failed;
  }
  if (!added.empty() && oldLast != 0) clusters_.link(oldLast, added.front().first);
  setSize(node, std::max(end, node.sizeBytes));
  return {};
}

Failure FatFileSystem::growWithZeros(FatNode& node, u64 sizeBytes) {
  const std::vector<u8> zeros(std::min(kZeroBytes, sizeBytes - node.sizeBytes));
  while (node.sizeBytes < sizeBytes) {
    const u64 piece = std::min<u64>(zeros.size(), sizeBytes - node.sizeBytes);
    if (const Failure failed = writeNode(node, node.sizeBytes, std::span(zeros).first(piece)))
      return failed;
  }
  return {};
}

Failure FatFileSystem::resizeNode(FileNode& opened, u64 sizeBytes) {
  FatNode& node = fatNode(opened);
  if (const Failure failed = beginChange()) return failed;
  const u32 clusterBytes = volume_.layout.clusterBytes();
  const u32 kept = static_cast<u32>((sizeBytes + clusterBytes - 1) / clusterBytes);
  if (const Failure failed = followOwn(node)) return failed;
  const u32 length = node.chain.length();
  if (sizeBytes > node.sizeBytes) {
    if (kept > length && clusters_.freeCount() < kept - length) return Error::volumeFull;
    const u64 oldSize = node.sizeBytes;
    const Failure failed = growWithZeros(node, sizeBytes);
    // The first failure is the one to tell.
    if (failed && node.sizeBytes != oldSize) static_cast<void>(resizeNode(node, oldSize));
    return failed;
  }
  if (kept < length) {
    for (const ClusterRun& run : node.chain.shorten(kept)) clusters_.release(run);
    if (kept != 0) clusters_.cut(node.chain.lastCluster());
  }
  setSize(node, sizeBytes);
  return {};
}

Failure FatFileSystem::setNodeAttributes(FileNode& node, u32 attributes) {
  if (const Failure failed = beginChange()) return failed;
  FatDirectoryEntryRecord& entry = fatNode(node).change();
  entry.attributes = static_cast<u8>((entry.attributes & ~kFileSettableAttributes) | attributes);
  return {};
}

Failure FatFileSystem::setNodeTimes(FileNode& node, const FileTimes& times) {
  if (const Failure failed = beginChange()) return failed;
  setFatTimes(fatNode(node).change(), times);
  return {};
}

// --- Chains that no entry names

Failure FatFileSystem::adopt(std::string_view directory, std::span<const FatLostChain> chains) {
  if (const Failure failed = beginChange()) return failed;
  FileInfo info;
  if (const Failure failed = this->info(directory, info)) return failed;
  Directory in;
  if (const Failure failed = directoryOf(info.id, in)) return failed;
  for (std::size_t i = 0; i < chains.size(); ++i) {
    FatDirectoryEntryRecord entry = newEntry(kFatArchive);
    setFirstCluster(entry, chains[i].firstCluster);
    entry.sizeBytes = static_cast<u32>(u64{chains[i].clusters} * volume_.layout.clusterBytes());
    u32 index = 0;
    if (const Failure failed = addEntry(*in, format("FILE%04zu.CHK", i), entry, index))
      return failed;
  }
  return {};
}

// --- The label

Failure FatFileSystem::changeLabelEntry(const std::optional<FatShortName>& name) {
  Directory root;
  if (const Failure failed = directoryOf(0, root)) return failed;
  const std::optional<u32> old = root->label();
  if (!name) {
    if (old) root->remove(*old);
    return {};
  }
  if (old) {
    std::ranges::copy(*name, root->change(*old).name);
    return {};
  }
  u32 index = 0;
  return root->add({*name, 0, {}}, newEntry(kFatVolumeLabel), clusters_, index);
}

Failure FatFileSystem::setLabel(std::string_view label) {
  if (!isWritable()) return Error::accessDenied;
  std::optional<FatShortName> name;
  if (!label.empty()) {
    const std::optional<std::u16string> units = utf16Of(label);
    if (units) name = fatLabelName(*units, codePage_);
    if (!name) return Error::invalidName;
  }
  if (const Failure failed = beginChange()) return failed;
  if (const Failure failed = changeLabelEntry(name)) return failed;
  if (const Failure failed = commit()) return failed;
  if (!volume_.boot.hasExtendedSignature()) return {};
  volume_.boot.setLabel(name ? std::string_view(name->data(), name->size()) : kFatNoName);
  isUnflushed_ = true;
  if (const Failure failed = volume_.boot.writeBehindBootSector(volume_.range)) return failed;
  if (const Failure failed = volume_.range.disk.flush()) return failed;
  return volume_.boot.writeBootSector(volume_.range);
}

// --- To the disk

Failure FatFileSystem::flushWritten() {
  if (!isUnflushed_) return {};
  if (const Failure failed = volume_.range.disk.flush()) return failed;
  isUnflushed_ = false;
  return {};
}

Failure FatFileSystem::markInUse() {
  if (isMarkedInUse_) return {};
  isUnflushed_ = true;
  if (const Failure failed = clusters_.markSound(false)) return failed;
  if (const Failure failed =
          volume_.boot.writeFsInfo(volume_.range, kFreeClustersUnknown, clusters_.hint()))
    return failed;
  if (const Failure failed = flushWritten()) return failed;
  isMarkedInUse_ = true;
  return {};
}

// A volume that was not sound when we came stays so.
Failure FatFileSystem::markSound() {
  if (const Failure failed = volume_.boot.writeFsInfo(
          volume_.range, static_cast<u32>(clusters_.freeCount()), clusters_.hint()))
    return failed;
  if (wasSound_)
    if (const Failure failed = clusters_.markSound(true)) return failed;
  isMarkedInUse_ = false;
  return {};
}

Failure FatFileSystem::writeDirectories(FatDirectory::Part part) {
  for (const auto& [cluster, directory] : directories_)
    if (const Failure failed = directory->write(clusters_, part, isUnflushed_)) return failed;
  return {};
}

Failure FatFileSystem::commit() {
  const bool isChanged = clusters_.changes() != 0 || std::ranges::any_of(directories_, [](auto& d) {
                           return d.second->isChanged();
                         });
  if (!isChanged) return {};
  if (const Failure failed = markInUse()) return failed;
  if (const Failure failed = clusters_.writeNew(isUnflushed_)) return failed;
  if (const Failure failed = writeDirectories(FatDirectory::Part::ofNewClusters)) return failed;
  if (const Failure failed = flushWritten()) return failed;
  if (const Failure failed = clusters_.writeLinks(isUnflushed_)) return failed;
  if (const Failure failed = flushWritten()) return failed;
  if (const Failure failed = writeDirectories(FatDirectory::Part::ofOldClusters)) return failed;
  if (const Failure failed = flushWritten()) return failed;
  return clusters_.writeFreed(isUnflushed_);
}

Failure FatFileSystem::commitIfMany() {
  return clusters_.changes() >= kMostChanges ? commit() : Failure();
}

Failure FatFileSystem::sync() {
  if (const Failure failed = commit()) return failed;
  if (const Failure failed = flushWritten()) return failed;
  if (!isMarkedInUse_) return {};
  isUnflushed_ = true;
  if (const Failure failed = markSound()) return failed;
  return flushWritten();
}

}  // namespace

Failure keepLostChains(const SectorRange& range, u16 type, std::span<const FatLostChain> chains,
                       u64 secondsSinceEpoch, std::string& folder) {
  constexpr u32 kMostFolders = 1000;
  std::optional<FatVolume> volume;
  if (const Failure failed = openFat(range, type, volume)) return failed;
  FatFileSystem files(*volume, {.writable = true, .clock = [=] { return secondsSinceEpoch; }});
  if (const Failure failed = files.setUp()) return failed;
  folder.clear();
  for (u32 number = 0; folder.empty() || files.exists(folder); ++number) {
    if (number == kMostFolders) return Error::directoryFull;
    folder = format("/FOUND.%03u", number);
  }
  if (const Failure failed = files.makeDirectory(folder)) return failed;
  if (const Failure failed = files.adopt(folder, chains)) return failed;
  return files.sync();
}

Failure openFatFiles(const SectorRange& range, u16 type, const OpenWish& wish,
                     std::unique_ptr<FileSystem>& files) {
  std::optional<FatVolume> volume;
  if (const Failure failed = openFat(range, type, volume)) return failed;
  if (volume->layout.isFat32() && volume->boot.bpb32().version != 0)
    return Error::unsupportedFileSystem;
  auto made = std::make_unique<FatFileSystem>(*volume, wish);
  if (const Failure failed = made->setUp()) return failed;
  files = std::move(made);
  return {};
}

}  // namespace tallowin
