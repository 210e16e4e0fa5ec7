#include "probe/type_catalogue.h"

#include <gtest/gtest.h>

namespace tallowin {
namespace {

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
