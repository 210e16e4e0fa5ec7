#include "ops/resize_model.h"

#include <gtest/gtest.h>

#include "ops/file_systems.h"

namespace tallowin {
namespace {

constexpr u64 kMib = 2048;  // in sectors

ResizeFacts factsOf(const FileSystemKind& kind, u64 sizeMiB, u64 roomMiB) {
  ResizeFacts facts;
  facts.kind = &kind;
  facts.rules.explicitUnit = kMib;
  facts.range = endRangeFor(facts.rules, kMib, kMib + sizeMiB * kMib - 1, 10 * kMib + 5,
                            kMib + roomMiB * kMib + 77);
  return facts;
}

TEST(ResizeModel, EndsLieOnBoundariesWithinTheLimits) {
  const FileSystemKinds kinds = registeredFileSystems();
  ResizeModel model(factsOf(*kinds.byWord("fat16"), 100, 6000));
  EXPECT_EQ(model.range().minimumEnd, kMib + 11 * kMib - 1);
  EXPECT_EQ(model.range().maximumEnd, kMib + 6000 * kMib - 1);
  EXPECT_TRUE(model.isUnchangedSize());
  const std::pair<const char*, u64> sizes[] = {{"5", model.range().minimumEnd},
                                               {"0", model.range().minimumEnd},
                                               {"11", model.range().minimumEnd},
                                               {"200", kMib + 200 * kMib - 1},
                                               {"9999", model.range().maximumEnd}};
  for (const auto& [typed, end] : sizes) {
    model.newSizeMiB.type(typed);
    model.pass();
    EXPECT_EQ(model.newEndSector(), end) << typed;
  }
  for (const char* wrong : {"12.7", "-5", ""}) {
    model.newSizeMiB.type(wrong);
    EXPECT_FALSE(model.newSizeMiB.problem("New Size").empty()) << wrong;
  }
  // No boundary is left between the limits.
  AlignmentRules rules;
  rules.explicitUnit = kMib;
  const EndRange narrow = endRangeFor(rules, kMib, kMib + 99, 10, kMib + 99);
  EXPECT_EQ(narrow.minimumEnd, kMib + 99);
  EXPECT_EQ(narrow.maximumEnd, kMib + 99);
}

// A number on the way to another one changes nothing that was chosen.
TEST(ResizeModel, TheFormFollowsTheSizeAndComesBack) {
  const FileSystemKinds kinds = registeredFileSystems();
  ResizeModel model(factsOf(*kinds.byWord("fat32"), 100, 6000));
  EXPECT_EQ(model.forcedType(), 0x0B);
  for (const char* typed : {"2", "20", "200"}) {
    model.newSizeMiB.type(typed);
    model.pass();
    EXPECT_EQ(model.forcedType(), std::string(typed) == "200" ? 0x0B : 0x06) << typed;
  }
  model.form = 0;
  model.pass();
  EXPECT_EQ(model.forcedType(), 0x06);
  model.newSizeMiB.type("3000");
  model.pass();
  EXPECT_TRUE(model.winNtOnlyLabel.shown);
  model.newSizeMiB.type("5000");
  model.pass();
  EXPECT_EQ(model.forcedType(), 0x0B);
  EXPECT_FALSE(model.forms[0].control.enabled);
  EXPECT_FALSE(model.forms[0].control.whyDisabled.empty());
  EXPECT_TRUE(model.setClusterBytes(65536));
  EXPECT_FALSE(model.setForm("fat16"));
  model.pass();
  EXPECT_TRUE(model.winNtOnlyLabel.shown);
  EXPECT_EQ(model.clusterBytes(), 65536U);
}

}  // namespace
}  // namespace tallowin
