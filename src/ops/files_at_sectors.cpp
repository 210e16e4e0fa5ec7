#include "ops/files_at_sectors.h"

#include "base/text.h"
#include "disk/faulty_disk.h"
#include "disk/transfer_buffer.h"
#include "fs/tree_walk.h"
#include "ops/file_systems.h"
#include "ops/volume_files.h"

namespace tallowin {
namespace {

constexpr std::size_t kPieceBytes = kMiB;
constexpr std::size_t kNamedFiles = 50;

Failure readWhole(FileSystem& files, const std::string& path, TransferBuffer& buffer) {
  File file;
  if (const Failure failed = files.open(path, {}, file)) return failed;
  for (u64 done = 1; done != 0;)
    if (const Failure failed = file.read(buffer.span(), done)) return failed;
  return file.close();
}

}  // namespace

std::string filesAtSectorsText(const OperationContext& context, const SectorRange& volume, u16 type,
                               const std::vector<u64>& sectors) {
  if (sectors.empty()) return {};
  std::string text = format("\n\n%zu sectors are lost, the first is %llu.", sectors.size(),
                            static_cast<unsigned long long>(sectors.front()));
  FaultyDisk faulty(volume.disk);
  for (const u64 sector : sectors) faulty.failReadsOf({sector, sector});
  const SectorRange range{faulty, volume.firstSector, volume.sectorCount};
  const FileSystemKind* kind = context.fileSystems.byContent(range, type);
  std::unique_ptr<FileSystem> files;
  TransferBuffer buffer(kPieceBytes);
  if (!buffer || !kind || !kind->open ||
      kind->open(range, type, openWishOf(context, FilesUse::look), files))
    return text + "\nThe file system cannot be read with them, so its files cannot be named.";

  std::vector<std::string> hit;
  const auto visit = [&](const std::string& path, const FileInfo& entry) {
    return entry.isDirectory() ? Failure() : readWhole(*files, path, buffer);
  };
  const auto passOver = [&](const FileFailure& failed) {
    hit.push_back(failed.path);
    return hit.size() < kNamedFiles;
  };
  const FileFailure ended = walkTree(*files, "/", visit, passOver);
  if (hit.empty() && !ended) return text + "\nThey hold no file.";
  text += "\nThese files and directories lie on them:";
  for (const std::string& path : hit) text += "\n" + path;
  return ended ? text + "\n..." : text;
}

}  // namespace tallowin
