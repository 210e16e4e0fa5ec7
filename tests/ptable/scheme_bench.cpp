#include "ptable/scheme_bench.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/text.h"
#include "ptable/table_bench.h"
#include "support/disk_file.h"
#include "support/fault_loops.h"
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
  const std::string pictureBefore = change.picture(before);
  std::string pictureNow;
  forEachFault(before, kFailedRequests, [&](FaultRound& round) {
    FakeHost host;
    const auto drive = TableBench::openOn(round.sharedDisk(), host, change.options);
    round.begin();
    const Failure error = change.run(*drive);
    const std::string picture = change.picture(round.medium());
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
