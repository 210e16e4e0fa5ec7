#include "ops/file_source.h"

#include <chrono>
#include <filesystem>
#include <system_error>

#include "base/text.h"
#include "ops/volume_files.h"

namespace tallowin {
namespace {

namespace fs = std::filesystem;

std::time_t modificationTime(const fs::directory_entry& entry) {
  std::error_code error;
  const auto time = entry.last_write_time(error);
  if (error) return 0;
  return std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(
          std::chrono::file_clock::to_sys(time)));
}

std::time_t secondsOf(FileTime time) {
  if (time < kFileTimeOfUnixEpoch) return 0;
  return static_cast<std::time_t>((time - kFileTimeOfUnixEpoch) / kFileTimeTicksPerSecond);
}

Failure toldOf(const FlowResult& result) {
  return result.succeeded() ? Failure() : Failure(Error::cancelled);
}

}  // namespace

// --- Of the host

std::string HostFileSource::startDirectory() const {
  std::error_code error;
  const std::string directory = fs::current_path(error).string();
  return error ? "/" : directory;
}

Failure HostFileSource::list(const std::string& directory, std::vector<ListedFile>& files) {
  std::error_code error;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    ListedFile& file = files.emplace_back();
    file.name = entry->path().filename().string();
    file.isDirectory = entry->is_directory(ignored);
    if (entry->is_regular_file(ignored)) file.sizeBytes = entry->file_size(ignored);
    file.modified = modificationTime(*entry);
  }
  return error ? Failure(Error::cannotOpenForReading, error.value()) : Failure();
}

Failure HostFileSource::look(const std::string& path, PathKind& kind) {
  std::error_code error;
  kind = fs::is_directory(path, error) ? PathKind::directory
         : fs::exists(path, error)     ? PathKind::file
                                       : PathKind::nothing;
  return {};
}

Failure HostFileSource::remove(const std::string& file) {
  std::error_code error;
  fs::remove(file, error);
  return error ? Failure(Error::accessDenied, error.value()) : Failure();
}

std::optional<u64> HostFileSource::freeBytes(const std::string& directory) {
  std::error_code error;
  const fs::space_info space = fs::space(directory, error);
  return error ? std::nullopt : std::optional<u64>(space.available);
}

bool HostFileSource::matches(std::string_view pattern, std::string_view name) const {
  return matchesWildcard(pattern, name);
}

// --- Of a partition

Failure VolumeFileSource::list(const std::string& directory, std::vector<ListedFile>& files) {
  std::vector<FileInfo> entries;
  const FlowResult result =
      lookAtFiles(context_, drive_, entry_, [&](FileSystem& volume, Job&) -> FileFailure {
        return {volume.list(directory, entries), directory};
      });
  for (FileInfo& entry : entries)
    files.push_back({std::move(entry.name), entry.isDirectory(), entry.sizeBytes,
                     secondsOf(entry.times.modified)});
  return toldOf(result);
}

Failure VolumeFileSource::look(const std::string& path, PathKind& kind) {
  kind = PathKind::nothing;
  const auto lookUp = [&](FileSystem& volume, Job&) -> FileFailure {
    FileInfo info;
    const Failure failed = volume.info(path, info);
    // A name that no file can have is one that nothing has.
    if (failed == Error::noSuchFile || failed == Error::invalidName ||
        failed == Error::nameTooLong || failed == Error::accessDenied)
      return {};
    if (!failed) kind = info.isDirectory() ? PathKind::directory : PathKind::file;
    return {failed, path};
  };
  return toldOf(lookAtFiles(context_, drive_, entry_, lookUp));
}

Failure VolumeFileSource::remove(const std::string& file) {
  return toldOf(changeFiles(context_, drive_, entry_, [&](FileSystem& volume, Job&) -> FileFailure {
    return {volume.deleteFile(file), file};
  }));
}

std::optional<u64> VolumeFileSource::freeBytes(const std::string&) {
  SpaceInfo space;
  const FlowResult result =
      lookAtFiles(context_, drive_, entry_,
                  [&](FileSystem& volume, Job&) -> FileFailure { return {volume.space(space)}; });
  return result.succeeded() ? std::optional(space.freeUnits * space.unitBytes) : std::nullopt;
}

bool VolumeFileSource::matches(std::string_view pattern, std::string_view name) const {
  return matchesPattern(pattern, name, NameRules());
}

}  // namespace tallowin
