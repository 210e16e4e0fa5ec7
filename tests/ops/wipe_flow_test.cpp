#include "ops/wipe_flow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "disk/faulty_disk.h"
#include "disk/recording_disk.h"
#include "ops/job_of_front_end.h"
#include "ops/wipe_model.h"
#include "support/ops_bench.h"
#include "support/oracle.h"
#include "wipe/md5.h"

namespace tallowin {
namespace {

// A disk of 20 MiB full of ones, and an extent in its middle.
class WipeTest : public OpsTest {
 protected:
  WipeTest() {
    const std::vector<u8> ones(kMiB, 0xFF);
    for (u64 lba = 0; lba < kSectors; lba += 2048)
      EXPECT_EQ(disk_.writeSectors(lba, ones.data(), 2048), Error::none);
  }

  struct Wiped {
    Failure failure;
    WipeReport report;
  };
  Wiped wipe(DiskDevice& disk, ScriptedFrontEnd& ui) {
    const OperationContext context{ui, host_, options_, folders_, fileSystems_, mounts_};
    JobOfFrontEnd job(context);
    Wiped wiped;
    WipeWish wish;
    wish.passes = passesOf(WipeType::zeros);
    RandomPool pool;
    const u64 sectors = kExtent.endSector + 1 - kExtent.startSector;
    wiped.failure =
        wipeRange({disk, kExtent.startSector, sectors}, wish, pool, host_, job, wiped.report);
    return wiped;
  }

  bool isZero(u64 lba) { return disk_.sector(lba) == std::vector<u8>(512, 0); }

  static constexpr u64 kSectors = 40960;
  static constexpr SectorExtent kExtent{1001, 30000};
  MemoryDisk disk_{kSectors};
};

TEST_F(WipeTest, ClearsTheExtentAndNothingElse) {
  const Wiped result = wipe(disk_, ui_);
  EXPECT_EQ(Error::none, result.failure);
  EXPECT_EQ(29000U, result.report.sectorsDone());
  for (u64 lba = 0; lba < kSectors; ++lba)
    ASSERT_EQ(lba >= 1001 && lba <= 30000, isZero(lba)) << lba;
  EXPECT_EQ((std::vector<std::string>{"Wiping", "Wipe in progress...", "Cancel"}),
            ui_.progressTexts);
}

TEST_F(WipeTest, AFullDiskBelowTheImageIsNoBadSector) {
  class FullDisk : public DiskWrapper {
   public:
    using DiskWrapper::DiskWrapper;

   protected:
    Failure transferOut(u64 lba, const void*, u32) override {
      return {Error::noSpaceLeft, ENOSPC, lba};
    }
  };
  FullDisk full(disk_);
  const Wiped result = wipe(full, ui_);  // asks nothing
  EXPECT_EQ(Error::noSpaceLeft, result.failure);
  EXPECT_EQ(0U, result.report.failedSectors());
}

TEST_F(WipeTest, StopsAtEveryPieceAndSaysHowFarItCame) {
  u64 done = 0;
  u64 stops = 0;
  for (u64 poll = 0;; ++poll) {
    ScriptedFrontEnd ui;
    ui.cancelAtPoll(poll);
    const Wiped result = wipe(disk_, ui);
    if (result.failure == Error::none) break;
    EXPECT_EQ(Error::cancelled, result.failure);
    EXPECT_GE(result.report.sectorsDone(), done);
    done = result.report.sectorsDone();
    EXPECT_TRUE(done == 0 || isZero(1000 + done));
    EXPECT_FALSE(isZero(1001 + done));
    ++stops;
  }
  EXPECT_EQ(4U, stops);
}

TEST_F(WipeTest, AWriteErrorThatIsNotIgnoredStopsAndAFailedFlushIsOne) {
  FaultyDisk faulty(disk_);
  faulty.failAccessTo({20000, 20001});
  ui_.expectMessage("Do you want to continue and ignore further problems?", MessageResult::no);
  const Wiped result = wipe(faulty, ui_);
  EXPECT_EQ(Error::write, result.failure);
  EXPECT_EQ(20000U, result.failure.lba);
  EXPECT_EQ(20000U - kExtent.startSector, result.report.sectorsDone());

  FaultyDisk unflushed(disk_);
  unflushed.failFlush(true);
  EXPECT_EQ(Error::flush, wipe(unflushed, ui_).failure);
}

// --- Passes

TEST(WipePattern, TextsAreReadOrRefused) {
  using Kind = WipePass::Kind;
  const auto fixed = [](std::vector<u8> bytes, bool fills = false) {
    return WipePass{Kind::fixed, std::move(bytes), fills};
  };
  const std::pair<const char*, std::vector<WipePass>> good[] = {
      {"0x55&0xAA v", {fixed({0x55, 0xAA}), {Kind::validate, {}, false}}},
      {"  0xFF> ", {fixed({0xFF}, true)}},
      {"n v V",
       {{Kind::fresh, {}, false}, {Kind::validate, {}, false}, {Kind::validate, {}, false}}},
      {"r S 010&10", {{Kind::random, {}, false}, {Kind::stirred, {}, false}, fixed({8, 10})}},
  };
  for (const auto& [text, passes] : good) EXPECT_EQ(parsePasses(text, 128), passes) << text;
  for (const char* text :
       {"", " ", "x", "r&1", "rr", "1&", "1&&2", "1>2", ">", "0x55&v", "-1", "1,2"})
    EXPECT_FALSE(parsePasses(text, 128)) << text;
  EXPECT_TRUE(parsePasses("1&2&3", 3));
  EXPECT_FALSE(parsePasses("1&2&3&4", 3));
  const std::pair<WipeType, std::size_t> counts[] = {
      {WipeType::zeros, 1},  {WipeType::random1, 2}, {WipeType::random4, 5},  {WipeType::mfm, 19},
      {WipeType::rll17, 27}, {WipeType::rll27, 24},  {WipeType::gutmann, 36},
  };
  for (const auto& [type, count] : counts) {
    const std::vector<WipePass> passes = passesOf(type);
    EXPECT_EQ(passes.size(), count);
    EXPECT_EQ(passes.back(), fixed({0}));
  }
  EXPECT_EQ(passesOf(WipeType::mfm)[7], fixed({0x49, 0x24, 0x92})) << "4 random ones, 55, AA, 92";
}

// The compression of one padded block is the digest of a short message.
TEST(RandomPool, ItsMd5IsThatOfOthers) {
  for (const std::size_t length : {0u, 1u, 9u, 55u}) {
    std::array<u8, 64> block{};
    std::string message(length, 'x');
    std::copy(message.begin(), message.end(), block.begin());
    block[length] = 0x80;
    block[56] = static_cast<u8>(8 * length);
    block[57] = static_cast<u8>(8 * length >> 8);
    Md5State state = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                      0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10};
    md5Compress(block, state);
    std::string digest;
    for (const u8 byte : state) digest += format("%02x", byte);
    EXPECT_EQ(runProgram({"md5sum"}, message).output.substr(0, 32), digest);
  }
  RandomPool a;
  a.addEntropy(std::array<u8, 3>{1, 2, 3});
  RandomPool b = a;
  std::array<u8, 3000> one{};
  std::array<u8, 3000> two{};
  a.output(one);
  b.output(std::span(two).first(1000));
  b.output(std::span(two).subspan(1000));
  EXPECT_EQ(one, two);
  b.addEntropy(std::array<u8, 1>{0});
  a.output(one);
  b.output(two);
  EXPECT_NE(one, two);
}

// A range that begins and ends within a buffer, on a disk that records.
class PassTest : public WipeTest {
 protected:
  // Writes, flushes not counted; each pass writes every sector once.
  void run(const std::vector<WipePass>& passes) {
    wish_.passes = passes;
    RecordingDisk recording(disk_);
    failed_ = wipeRange({recording, 1001, 20000}, wish_, pool_, host_, job_, report_);
    u64 written = 0;
    for (const WriteLog::Step& step : recording.log().steps()) written += step.count;
    const auto writing = std::ranges::count_if(
        passes, [](const WipePass& pass) { return pass.kind != WipePass::Kind::validate; });
    EXPECT_EQ(written, failed_ ? written : static_cast<u64>(writing) * 20000);
    for (u64 lba : {1000, 21001}) EXPECT_EQ(disk_.sector(lba), std::vector<u8>(512, 0xFF));
  }
  u8 byteAt(u64 byteOfRange) { return disk_.sector(1001 + byteOfRange / 512)[byteOfRange % 512]; }

  RandomPool pool_;
  SilentJob job_;
  WipeWish wish_;
  WipeReport report_;
  Failure failed_;
};

TEST_F(PassTest, TheLastPassStandsOnTheDisk) {
  run(*parsePasses("r 1&2&3&4&5&6&7", 128));
  for (const u64 at : {u64{0}, u64{6}, u64{7}, u64{61439}, u64{61440}, u64{61447}, u64{5'000'000}})
    EXPECT_EQ(byteAt(at), 1 + at % 61440 % 7) << "the group begins anew in each buffer";
  run(*parsePasses("9&8>", 128));
  for (const u64 at : {u64{0}, u64{1}, u64{2}, u64{511}, u64{512}, u64{1024 * 1024 + 1}})
    EXPECT_EQ(byteAt(at), at % 512 == 0 ? 9 : 8);
}

TEST_F(PassTest, EveryMethodEndsWithZerosAndCountsItsPasses) {
  for (const WipeMethod& method : wipeMethods()) {
    RecordingDisk recording(disk_);
    wish_.passes = passesOf(method.type);
    const SectorRange range{recording, 1001, 5000};
    EXPECT_FALSE(wipeRange(range, wish_, pool_, host_, job_, report_));
    u64 written = 0;
    for (const WriteLog::Step& step : recording.log().steps()) written += step.count;
    EXPECT_EQ(written, wish_.passes.size() * 5000) << method.word;
    EXPECT_TRUE(report_.isWhole());
    for (u64 lba = 1001; lba < 6001; ++lba) ASSERT_TRUE(isZero(lba)) << lba;
  }
}

// Fresh bytes are made again for each validation; a planted byte is found, and is asked about.
TEST_F(PassTest, ValidationFindsWhatDiffers) {
  run(*parsePasses("n v v", 128));
  EXPECT_FALSE(failed_);
  EXPECT_TRUE(report_.isWhole());
  EXPECT_NE(disk_.sector(1001), disk_.sector(1001 + 120)) << "new bytes for every buffer";

  class Planting : public DiskWrapper {
   public:
    using DiskWrapper::DiskWrapper;

   protected:
    Failure transferIn(u64 lba, void* buffer, u32 count) override {
      const Failure failed = inner_.readSectors(lba, buffer, count);
      if (lba <= 15000 && 15000 < lba + count)
        static_cast<u8*>(buffer)[(15000 - lba) * 512 + 7] ^= 1;
      return failed;
    }
  } planting(disk_);
  for (const char* text : {"n v", "r v", "0x11&0x22&0x33 v", "0x11> v"})
    for (const bool goesOn : {false, true}) {
      wish_.passes = *parsePasses(text, 128);
      u64 asked = 0;
      wish_.goesOnAfterMismatch = [&](u64 lba) {
        EXPECT_EQ(lba, 15000U);
        ++asked;
        return goesOn;
      };
      const Failure failed = wipeRange({planting, 1001, 20000}, wish_, pool_, host_, job_, report_);
      EXPECT_EQ(failed, goesOn ? Error::none : Error::wipeMismatch) << text;
      EXPECT_EQ(asked, 1U);
      EXPECT_FALSE(report_.isWhole()) << "what was not validated is not said to be";
    }
}

// --- The flow

class WipeFlowTest : public WipeTest {
 protected:
  OperationContext context() { return {ui_, host_, options_, folders_, fileSystems_, mounts_}; }
};

TEST_F(WipeFlowTest, AWholeDriveIsAskedAboutByItsNameAndCertified) {
  const TempFolder folder;
  auto disk = std::make_shared<MemoryDisk>(kSectors);
  std::unique_ptr<Drive> drive;
  ASSERT_FALSE(Drive::open(disk, host_, {}, drive));
  ui_.expect<WipeModel>([](WipeModel& model) {
    model.choice = model.choices.size() - 1;
    model.passesText = "r&";
    model.ok();
    EXPECT_FALSE(model.confirmed);
    model.passesText = "0xA5 v";
    model.ok();
  });
  ui_.expectMessage("Invalid wipe pattern");
  // The refusal is told while the dialog stands.
  ui_.forget();
  WipeOrder order;
  order.method = WipeMethodChoice{WipeType::userDefined, "0xA5 v", false};
  order.certificateFile = folder.path() + "/certificate.txt";
  WipeRecord record;
  ui_.expectMessage("ALL of this drive will be overwritten", MessageResult::no);
  EXPECT_EQ(wipeFlow(context(), *drive, order, record).end, FlowEnd::cancelled);
  EXPECT_TRUE(disk->sector(0) == std::vector<u8>(512, 0));
  ui_.expectMessage("ALL of this drive will be overwritten", MessageResult::yes);
  EXPECT_EQ(wipeFlow(context(), *drive, order, record).end, FlowEnd::done);
  for (const u64 lba : {u64{0}, kSectors / 2, kSectors - 1})
    EXPECT_EQ(disk->sector(lba), std::vector<u8>(512, 0xA5));
  const std::string certificate = wipeCertificate(*drive, record);
  EXPECT_NE(certificate.find("Result: done; all passes were whole."), std::string::npos);
  EXPECT_NE(certificate.find("sector 40959: A5 A5"), std::string::npos) << certificate;
  record.ended = Error::cancelled;
  EXPECT_NE(wipeCertificate(*drive, record).find("Result: NOT done."), std::string::npos);
}

}  // namespace
}  // namespace tallowin
