#include "probe/type_catalogue.h"

#include <gtest/gtest.h>

namespace tallowin {
namespace {

TEST(TypeCatalogue, NamesEveryIdInItsForm) {
  EXPECT_EQ(types::name(300), "Type 12Ch/300");
  EXPECT_EQ(types::name(387), "GPT Entry");
  EXPECT_EQ(types::name(13), "Type Dh/13");
  EXPECT_FALSE(types::hasName(13));
}

TEST(TypeCatalogue, HidesAndUnhides) {
  for (const u16 type :
       std::initializer_list<u16>{0x01, 0x04, 0x05, 0x06, 0x07, 0x0B, 0x0C, 0x0E, 0x0F}) {
    EXPECT_EQ(types::hide(type), type + 0x10);
    EXPECT_EQ(types::hide(types::hide(type)), type + 0x10);
    EXPECT_EQ(types::unhide(types::hide(type)), type);
    EXPECT_TRUE(types::isHidden(types::hide(type)) && !types::isHidden(type));
  }
  for (const u16 type : std::initializer_list<u16>{0x83, 0x12, 0x27, 387})
    EXPECT_EQ(types::hide(type), 0xED);
  EXPECT_EQ(types::unhide(0x12), 0x12);
  EXPECT_TRUE(types::isHidden(0xED));
}

TEST(TypeCatalogue, FamiliesLookThroughHiddenForms) {
  EXPECT_TRUE(types::isExtended(0x85) && types::isExtended(0x15) && types::isChainLink(0x85) &&
              !types::isChainLink(0x15));
  EXPECT_TRUE(types::isFat(0x16) && types::isFat(0xEF) && !types::isFat(0x07));
  EXPECT_TRUE(types::isFat32(0x1C) && types::isFat32(0xEF) && !types::isFat32(0x0E));
  EXPECT_TRUE(types::isNtfs(0x17) && types::isNtfs(0x27) && !types::isNtfs(0x87));
  EXPECT_TRUE(types::isHideableData(0x0E) && !types::isHideableData(0x0F));
}

TEST(TypeCatalogue, SizesOfFat) {
  using types::FatLimit;
  EXPECT_EQ(types::maxFatSizeMiB(0x06, 0, FatLimit::usual), 4096U);
  EXPECT_EQ(types::maxFatSizeMiB(0x16, 512, FatLimit::usual), 4095U);
  EXPECT_EQ(types::maxFatSizeMiB(0x06, 16065 * 512, FatLimit::usual), 4096U);
  EXPECT_EQ(types::maxFatSizeMiB(0xDE, 0, FatLimit::large), 0x1FFFFFU);
  EXPECT_EQ(types::maxFatSizeMiB(0xDE, 0, FatLimit::usual), 4096U);
  EXPECT_EQ(types::maxFatSizeMiB(0x83, 512, FatLimit::large), types::kNoSizeLimit);
}

}  // namespace
}  // namespace tallowin
