#include "boot/boot_fix.h"

#include "boot/boot_sector.h"
#include "boot/grub_record.h"
#include "boot/loader_fix.h"
#include "disk/mbr_record.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

constexpr u16 kBeType = 0xEB;

Failure planVolumeFix(const SectorRange& range, const BootMove& move, BootSector& boot,
                      SectorChanges& changes) {
  boot.setPlace(move.hiddenSectors, move.geometry);
  if ((move.flags & kFixDriveNumber) != 0) {
    const bool isHpfs = boot.kind() == BootSectorKind::hpfs;
    boot.setDriveNumber(isHpfs ? move.newBiosNumber.value_or(move.driveNumber) : move.driveNumber);
  }
  if ((move.flags & kFixBackup) != 0) return boot.addChanges(range, CopyRule::sameKind, changes);
  return boot.addChange(range, changes);
}

Failure planBeFix(const BootMove& move, std::vector<u8>& sector, SectorChanges& changes) {
  auto& record = *recordAt<BeBootRecord>(std::span(sector));
  if (record.code != BeBootRecord::kCode ||
      !textAt(sector, offsetof(BeBootRecord, name), BeBootRecord::kName) ||
      move.newStart > kAllOnes32)
    return {};
  record.partitionStart = static_cast<u32>(move.newStart);
  return changes.change(move.newStart, sector);
}

// LILO knows each of its sectors by its number, in lists of lists that differ by version.
Failure planLoaderFix(const BootMove& move, const std::vector<u8>& sector, SectorChanges& changes,
                      BootFixReport& report) {
  if (!isLilo(sector)) return planGrubFix(move.newStart, move, changes);
  report.mustReinstallLoader = true;
  return changes.change(move.newStart, loaderIsGone(sector));
}

}  // namespace

Failure planBootFix(DiskDevice& disk, const BootMove& move, SectorChanges& changes,
                    BootFixReport& report) {
  const SectorRange range{disk, move.newStart, move.sectorCount};
  BootSector boot;
  if (const Failure failed = boot.readByType(range, move.type)) return failed;
  std::vector<u8> sector;
  if (const Failure failed = changes.read(move.newStart, sector)) return failed;
  const u16 type = types::unhide(move.type);
  Failure failed;
  if (boot.kind() != BootSectorKind::none)
    failed = planVolumeFix(range, move, boot, changes);
  else if (boot.hasSignature() && type == kBeType)
    failed = planBeFix(move, sector, changes);
  else if (boot.hasSignature() && type == types::kLinux)
    failed = planLoaderFix(move, sector, changes, report);
  if (failed || (move.flags & kFixFirstSector) == 0) return failed;
  return planGrubFix(0, move, changes);
}

}  // namespace tallowin
