#include "ops/properties_flow.h"

#include <gtest/gtest.h>

#include "disk/mbr_record.h"
#include "ops/flow_bench.h"
#include "ops/properties_model.h"
#include "ops/property_lines.h"
#include "probe/content_record.h"

namespace tallowin {
namespace {

TEST(PropertiesModelTest, TheHideButtonFollowsTheField) {
  struct Case {
    u16 type;
    bool isVolume;
    const char* typed;  // null: as it is
    bool enabled;
    const char* label;
    u32 after;  // of a press
  };
  const Case cases[] = {
      {0x0C, false, nullptr, true, "&Hide", 0x1C},  {0x1C, false, nullptr, true, "Un&hide", 0x0C},
      {0x83, false, nullptr, false, "&Hide", 0x83}, {0x83, true, nullptr, true, "&Hide", 0xED},
      {0x83, true, "237", true, "Un&hide", 0x83},   {0x0C, false, "7", false, "&Hide", 7},
      {0x0C, false, "0x1c", true, "Un&hide", 0x0C}, {0x0C, false, "", false, "&Hide", 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.type) + testing::PrintToString(c.typed));
    PropertiesFacts facts;
    facts.type = facts.tableType = c.type;
    facts.isVolume = c.isVolume;
    PropertiesModel model(facts);
    if (c.typed) model.typeText = c.typed;
    model.pass();
    EXPECT_EQ(model.hideControl.enabled, c.enabled);
    EXPECT_EQ(model.hideControl.enabled, model.hideControl.whyDisabled.empty());
    EXPECT_EQ(model.hideLabel, c.label);
    model.pressHide();
    EXPECT_EQ(model.typeValue(), c.after);
  }
}

TEST(PropertyLinesTest, EachTypeSaysWhatDoesNotReachIt) {
  struct Case {
    u16 type;
    u64 start;
    u64 end;
    std::optional<u16> lastVolume;
    std::vector<std::string> lines;
  };
  const std::string fat32 = "This Partition is not accessible by Win95a, \nDOS, WinNT, or OS/2.";
  const Case cases[] = {
      {0x83, 63, 5000, {}, {"Bootable: No"}},
      {0x05, 63, 5000, 0x0B, {"Bootable: DOS Warning: Last volume should be visible FAT"}},
      {0x05, 63, 5000, 0, {"Bootable: Warning: Last volume should be visible FAT/FAT32"}},
      {0x05, 63, 5000, 0x06, {"Bootable: "}},
      {0x0B, 63, 5000, {}, {"Bootable: Yes", fat32}},
      {0x06,
       63,
       90000,
       {},
       {"Bootable: Yes", "This Partition is not fully accessible by DOS.",
        "*WARNING* The file system id should be 14"}},
      {0x0E, 50000, 90000, {}, {"Bootable: Yes", "This Partition is not accessible by DOS."}},
      {0x06, 63, 69000, {}, {"Bootable: Yes"}},
      {0xEF, 63, 90000, {}, {"Bootable: Yes"}},
  };
  for (const Case& c : cases) {
    PropertyFacts facts;
    facts.type = facts.typeForEnd = c.type;
    if (c.type == 0x06 && c.end > 80000) facts.typeForEnd = 0x0E;
    facts.startSector = c.start;
    facts.endSector = c.end;
    facts.lastChsSector = 80000;
    facts.lastVolumeType = c.lastVolume;
    EXPECT_EQ(propertyLines(facts), c.lines) << c.type << " " << c.end;
  }
}

// Partition 1 is a FAT32 of 70000 sectors, 2 has no file system, 3 is extended with a volume.
class PropertiesFlowTest : public FlowTest {
 protected:
  PropertiesFlowTest() {
    const auto drive = open(disk_);
    add(*drive, 0, 70000, 0x0C, "");
    add(*drive, 0, 20480, 0x83, "");
    add(*drive, 0, 80000, 0x05, "");
    add(*drive, 1, 20480, 0x83, "VOLUME");
    FormatWish wish;
    wish.type = 0x0C;
    wish.geometry = {1023, 15, 32};
    wish.hiddenSectors = start(1);
    wish.driveNumber = 0x81;
    SilentJob job;
    FormatReport report;
    EXPECT_FALSE(fileSystems_.byWord("fat32")->format({disk_, start(1), 70000}, wish, job, report));
  }
  u64 start(u32 number) { return open(disk_)->findByKernelNumber(number)->startSector; }
  VolumeBootRecord bootAt(MemoryDisk& disk, u64 lba) {
    return *recordAt<VolumeBootRecord>(std::span<const u8>(disk.sector(lba)));
  }
  FlowResult show(Drive& drive, u32 number, bool offersEnd = false) {
    return propertiesFlow(context_, drive, *drive.findByKernelNumber(number), offersEnd);
  }
  static void expectRepairs(ScriptedFrontEnd& ui, MessageResult answer) {
    ui.expectMessage("Invalid Head and SPT values exist in the BPB.  Fix it?", answer);
    ui.expectMessage("Correct BPB HDNum (Y/N)?", answer);
  }
};

TEST_F(PropertiesFlowTest, ABootSectorIsRepairedWithItsCopyAndNothingElse) {
  const auto drive = open(disk_);
  const MemoryDisk before = disk_.copy();
  expectRepairs(ui_, MessageResult::yes);
  EXPECT_EQ(repairBootSectorFlow(context_, *drive, *drive->findByKernelNumber(1)).end,
            FlowEnd::done);
  for (const u64 lba : {start(1), start(1) + 6}) {
    EXPECT_EQ(bootAt(disk_, lba).headCount, 255);
    EXPECT_EQ(bootAt(disk_, lba).sectorsPerTrack, 63);
    EXPECT_EQ(disk_.sector(lba)[64], 0x80);
    std::vector<u8> sector = disk_.sector(lba);
    for (const std::size_t at : {24, 26, 27, 64}) sector[at] = before.copy().sector(lba)[at];
    disk_.setSector(lba, sector);
  }
  EXPECT_TRUE(disk_.sameContent(before));
}

TEST_F(PropertiesFlowTest, ABootSectorThatChangedMeanwhileIsLeftAlone) {
  const auto drive = open(disk_);
  std::optional<MemoryDisk> changed;
  expectRepairs(ui_, MessageResult::yes);
  ui_.meanwhile([&] {
    std::vector<u8> sector = disk_.sector(start(1));
    sector[500] ^= 1;
    disk_.setSector(start(1), sector);
    changed.emplace(disk_.copy());
  });
  ui_.expectMessage("not the one that was looked at any more.\nNothing was changed.");
  EXPECT_EQ(repairBootSectorFlow(context_, *drive, *drive->findByKernelNumber(1)).end,
            FlowEnd::refused);
  EXPECT_TRUE(disk_.sameContent(*changed));
}

TEST_F(PropertiesFlowTest, WhatIsEnteredIsOnTheDisk) {
  auto drive = open(disk_);
  expectRepairs(ui_, MessageResult::no);
  ui_.expect<PropertiesModel>([](PropertiesModel& model) {
    EXPECT_EQ(model.title, "Properties (1) ");
    EXPECT_TRUE(model.nameControl.enabled) << "its label";
    EXPECT_FALSE(model.endControl.shown);
    model.details();
    model.name = "LETTERS";
    model.pressHide();
    model.ok();
    EXPECT_FALSE(model.isOpen());
  });
  ui_.expectMessage("Free: 34 MiB\nUsed: ");
  EXPECT_EQ(show(*drive, 1).end, FlowEnd::done);
  drive = open(disk_);
  EXPECT_EQ(drive->findByKernelNumber(1)->type, 0x1C);
  EXPECT_EQ(labelIn(*fileSystems_.byWord("fat32"), {disk_, start(1), 70000}, 0x0C, 437), "LETTERS");

  const u64 end = drive->findByKernelNumber(2)->endSector;
  ui_.expect<PropertiesModel>([&](PropertiesModel& model) {
    EXPECT_FALSE(model.nameControl.enabled);
    model.endText = std::to_string(end + 1000000);
    model.ok();
    EXPECT_TRUE(model.isOpen());
    model.endText = std::to_string(end - 2048);
    model.ok();
    EXPECT_TRUE(model.isOpen()) << "what lies behind the new end may be lost";
    model.ok();
  });
  ui_.expectMessage("The partition can end from sector");
  ui_.expectMessage("files that lie behind the\nnew end are lost", MessageResult::no);
  ui_.expectMessage("files that lie behind the\nnew end are lost", MessageResult::yes);
  EXPECT_EQ(show(*drive, 2, true).end, FlowEnd::done);
  EXPECT_EQ(open(disk_)->findByKernelNumber(2)->endSector, end - 2048);

  drive = open(disk_);
  ui_.expect<PropertiesModel>([&](PropertiesModel& model) {
    EXPECT_EQ(model.name, "VOLUME");
    model.typeText = "5";
    model.ok();
    model.typeText = "";
    model.ok();
    model.pressHide();
    model.typeText = "237";
    model.name = "OTHER";
    model.ok();
  });
  ui_.expectMessage("You cannot use that file system in an extended partition.");
  ui_.expectMessage("A Name and File System must be entered.");
  EXPECT_EQ(show(*drive, 5, true).end, FlowEnd::done);
  EXPECT_EQ(open(disk_)->findByKernelNumber(5)->name, "OTHER");
  EXPECT_EQ(open(disk_)->findByKernelNumber(5)->mbrType, 0xED);
  EXPECT_EQ(open(disk_)->findByKernelNumber(5)->type, 0x83);
}

TEST_F(PropertiesFlowTest, AChainThatLeadsNowhereIsEndedAndChsIsRecalculated) {
  auto drive = open(disk_);
  const u64 ebr = start(3);
  std::vector<u8> sector = disk_.sector(ebr);
  auto& record = *recordAt<EbrRecord>(std::span(sector));
  record.slots[1].type = 5;
  record.slots[1].startLba = 70000;
  record.slots[1].sectorCount = 63;
  record.slots[0].endChs = {1, 2, 3};
  disk_.setSector(ebr, sector);
  drive = open(disk_);
  ui_.expectMessage("An invalid volume chain was found.  Truncate it?", MessageResult::yes);
  ui_.expect<PropertiesModel>([](PropertiesModel& model) {
    model.recalc();
    model.cancel();
  });
  ui_.expectMessage("The Operation Completed Successfully");
  EXPECT_EQ(show(*drive, 3).end, FlowEnd::cancelled);
  sector = disk_.sector(ebr);
  EXPECT_EQ(recordAt<EbrRecord>(std::span(sector))->slots[1].type, 0);
  EXPECT_NE(recordAt<EbrRecord>(std::span(sector))->slots[0].endChs, (std::array<u8, 3>{1, 2, 3}));
  EXPECT_FALSE(open(disk_)->table().hasErrors());
}

TEST_F(PropertiesFlowTest, FailedTransfersAndPowerCutsLeaveOldOrNew) {
  const Flow flow = [&](Drive& drive, ScriptedFrontEnd& ui) {
    ui.answerOthers(MessageResult::cancel);
    ui.expect<PropertiesModel>([](PropertiesModel& model) {
      model.endText = std::to_string(std::stoull(model.endText) - 2048);
      model.ok();
      if (model.isOpen()) model.cancel();
    });
    ui.expectMessage("new end are lost", MessageResult::yes);
    const PartitionEntry* entry = drive.findByKernelNumber(2);
    return propertiesFlow(with(ui), drive, *entry, true);
  };
  forEachFailedRequest(flow);
  expectCutsLeaveOldOrNew(flow);
}

}  // namespace
}  // namespace tallowin
