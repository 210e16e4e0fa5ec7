#include "ptable/table_bench.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/text.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

std::string lineOf(const Drive& drive, const PartitionEntry& entry) {
  std::string line = entry.isVolume() ? "  " : "";
  const std::optional<u32> number = drive.kernelNumber(entry);
  line += number ? format("%u: ", *number) : entry.isFree() ? "free " : "?: ";
  line += format("%llu..%lld", static_cast<unsigned long long>(entry.startSector),
                 static_cast<long long>(entry.endSector));
  if (!entry.isFree()) line += format(" %02Xh", entry.type);
  if (entry.bootIndicator != 0) line += " *";
  if (entry.isInError()) line += " !";
  return line + "\n";
}

std::string linesOf(const Drive& drive, bool withFree) {
  std::string lines;
  const auto add = [&](const PartitionEntry& entry) {
    if (withFree || !entry.isFree()) lines += lineOf(drive, entry);
  };
  for (const auto& entry : drive.table().entries) {
    add(*entry);
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries) add(*volume);
  }
  return lines;
}

template <typename Entry>
Entry* largest(const std::vector<std::unique_ptr<Entry>>& entries) {
  Entry* best = nullptr;
  for (const auto& entry : entries) {
    if (entry->isFree() && (best == nullptr || entry->sectorCount() > best->sectorCount()))
      best = entry.get();
  }
  return best;
}

}  // namespace

TableBench::TableBench(MemoryDisk disk, const DriveOpenOptions& options)
    : disk_(std::make_shared<MemoryDisk>(std::move(disk))) {
  reopen(options);
}

std::unique_ptr<Drive> TableBench::openOn(std::shared_ptr<DiskDevice> disk, Host& host,
                                          const DriveOpenOptions& options) {
  std::unique_ptr<Drive> drive;
  EXPECT_EQ(Drive::open(std::move(disk), host, options, drive), Error::none);
  return drive;
}

Drive& TableBench::reopen(const DriveOpenOptions& options) {
  drive_ = openOn(disk_, host_, options);
  return *drive_;
}

std::string pictureOf(const Drive& drive) { return linesOf(drive, true); }
std::string usedRows(const Drive& drive) { return linesOf(drive, false); }

std::vector<SfdiskRow> rowsOf(const Drive& drive) {
  std::vector<SfdiskRow> rows;
  const auto add = [&](const PartitionEntry& entry) {
    if (const auto number = drive.kernelNumber(entry))
      rows.push_back({*number, entry.startSector, entry.sectorCount(), entry.mbrType,
                      entry.bootIndicator == 0x80});
  };
  for (const auto& entry : drive.table().entries) {
    add(*entry);
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries) add(*volume);
  }
  std::ranges::sort(rows, {}, &SfdiskRow::number);
  return rows;
}

MbrRecord mbrOf(DiskDevice& disk) {
  std::vector<u8> sector(disk.sectorSize());
  EXPECT_EQ(disk.readSectors(0, sector.data(), 1), Error::none);
  return *recordAt<MbrRecord>(std::span<const u8>(sector));
}

DriveOpenOptions alignedTo(i64 sectors) {
  DriveOpenOptions options;
  options.alignment = sectors;
  return options;
}

TableEntry* largestFree(Drive& drive) { return largest(drive.table().entries); }

VolumeEntry* largestInnerFree(Drive& drive) {
  for (const auto& entry : drive.table().entries)
    if (entry->volumes) return largest(entry->volumes->entries);
  return nullptr;
}

NewEntry newEntryAt(Drive& drive, u64 startSector, u64 sectors, u16 type, const std::string& name) {
  NewEntry entry{.startSector = startSector,
                 .endSector = startSector + sectors - 1,
                 .type = type,
                 .name = name};
  for (const auto& top : drive.table().entries) {
    if (!top->volumes) continue;
    for (const auto& block : top->volumes->entries) {
      const u64 gap = block->volumeStart - block->ebr;
      if (block->isFree() && block->startSector <= startSector && startSector <= block->endSector)
        entry.ebrSector = startSector - gap;
    }
  }
  return entry;
}

Failure addAt(Drive& drive, u64 startSector, u64 sectors, u16 type, const std::string& name) {
  const Failure failed = drive.add(newEntryAt(drive, startSector, sectors, type, name));
  static_cast<void>(drive.reread());
  return failed;
}

void expectRefused(MemoryDisk disk, const std::function<Failure(Drive& drive)>& run,
                   Failure expected, const char* what, const DriveOpenOptions& options) {
  TableBench bench(std::move(disk), options);
  MemoryDisk before = bench.disk().copy();
  EXPECT_EQ(run(bench.drive()), expected) << what;
  EXPECT_TRUE(bench.disk().sameContent(before)) << what;
}

}  // namespace tallowin
