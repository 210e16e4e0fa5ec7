// Table backups as files: the format, and the dated copies in the backup folder.
#include <algorithm>
#include <bit>
#include <filesystem>

#include "base/crc32.h"
#include "base/text.h"
#include "files/host_file.h"
#include "ptable/table_backup.h"
#include "ptable/table_backup_record.h"

namespace tallowin {
namespace {

constexpr std::string_view kExtension = ".tbk";
constexpr std::size_t kDateLength = 15;  // YYYYMMDD-HHMMSS

// More sectors than any table has: the MBR, and two of each EBR of four chains.
constexpr u32 kMostSectors = 1 + 4 * 2 * 1024;

void append(std::vector<u8>& file, std::span<const u8> bytes) {
  file.insert(file.end(), bytes.begin(), bytes.end());
}

bool isSectorSize(u32 bytes) { return std::has_single_bit(bytes) && bytes >= 512 && bytes <= 4096; }

// Model and serial number, or the file's name, in characters that every file system takes.
std::string fileNamePart(const std::string& diskName) {
  constexpr std::size_t kLongest = 64;
  std::string part = diskName.substr(diskName.find_last_of('/') + 1).substr(0, kLongest);
  std::ranges::replace_if(
      part,
      [](char c) {
        const char lower = lowerAscii(c);
        return (lower < 'a' || lower > 'z') && (c < '0' || c > '9') && c != '.' && c != '_';
      },
      '_');
  return part.empty() ? "disk" : part;
}

// Makes a file that was not there, so that no older copy is ever replaced.
std::string reserveFile(const std::string& stem) {
  constexpr int kMostPerSecond = 100;
  for (int n = 1; n <= kMostPerSecond; ++n) {
    std::string path = stem + (n == 1 ? "" : format("_%02d", n)) + std::string(kExtension);
    if (!createNewFile(path)) return path;
  }
  return {};
}

std::string filePrefix(const std::string& diskName) {
  return "table-" + fileNamePart(diskName) + "-";
}

// The names sort by date, so the first ones are the oldest.
std::vector<std::string> copiesIn(const std::string& folder, const std::string& prefix) {
  std::error_code error;
  std::vector<std::string> names;
  for (std::filesystem::directory_iterator file(folder, error), end; !error && file != end;
       file.increment(error)) {
    std::string name = file->path().filename();
    const bool isCopy = name.starts_with(prefix) && name.ends_with(kExtension) &&
                        name.size() >= prefix.size() + kDateLength + kExtension.size();
    if (isCopy) names.push_back(std::move(name));
  }
  std::ranges::sort(names);
  return names;
}

// A copy that cannot be removed stays.
void dropOldest(const std::string& folder, const std::string& prefix) {
  std::error_code error;
  const std::vector<std::string> names = copiesIn(folder, prefix);
  for (std::size_t i = 0; i + kKeptTables < names.size(); ++i)
    std::filesystem::remove(std::filesystem::path(folder) / names[i], error);
}

}  // namespace

std::vector<u8> encodeTableBackup(const TableBackup& backup) {
  TableBackupHeaderRecord header{};
  std::ranges::copy(kTableBackupMagic, header.magic.begin());
  header.version = kTableBackupVersion;
  header.sectorSizeBytes = backup.sectorSizeBytes;
  header.diskSectors = backup.diskSectors;
  header.savedAt = backup.savedAt;
  header.diskSignature = backup.diskSignature;
  header.sectorCount = static_cast<u32>(backup.sectors.size());
  std::ranges::copy(std::string_view(backup.diskName).substr(0, header.diskName.size()),
                    header.diskName.begin());
  std::vector<u8> file;
  append(file, bytesOf(header));
  for (const TableSector& sector : backup.sectors) {
    append(file, bytesOf(Le64(sector.lba)));
    append(file, sector.bytes);
  }
  append(file, bytesOf(Le32(crc32(file))));
  return file;
}

Failure decodeTableBackup(std::span<const u8> file, TableBackup& backup) {
  const auto* header = recordAt<TableBackupHeaderRecord>(file);
  if (header == nullptr || !textAt(file, 0, kTableBackupMagic) ||
      header->version != kTableBackupVersion)
    return Error::notThisFormat;
  const u32 sectorSize = header->sectorSizeBytes;
  if (!isSectorSize(sectorSize) || header->sectorCount == 0 || header->sectorCount > kMostSectors)
    return Error::corrupt;
  const std::size_t recordBytes = sizeof(Le64) + sectorSize;
  const std::size_t checked = sizeof(*header) + recordBytes * header->sectorCount;
  if (file.size() != checked + sizeof(Le32) ||
      *recordAt<Le32>(file, checked) != crc32(file.first(checked)))
    return Error::corrupt;
  TableBackup found;
  found.sectorSizeBytes = sectorSize;
  found.diskSectors = header->diskSectors;
  found.savedAt = header->savedAt;
  found.diskSignature = header->diskSignature;
  const std::string name(header->diskName.data(), header->diskName.size());
  found.diskName = printable(name.substr(0, name.find('\0')));
  for (std::size_t at = sizeof(*header); at < checked; at += recordBytes) {
    const u64 lba = *recordAt<Le64>(file, at);
    const bool ascends = found.sectors.empty() ? lba == 0 : lba > found.sectors.back().lba;
    if (!ascends || lba >= found.diskSectors) return Error::corrupt;
    const auto bytes = file.subspan(at + sizeof(Le64), sectorSize);
    found.sectors.push_back({lba, {bytes.begin(), bytes.end()}});
  }
  backup = std::move(found);
  return Error::none;
}

Failure writeTableBackup(const TableBackup& backup, const std::string& path) {
  const std::vector<u8> file = encodeTableBackup(backup);
  const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
  return replaceFileDurably(path, text).as(Error::cannotCreate);
}

bool isTableBackup(const std::string& path) {
  std::array<u8, kTableBackupMagic.size()> start{};
  u32 done = 0;
  return !readFileRange(path, start.data(), 0, u32{start.size()}, done) &&
         textAt(std::span(start).first(done), 0, kTableBackupMagic);
}

Failure readTableBackup(const std::string& path, TableBackup& backup) {
  constexpr u64 kLargestFile = 64 * kMiB;
  u64 sizeBytes = 0;
  if (const Failure failed = hostFileSize(path, sizeBytes)) return failed.as(Error::noSuchFile);
  if (sizeBytes > kLargestFile) return Error::notThisFormat;
  std::string text;
  if (const Failure failed = loadTextFile(path, text)) return failed.as(Error::noSuchFile);
  return decodeTableBackup({reinterpret_cast<const u8*>(text.data()), text.size()}, backup);
}

Failure keepOldTable(Drive& drive, const std::string& folder, Host& clock, std::string* path) {
  TableBackup backup;
  const u64 now = clock.secondsSinceEpoch();
  if (const Failure failed = takeTableBackup(drive, now, backup)) return failed;
  const std::string prefix = filePrefix(backup.diskName);
  const std::string file = reserveFile(folder + "/" + prefix + dateStamp(now));
  if (file.empty()) return Error::cannotCreate;
  if (const Failure failed = writeTableBackup(backup, file)) {
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
    return failed;
  }
  dropOldest(folder, prefix);
  if (path != nullptr) *path = file;
  return Error::none;
}

std::vector<std::string> keptTablesOf(Drive& drive, const std::string& folder) {
  std::vector<std::string> paths;
  for (const std::string& name : copiesIn(folder, filePrefix(tableOwnerName(drive.disk()))))
    paths.push_back(folder + "/" + name);
  std::ranges::reverse(paths);
  return paths;
}

}  // namespace tallowin
