#include "app/start_up.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <new>
#include <sstream>

#include "support/fake_host.h"
#include "support/oracle.h"

namespace tallowin {
namespace {

constexpr const char* kGreeting = "Starting...\n\n";

class CountingHost : public FakeHost {
 public:
  explicit CountingHost(int& opens) : opens_(opens) {}
  int open(const std::string& path, int flags) override {
    ++opens_;
    return FakeHost::open(path, flags);
  }

 private:
  int& opens_;
};

// A program folder of its own, started from another folder.
class StartUpTest : public testing::Test {
 protected:
  StartUpTest() : before_(std::filesystem::current_path()) {
    ::unsetenv("TALLOWIN_HOME");
    ::unsetenv("strandel");
    std::filesystem::current_path(elsewhere_.path());
    program_.write("tallowin", "");
  }
  ~StartUpTest() override {
    std::filesystem::current_path(before_);
    ::unsetenv("strandel");
  }

  StartUp start(std::vector<std::string> switches) {
    switches.insert(switches.begin(), program_.file("tallowin"));
    opens_ = 0;
    auto host = std::make_unique<CountingHost>(opens_);
    host->node("/dev/sda", 8, 0, kMiB);
    host->file("/proc/scsi/sg/device_hdr", "host\tchan\tid\tlun\ttype\topens\n");
    host->file("/proc/scsi/sg/devices", "0\t0\t0\t0\t0\t1\n1\t0\t0\t0\t5\t1\n");
    out_.str({});
    return startUp(switches, std::move(host), out_);
  }
  std::string output() const { return out_.str(); }

  std::filesystem::path before_;
  TempFolder program_;
  TempFolder elsewhere_;
  int opens_ = 0;  // of the last start
  std::ostringstream out_;
};

TEST_F(StartUpTest, BannerDotsAndTheProgramsFolder) {
  const StartUp started = start({});
  ASSERT_TRUE(started.session);
  EXPECT_EQ(started.exitStatus, 0);
  EXPECT_EQ(output().find(std::string(kGreeting) + "Strandel 1.32"), 0u);
  EXPECT_TRUE(output().ends_with("...\n")) << output();
  EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::current_path(), program_.path()));
}

TEST_F(StartUpTest, TheCommandLineTheEnvironmentAndTheFileSwitchTheBannerOff) {
  EXPECT_TRUE(start({"-vs:0"}).session);
  EXPECT_EQ(output(), kGreeting);
  ::setenv("strandel", "vs:0", 1);
  EXPECT_TRUE(start({}).session);
  EXPECT_EQ(output(), kGreeting);
  ::unsetenv("strandel");
  program_.write("STRANDEL.INI", "[options]\nverbose=0\n");
  EXPECT_TRUE(start({}).session);
  EXPECT_EQ(output(), kGreeting);
}

TEST_F(StartUpTest, AnInvalidParameterOpensNoWindow) {
  const StartUp started = start({"-vsx"});
  EXPECT_FALSE(started.session);
  EXPECT_EQ(started.exitStatus, 0);
  EXPECT_TRUE(output().ends_with("Invalid parameter -vsx\n")) << output();
}

TEST_F(StartUpTest, WithNdNoDeviceIsEverOpened) {
  const StartUp hidden = start({"-nd"});
  ASSERT_TRUE(hidden.session);
  EXPECT_EQ(opens_, 0);
  for (const std::vector<std::string>& switches :
       {std::vector<std::string>{"-faulty", "-nd"}, {"-vs", "-nd", "x"}, {"-img", "-nd"}}) {
    EXPECT_FALSE(start(switches).session) << "a faulty command line ends the start";
    EXPECT_EQ(opens_, 0) << switches.front();
  }
  EXPECT_TRUE(hidden.session->scsiGenericList().empty());
  const StartUp scanned = start({});
  EXPECT_EQ(scanned.session->driveNames(DriveClass::device), std::vector<std::string>{"/dev/sda"});
  ASSERT_EQ(scanned.session->scsiGenericList().size(), 1u) << "the optical drive, not the disk";
  EXPECT_EQ(scanned.session->scsiGenericList()[0].path, "/dev/sg1");
}

TEST_F(StartUpTest, ImagesAreTakenFromWhereTheProgramWasStarted) {
  const std::string image = elsewhere_.sparse("disk.img", kMiB);
  const StartUp started = start({"-nd", "-img:disk.img"});
  ASSERT_TRUE(started.session);
  std::unique_ptr<Drive> drive;
  EXPECT_EQ(started.session->openDrive(driveNumberOf(DriveClass::image, 0), drive), Error::none);
  EXPECT_EQ(drive->lastLba(), kMiB / 512 - 1);
}

TEST_F(StartUpTest, AFileSystemOnAWholeImageTellsItsSectorSize) {
  if (!hasProgram("mkfs.fat")) GTEST_SKIP() << "needs mkfs.fat";
  const std::string image = elsewhere_.sparse("fat.img", 64 * kMiB);
  ASSERT_EQ(runProgram({"mkfs.fat", "-F", "16", "-S", "4096", image}).status, 0);
  const StartUp started = start({"-nd", "-img:" + image});
  std::unique_ptr<Drive> drive;
  ASSERT_EQ(started.session->openDrive(driveNumberOf(DriveClass::image, 0), drive), Error::none);
  EXPECT_EQ(drive->sectorSize(), 4096U);
  EXPECT_STREQ(drive->schemeName(), "VOL");
}

TEST_F(StartUpTest, AWorkingFolderThatWasRemovedDoesNotEndTheProgram) {
  const std::filesystem::path gone = elsewhere_.path() + "/gone";
  std::filesystem::create_directory(gone);
  std::filesystem::current_path(gone);
  std::filesystem::remove(gone);
  EXPECT_TRUE(start({"-nd", "-img:disk.img"}).session);
}

TEST(RunFrontEnd, MemoryThatRanOutIsToldAndItsStatusIsOne) {
  std::ostringstream out;
  EXPECT_EQ(runFrontEnd(out, [] { return 7; }), 7);
  EXPECT_EQ(out.str(), "");
  EXPECT_EXIT(std::exit(runFrontEnd(std::cerr, []() -> int { throw std::bad_alloc(); })),
              testing::ExitedWithCode(1), "Insufficent memory to complete operation");
}

TEST_F(StartUpTest, ATimeZoneThatIsNotSetLeavesTheUsersAlone) {
  ::setenv("TZ", "UTC+3", 1);
  ASSERT_TRUE(start({"-nd"}).session);
  EXPECT_STREQ(::getenv("TZ"), "UTC+3");
  ::unsetenv("TZ");
  ASSERT_TRUE(start({"-nd"}).session);
  EXPECT_EQ(::getenv("TZ"), nullptr);
  program_.write("STRANDEL.INI", "[OPTIONS]\nTimeZone=UTC-5\n");
  ASSERT_TRUE(start({"-nd"}).session);
  EXPECT_STREQ(::getenv("TZ"), "UTC-5");
}

}  // namespace
}  // namespace tallowin
