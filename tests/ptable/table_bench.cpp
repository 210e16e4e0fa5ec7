#include "ptable/table_bench.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <sstream>

#include "base/text.h"
#include "support/disk_file.h"
#include "support/fault_loops.h"
#include "support/loop_device.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

std::string lineOf(const Drive& drive, const PartitionEntry& entry) {
  std::string line = entry.isVolume() ? "  " : "";
  const std::optional<u32> number = drive.kernelNumber(entry);
  line += number ? format("%u: ", *number) : entry.isFree() ? "free " : "?: ";
  line += format("%llu..%lld", static_cast<unsigned long long>(entry.startSector),
                 static_cast<long long>(entry.endSector));
  if (!entry.isFree()) line += format(" %02Xh", entry.type);
  if (entry.isVolume() && entry.mbrType != entry.type) line += format(" (%02Xh)", entry.mbrType);
  if (entry.bootIndicator != 0) line += " *";
  if (entry.isInError()) line += " !";
  return line + "\n";
}

std::string linesOf(const Drive& drive, bool withFree) {
  std::string lines;
  for (const PartitionEntry* entry : entriesOf(drive))
    if (withFree || !entry->isFree()) lines += lineOf(drive, *entry);
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

std::string bareText(const Guid& guid) {
  const std::string text = guidText(guid);
  return text.substr(1, text.size() - 2);
}

// An image file, or for large sectors a loop device, with the content of a disk.
class Medium {
 public:
  explicit Medium(u32 sectorSizeBytes) : sectorSize_(sectorSizeBytes) {}

  std::string image() const { return folder_.file("disk.img"); }
  std::string path() {
    if (sectorSize_ == 512) return image();
    if (!loop_) loop_ = std::make_unique<LoopDevice>(image(), sectorSize_);
    return loop_->path();
  }
  void sparse(u64 bytes) const { static_cast<void>(folder_.sparse("disk.img", bytes)); }
  MemoryDisk load() {
    loop_.reset();
    return loadDisk(image(), sectorSize_);
  }

 private:
  u32 sectorSize_;
  TempFolder folder_;
  std::unique_ptr<LoopDevice> loop_;
};

void expectTableOf(Failure error, const std::string& now, const std::string& before,
                   const std::string& after, const std::string& what) {
  switch (error.code) {
    case Error::none:
    case Error::writeFailedNewTable:
      EXPECT_EQ(now, after) << what << ", error " << codeOf(error);
      break;
    case Error::writeFailedTableUnknown:
      EXPECT_TRUE(now == before || now == after) << what << "\n" << now;
      break;
    default:
      // A sector that cannot be read counts as one that changed, or that is in use.
      EXPECT_TRUE(error == Error::read || error == Error::write ||
                  error == Error::tableChangedMeanwhile || error == Error::sectorsInUse)
          << what << ", error " << codeOf(error);
      EXPECT_EQ(now, before) << what << ", error " << codeOf(error);
  }
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
  for (const PartitionEntry* entry : entriesOf(drive)) {
    if (const auto number = drive.kernelNumber(*entry))
      rows.push_back({*number, entry->startSector, entry->sectorCount(), entry->mbrType,
                      entry->bootIndicator == 0x80});
  }
  std::ranges::sort(rows, {}, &SfdiskRow::number);
  return rows;
}

MbrRecord mbrOf(DiskDevice& disk) {
  std::vector<u8> sector(disk.sectorSize());
  EXPECT_EQ(disk.readSectors(0, sector.data(), 1), Error::none);
  return *recordAt<MbrRecord>(std::span<const u8>(sector));
}

MbrSlotRecord slot(u8 type, u64 startSector, u64 sectors, u8 bootIndicator) {
  MbrSlotRecord record{};
  record.bootIndicator = bootIndicator;
  record.type = type;
  record.startLba = static_cast<u32>(startSector);
  record.sectorCount = static_cast<u32>(sectors);
  return record;
}

void flipByte(MemoryDisk& disk, u64 lba, std::size_t at) {
  std::vector<u8> sector = disk.sector(lba);
  sector[at] ^= 0xFF;
  disk.setSector(lba, sector);
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

std::vector<GptRow> gptRowsOf(const Drive& drive) {
  std::vector<GptRow> rows;
  for (const auto& entry : drive.table().entries) {
    if (entry->isFree()) continue;
    rows.push_back({static_cast<u32>(entry->tableIndex) + 1, entry->startSector,
                    entry->sectorCount(), bareText(entry->typeGuid), bareText(entry->uniqueGuid),
                    entry->tableName, entry->attributes});
  }
  std::ranges::sort(rows, {}, &GptRow::number);
  return rows;
}

std::string gptPicture(MemoryDisk& disk) {
  TableBench bench(disk.copy());
  std::ostringstream text;
  text << bench.drive().schemeName() << " " << guidText(bench.drive().diskGuid()) << "\n";
  for (const GptRow& row : gptRowsOf(bench.drive())) text << row << "\n";
  return text.str();
}

std::vector<GptRow> gptRowsBySfdisk(MemoryDisk& disk) {
  Medium medium(disk.sectorSize());
  storeDisk(disk, medium.image());
  return readGpt(medium.path());
}

std::string gptProblems(MemoryDisk& disk) {
  Medium medium(disk.sectorSize());
  storeDisk(disk, medium.image());
  return gptProblems(medium.path());
}

MemoryDisk diskFromCommands(u64 bytes, u32 sectorSizeBytes,
                            const std::vector<std::vector<std::string>>& commands,
                            const std::string& input) {
  Medium medium(sectorSizeBytes);
  medium.sparse(bytes);
  for (std::vector<std::string> command : commands) {
    std::ranges::replace(command, "IMAGE", medium.path());
    const bool isFed = command.front() == "sfdisk";
    const ProgramResult result = runProgram(command, isFed ? input : "");
    EXPECT_EQ(result.status, 0) << command.front() << ": " << result.output;
  }
  return medium.load();
}

void expectFaultsAreTold(MemoryDisk& before, const TableChange& change) {
  const std::string pictureBefore = change.picture(before);
  std::string pictureNow;
  forEachFault(before, kFailedRequests, [&](FaultRound& round) {
    FakeHost host;
    const auto drive = TableBench::openOn(round.sharedDisk(), host, change.options);
    round.begin();
    const Failure error = change.run(*drive);
    const std::string picture = change.picture(round.medium());
    // The errno and the sector come with the name that the contract gives. Sectors that cannot be
    // read may hold something, and are not overwritten.
    const bool keeps = error == Error::sectorsInUse || round.fault().kind == Fault::Kind::flush;
    EXPECT_TRUE(!error || keeps || (error.systemError == EIO && error.lba != kNoSector))
        << change.what << ", error " << codeOf(error);
    if (round.isSound()) {
      ASSERT_EQ(error, Error::none) << change.what;
      pictureNow = picture;
    }
    expectTableOf(error, picture, pictureBefore, pictureNow, change.what);
  });
}

void expectCutsLeaveOldOrNew(MemoryDisk& before, const TableChange& change,
                             const std::function<void(MemoryDisk& disk)>& judge) {
  const std::string pictureBefore = change.picture(before);
  std::string pictureNow;
  forEachPowerCut(
      before,
      [&](FaultRound& round) {
        FakeHost host;
        const auto drive = TableBench::openOn(round.sharedDisk(), host, change.options);
        ASSERT_EQ(change.run(*drive), Error::none) << change.what;
        pictureNow = change.picture(round.medium());
      },
      [&](MemoryDisk& after) {
        const std::string now = change.picture(after);
        EXPECT_TRUE(now == pictureBefore || now == pictureNow) << change.what << "\n" << now;
        if (judge) judge(after);
      });
}

}  // namespace tallowin
