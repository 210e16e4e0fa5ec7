#include <algorithm>
#include <set>

#include "disk/transfer_buffer.h"
#include "files/host_tree.h"
#include "fs/new_file.h"
#include "ops/copy_files.h"

namespace tallowin {
namespace {

constexpr std::size_t kPieceBytes = 4 * kMiB;
// Between two files everything is put on the medium, so that a power cut finds whole ones: larger
// files go by another name until they are.
constexpr u64 kBytesBetweenSyncs = 64 * kMiB;
constexpr u32 kFilesBetweenSyncs = 4096;

struct Item {
  HostFile host;
  std::string target;  // on the volume
  std::optional<FileInfo> old;

  bool isFolder() const { return host.kind == HostFileKind::folder; }
};

FileTime fileTimeOf(const timespec& time) {
  if (time.tv_sec < 0) return 0;
  return fileTimeOfUnixSeconds(static_cast<u64>(time.tv_sec)) +
         static_cast<u64>(time.tv_nsec) / 100;
}

// "name" of "/folder/name/"; empty when it has none, as "/", ".." or "folder/.".
std::string ownNameOf(std::string path) {
  while (path.ends_with('/')) path.pop_back();
  const std::string name = path.substr(path.rfind('/') + 1);
  return name == "." || name == ".." ? std::string() : name;
}

// For a comparison of names that differ in case alone.
std::string foldedOf(const std::string& name) {
  const std::optional<std::u16string> units = utf16Of(name);
  return units ? utf8Of(upperCase(*units)) : name;
}

class CopyIn {
 public:
  CopyIn(FileSystem& files, const CopyWish& wish, Job& job, CopyReport& report)
      : files_(files), wish_(wish), job_(job), report_(report) {}

  FileFailure run() {
    report_ = {};
    if (!buffer_) return {Error::outOfMemory};
    if (FileFailure failed = plan()) return failed;
    if (FileFailure failed = checkNames()) return failed;
    if (FileFailure failed = checkRoom()) return failed;
    job_.phase(Phase::copyingIn, totalBytes_);
    for (const Item& item : items_) {
      if (job_.shouldStop()) return {Error::cancelled, item.target};
      if (FileFailure failed = item.isFolder() ? makeFolder(item) : copy(item)) return failed;
      if (FileFailure failed = syncAtTimes()) return failed;
    }
    return {};
  }

 private:
  std::string hostPath(const HostFile& file) const {
    return file.path.empty() ? wish_.from : joinedPath(wish_.from, file.path);
  }

  // --- What is to be done

  FileFailure plan() {
    std::vector<HostFile> found;
    std::string failedPath;
    if (const Failure failed = listHostTree(wish_.from, found, failedPath))
      return {failed, failedPath};
    std::string top;
    if (FileFailure failed = findTarget(top)) return failed;
    for (HostFile& file : found)
      if (FileFailure failed = add(std::move(file), top)) return failed;
    return {};
  }

  FileFailure findTarget(std::string& top) {
    FileInfo there;
    const Failure failed = files_.info(wish_.to, there);
    if (failed && failed != Error::noSuchFile) return {failed, wish_.to};
    const std::string name = ownNameOf(wish_.from);
    const bool goesInto = !failed && there.isDirectory() && !name.empty();
    top = goesInto ? joinedPath(wish_.to, name) : wish_.to;
    isTopNew_ = !files_.exists(top);
    return {};
  }

  FileFailure add(HostFile file, const std::string& top) {
    const std::string path = hostPath(file);
    if (file.kind != HostFileKind::file && file.kind != HostFileKind::folder) {
      report_.skipped.push_back(path);
      return wish_.skipSpecial ? FileFailure() : FileFailure{Error::specialFile, path};
    }
    Item item{std::move(file), {}, {}};
    item.target = item.host.path.empty() ? top : joinedPath(top, item.host.path);
    if (item.target.size() > files_.rules().longestPath) return {Error::nameTooLong, path};
    if (item.host.sizeBytes > files_.largestFile()) return {Error::fileTooLarge, path};
    if (!isTopNew_)
      if (const Failure failed = lookAtOld(item)) return {failed, item.target};
    if (!item.isFolder()) ++report_.filesWanted;
    totalBytes_ += item.host.sizeBytes;
    items_.push_back(std::move(item));
    return {};
  }

  Failure lookAtOld(Item& item) {
    FileInfo old;
    const Failure failed = files_.info(item.target, old);
    if (failed == Error::noSuchFile) return {};
    // A name that it cannot have is told as such below.
    if (failed)
      return failed == Error::invalidName || failed == Error::nameTooLong ? Failure() : failed;
    if (old.isDirectory() != item.isFolder() || (!item.isFolder() && !wish_.overwrite))
      return Error::alreadyExists;
    // By its short name it would be found, and replaced, instead of a file of another name.
    const std::string own = ownNameOf(item.target);
    if (!own.empty() && !files_.rules().isPosix && foldedOf(old.name) != foldedOf(own))
      return Error::sameName;
    item.old = std::move(old);
    return {};
  }

  // Every name but those of the way to the top, which is there.
  FileFailure checkNames() {
    std::set<std::string> seen;
    for (const Item& item : items_) {
      const std::string name = ownNameOf(item.target);
      if (name.empty()) continue;  // the root
      const std::optional<std::u16string> units = utf16Of(name);
      const std::string path = hostPath(item.host);
      if (!units && !files_.rules().isPosix) return {Error::nameNotUtf8, path};
      if (const Failure failed = checkName(name, files_.rules())) return {failed, path};
      if (files_.rules().isPosix) continue;
      const std::string folder = item.target.substr(0, item.target.size() - name.size());
      if (!seen.insert(folder + foldedOf(name)).second) return {Error::sameName, path};
    }
    return {};
  }

  // What folders need to grow is not reckoned.
  FileFailure checkRoom() {
    SpaceInfo space;
    if (const Failure failed = files_.space(space)) return {failed, wish_.to};
    const u64 unit = std::max<u64>(space.unitBytes, 1);
    u64 needed = 0, taken = 0, given = 0;
    for (const Item& item : items_) {
      if (item.isFolder() && !item.old) ++taken;
      taken += (item.host.sizeBytes + unit - 1) / unit;
      needed = std::max(needed, taken - std::min(taken, given));
      // An older file goes when the new one is whole.
      if (item.old) given += (item.old->sizeBytes + unit - 1) / unit;
    }
    if (needed <= space.freeUnits) return {};
    report_.neededBytes = needed * unit;
    report_.freeBytes = space.freeUnits * unit;
    return {Error::volumeFull, wish_.to};
  }

  // --- Doing it

  FileFailure makeFolder(const Item& item) {
    if (item.old || componentsOf(item.target).empty()) return {};
    if (const Failure failed = files_.makeDirectory(item.target)) return {failed, item.target};
    File folder;
    if (const Failure failed =
            files_.open(item.target, {.access = FileAccess::write, .isDirectory = true}, folder))
      return {failed, item.target};
    if (const Failure failed = folder.setTimes({0, 0, fileTimeOf(item.host.modified)}))
      return {failed, item.target};
    ++report_.folders;
    return {folder.close(), item.target};
  }

  FileFailure copy(const Item& item) {
    HostFileReader reader;
    const std::string path = hostPath(item.host);
    // The short name that one of the files before it was given.
    if (!item.old && files_.exists(item.target)) return {Error::sameName, path};
    if (const Failure failed = reader.open(path)) return {failed, path};
    u64 done = 0;
    if (const Failure failed = reader.read(buffer_.span(), done)) return {failed, path};
    const bool goesByOtherName = done == buffer_.size() || item.old;
    NewFile file(files_);
    if (const Failure failed =
            file.create(item.target, goesByOtherName ? NewFileName::other : NewFileName::own))
      return {failed, item.target};
    if (FileFailure failed = fill(file, item, reader, done)) return failed;
    if (const Failure failed = file.finish()) return {failed, item.target};
    ++report_.files;
    ++filesSinceSync_;
    return {};
  }

  FileFailure fill(NewFile& file, const Item& item, HostFileReader& reader, u64 done) {
    while (done != 0) {
      u64 written = 0;
      if (const Failure failed = file.write(buffer_.span().first(done), written))
        return {failed, item.target};
      report_.bytes += written;
      bytesSinceSync_ += written;
      job_.advance(written);
      if (done < buffer_.size()) break;
      if (job_.shouldStop()) return {Error::cancelled, item.target};
      if (const Failure failed = reader.read(buffer_.span(), done))
        return {failed, hostPath(item.host)};
    }
    return {file.setTimes({0, 0, fileTimeOf(item.host.modified)}), item.target};
  }

  FileFailure syncAtTimes() {
    if (filesSinceSync_ < kFilesBetweenSyncs && bytesSinceSync_ < kBytesBetweenSyncs) return {};
    filesSinceSync_ = 0;
    bytesSinceSync_ = 0;
    return {files_.sync(), wish_.to};
  }

  FileSystem& files_;
  const CopyWish& wish_;
  Job& job_;
  CopyReport& report_;
  TransferBuffer buffer_{kPieceBytes};
  std::vector<Item> items_;
  bool isTopNew_ = false;
  u64 totalBytes_ = 0;
  u64 bytesSinceSync_ = 0;
  u32 filesSinceSync_ = 0;
};

}  // namespace

FileFailure copyIn(FileSystem& files, const CopyWish& wish, Job& job, CopyReport& report) {
  return CopyIn(files, wish, job, report).run();
}

}  // namespace tallowin
