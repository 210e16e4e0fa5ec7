// What an image holds when the host fails under it, or the power goes.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>

#include "files/image_samples.h"

namespace tallowin {
namespace {

constexpr u32 kSector = ImageContainer::kSectorBytes;
constexpr u64 kSectors = 1024;

struct Request {
  u64 sector;
  u64 count;
  bool flushBehind = false;
};
// New blocks and grains whole and in part, several at once, and old ones; no sector is written
// twice between two flushes.
constexpr Request kRequests[] = {
    {3, 2},    {20, 150}, {350, 1},  {750, 33, true}, {3, 1},
    {21, 150}, {450, 50}, {1020, 4}, {740, 50, true}, {0, 1024},
};

constexpr int kGenerations = 4;

// What a sector holds: its number and the generation, all over; zeros in generation 0.
std::span<const u8> contentOf(u64 sector, int generation) {
  static const std::vector<u8> all = [] {
    std::vector<u8> bytes(std::size_t{kGenerations} * kSectors * kSector);
    for (std::size_t i = std::size_t{kSectors} * kSector; i < bytes.size(); i += 16) {
      const u64 number = i / kSector % kSectors;
      const u64 ofGeneration = i / kSector / kSectors;
      std::memcpy(&bytes[i], &number, sizeof number);
      std::memcpy(&bytes[i + 8], &ofGeneration, sizeof ofGeneration);
    }
    return bytes;
  }();
  return std::span(all).subspan(
      (static_cast<std::size_t>(generation) * kSectors + sector) * kSector, kSector);
}

// For each sector the newest generation (one a flush, 0 is zeros) that a flush has confirmed, and
// the newest handed over.
struct Expected {
  std::vector<int> sure = std::vector<int>(kSectors);
  std::vector<int> newest = std::vector<int>(kSectors);
};

// Runs the requests and flushes; a failed one ends it.
Failure runRequests(
    ImageContainer& image, Expected& expected, const std::function<void()>& flushed = [] {}) {
  int generation = 1;
  for (const Request& request : kRequests) {
    static std::vector<u8> bytes;  // kept, as each allocation of this size costs a mapping
    bytes.clear();
    for (u64 i = 0; i < request.count; ++i) {
      const std::span<const u8> content = contentOf(request.sector + i, generation);
      bytes.insert(bytes.end(), content.begin(), content.end());
      expected.newest[request.sector + i] = generation;
    }
    if (const Failure failed = image.write(request.sector, bytes)) return failed;
    if (!request.flushBehind) continue;
    if (const Failure failed = image.flush()) return failed;
    expected.sure = expected.newest;
    ++generation;
    flushed();
  }
  return image.flush();
}

// Each sector holds what was sure, or something newer that was handed over.
testing::AssertionResult holds(const FileBytes& bytes, const Expected& expected) {
  ImageFailure failure;
  const auto image = openBytes(bytes, &failure);
  if (!image) return testing::AssertionFailure() << "does not open: " << failure.reason;
  static std::vector<u8> all(kSectors * kSector);
  if (image->read(0, all) != Error::none) return testing::AssertionFailure() << "cannot be read";
  for (u64 sector = 0; sector < kSectors; ++sector) {
    const std::span<const u8> got = std::span(all).subspan(sector * kSector, kSector);
    int generation = expected.newest[sector];
    while (generation >= expected.sure[sector] &&
           std::memcmp(got.data(), contentOf(sector, generation).data(), kSector) != 0)
      --generation;
    if (generation < expected.sure[sector])
      return testing::AssertionFailure() << "sector " << sector << " holds neither";
  }
  return testing::AssertionSuccess();
}

struct FaultCase {
  const char* name;
  FileBytes (*make)();
};

FileBytes smallVmdk() { return createInMemory(kVmdkSample, "512K"); }

// One without grain tables: each must be made when its first grain is.
FileBytes vmdkWithoutTables() {
  const FileBytes bytes = smallVmdk();
  for (const std::size_t directoryField : {0x30, 0x38}) {
    Le64 sector;
    std::memcpy(&sector, bytes->data() + directoryField, sizeof sector);
    std::memset(bytes->data() + sector * kSector, 0, 4);
  }
  return bytes;
}

class GrowingForm : public testing::TestWithParam<FaultCase> {};
INSTANTIATE_TEST_SUITE_P(Images, GrowingForm,
                         testing::Values(FaultCase{"DynamicVhd",
                                                   [] { return smallDynamicVhd(8 * kKiB); }},
                                         FaultCase{"SparseVmdk", smallVmdk},
                                         FaultCase{"VmdkWithoutTables", vmdkWithoutTables}),
                         [](const auto& form) { return form.param.name; });

std::unique_ptr<ImageContainer> openTest(const FileBytes& bytes, const TestImageFile::Plan& plan) {
  std::unique_ptr<ImageFile> file = std::make_unique<TestImageFile>(bytes, plan);
  ImageFailure failure;
  auto image = openImage(file, failure);
  EXPECT_TRUE(image) << failure.reason;
  return image;
}

TEST_P(GrowingForm, AFailureOfAnyChangeLeavesEachSectorOldOrNew) {
  const std::vector<u8> before = *GetParam().make();
  TestImageFile::Plan counting;
  Expected ignored;
  ASSERT_EQ(runRequests(*openTest(std::make_shared<std::vector<u8>>(before), counting), ignored),
            Error::none);
  EXPECT_GT(*counting.changes, 20U);
  for (u64 n = 0; n < *counting.changes; ++n) {
    for (const bool forever : {false, true}) {
      const auto bytes = std::make_shared<std::vector<u8>>(before);
      TestImageFile::Plan plan;
      plan.failAt = n;
      plan.forever = forever;
      Expected expected;
      auto image = openTest(bytes, plan);
      const Failure failed = runRequests(*image, expected);
      if (forever) {
        ASSERT_NE(failed, Error::none) << "change " << n << " failed, and nobody was told";
      } else {
        // The host is well again: the same work now succeeds, and is there after a flush.
        Expected again;
        ASSERT_EQ(runRequests(*image, again), Error::none) << "after change " << n << " failed";
        expected = {again.newest, again.newest};
        const u64 changes = *plan.changes;
        image.reset();
        ASSERT_EQ(*plan.changes, changes) << "closing did what flush should have done";
      }
      image.reset();
      ASSERT_TRUE(holds(bytes, expected)) << "change " << n << " failed, forever: " << forever;
    }
  }
}

TEST_P(GrowingForm, EveryPowerCutLeavesWhatWasFlushed) {
  const std::vector<u8> before = *GetParam().make();
  const auto bytes = std::make_shared<std::vector<u8>>(before);
  const TestImageFile::Plan plan;
  Expected now;
  std::vector<std::pair<std::size_t, Expected>> flushes = {{0, Expected{}}};
  {
    const auto image = openTest(bytes, plan);
    static_cast<void>(
        runRequests(*image, now, [&] { flushes.emplace_back(plan.log->size(), now); }));
  }
  ASSERT_EQ(flushes.size(), 3U);
  std::mt19937 random(11);
  for (std::size_t cut = 0; cut <= plan.log->size(); ++cut) {
    Expected expected;
    for (const auto& [steps, flushed] : flushes)
      if (steps <= cut) expected.sure = flushed.sure;
    expected.newest = now.newest;
    ASSERT_TRUE(holds(plan.log->replay(before, cut, [](std::size_t) { return false; }), expected))
        << "after change " << cut;
    for (int trial = 0; trial < 3; ++trial) {
      const u64 lost = (u64{random()} << 32) | random();
      const auto isLost = [&](std::size_t i) { return (lost >> i % 64 & 1) != 0; };
      ASSERT_TRUE(holds(plan.log->replay(before, cut, isLost), expected))
          << "after change " << cut << " of which some were lost: " << lost;
    }
  }
}

TEST(ImageFaults, ClearingFallsBackToWritingOnlyWhereItIsNotToBeHad) {
  const std::vector<u8> data(kSector, 0xEE);
  std::vector<u8> got(kSector);
  for (const bool fails : {false, true}) {
    const FileBytes bytes = smallVmdk();
    TestImageFile::Plan plan;
    if (fails) plan.clearAnswer = Failure(Error::write, EIO);
    const auto image = openTest(bytes, plan);
    ASSERT_EQ(image->write(5, data), Error::none);
    EXPECT_EQ(image->clear(0, kSectors), fails ? Failure(Error::write, EIO, 0) : Failure());
    ASSERT_EQ(image->read(5, got), Error::none);
    EXPECT_EQ(got[0], fails ? 0xEE : 0);
  }
}

}  // namespace
}  // namespace tallowin
