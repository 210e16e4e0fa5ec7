#include "move/extent_list.h"

#include <gtest/gtest.h>

namespace tallowin {
namespace {

TEST(ExtentList, JoinsWhatAdjoinsAndDividesWhatIsTooLong) {
  ExtentList list;
  EXPECT_EQ(list.add(100, 10), Error::none);
  EXPECT_EQ(list.add(110, 5), Error::none);
  EXPECT_EQ(list.add(115, 5, ExtentClass::pageFile), Error::none);
  EXPECT_EQ(list.add(1000, u64{ExtentList::kMaxSectors} + 3), Error::none);
  EXPECT_EQ(list.add(50, 1), Error::invalidName);

  ASSERT_EQ(list.size(), 4U);
  EXPECT_EQ(list.at(0), (ExtentList::Extent{100, 15, ExtentClass::data}));
  EXPECT_EQ(list.at(1), (ExtentList::Extent{115, 5, ExtentClass::pageFile}));
  EXPECT_EQ(list.at(3).startSector, 1000U + ExtentList::kMaxSectors);
  EXPECT_EQ(list.at(3).sectors, 3U);
  EXPECT_EQ(list.dataSectors(), 15U + ExtentList::kMaxSectors + 3);
  EXPECT_EQ(list.dataSectors(105, 12), 10U);
  EXPECT_EQ(list.indexAt(114), 0U);
  EXPECT_EQ(list.indexAt(115), 1U);
}

TEST(ExtentList, MarkingSplitsTheEntriesThatHoldTheSectors) {
  ExtentList list;
  EXPECT_EQ(list.add(0, 100), Error::none);
  EXPECT_EQ(list.add(200, 100), Error::none);
  EXPECT_EQ(list.mark(90, 120, ExtentClass::swapFile), Error::none);
  ASSERT_EQ(list.size(), 4U);
  EXPECT_EQ(list.at(0), (ExtentList::Extent{0, 90, ExtentClass::data}));
  EXPECT_EQ(list.at(1), (ExtentList::Extent{90, 10, ExtentClass::swapFile}));
  EXPECT_EQ(list.at(2), (ExtentList::Extent{200, 10, ExtentClass::swapFile}));
  EXPECT_EQ(list.at(3), (ExtentList::Extent{210, 90, ExtentClass::data}));
  EXPECT_EQ(list.dataSectors(), 180U);
}

}  // namespace
}  // namespace tallowin
