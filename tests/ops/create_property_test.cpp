// Partitions created at random until the disk is full, against a list of who owns which sectors.
#include <gtest/gtest.h>

#include <random>

#include "ops/apply_drive_settings.h"
#include "ops/create_flow.h"
#include "ops/flow_bench.h"

namespace tallowin {
namespace {

struct Owned {
  u64 first, last;
};

class CreatePropertyTest : public FlowTest {
 protected:
  static std::vector<Owned> ownersOf(const Drive& drive) {
    std::vector<Owned> owners;
    for (const auto& entry : drive.table().entries)
      if (!entry->isFree()) owners.push_back({entry->startSector, entry->endSector});
    return owners;
  }

  // What may be typed into the dialog for a block of any size.
  std::function<void(CreateModel&)> anything() {
    return [this](CreateModel& model) {
      model.name = "P";
      model.fileSystem = "131";
      model.pass();
      model.sizeMiB.setValue(1 + upTo(model.sizeMiB.maximum / 3));
      model.pass();
      const u32 kind = upTo(2);
      if (kind == 0) model.freeBeforeMiB.setValue(upTo(model.freeBeforeMiB.maximum));
      if (kind == 1) model.freeAfterMiB.setValue(upTo(model.freeAfterMiB.maximum));
      model.pass();
      model.ok();
      if (model.isOpen()) model.cancel();
    };
  }
  u32 upTo(u32 largest) { return std::uniform_int_distribution<u32>(0, largest)(random_); }

  std::mt19937 random_{41};
};

TEST_F(CreatePropertyTest, NoPartitionLeavesItsFreeBlockOrTouchesAnother) {
  u32 created = 0;
  struct Alignment {
    bool oneMiB, cylinder;
    u32 bytes;
  };
  for (const Alignment& alignment :
       {Alignment{false, true, 0}, {true, false, 0}, {false, false, 4096}, {false, true, 65536}}) {
    options_.globalGeoAlign2K = alignment.oneMiB;
    options_.globalGeoAlignCylinder = alignment.cylinder;
    options_.globalGeoAlignVal = alignment.bytes;
    for (int round = 0; round < 6; ++round) {
      MemoryDisk disk(kSectors);
      DriveSettingsRecord record;
      std::unique_ptr<Drive> drive;
      ASSERT_EQ(Error::none,
                openDriveWithSettings(borrowed(disk), host_, options_, &record, 0, {}, drive));
      for (int attempt = 0; attempt < 5 && !freeBlocks(*drive).empty(); ++attempt) {
        const auto blocks = freeBlocks(*drive);
        PartitionEntry& block = *blocks[upTo(static_cast<u32>(blocks.size() - 1))];
        const SectorRegion room = drive->freeRegionAround(block);
        const std::vector<Owned> before = ownersOf(*drive);
        ScriptedFrontEnd ui;
        ui.answerOthers(MessageResult::ok);
        ui.expect<CreateModel>(anything());
        const FlowResult result = createFlow(with(ui), *drive, block);
        ui.forget();
        const std::vector<Owned> after = ownersOf(*drive);
        ASSERT_EQ(after.size(), before.size() + (result.succeeded() ? 1 : 0));
        if (result.succeeded()) ++created;

        for (const Owned& mine : after) {
          const bool isOld = std::ranges::any_of(before, [&](const Owned& other) {
            return other.first == mine.first && other.last == mine.last;
          });
          if (isOld) continue;
          ASSERT_LE(room.first, mine.first);
          ASSERT_LE(mine.first, mine.last);
          ASSERT_LE(mine.last, room.last);
          for (const Owned& other : before)
            ASSERT_TRUE(mine.last < other.first || other.last < mine.first);
          const u64 unit = alignmentUnit(drive->alignment());
          ASSERT_TRUE(mine.first % unit == 0 ||
                      mine.first == firstAlignedSector(drive->alignment()))
              << mine.first << " by " << unit;
        }
        ASSERT_FALSE(drive->table().hasErrors());
      }
    }
  }
  EXPECT_GT(created, 50U);
}

}  // namespace
}  // namespace tallowin
