#include "ops/bootsect_dos.h"

#include "boot/boot_sector.h"
#include "fs/file_system.h"
#include "fs/whole_file.h"

namespace tallowin {
namespace {

constexpr std::size_t kBytes = 512;

}  // namespace

Failure fixBootsectDos(const FileSystemKind& kind, const SectorRange& range, const BootMove& move,
                       u32 codePage) {
  std::unique_ptr<FileSystem> files;
  std::vector<u8> sector(kBytes);
  u64 done = 0;
  const OpenWish look{.codePage = codePage};
  if (!kind.open || kind.open(range, move.type, look, files)) return {};
  if (!files->exists(kBootsectDos) || readFileRange(*files, kBootsectDos, sector, 0, done) ||
      done != kBytes)
    return {};
  BootSector boot;
  if (!boot.takeByType(sector, move.type)) return {};
  boot.setPlace(move.hiddenSectors, move.geometry);
  if ((move.flags & kFixDriveNumber) != 0) boot.setDriveNumber(move.driveNumber);
  if (!boot.isChanged()) return {};
  files.reset();
  const OpenWish change{.writable = true, .codePage = codePage};
  if (const Failure failed = kind.open(range, move.type, change, files)) return failed;
  File file;
  if (const Failure failed = files->open(kBootsectDos, {.access = FileAccess::readWrite}, file))
    return failed;
  if (const Failure failed = file.write(boot.bytes(), done)) return failed;
  if (const Failure failed = file.close()) return failed;
  return files->sync();
}

}  // namespace tallowin
