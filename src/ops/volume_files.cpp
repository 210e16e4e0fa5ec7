#include "ops/volume_files.h"

#include <string_view>

#include "ops/error_text.h"
#include "ops/job_of_front_end.h"
#include "ops/target_check.h"
#include "ops/target_text.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

FlowResult tell(const OperationContext& context, const FileFailure& failed) {
  if (failed.failure == Error::cancelled) return {FlowEnd::cancelled, Error::cancelled};
  const std::string place = failed.path.empty() ? "" : "'" + failed.path + "': ";
  context.ui.errorBox(place + errorText(failed.failure));
  return {FlowEnd::failed, failed.failure};
}

FlowResult workWith(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                    FilesUse use, const FilesWork& work) {
  VolumeFiles volume(context, drive);
  if (auto stopped = volume.open(entry, use)) return *stopped;
  JobOfFrontEnd job(context);
  const FileFailure failed = work(volume.files(), job);
  const Failure unfinished = volume.end();
  if (failed) return tell(context, failed);
  return unfinished ? tell(context, {unfinished}) : FlowResult();
}

// A way that would be gone before what it leads to is.
bool endsInDots(std::string_view path) {
  while (!path.empty() && (path.back() == '/' || path.back() == '\\')) path.remove_suffix(1);
  const std::size_t slash = path.find_last_of("/\\");
  const std::string_view name = slash == path.npos ? path : path.substr(slash + 1);
  return name == "." || name == "..";
}

std::string lossText(const std::string& path, u64 files, u64 bytes) {
  return format("'%s' will be deleted, with %llu file(s) of %s.", path.c_str(),
                static_cast<unsigned long long>(files), bytesText(bytes).c_str());
}

}  // namespace

OpenWish openWishOf(const OperationContext& context, FilesUse use) {
  Host& host = context.host;
  return {.writable = use == FilesUse::change,
          .codePage = context.options.codePage(),
          .clock = [&host] { return host.secondsSinceEpoch(); }};
}

FlowResult VolumeFiles::refuse(const PartitionEntry& entry, const Failure& failure) const {
  context_.ui.errorBox("The files of the partition cannot be reached. " + errorText(failure) +
                       "\n\n" + describeTarget(drive_, entry));
  return {FlowEnd::refused, failure};
}

std::optional<FlowResult> VolumeFiles::open(const PartitionEntry& entry, FilesUse use) {
  if (entry.isFree() || types::isExtended(entry.type)) return refuse(entry, Error::notAFileSystem);
  if (entry.isInError()) return refuse(entry, Error::tableInError);
  extent_ = {entry.startSector, entry.endSector};
  if (use == FilesUse::change) {
    if (auto stopped = refuseWhenReadOnlyDisk(context_, drive_)) return stopped;
    scope_.emplace(context_, drive_);
    if (auto stopped = scope_->begin(WriteTarget::sectors(extent_))) return stopped;
  }
  if (const Failure failed = context_.mounts.mount(rangeOf(drive_, entry), entry.type,
                                                   openWishOf(context_, use), mount_))
    return refuse(entry, failed);
  if (use == FilesUse::change && !mount_.files().isWritable())
    return refuse(entry, Error::accessDenied);
  return std::nullopt;
}

Failure VolumeFiles::end() {
  const Failure failed = mount_.unmount();
  if (scope_)
    drive_.disk().dropCachesOf(extent_.startSector, extent_.endSector - extent_.startSector + 1);
  scope_.reset();
  return failed;
}

FlowResult lookAtFiles(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                       const FilesWork& work) {
  return workWith(context, drive, entry, FilesUse::look, work);
}

FlowResult changeFiles(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                       const FilesWork& work) {
  return workWith(context, drive, entry, FilesUse::change, work);
}

FlowResult removeFilesFlow(const OperationContext& context, Drive& drive,
                           const PartitionEntry& entry, const std::string& path, RemoveWhat what) {
  if (endsInDots(path)) {
    context.ui.errorBox(format(
        "'%s' is another way to write a directory, and nothing was deleted. Write its own path.",
        path.c_str()));
    return {FlowEnd::refused, Error::invalidName};
  }
  u64 count = 0, bytes = 0;
  bool isDirectory = false;
  const FlowResult looked =
      lookAtFiles(context, drive, entry, [&](FileSystem& files, Job&) -> FileFailure {
        FileInfo info;
        if (const Failure failed = files.info(path, info)) return {failed, path};
        const auto add = [&](const std::string&, const FileInfo& found) {
          if (!found.isDirectory()) ++count;
          bytes += found.sizeBytes;
          return Failure();
        };
        isDirectory = info.isDirectory();
        if (!isDirectory) return {add(path, info), path};
        return what == RemoveWhat::tree ? walkTree(files, path, add) : FileFailure();
      });
  if (!looked.succeeded()) return looked;
  if (isDirectory && what == RemoveWhat::file) {
    context.ui.errorBox(
        format("'%s' is a directory, and nothing was deleted. Delete it with "
               "everything in it, or an empty one with 'rmdir'.",
               path.c_str()));
    return {FlowEnd::refused, Error::accessDenied};
  }
  const std::string text = lossText(path, count, bytes) + "\n\nAre you sure you want to continue?" +
                           "\n\n" + describeTarget(drive, entry);
  if (!context.ui.confirm(Consent::general, "Delete", text, MessageKind::question))
    return {FlowEnd::cancelled, Error::cancelled};
  return changeFiles(context, drive, entry, [&](FileSystem& files, Job& job) -> FileFailure {
    FileInfo info;
    if (const Failure failed = files.info(path, info)) return {failed, path};
    if (info.isDirectory() && what == RemoveWhat::tree) return removeTree(files, path, job);
    return {files.deleteFile(path), path};
  });
}

}  // namespace tallowin
