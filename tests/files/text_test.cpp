#include <gtest/gtest.h>

#include "files/ini_text.h"
#include "files/path_text.h"

namespace tallowin {
namespace {

constexpr std::string_view kText =
    "top = 1 \r\n"
    "[One]\r\n"
    "Key   =  some value \t\r\n"
    "KeyLonger=2\r\n"
    "  [two]\n"
    "Other=3\n"
    "Bare\n"
    "[broken\r"
    "Last=";

struct ValueCase {
  std::optional<std::string_view> section;
  std::string_view key;
  std::optional<std::string_view> expected;
};

TEST(IniText, FindsValuesOfTheSectionAlone) {
  const ValueCase cases[] = {
      {std::nullopt, "TOP", "1"},
      {std::nullopt, "Key", std::nullopt},  // behind the first header
      {"one", "key", "some value"},         // blanks around '=' and at the end
      {"One", "KeyLong", std::nullopt},     // the start of another key
      {"One", "Other", std::nullopt},       // only in a later section
      {"TWO", "Other", "3"},                // LF alone, blanks before the header
      {"Two", "Bare", std::nullopt},
      {"Two", "Last", ""},  // CR alone; a header without its bracket is none
      {"Three", "Key", std::nullopt},
  };
  for (const ValueCase& c : cases)
    EXPECT_EQ(getValue(kText, c.section, c.key), c.expected) << c.section.value_or("-") << c.key;
}

TEST(IniText, SectionsHaveRanges) {
  SectionRange range;
  const auto first = findSection(kText, std::nullopt, &range);
  ASSERT_TRUE(first);
  EXPECT_EQ(sectionName(kText, range.headerStart), "One");
  EXPECT_TRUE(kText.substr(*first).starts_with("Key "));
  EXPECT_EQ(sectionName(kText, range.end), "two");
  ASSERT_TRUE(findSection(kText, "Two", &range));
  EXPECT_EQ(range.end, kText.size());
  EXPECT_FALSE(findSection("", std::nullopt));
}

TEST(IniText, AddsSectionsAtTheEnd) {
  std::string text;
  EXPECT_EQ(addSection(text, 5, "A"), std::nullopt) << "five bytes and a NUL";
  EXPECT_EQ(text, "");
  EXPECT_EQ(addSection(text, 6, "A"), 5U);
  EXPECT_EQ(text, "[A]\r\n");
  EXPECT_EQ(addSection(text, kNoCapacityLimit, "a"), 5U) << "it is there";
  EXPECT_EQ(addSection(text, kNoCapacityLimit, "B"), 12U);
  EXPECT_EQ(text, "[A]\r\n\r\n[B]\r\n");
}

TEST(IniText, SetsInPlaceInsertsAndDeletes) {
  std::string text = "[A]\r\nx = old \r\ny=2\r\n[B]\r\nx=9";
  EXPECT_EQ(setValue(text, kNoCapacityLimit, "longer text", "a", "X"), 5U);
  EXPECT_EQ(text, "[A]\r\nx = longer text\r\ny=2\r\n[B]\r\nx=9");
  ASSERT_TRUE(setValue(text, kNoCapacityLimit, "n", "A", "z"));
  EXPECT_EQ(text, "[A]\r\nz=n\r\nx = longer text\r\ny=2\r\n[B]\r\nx=9");
  ASSERT_TRUE(setValue(text, kNoCapacityLimit, std::nullopt, "A", "x"));
  ASSERT_TRUE(setValue(text, kNoCapacityLimit, std::nullopt, "B", "x"));
  EXPECT_EQ(text, "[A]\r\nz=n\r\ny=2\r\n[B]\r\n");
  const std::string before = text;
  ASSERT_TRUE(setValue(text, kNoCapacityLimit, std::nullopt, "B", "y")) << "nothing to delete";
  EXPECT_EQ(setValue(text, before.size() + 12, "1", "C", "k"), std::nullopt) << "header fits only";
  EXPECT_EQ(text, before);
  ASSERT_TRUE(setValue(text, before.size() + 6, "1", "B", "k"));
  EXPECT_EQ(text, before + "k=1\r\n");

  std::string open = "[A]";
  EXPECT_EQ(setValue(open, kNoCapacityLimit, "1", "A", "k"), 5U);
  EXPECT_EQ(open, "[A]\r\nk=1\r\n") << "a header without a line end gets one";
}

TEST(PathText, BothSeparatorsDivide) {
  EXPECT_EQ(fileNamePart("a/b\\c.txt"), "c.txt");
  EXPECT_EQ(fileNamePart("name"), "name");
  EXPECT_EQ(fileNamePart("a/"), std::nullopt);
  EXPECT_EQ(splitPath("\\Windows//System32/config\\"),
            (std::vector<std::string_view>{"Windows", "System32", "config"}));

  std::string path = "/boot";
  EXPECT_TRUE(appendPath(path, "efi", 9));
  EXPECT_FALSE(appendPath(path, "x", 10));
  EXPECT_EQ(path, "/boot/efi");
  for (const char* expected : {"/boot", "/", "/"}) {
    stripLastComponent(path);
    EXPECT_EQ(path, expected);
  }
  EXPECT_TRUE(appendPath(path, "x"));
  EXPECT_EQ(path, "/x");
}

}  // namespace
}  // namespace tallowin
