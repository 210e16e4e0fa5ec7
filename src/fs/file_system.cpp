#include "fs/file_system.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tallowin {
namespace {

FileInfo directoryInfo(FileId id) {
  FileInfo root;
  root.attributes = root.rawMode = kFileDirectory;
  root.id = id;
  return root;
}

bool isValid(const OpenMode& mode) {
  const bool changes = mode.create || mode.truncate || mode.append;
  return (!changes || (mode.access != FileAccess::read && !mode.isDirectory)) &&
         (!mode.exclusive || mode.create);
}

}  // namespace

// --- Paths

Failure FileSystem::enter(FileId directory, std::string_view name, FileId& entered) {
  FileInfo found;
  if (const Failure failed = lookUp(directory, name, found)) return failed;
  if (!found.isDirectory()) return Error::noSuchFile;
  entered = found.id;
  return {};
}

// ".." goes back along the path, so that no entry of the disk has to be believed for it.
Failure FileSystem::resolve(std::string_view path, Place& place) {
  if (path.empty()) return Error::invalidName;
  if (path.size() > rules_.longestPath) return Error::nameTooLong;
  place = {{root_}, {}};
  std::vector<std::string> names;  // of the directories behind the root
  for (const std::string_view component : componentsOf(path)) {
    if (!place.name.empty()) {
      FileId entered = 0;
      if (const Failure failed = enter(place.directory(), place.name, entered)) return failed;
      if (std::ranges::find(place.way, entered) != place.way.end()) return Error::corrupt;
      place.way.push_back(entered);
      names.push_back(std::move(place.name));
      place.name.clear();
    }
    if (component == "..") {
      if (names.empty()) continue;
      place.way.pop_back();
      names.pop_back();
      if (names.empty()) continue;
      // It is the one of that name, as if the path had ended there.
      place.name = std::move(names.back());
      place.way.pop_back();
      names.pop_back();
      continue;
    }
    if (const Failure failed = checkName(component, rules_)) return failed;
    place.name = component;
  }
  return {};
}

Failure FileSystem::existing(std::string_view path, Place& place, FileInfo& entry) {
  if (const Failure failed = resolve(path, place)) return failed;
  if (!place.isDirectoryItself()) return lookUp(place.directory(), place.name, entry);
  entry = directoryInfo(place.directory());
  return {};
}

Failure FileSystem::directoryAt(std::string_view path, FileId& directory) {
  Place place;
  FileInfo entry;
  if (const Failure failed = existing(path, place, entry)) return failed;
  if (!entry.isDirectory()) return Error::accessDenied;
  // It would contain itself.
  if (!place.isDirectoryItself() && std::ranges::find(place.way, entry.id) != place.way.end())
    return Error::corrupt;
  directory = entry.id;
  return {};
}

bool FileSystem::exists(std::string_view path) {
  FileInfo found;
  return !info(path, found);
}

Failure FileSystem::info(std::string_view path, FileInfo& info) {
  Place place;
  return existing(path, place, info);
}

Failure FileSystem::list(std::string_view directory, std::vector<FileInfo>& entries) {
  entries.clear();
  FileId id = 0;
  if (const Failure failed = directoryAt(directory, id)) return failed;
  std::unique_ptr<DirectoryReader> reader;
  if (const Failure failed = readDirectory(id, reader)) return failed;
  for (std::optional<FileInfo> entry;;) {
    if (const Failure failed = reader->next(entry)) return failed;
    if (!entry) return {};
    entries.push_back(std::move(*entry));
  }
}

Failure FileSystem::find(std::string_view pattern, std::vector<FileInfo>& entries) {
  const std::size_t cut = pattern.find_last_of("/\\");
  const bool hasFolder = cut != std::string_view::npos;
  const std::string_view folder = hasFolder ? pattern.substr(0, cut + 1) : "/";
  std::string_view name = hasFolder ? pattern.substr(cut + 1) : pattern;
  if (name.empty()) name = "*";
  if (const Failure failed = list(folder, entries)) return failed;
  std::erase_if(entries, [&](const FileInfo& entry) {
    return !matchesPattern(name, entry.name, rules_) &&
           !(rules_.hasShortNames && matchesPattern(name, entry.shortName, rules_));
  });
  return {};
}

// --- Opening and closing

Failure FileSystem::open(std::string_view path, const OpenMode& mode, File& file) {
  if (const Failure failed = file.close()) return failed;
  if (!isValid(mode) || hasWildcard(path)) return Error::invalidName;
  if (mode.access != FileAccess::read && !isWritable_) return Error::accessDenied;
  if (openFiles_ >= kMostOpenFiles) return Error::tooManyOpenFiles;
  Place place;
  FileInfo entry;
  Failure found = existing(path, place, entry);
  if (found == Error::noSuchFile && mode.create && !place.isDirectoryItself()) {
    // A folder on the way is what is missing, unless the last name is reached.
    if (const Failure failed = resolve(path, place)) return failed;
    if (const Failure failed = createFile(place.directory(), place.name)) return failed;
    found = lookUp(place.directory(), place.name, entry);
  } else if (!found && mode.exclusive) {
    return Error::alreadyExists;
  }
  if (found) return found;
  if (entry.isDirectory() != mode.isDirectory || place.isDirectoryItself())
    return Error::accessDenied;
  if (const Failure failed = openEntry(place, entry, mode, file)) return failed;
  const Failure failed = mode.truncate ? resizeNode(*file.node_, 0) : Failure();
  if (failed) {
    static_cast<void>(file.close());
    return failed;
  }
  if (mode.append) file.position_ = file.node_->sizeBytes;
  return {};
}

Failure FileSystem::openEntry(const Place& place, const FileInfo& entry, const OpenMode& mode,
                              File& file) {
  std::shared_ptr<FileNode> node;
  if (const auto open = openNodes_.find(entry.id); open != openNodes_.end()) {
    node = open->second;
  } else {
    if (const Failure failed = openNode(place.directory(), entry, node)) return failed;
    node->isDirectory = entry.isDirectory();
    openNodes_.emplace(node->id, node);
  }
  ++node->users;
  ++openFiles_;
  file.system_ = this;
  file.node_ = std::move(node);
  file.position_ = 0;
  file.access_ = mode.access;
  return {};
}

Failure FileSystem::release(const std::shared_ptr<FileNode>& node) {
  --openFiles_;
  if (--node->users != 0) return {};
  openNodes_.erase(node->id);
  return closeNode(*node);
}

// --- Changing directories

Failure FileSystem::makeDirectory(std::string_view path) {
  if (!isWritable_) return Error::accessDenied;
  Place place;
  FileInfo entry;
  const Failure found = existing(path, place, entry);
  if (!found) return Error::alreadyExists;
  if (found != Error::noSuchFile) return found;
  if (const Failure failed = resolve(path, place)) return failed;
  return createDirectory(place.directory(), place.name);
}

Failure FileSystem::removable(std::string_view path, Place& place, FileInfo& entry) {
  if (!isWritable_) return Error::accessDenied;
  if (const Failure failed = existing(path, place, entry)) return failed;
  return place.isDirectoryItself() || openNodes_.contains(entry.id) ? Error::accessDenied
                                                                    : Error::none;
}

Failure FileSystem::removeDirectory(std::string_view path) {
  Place place;
  FileInfo entry;
  if (const Failure failed = removable(path, place, entry)) return failed;
  return entry.isDirectory() ? remove(place.directory(), entry) : Failure(Error::accessDenied);
}

Failure FileSystem::deleteFile(std::string_view path) {
  Place place;
  FileInfo entry;
  if (const Failure failed = removable(path, place, entry)) return failed;
  return entry.isDirectory() ? Failure(Error::accessDenied) : remove(place.directory(), entry);
}

Failure FileSystem::move(std::string_view from, std::string_view to) {
  Place source, target;
  FileInfo entry, there;
  if (const Failure failed = removable(from, source, entry)) return failed;
  const Failure found = existing(to, target, there);
  if (!found && (target.isDirectoryItself() || there.id != entry.id)) return Error::alreadyExists;
  if (found && found != Error::noSuchFile) return found;
  if (const Failure failed = resolve(to, target)) return failed;
  if (!found && source.directory() == target.directory() && entry.name == target.name) return {};
  if (entry.isDirectory() && std::ranges::find(target.way, entry.id) != target.way.end())
    return Error::invalidName;
  return moveEntry(source.directory(), entry, target.directory(), target.name);
}

Failure FileSystem::replace(std::string_view from, std::string_view to) {
  Place source, target;
  FileInfo newer, older;
  if (const Failure failed = removable(from, source, newer)) return failed;
  if (const Failure failed = removable(to, target, older)) return failed;
  if (newer.isDirectory() || older.isDirectory()) return Error::accessDenied;
  if (newer.id == older.id) return {};
  return replaceContent(source.directory(), newer, target.directory(), older);
}

// --- What drivers that only read keep

Failure FileSystem::setLabel(std::string_view) { return Error::accessDenied; }
Failure FileSystem::createFile(FileId, std::string_view) { return Error::accessDenied; }
Failure FileSystem::createDirectory(FileId, std::string_view) { return Error::accessDenied; }
Failure FileSystem::remove(FileId, const FileInfo&) { return Error::accessDenied; }
Failure FileSystem::moveEntry(FileId, const FileInfo&, FileId, std::string_view) {
  return Error::accessDenied;
}
Failure FileSystem::replaceContent(FileId, const FileInfo&, FileId, const FileInfo&) {
  return Error::accessDenied;
}
Failure FileSystem::writeNode(FileNode&, u64, std::span<const u8>) { return Error::accessDenied; }
Failure FileSystem::resizeNode(FileNode&, u64) { return Error::accessDenied; }
Failure FileSystem::setNodeAttributes(FileNode&, u32) { return Error::accessDenied; }
Failure FileSystem::setNodeTimes(FileNode&, const FileTimes&) { return Error::accessDenied; }
Failure FileSystem::closeNode(FileNode&) { return {}; }

// --- Open files

File::~File() { static_cast<void>(close()); }

File& File::operator=(File&& other) noexcept {
  if (this == &other) return *this;
  static_cast<void>(close());
  system_ = std::exchange(other.system_, nullptr);
  node_ = std::move(other.node_);
  position_ = other.position_;
  access_ = other.access_;
  return *this;
}

Failure File::close() {
  if (!isOpen()) return {};
  FileSystem* system = std::exchange(system_, nullptr);
  return system->release(std::exchange(node_, nullptr));
}

Failure File::read(std::span<u8> buffer, u64& done) {
  done = 0;
  if (!isOpen() || !mayRead()) return Error::accessDenied;
  const u64 left = node_->sizeBytes - std::min(position_, node_->sizeBytes);
  const std::span<u8> wanted = buffer.first(std::min<u64>(buffer.size(), left));
  if (wanted.empty()) return {};
  if (const Failure failed = system_->readNode(*node_, position_, wanted)) return failed;
  done = wanted.size();
  position_ += done;
  return {};
}

Failure File::write(std::span<const u8> bytes, u64& done) {
  done = 0;
  if (!isOpen() || !mayWrite()) return Error::accessDenied;
  if (bytes.empty()) return {};
  const u64 room = system_->largestFile() - std::min(position_, system_->largestFile());
  const std::span<const u8> fitting = bytes.first(std::min<u64>(bytes.size(), room));
  if (fitting.empty()) return Error::fileTooLarge;
  const u64 oldSize = node_->sizeBytes;
  if (position_ > oldSize)
    if (const Failure failed = system_->resizeNode(*node_, position_)) return failed;
  if (const Failure failed = system_->writeNode(*node_, position_, fitting)) {
    // The first failure is the one to tell.
    if (position_ > oldSize) static_cast<void>(system_->resizeNode(*node_, oldSize));
    return failed;
  }
  done = fitting.size();
  position_ += done;
  return done < bytes.size() ? Failure(Error::fileTooLarge) : Failure();
}

Failure File::seek(i64 offset, SeekFrom from) {
  if (!isOpen()) return Error::accessDenied;
  const u64 base = from == SeekFrom::start     ? 0
                   : from == SeekFrom::current ? position_
                                               : node_->sizeBytes;
  const u64 distance = offset < 0 ? u64{0} - static_cast<u64>(offset) : static_cast<u64>(offset);
  if (offset < 0) {
    if (distance > base) return Error::invalidName;
    position_ = base - distance;
    return {};
  }
  const u64 largest = system_->largestFile();
  if (base > largest || distance > largest - base) return Error::fileTooLarge;
  position_ = base + distance;
  return {};
}

Failure File::setSize(u64 bytes) {
  if (!isOpen() || !mayWrite()) return Error::accessDenied;
  if (bytes > system_->largestFile()) return Error::fileTooLarge;
  return bytes == node_->sizeBytes ? Failure() : system_->resizeNode(*node_, bytes);
}

Failure File::info(FileInfo& info) const {
  return isOpen() ? system_->nodeInfo(*node_, info) : Failure(Error::accessDenied);
}

Failure File::setAttributes(u32 attributes) {
  if (!isOpen() || access_ == FileAccess::read) return Error::accessDenied;
  return system_->setNodeAttributes(*node_, attributes & kFileSettableAttributes);
}

Failure File::setTimes(const FileTimes& times) {
  if (!isOpen() || access_ == FileAccess::read) return Error::accessDenied;
  return system_->setNodeTimes(*node_, times);
}

}  // namespace tallowin
