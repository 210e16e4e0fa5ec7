#include <algorithm>
#include <unordered_set>

#include "disk/transfer_buffer.h"
#include "files/host_tree.h"
#include "ops/copy_files.h"

namespace tallowin {
namespace {

constexpr std::size_t kPieceBytes = 4 * kMiB;
constexpr std::size_t kLongestHostName = 255;  // bytes

struct Item {
  std::string path;  // on the volume
  FileInfo info;
  std::string target;  // on the host
  bool isThere = false;
};

timespec hostTimeOf(FileTime time) {
  const FileTime ticks = time - std::min(time, kFileTimeOfUnixEpoch);
  return {static_cast<std::time_t>(ticks / kFileTimeTicksPerSecond),
          static_cast<long>(ticks % kFileTimeTicksPerSecond * 100)};
}

class CopyOut {
 public:
  CopyOut(FileSystem& files, const CopyWish& wish, Job& job, CopyReport& report)
      : files_(files), wish_(wish), job_(job), report_(report) {}

  FileFailure run() {
    report_ = {};
    if (!buffer_) return {Error::outOfMemory};
    if (FileFailure failed = plan()) return failed;
    job_.phase(Phase::copyingOut, totalBytes_);
    for (const Item& item : items_) {
      if (job_.shouldStop()) return {Error::cancelled, item.path};
      FileFailure failed = item.info.isDirectory() ? makeFolder(item) : copy(item);
      const bool isTop = &item == &items_.front();
      if (failed && (isTop || !leftOut_.takes(failed))) return failed;
    }
    return finish();
  }

 private:
  // --- What is to be done

  FileFailure plan() {
    FileInfo top;
    if (const Failure failed = files_.info(wish_.from, top)) return {failed, wish_.from};
    const std::vector<std::string_view> way = componentsOf(wish_.from);
    const bool isNameless = way.empty() || wish_.from.ends_with("/.") || way.back() == "..";
    const std::string target = !isNameless && hostFileKind(wish_.to) == HostFileKind::folder
                                   ? joinedPath(wish_.to, top.name)
                                   : wish_.to;
    if (FileFailure failed = add({wish_.from, top, target})) return failed;
    if (!top.isDirectory()) return {};
    FileFailure added;
    const FileFailure failed = walkTree(
        files_, wish_.from,
        [&](const std::string& path, const FileInfo& info) {
          const std::string_view below = std::string_view(path).substr(wish_.from.size());
          added =
              add({path, info,
                   joinedPath(target, std::string(below.substr(below.starts_with('/') ? 1 : 0)))});
          return added.failure;
        },
        [&](const FileFailure& damaged) {
          if (!leftOut_.takes(damaged)) return false;
          added = {};
          return true;
        });
    return added ? added : failed;
  }

  FileFailure add(Item item) {
    if (item.info.name.size() > kLongestHostName) return {Error::nameTooLong, item.path};
    // Of two that are called the same only the first can be reached.
    if (!targets_.insert(item.target).second) return {Error::corrupt, item.path};
    // Below the folder that was named, a link leads out of it.
    const std::optional<HostFileKind> there =
        hostFileKind(item.target, items_.empty() ? Links::followed : Links::themselves);
    item.isThere = there.has_value();
    const bool isSameKind =
        there == (item.info.isDirectory() ? HostFileKind::folder : HostFileKind::file);
    const bool mayReplace = item.info.isDirectory() || wish_.overwrite;
    if (there && (!isSameKind || !mayReplace)) return {Error::alreadyExists, item.target};
    if (!item.info.isDirectory()) ++report_.filesWanted;
    totalBytes_ += item.info.sizeBytes;
    items_.push_back(std::move(item));
    return {};
  }

  // --- Doing it

  FileFailure makeFolder(const Item& item) {
    if (item.isThere) return {};
    if (const Failure failed = makeHostFolder(item.target)) return {failed, item.target};
    ++report_.folders;
    return {};
  }

  FileFailure copy(const Item& item) {
    File file;
    if (const Failure failed = files_.open(item.path, {}, file)) return {failed, item.path};
    NewHostFile made;
    if (const Failure failed = made.create(item.target)) return {failed, item.target};
    for (u64 left = item.info.sizeBytes; left != 0;) {
      u64 done = 0;
      if (const Failure failed = file.read(buffer_.span(), done)) return {failed, item.path};
      if (done == 0) return {Error::corrupt, item.path};
      if (const Failure failed = made.write(buffer_.span().first(done)))
        return {failed, item.target};
      left -= std::min(left, done);
      job_.advance(done);
      if (left != 0 && job_.shouldStop()) return {Error::cancelled, item.path};
    }
    if (item.info.times.modified != 0) made.setModified(hostTimeOf(item.info.times.modified));
    const Existing existing = item.isThere ? Existing::replace : Existing::keep;
    if (const Failure failed = made.finish(existing)) return {failed, item.target};
    ++report_.files;
    report_.bytes += item.info.sizeBytes;
    return {};
  }

  // The times of folders come last, for what is put into one changes them.
  FileFailure finish() {
    for (const Item& item : items_)
      if (item.info.isDirectory() && !item.isThere && item.info.times.modified != 0)
        setHostFolderModified(item.target, hostTimeOf(item.info.times.modified));
    const Item& top = items_.front();
    const std::size_t slash = top.target.rfind('/');
    const std::string parent = slash == std::string::npos ? "." : top.target.substr(0, slash + 1);
    const std::string folder = top.info.isDirectory() ? top.target : parent;
    return {syncHostFolder(folder), folder};
  }

  FileSystem& files_;
  const CopyWish& wish_;
  Job& job_;
  CopyReport& report_;
  TransferBuffer buffer_{kPieceBytes};
  LeftOut leftOut_{job_, report_.leftOut};
  std::vector<Item> items_;  // the top first
  std::unordered_set<std::string> targets_;
  u64 totalBytes_ = 0;
};

}  // namespace

FileFailure copyOut(FileSystem& files, const CopyWish& wish, Job& job, CopyReport& report) {
  return CopyOut(files, wish, job, report).run();
}

}  // namespace tallowin
