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
};
constexpr std::string_view kGptSignature = "EFI PART";
constexpr u64 kHeadBytes = 68 * kKiB;

bool isBlank(const MbrRecord& record) {
  MbrRecord rest = record;
  rest.diskSignature = 0;
  rest.reserved = {};
  return isAllZero(bytesOf(rest));
}

}  // namespace

std::optional<std::string> namedDiskContent(DiskDevice& disk) {
  const u64 sectors = disk.sectorCount().value_or(0);
  const u32 sectorSize = disk.sectorSize();
  const u64 headSectors = std::min(sectors, kHeadBytes / sectorSize);
  std::vector<u8> head(headSectors * sectorSize);
  if (headSectors == 0 || disk.readSectors(0, head.data(), headSectors))
    return "sectors that cannot be read";
  for (const Mark& mark : kMarks)
    if (textAt(head, mark.offset, mark.magic)) return mark.name;
  std::vector<u8> last(sectorSize);
  if (disk.readSectors(sectors - 1, last.data(), 1)) return "sectors that cannot be read";
  if (textAt(head, sectorSize, kGptSignature) || textAt(last, 0, kGptSignature))
    return "a GPT whose first sector is gone";
  Content content;
  if (!identify(disk, 0, content)) return "a file system";
  if (isBlank(*recordAt<MbrRecord>(std::span<const u8>(head)))) return std::nullopt;
  return "data of another program";
}

}  // namespace tallowin
