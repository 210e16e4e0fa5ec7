#include <gtest/gtest.h>

#include "ops/delete_model.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"

namespace tallowin {
namespace {

TEST(DeleteModel, ASecureWipeAsksForItsMethodAndStaysWithoutOne) {
  DeleteModel model(DeleteFacts{});
  model.secureWipe = true;
  model.pass();
  EXPECT_FALSE(model.secureWipe || model.secureWipeControl.enabled);
  EXPECT_FALSE(model.secureWipeControl.whyDisabled.empty());
  model.wipePartition = model.secureWipe = true;
  std::optional<WipeMethodChoice> chosen;
  model.chooseMethod = [&] { return chosen; };
  model.ok();
  EXPECT_TRUE(model.isOpen() && !model.confirmed) << "the choice of a method was cancelled";
  chosen = WipeMethodChoice{WipeType::gutmann, {}, false};
  model.ok();
  EXPECT_TRUE(!model.isOpen() && model.confirmed);
  EXPECT_EQ(model.wipeMethod.type, WipeType::gutmann);
}

// A kind with clusters of its own, and one that has nothing but a name.
constexpr u32 kToyClusters[] = {1024, 65536};
FileSystemKind toyKind(std::string_view name) {
  FileSystemKind kind;
  kind.word = kind.name = name;
  return kind;
}

TEST(NumberField, WhatIsNoNumberOfTheRangeIsSaidAndNothingIsClamped) {
  struct Case {
    const char* typed;
    u32 value;
    bool isFine;
  };
  for (const Case& c : {Case{"12", 12, true},
                        {"0012", 12, true},
                        {"100", 100, true},
                        {"12.7", 50, false},
                        {"-5", 50, false},
                        {"", 50, false},
                        {"0x10", 50, false},
                        {"101", 50, false},
                        {"99999999999999999999999", 50, false}}) {
    NumberField field{50, 0, 100};
    field.type(c.typed);
    EXPECT_EQ(field.value, c.value) << c.typed;
    EXPECT_EQ(
        field.problem("Size"),
        c.isFine ? "" : std::string("Size: \"") + c.typed + "\" is no whole number from 0 to 100.");
    EXPECT_EQ(field.text(), c.isFine ? std::to_string(c.value) : c.typed);
  }
}

TEST(FormatModel, TheChoicesAreThoseOfTheKind) {
  FileSystemKind wide = toyKind("wide");
  wide.clusterChoices = kToyClusters;
  wide.widelyReadClusterBytes = 32 * kKiB;
  wide.alignsForNtfs = true;
  const FileSystemKind plain = toyKind("plain");

  FormatModel one({&wide});
  EXPECT_FALSE(one.kindControl.shown);
  EXPECT_EQ((std::vector<std::string>{"Auto", "1KiB", "64KiB"}), one.clusterChoices);
  EXPECT_EQ(0U, one.clusterBytes());
  EXPECT_TRUE(one.setClusterBytes(1024));
  EXPECT_FALSE(one.setClusterBytes(131072));
  EXPECT_EQ(1024U, one.clusterBytes());
  one.pass();
  EXPECT_FALSE(one.winNtOnlyLabel.shown);
  EXPECT_TRUE(one.setClusterBytes(65536));
  one.pass();
  EXPECT_TRUE(one.winNtOnlyLabel.shown);

  FormatModel both({&wide, &plain});
  EXPECT_TRUE(both.kindControl.shown);
  both.alignForNtfs = true;
  EXPECT_TRUE(both.setClusterBytes(65536));
  both.kindChoice = 1;
  both.ok();
  EXPECT_EQ("plain", both.kind().word);
  EXPECT_EQ(0U, both.clusterBytes());
  EXPECT_FALSE(both.alignForNtfs || both.alignForNtfsControl.shown || both.winNtOnlyLabel.shown);
}

}  // namespace
}  // namespace tallowin
