#include "boot/loader_fix.h"

#include <algorithm>
#include <string_view>

#include "boot/grub_record.h"
#include "disk/mbr_record.h"

extern "C" const unsigned char tallowinLoaderIsGone[512];

namespace tallowin {
namespace {

constexpr u8 kFirstBiosDisk = 0x80;

bool namesGrub(const std::vector<u8>& sector) {
  constexpr std::string_view kName = "GRUB";
  const auto end = sector.begin() + kLoaderSectorBytes;
  return std::search(sector.begin(), end, kName.begin(), kName.end()) != end;
}

template <typename Block>
Block& lastBlock(std::vector<u8>& sector) {
  return *recordAt<Block>(std::span(sector), kLoaderSectorBytes - sizeof(Block));
}

// From the end of the sector down to a length of 0.
template <typename Block, typename Sector>
void shiftBlocks(const MovedSectors& moved, std::vector<u8>& sector) {
  for (std::size_t at = kLoaderSectorBytes; at >= sizeof(Block); at -= sizeof(Block)) {
    Block& block = *recordAt<Block>(std::span(sector), at - sizeof(Block));
    if (block.sectors == 0) return;
    if (moved.wereAt(block.startSector))
      block.startSector = static_cast<Sector>(moved.nowAt(block.startSector));
  }
}

bool isShiftable(const std::vector<u8>& sector, u64 newStart, u64 sectorCount) {
  return namesGrub(sector) && newStart + sectorCount <= kAllOnes32;
}

// Where it leads to now; nothing: it led elsewhere.
std::optional<u64> shiftBootSector(const BootMove& move, std::vector<u8>& sector) {
  const MovedSectors moved(move);
  const u8 drive = move.newBiosNumber.value_or(move.driveNumber);
  const auto takeDrive = [&](u8& bootDrive) {
    if ((move.flags & kFixDriveNumber) != 0 && bootDrive != kGrubDriveOfBoot) bootDrive = drive;
  };
  auto& grub2 = *recordAt<Grub2BootRecord>(std::span(sector));
  if (grub2.jump == Grub2BootRecord::kJump && namesGrub(sector)) {
    if (!moved.wereOnDrive(grub2.bootDrive) || !moved.wereAt(grub2.coreSector)) return std::nullopt;
    grub2.coreSector = moved.nowAt(grub2.coreSector);
    takeDrive(grub2.bootDrive);
    return grub2.coreSector;
  }
  auto& stage1 = *recordAt<Stage1BootRecord>(std::span(sector));
  if (stage1.version != Stage1BootRecord::kVersion ||
      !isShiftable(sector, move.newStart, move.sectorCount) ||
      !moved.wereOnDrive(stage1.bootDrive) || !moved.wereAt(stage1.stage2Sector))
    return std::nullopt;
  stage1.stage2Sector = static_cast<u32>(moved.nowAt(stage1.stage2Sector));
  takeDrive(stage1.bootDrive);
  return stage1.stage2Sector;
}

void shiftListOf(const BootMove& move, bool isGrub2, std::vector<u8>& sector) {
  const MovedSectors moved(move);
  if (isGrub2) {
    if (lastBlock<Grub2BlockRecord>(sector).segment == Grub2BlockRecord::kFirstSegment)
      shiftBlocks<Grub2BlockRecord, u64>(moved, sector);
    return;
  }
  const u16 segment = lastBlock<Stage2BlockRecord>(sector).segment;
  if (segment == Stage2BlockRecord::kStage2Segment || segment == Stage2BlockRecord::kStage15Segment)
    shiftBlocks<Stage2BlockRecord, u32>(moved, sector);
}

}  // namespace

bool MovedSectors::wereOnDrive(u8 drive) const {
  const u8 before = move_.oldBiosNumber.value_or(kFirstBiosDisk);
  const u8 now = move_.newBiosNumber.value_or(before);
  return drive == kGrubDriveOfBoot || drive == before || (drive < before && drive <= now);
}

Failure planGrubFix(u64 lba, const BootMove& move, SectorChanges& changes) {
  std::vector<u8> boot;
  if (const Failure failed = changes.read(lba, boot)) return failed;
  const bool isGrub2 = recordAt<Grub2BootRecord>(std::span(boot))->jump == Grub2BootRecord::kJump;
  const std::optional<u64> list = shiftBootSector(move, boot);
  if (!list) return {};
  if (const Failure failed = changes.change(lba, boot)) return failed;
  // The boot sector of the disk and that of the partition may lead to the same list, which is
  // shifted once.
  const auto isDone = [&](const SectorChange& change) { return change.lba == *list; };
  if (std::ranges::any_of(changes.all(), isDone)) return {};
  std::vector<u8> sector;
  if (const Failure failed = changes.read(*list, sector)) return failed;
  shiftListOf(move, isGrub2, sector);
  return changes.change(*list, sector);
}

bool isLilo(const std::vector<u8>& sector) { return textAt(sector, 6, "LILO"); }

std::vector<u8> loaderIsGone(const std::vector<u8>& sector) {
  std::vector<u8> gone = sector;
  std::copy_n(tallowinLoaderIsGone, kLoaderSectorBytes, gone.begin());
  return gone;
}

}  // namespace tallowin
