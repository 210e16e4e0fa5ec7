// The code in the boot sector of a new volume, run by a machine.
#include "disk/image_disk.h"
#include "fat/fat_requests.h"
#include "support/boot_machine.h"

namespace tallowin {
namespace {

constexpr const char* kMessage =
    "This partition does not contain an operating system.\n"
    "If you are about to install a new OS then insert the\n"
    "installation diskette into drive A:\n"
    "\n"
    "Press any key to run the BIOS bootstrap loader...\n";

struct BootCase {
  u16 type;
  u32 sectors;
};

class FatBootTest : public testing::TestWithParam<BootCase> {};

INSTANTIATE_TEST_SUITE_P(Kinds, FatBootTest,
                         testing::Values(BootCase{0x01, 20000}, BootCase{0x06, 40000},
                                         BootCase{0x0C, 70000}));

TEST_P(FatBootTest, SaysThatNothingIsThereAndAKeyRunsTheBootstrapLoader) {
  TALLOWIN_NEEDS_BOOT_MACHINE();
  const TempFolder folder;
  const std::string image = folder.sparse("image", u64{GetParam().sectors} * 512);
  {
    const OpenedImage opened = openImageFile(image, DiskAccess::readWrite, kHardDiskKind, 512);
    ASSERT_EQ(Error::none, opened.error) << opened.reason;
    ASSERT_EQ(Error::none,
              formatQuietly({*opened.disk, 0, GetParam().sectors}, wishFor(GetParam().type)));
  }
  BootMachine machine(image);
  ASSERT_TRUE(machine.shows(kMessage)) << machine.screen();
  ASSERT_TRUE(machine.press("a"));
  // The loader finds the same disk again.
  EXPECT_TRUE(machine.shows(kMessage, 2)) << machine.screen();
}

}  // namespace
}  // namespace tallowin
