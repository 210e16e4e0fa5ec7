#include "cli/amount.h"

#include <gtest/gtest.h>

#include "cli/values.h"

namespace tallowin {
namespace {

TEST(Amount, EveryUnitAndWhatIsNone) {
  const auto bytes = [](const char* text) {
    const auto amount = parseAmount(text);
    return amount ? amount->bytes(4096) : std::nullopt;
  };
  EXPECT_EQ(bytes("5"), 5 * kMiB);
  EXPECT_EQ(bytes("5B"), 5u);
  EXPECT_EQ(bytes("5s"), 5u * 4096);
  EXPECT_EQ(bytes("5KiB"), 5 * kKiB);
  EXPECT_EQ(bytes("5mib"), 5 * kMiB);
  EXPECT_EQ(bytes("5GiB"), 5 * kGiB);
  EXPECT_EQ(bytes("16777215TiB"), 16777215 * (1024 * kGiB));
  for (const char* text : {"", "MiB", "-5", "+5", "5.5", "5 MiB", "5MB", "5K", "0x10",
                           "16777216TiB", "18446744073709551616B", "18446744073709551615s"})
    EXPECT_EQ(bytes(text), std::nullopt) << text;
}

TEST(Amount, NumbersOfPartitionsAreDecimal) {
  EXPECT_EQ(parseCount("010"), 10U) << "as scripts count";
  for (const char* wrong : {"", "0x1", "-1", "+1", "1 ", "4294967296"})
    EXPECT_EQ(parseCount(wrong), std::nullopt) << wrong;
}

TEST(Amount, ARestOfAMebibyteCountsAsOne) {
  EXPECT_EQ(amountInMiB({2 * kMiB}, 512), 2u);
  EXPECT_EQ(amountInMiB({2 * kMiB + 1}, 512), 3u);
  EXPECT_EQ(amountInMiB({4097, Amount::Unit::sectors}, 512), 3u);
  EXPECT_EQ(amountInMiB({kAllOnes64}, 512), std::nullopt);
}

}  // namespace
}  // namespace tallowin
