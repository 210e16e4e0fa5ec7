// Images against an independent program: what it makes we read, what we write it accepts.
#include <gtest/gtest.h>

#include <algorithm>

#include "files/image_samples.h"

namespace tallowin {
namespace {

constexpr u32 kSector = ImageContainer::kSectorBytes;

class EveryForm : public testing::TestWithParam<SampleForm> {
 protected:
  TempFolder folder_;
};

INSTANTIATE_TEST_SUITE_P(Images, EveryForm,
                         testing::Values(kRawSample, kFixedVhdSample, kDynamicVhdSample,
                                         kVmdkSample),
                         [](const auto& form) { return form.param.name; });

// Pieces of one pool: to draw each byte takes longer than all the rest.
std::vector<u8> randomBytes(std::mt19937& random, std::size_t size) {
  static const std::vector<u32> pool = [] {
    std::vector<u32> numbers(2 * kMiB);
    std::generate(numbers.begin(), numbers.end(), std::mt19937(815));
    return numbers;
  }();
  const std::size_t spare = pool.size() * sizeof(u32) - size;
  const u8* from = reinterpret_cast<const u8*>(pool.data()) + random() % spare;
  return {from, from + size};
}

TEST_P(EveryForm, RandomWorkReadsBackAndTheOracleAgrees) {
  const std::string path = createImage(folder_, GetParam(), "37M");
  auto image = openPath(path);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->form(), GetParam().form);
  const u64 sectors = image->sectorCount();
  std::vector<u8> twin(sectors * kSector);
  std::mt19937 random(4711);
  for (int round = 0; round < 250; ++round) {
    const u64 first = random() % sectors;
    const u64 longest = round % 10 == 0 ? 9000 : 300;
    const u64 count = std::min<u64>(1 + random() % longest, sectors - first);
    const auto inTwin = twin.begin() + static_cast<std::ptrdiff_t>(first * kSector);
    const std::size_t bytes = count * kSector;
    switch (random() % 8) {
      case 0:
        ASSERT_EQ(image->clear(first, count), Error::none);
        std::fill_n(inTwin, bytes, u8{0});
        break;
      case 1:
      case 2: {
        std::vector<u8> got(bytes, 0xEE);
        ASSERT_EQ(image->read(first, got), Error::none);
        ASSERT_TRUE(std::equal(got.begin(), got.end(), inTwin)) << "round " << round;
        break;
      }
      case 3:
        if (round % 3 == 0) {
          image.reset();
          image = openPath(path);
        } else {
          ASSERT_EQ(image->flush(), Error::none);
        }
        break;
      default: {
        const std::vector<u8> data = randomBytes(random, bytes);
        ASSERT_EQ(image->write(first, data), Error::none);
        std::copy(data.begin(), data.end(), inTwin);
      }
    }
  }
  image.reset();
  folder_.write("twin", std::string(twin.begin(), twin.end()));
  const ProgramResult compared = runProgram(
      {"qemu-img", "compare", "-f", GetParam().format, "-F", "raw", path, folder_.file("twin")});
  EXPECT_EQ(compared.status, 0) << compared.output;
  if (GetParam().form == ImageForm::vmdk) {
    const ProgramResult checked = runProgram({"qemu-img", "check", path});
    EXPECT_EQ(checked.status, 0) << checked.output;
  }
}

TEST_P(EveryForm, WhatTheOracleWroteReadsIdentical) {
  const std::string path = createImage(folder_, GetParam(), "64M");
  const ProgramResult wrote = runProgram(
      {"qemu-io", "-f", GetParam().format, "-c", "write -P 0xab 512 100k", "-c",
       "write -P 0xcd 33M 3M", "-c", "write -P 0xef 4194304 512", "-c", "write -z 34M 64k", path});
  ASSERT_EQ(wrote.status, 0) << wrote.output;
  auto image = openPath(path);
  ASSERT_TRUE(image);
  std::vector<u8> expected(image->sectorCount() * kSector);
  const auto at = [&](std::size_t byte) {
    return expected.begin() + static_cast<std::ptrdiff_t>(byte);
  };
  std::fill_n(at(512), 100 * kKiB, u8{0xAB});
  std::fill_n(at(33 * kMiB), 3 * kMiB, u8{0xCD});
  std::fill_n(at(4 * kMiB), 512, u8{0xEF});
  std::fill_n(at(34 * kMiB), 64 * kKiB, u8{0});
  std::vector<u8> got(expected.size(), 0xEE);
  ASSERT_EQ(image->read(0, got), Error::none);
  EXPECT_TRUE(got == expected);
  EXPECT_EQ(image->read(image->sectorCount(), std::span(got).first(512)), Error::read);
  EXPECT_NE(image->write(image->sectorCount() - 1, std::span(got).first(1024)), Error::none);
}

TEST(Images, ReadingAndZerosDoNotGrowAnImageAndAWriteGrowsItByABlock) {
  for (const auto& [form, grown] :
       {std::pair(kDynamicVhdSample, 512 + 2 * kMiB), std::pair(kVmdkSample, 64 * kKiB)}) {
    const FileBytes bytes = createInMemory(form, "64M");
    const std::size_t before = bytes->size();
    std::vector<u8> sector(kSector, 0xEE);
    auto image = openBytes(bytes);
    ASSERT_EQ(image->read(1000, sector), Error::none);
    EXPECT_EQ(sector, std::vector<u8>(kSector));
    ASSERT_EQ(image->clear(0, image->sectorCount()), Error::none);
    image.reset();
    EXPECT_EQ(bytes->size(), before) << form;
    image = openBytes(bytes);
    ASSERT_EQ(image->write(1000, sector), Error::none);
    image.reset();
    // And by less than a page, so that data begins on one.
    EXPECT_GE(bytes->size(), before + grown) << form;
    EXPECT_LT(bytes->size(), before + grown + 4096) << form;
  }
}

TEST_P(EveryForm, ZerosThatAreWrittenLieOverTheOldBytes) {
  const std::string path = createImage(folder_, GetParam(), "4M");
  auto image = openPath(path);
  ASSERT_TRUE(image);
  ASSERT_EQ(image->write(1000, std::vector<u8>(64 * kKiB, 0xEE)), Error::none);
  ASSERT_EQ(image->flush(), Error::none);
  EXPECT_NE(folder_.read("image").find(std::string(512, '\xEE')), std::string::npos);
  ASSERT_EQ(image->write(1000, std::vector<u8>(64 * kKiB, 0)), Error::none);
  ASSERT_EQ(image->flush(), Error::none);
  EXPECT_EQ(folder_.read("image").find(std::string(16, '\xEE')), std::string::npos);
}

TEST(Images, AVmdkStatesItsGeometryAndGetsANewContentIdWithTheFirstWrite) {
  const FileBytes bytes = createInMemory(kVmdkSample, "100M");
  const auto contentId = [&] {
    const std::string text(bytes->begin() + 512, bytes->begin() + 512 + 400);
    return text.substr(text.find("\nCID="), 20);
  };
  const std::string before = contentId();
  auto image = openBytes(bytes);
  EXPECT_EQ(image->geometry(), (Geometry{202, 15, 63}));
  std::vector<u8> sector(kSector);
  ASSERT_EQ(image->read(0, sector), Error::none);
  EXPECT_EQ(contentId(), before);
  ASSERT_EQ(image->write(0, sector), Error::none);
  EXPECT_NE(contentId(), before);
}

TEST(Images, ADescriptorThatGrowsStillEndsWhereItsTextEnds) {
  const FileBytes bytes = createInMemory(kVmdkSample, "1M");
  constexpr std::string_view kKey = "\nCID=";
  const auto id = std::search(bytes->begin(), bytes->end(), kKey.begin(), kKey.end()) + 5;
  bytes->erase(id, id + 7);
  const auto textEnd = std::find(bytes->begin() + 512, bytes->end(), 0);
  bytes->insert(textEnd + 1, 7, 'x');
  ASSERT_EQ(openBytes(bytes)->write(0, std::vector<u8>(kSector)), Error::none);
  const std::string text(reinterpret_cast<const char*>(bytes->data()) + 512);
  EXPECT_EQ(text.find('x', text.rfind('\n')), std::string::npos) << text;
  EXPECT_NE(openBytes(bytes), nullptr);
}

}  // namespace
}  // namespace tallowin
