#include "ops/slide_flow.h"

#include <gtest/gtest.h>

#include "base/bytes.h"
#include "ops/flow_bench.h"
#include "ops/slide_model.h"
#include "ops/table_change.h"
#include "support/oracle.h"
#include "support/sfdisk.h"

namespace tallowin {
namespace {

constexpr u64 kMiBSectors = 2048;

std::function<void(SlideModel&)> slideTo(u64 start, bool dataOnly = true) {
  return [=](SlideModel& model) {
    model.exactStart = start;
    model.dataOnly = dataOnly && model.dataOnlyControl.enabled;
    model.ok();
  };
}

// What lies in a sector says which one it was.
void numberSectors(MemoryDisk& disk, u64 first, u64 count) {
  std::vector<u8> sector(disk.sectorSize());
  for (u64 i = 0; i < count; ++i) {
    for (std::size_t at = 0; at + 8 <= sector.size(); at += 8)
      *recordAt<Le64>(std::span(sector), at) = first + i;
    EXPECT_FALSE(disk.writeSectors(first + i, sector.data(), 1));
  }
}

u64 numberAt(MemoryDisk& disk, u64 lba) {
  const std::vector<u8> sector = disk.sector(lba);
  return *recordAt<Le64>(std::span<const u8>(sector), 64);
}

class SlideFlowTest : public FlowTest {
 protected:
  FlowResult slide(Drive& drive, ScriptedFrontEnd& ui, u64 start, u64 newStart) {
    PartitionEntry* entry = findByStart(drive, start);
    EXPECT_NE(nullptr, entry) << start;
    ui.expect<SlideModel>(slideTo(newStart));
    ui.expectMessage("There are certain events that can cause data loss", MessageResult::goOn);
    return slideFlow(with(ui), drive, *entry);
  }
};

// A table as sfdisk makes it, a partition of it, and where it goes.
struct Case {
  const char* name;
  const char* script;
  u32 number;
  i64 by;
};

class SlideTable : public SlideFlowTest, public ::testing::WithParamInterface<Case> {};

constexpr const char* kMbr =
    "label: dos\n"
    "start=20480, size=20480, type=83\n"
    "start=81920, size=204800, type=5\n"
    "start=300000, size=1000, type=83\n"
    "start=83968, size=20480, type=83\n"
    "start=124928, size=20480, type=83\n"
    "start=200704, size=20480, type=83\n";
constexpr const char* kGpt =
    "label: gpt\nfirst-lba: 34\n"
    "start=20480, size=20480, type=L, name=one\n"
    "start=81920, size=20480, type=L, name=two\n";

// Every other partition stays, the one goes with all that is in it.
TEST_P(SlideTable, OtherProgramsFindItAtItsNewPlace) {
  const Case& c = GetParam();
  MemoryDisk disk = diskFromScript(kSectors, c.script);
  SfdiskTable before = readTable(disk);
  ASSERT_EQ("", before.problems);
  auto& row = *std::ranges::find(before.rows, c.number, &SfdiskRow::number);
  const auto drive = open(disk);
  const bool isContainer = row.type == 5;
  if (!isContainer) numberSectors(disk, row.start, row.size);
  const u64 from = row.start;
  const u64 to = from + static_cast<u64>(c.by);
  const auto result = slide(*drive, ui_, from, to);
  EXPECT_EQ(FlowEnd::done, result.end) << codeOf(result.code);
  for (SfdiskRow& other : before.rows)
    if (isContainer && other.number >= 5) other.start += static_cast<u64>(c.by);
  row.start = to;
  const SfdiskTable after = readTable(disk);
  EXPECT_EQ("", after.problems);
  EXPECT_EQ(before.rows, after.rows);
  EXPECT_EQ(tableOf(*open(disk)), tableOf(*drive));
  if (isContainer) return;
  for (u64 i = 0; i < row.size; ++i) ASSERT_EQ(from + i, numberAt(disk, to + i)) << i;
}

INSTANTIATE_TEST_SUITE_P(
    All, SlideTable,
    ::testing::Values(Case{"PrimaryUpByOne", kMbr, 1, 1}, Case{"PrimaryDownByOne", kMbr, 1, -1},
                      Case{"PrimaryUpOverlapping", kMbr, 1, 15000},
                      Case{"PrimaryUp", kMbr, 1, 30720}, Case{"PrimaryDown", kMbr, 1, -18432},
                      Case{"Container", kMbr, 2, 5000}, Case{"ContainerDown", kMbr, 2, -40000},
                      Case{"FirstVolumeUp", kMbr, 5, 3000}, Case{"FirstVolumeFar", kMbr, 5, 18400},
                      Case{"SecondVolumeUp", kMbr, 6, 10000},
                      Case{"SecondVolumeDown", kMbr, 6, -10000},
                      Case{"SecondVolumeFar", kMbr, 6, 50000},
                      Case{"LastVolumeDown", kMbr, 7, -30000}, Case{"LastVolumeUp", kMbr, 7, 65000},
                      Case{"GptUp", kGpt, 1, 30000}, Case{"GptDown", kGpt, 2, -30000},
                      Case{"GptUpByOne", kGpt, 2, 1}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace tallowin
