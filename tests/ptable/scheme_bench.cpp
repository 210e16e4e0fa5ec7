#include "ptable/scheme_bench.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/text.h"
#include "disk/faulty_disk.h"
#include "disk/recording_disk.h"
#include "ptable/table_bench.h"
#include "support/disk_file.h"
#include "support/loop_device.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

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

std::string pictureAfter(MemoryDisk& before, const TableChange& change) {
  MemoryDisk disk = before.copy();
  FakeHost host;
  const auto drive = TableBench::openOn(std::make_shared<DiskWrapper>(disk), host, change.options);
  EXPECT_EQ(change.run(*drive), Error::none) << change.what;
  return change.picture(disk);
}

}  // namespace

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
  enum class Kind { read, write, halfWrite, flush };
  const std::string pictureBefore = change.picture(before);
  const std::string pictureNow = pictureAfter(before, change);
  for (const Kind kind : {Kind::read, Kind::write, Kind::halfWrite, Kind::flush}) {
    for (const bool forever : {false, true}) {
      if (kind == Kind::read && forever) continue;
      Failure error = Error::read;
      for (u64 n = 0; error != Error::none; ++n) {
        ASSERT_LT(n, 200U) << change.what;
        MemoryDisk disk = before.copy();
        FakeHost host;
        auto flushes =
            std::make_shared<FlushFault>(disk, kind == Kind::flush ? n : kAllOnes32, forever);
        auto faulty = std::make_shared<FaultyDisk>(*flushes);
        const auto drive = TableBench::openOn(faulty, host, change.options);
        if (kind == Kind::read) faulty->failRead(n, forever);
        if (kind == Kind::write || kind == Kind::halfWrite)
          faulty->failWrite(n, forever,
                            kind == Kind::write ? FaultyDisk::After::nothingWritten
                                                : FaultyDisk::After::halfWritten);
        error = change.run(*drive);
        expectTableOf(error, change.picture(disk), pictureBefore, pictureNow,
                      change.what + ", fault " + std::to_string(static_cast<int>(kind)) +
                          (forever ? " for ever" : "") + " at " + std::to_string(n));
      }
    }
  }
}

void expectCutsLeaveOldOrNew(MemoryDisk& before, const TableChange& change,
                             const std::function<void(MemoryDisk& disk)>& judge) {
  const std::string pictureBefore = change.picture(before);
  MemoryDisk disk = before.copy();
  FakeHost host;
  auto recording = std::make_shared<RecordingDisk>(disk);
  const auto drive = TableBench::openOn(recording, host, change.options);
  ASSERT_EQ(change.run(*drive), Error::none) << change.what;
  const std::string pictureNow = change.picture(disk);
  const WriteLog& log = recording->log();
  ASSERT_TRUE(log.steps().back().isFlush) << change.what;
  for (std::size_t cut = 0; cut <= log.size(); ++cut) {
    const std::size_t open = log.unflushedBefore(cut);
    for (u64 subset = 0; subset < (u64{1} << open); ++subset) {
      for (std::size_t torn = 0; torn <= open; ++torn) {
        // One sector is written as a whole or not at all.
        if (torn < open && log.steps()[cut - open + torn].bytes.size() <= disk.sectorSize())
          continue;
        MemoryDisk after =
            log.replaySubset(before, cut, subset, torn == open ? WriteLog::kNoTornStep : torn);
        const std::string now = change.picture(after);
        EXPECT_TRUE(now == pictureBefore || now == pictureNow)
            << change.what << ", cut after " << cut << ", subset " << subset << ", torn " << torn
            << "\n"
            << now;
        if (judge) judge(after);
      }
    }
  }
}

}  // namespace tallowin
