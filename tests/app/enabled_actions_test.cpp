#include "app/enabled_actions.h"

#include <gtest/gtest.h>

#include "probe/gpt_type_guids.h"

namespace tallowin {
namespace {

const FileSystemKinds kKinds = registeredFileSystems();
constexpr u32 kMovable = kDeleteBit | kPropertiesBit | kCopyBit | kSlideBit;
constexpr u32 kData = kMovable | kResizeBit | kEditFileBit | kTrimBit;

u32 actionsFor(u16 type, ActionFacts facts = {.canTrim = true}) {
  TableEntry entry;
  entry.type = type;
  entry.endSector = 99;
  return enabledActions(kKinds, entry, facts);
}

TEST(EnabledActions, ByTypeHiddenOrNot) {
  struct Row {
    std::vector<u16> types;
    u32 bits;
  };
  const Row rows[] = {
      {{0x05, 0x0F, 0x85, 0x15, 0x1F}, kMovable | kResizeBit},
      {{0x01, 0x04, 0x06, 0x0B, 0x0C, 0x0E, 0x12, 0xDE, 0xDF, 0xEF, 0x11, 0x1C},
       kData | kFormatBit | kAlignBit},
      {{0x07, 0x27, 0x17}, kData | kFormatBit | kBcdEditBit},
      {{0x83}, kData},
      {{0x82, 0xAF, 0xEB}, kMovable},
      {{0x63, 0xED, 0xFF, 387}, kDeleteBit | kPropertiesBit},
  };
  for (const Row& row : rows)
    for (const u16 type : row.types) EXPECT_EQ(actionsFor(type), row.bits) << type;
}

TEST(EnabledActions, AFreeBlockTakesAPendingCopyThatFits) {
  const u32 plain = kCreateBit | kDeleteBit;
  EXPECT_EQ(actionsFor(0, {}), plain);
  EXPECT_EQ(actionsFor(0, {.canTrim = true}), plain | kTrimBit);
  EXPECT_EQ(actionsFor(0, {.pendingCopySectors = 100}), plain | kPasteBit);
  EXPECT_EQ(actionsFor(0, {.pendingCopySectors = 101}), plain);
}

TEST(EnabledActions, WhatHoldsNothingAndAGptByItsGuid) {
  EXPECT_TRUE(actionsFor(0, {.holdsNothing = true}) & kFormatBit);
  const auto ofGuid = [](const Guid& guid) {
    TableEntry entry;
    entry.type = 387;
    entry.typeGuid = guid;
    return enabledActions(kKinds, entry, {.isGpt = true});
  };
  EXPECT_TRUE(ofGuid(kGptBasicData) & kFormatBit);
  EXPECT_TRUE(ofGuid(kGptEfiSystem) & kFormatBit);
  EXPECT_FALSE(ofGuid(kGptMsReserved) & kFormatBit);
  EXPECT_TRUE(ofGuid(kGptEfiSystem) & kBcdEditBit) << "it has a boot configuration";
  EXPECT_FALSE(ofGuid(kGptBasicData) & kBcdEditBit);
}

TEST(EnabledActions, WhatIsInErrorCanOnlyBeDeletedAndLookedAt) {
  TableEntry entry;
  entry.type = 0x0F;
  entry.volumes = std::make_unique<VolumeList>();
  EXPECT_EQ(enabledActions(kKinds, entry, {}) & kResizeBit, kResizeBit);
  entry.volumes->status = kChainLoops;
  EXPECT_EQ(enabledActions(kKinds, entry, {}), kDeleteBit | kPropertiesBit);
  TableEntry overlapping;
  overlapping.type = 0x06;
  overlapping.status = kEntryOverlaps;
  EXPECT_EQ(enabledActions(kKinds, overlapping, {}), kDeleteBit | kPropertiesBit);
}

}  // namespace
}  // namespace tallowin
