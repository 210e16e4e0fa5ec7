#include "ops/create_model.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "ops/file_systems.h"
#include "ops/placement.h"

namespace tallowin {
namespace {

// A free block of `mib` MiB on an MBR disk, aligned to 1 MiB.
CreateFacts block(u64 mib) {
  CreateFacts facts;
  facts.startSector = 2048;
  facts.endSector = facts.startSector + mib * 2048 - 1;
  facts.alignmentUnitSectors = 2048;
  return facts;
}

void type(CreateModel& model, const std::string& text) {
  model.fileSystem = text;
  model.pass();
}

TEST(CreateModel, OpensWithTheWholeBlock) {
  const CreateModel model(block(1023));
  EXPECT_EQ("Create - 1023 MiB Block", model.title);
  EXPECT_EQ(1023U, model.sizeMiB.value);
  EXPECT_EQ(0U, model.freeBeforeMiB.value);
  EXPECT_EQ(0U, model.freeAfterMiB.maximum);
  EXPECT_FALSE(model.formatControl.enabled);
  EXPECT_FALSE(model.formatControl.whyDisabled.empty());
  EXPECT_EQ(kPlaceAtEnd, model.placement());

  CreateFacts tiny = block(1);
  tiny.endSector = tiny.startSector + 1000;
  EXPECT_EQ("Create - < 1 MiB Block", CreateModel(tiny).title);
}

TEST(CreateModel, ATypeIsTypedInAnyBaseOrChosen) {
  CreateModel model(block(100));
  struct Case {
    const char* text;
    u32 value;
  };
  for (const Case& c : {Case{"131", 131}, Case{"0x83", 131}, Case{"0203", 131}, Case{" 131 ", 131},
                        Case{"131/83h: Linux Native", 131}, Case{"300", 300}, Case{"", 0},
                        Case{"ext4", 0}, Case{"131x", 0}, Case{"4294967296", 0}}) {
    type(model, c.text);
    EXPECT_EQ(c.value, model.fileSystemValue()) << c.text;
  }
}

TEST(CreateModel, TheMenuHoldsTheUsualTypesOrAllThatHaveAName) {
  const auto offers = [](const CreateModel& model, u16 id) {
    return std::any_of(model.fileSystemChoices.begin(), model.fileSystemChoices.end(),
                       [id](const CreateModel::TypeChoice& choice) { return choice.type == id; });
  };
  CreateFacts facts = block(100);
  const CreateModel usual(facts);
  EXPECT_FALSE(offers(usual, 0xEF));
  facts.isGpt = true;
  EXPECT_TRUE(offers(CreateModel(facts), 0xEF));
  facts.fullPartitionList = true;
  const CreateModel full(facts);
  EXPECT_TRUE(offers(full, 0x8E));
  EXPECT_FALSE(offers(full, 0x90)) << "a type without a name of its own";
}

TEST(CreateModel, FreeSpaceBeforeAndAfterShareWhatTheSizeLeaves) {
  CreateModel model(block(1000));
  model.sizeMiB.value = 400;
  model.pass();
  EXPECT_EQ(600U, model.freeAfterMiB.value);
  EXPECT_EQ(0U, model.placement());

  model.freeBeforeMiB.value = 250;
  model.pass();
  EXPECT_EQ(350U, model.freeAfterMiB.value);
  EXPECT_EQ(250U, model.placement());

  model.freeAfterMiB.value = 0;
  model.pass();
  EXPECT_EQ(600U, model.freeBeforeMiB.value);
  EXPECT_EQ(kPlaceAtEnd, model.placement());

  model.sizeMiB.value = 900;
  model.pass();
  EXPECT_EQ(100U, model.freeBeforeMiB.value) << "cut to the room that is left";
  EXPECT_EQ(0U, model.freeAfterMiB.value);

  model.sizeMiB.value = 5000;
  model.freeBeforeMiB.value = 70;
  model.pass();
  EXPECT_EQ(1000U, model.sizeMiB.value);
  EXPECT_EQ(0U, model.freeBeforeMiB.value);
}

TEST(CreateModel, AWantedSizeComesBackWhenTheTypeAllowsIt) {
  CreateModel model(block(10000));
  type(model, "6");
  EXPECT_EQ(4095U, model.sizeMiB.value);
  EXPECT_EQ(4095U, model.sizeMiB.maximum);
  type(model, "1");
  EXPECT_EQ(15U, model.sizeMiB.value);
  EXPECT_EQ(9985U, model.freeAfterMiB.value);
  type(model, "131");
  EXPECT_EQ(10000U, model.sizeMiB.value);

  model.sizeMiB.value = 20;
  model.pass();
  type(model, "1");
  EXPECT_EQ(15U, model.sizeMiB.value);
  model.sizeMiB.value = 10;
  model.pass();
  type(model, "131");
  EXPECT_EQ(10U, model.sizeMiB.value) << "the size that the user typed last";
}

TEST(CreateModel, WarnsOfFatSixteenThatOlderSystemsCannotRead) {
  struct Case {
    const char* type;
    u32 sizeMiB;
    u64 unit;
    bool shown;
  };
  for (const Case& c : {Case{"6", 2047, 2048, false}, Case{"6", 2048, 2048, true},
                        Case{"14", 2049, 2048, true}, Case{"6", 2048, 16065, false},
                        Case{"6", 2049, 16065, true}, Case{"11", 3000, 2048, false}}) {
    CreateFacts facts = block(4000);
    facts.alignmentUnitSectors = c.unit;
    CreateModel model(facts);
    type(model, c.type);
    model.sizeMiB.value = c.sizeMiB;
    model.pass();
    EXPECT_EQ(c.shown, model.winNtOnlyLabel.shown) << c.type << " " << c.sizeMiB;
  }
}

TEST(CreateModel, FormatIsOfferedForWhatCanBeFormatted) {
  const FileSystemKinds kinds = registeredFileSystems();
  CreateFacts facts = block(100);
  facts.fileSystems = &kinds;
  CreateModel model(facts);
  type(model, "12");
  EXPECT_TRUE(model.formatControl.enabled && model.format);
  for (const char* text : {"7", "131", "5", "300"}) {
    type(model, text);
    EXPECT_FALSE(model.formatControl.enabled || model.format) << text;
    EXPECT_FALSE(model.formatControl.whyDisabled.empty()) << text;
  }
}

TEST(CreateModel, NamesFollowTheScheme) {
  CreateFacts facts = block(100);
  EXPECT_TRUE(CreateModel(facts).nameControl.enabled);
  facts.volumeLabels = false;
  CreateModel primary(facts);
  EXPECT_EQ("New MBR Entry", primary.name);
  EXPECT_FALSE(primary.nameControl.enabled);
  facts.insideExtended = true;
  EXPECT_TRUE(CreateModel(facts).nameControl.enabled);

  facts.isEmbr = true;
  EXPECT_EQ(8U, CreateModel(facts).nameMaxLength);
  EXPECT_FALSE(CreateModel(facts).multiOsControl.enabled);
  facts.insideExtended = false;
  EXPECT_EQ(15U, CreateModel(facts).nameMaxLength);
  EXPECT_TRUE(CreateModel(facts).multiOsControl.enabled);
}

}  // namespace
}  // namespace tallowin
