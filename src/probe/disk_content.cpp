#include "probe/disk_content.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "disk/mbr_record.h"
#include "probe/identify.h"

namespace tallowin {
namespace {

using namespace std::string_view_literals;

// Published magic numbers, by their place in bytes from the start of the disk.
struct Mark {
  u64 offset;
  std::string_view magic;
  const char* name;
};
constexpr Mark kMarks[] = {
    {0, "LUKS\xBA\xBE"sv, "a LUKS container"},
    {0, "LABELONE"sv, "an LVM physical volume"},
    {512, "LABELONE"sv, "an LVM physical volume"},
    {1024, "LABELONE"sv, "an LVM physical volume"},
    {1536, "LABELONE"sv, "an LVM physical volume"},
    {0, "\xFC\x4E\x2B\xA9"sv, "a member of a RAID"},
    {4096, "\xFC\x4E\x2B\xA9"sv, "a member of a RAID"},
    {32, "NXSB"sv, "an APFS container"},
    {1024, "\x10\x20\xF5\xF2"sv, "an F2FS file system"},
    {4096 + 24, "\xC6\x85\x73\xF6"sv, "a bcache device"},
    {64 * kKiB + 64, "_BHRfS_M"sv, "a Btrfs file system"},
    {32 * kKiB + 1, "CD001"sv, "an ISO 9660 file system"},
    {32 * kKiB + 1, "BEA01"sv, "a UDF file system"},
    {34 * kKiB + 1, "NSR0"sv, "a UDF file system"},
    {36 * kKiB + 1, "NSR0"sv, "a UDF file system"},
};
constexpr std::string_view kRaidMagic = "\xFC\x4E\x2B\xA9"sv;
// One of a ring of such blocks is the newest; any of them tells.
constexpr std::string_view kZfsMagic = "\x0C\xB1\xBA\x00\x00\x00\x00\x00"sv;
constexpr u64 kZfsRing = 128 * kKiB;
constexpr std::string_view kGptSignature = "EFI PART";
constexpr u64 kHeadBytes = 256 * kKiB;

bool isBlank(const MbrRecord& record) {
  MbrRecord rest = record;
  rest.diskSignature = 0;
  rest.reserved = {};
  return isAllZero(bytesOf(rest));
}

bool holdsZfs(std::span<const u8> head) {
  for (u64 at = kZfsRing; at < head.size(); at += kKiB)
    if (textAt(head, at, kZfsMagic)) return true;
  return false;
}

// Members of a RAID may keep their block near the end: in the last whole 64 KiB but one, or 8 KiB
// before the end on a multiple of 4 KiB.
Failure findRaidAtEnd(const SectorRange& range, bool& found) {
  const u64 sectorSize = range.disk.sectorSize();
  const u64 bytes = range.bytes();
  if (bytes < 128 * kKiB) return {};
  std::vector<u8> sector(sectorSize);
  for (const u64 at :
       {bytes / (64 * kKiB) * 64 * kKiB - 64 * kKiB, (bytes - 8 * kKiB) / (4 * kKiB) * 4 * kKiB}) {
    if (const Failure failed =
            range.disk.readSectors(range.firstSector + at / sectorSize, sector.data(), 1))
      return failed;
    found |= textAt(sector, 0, kRaidMagic);
  }
  return {};
}

}  // namespace

std::optional<std::string> namedDiskContent(DiskDevice& disk) {
  return namedContent({disk, 0, disk.sectorCount().value_or(0)});
}

std::optional<std::string> namedContent(const SectorRange& range) {
  DiskDevice& disk = range.disk;
  const u32 sectorSize = disk.sectorSize();
  const u64 headSectors = std::min(range.sectorCount, kHeadBytes / sectorSize);
  std::vector<u8> head(headSectors * sectorSize);
  if (headSectors == 0 || disk.readSectors(range.firstSector, head.data(), headSectors))
    return "sectors that cannot be read";
  for (const Mark& mark : kMarks)
    if (textAt(head, mark.offset, mark.magic)) return mark.name;
  if (holdsZfs(head)) return "a ZFS pool";
  bool isRaid = false;
  if (findRaidAtEnd(range, isRaid)) return "sectors that cannot be read";
  if (isRaid) return "a member of a RAID";
  std::vector<u8> last(sectorSize);
  if (disk.readSectors(range.endSector() - 1, last.data(), 1)) return "sectors that cannot be read";
  if (textAt(head, sectorSize, kGptSignature) || textAt(last, 0, kGptSignature))
    return "a GPT that its first sector does not tell of";
  Content content;
  if (!identify(disk, range.firstSector, content)) return "a file system";
  // A table with empty slots, and its boot code, may go.
  const MbrRecord& record = *recordAt<MbrRecord>(std::span<const u8>(head));
  if (isBlank(record) || record.signature.isValid()) return std::nullopt;
  return "data of another program";
}

}  // namespace tallowin
