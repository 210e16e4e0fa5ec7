#include "app/synchronize.h"

#include <gtest/gtest.h>

#include "ptable/convert.h"
#include "support/fake_host.h"
#include "support/oracle.h"
#include "support/scripted_front_end.h"
#include "support/sfdisk.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

TEST(SynchronizeDrives, TheBoxIsShownWhereADiskHasAnEmbrAndDrivesAreCountedOnTheirBus) {
  const TempFolder folder;
  Options options;
  options.noDevices = true;
  for (const char* name : {"a.img", "b.img"}) {
    options.images.push_back(folder.sparse(name, 100 * kMiB));
    ASSERT_EQ(makeTable(options.images.back(), "label: dos\nsize=10M,type=83\n"), "");
  }
  Session session(std::make_unique<FakeHost>(), {folder.path(), folder.path(), folder.path()},
                  options);
  ScriptedFrontEnd ui;
  synchronizeDrives(session, ui);
  EXPECT_TRUE(ui.progressTexts.empty());
  {
    std::unique_ptr<Drive> second;
    ASSERT_EQ(session.openDrive(driveNumberOf(DriveClass::image, 1), second), Error::none);
    ASSERT_EQ(convertToEmbr(*second, false), Error::none);
  }
  synchronizeDrives(session, ui);
  EXPECT_EQ(ui.progressTexts,
            (std::vector<std::string>{"Startup", "Synchronizing In Progress..."}));

  ASSERT_EQ(
      runProgram({"sfdisk", "-q", "--append", options.images.back()}, "size=10M,type=83\n").status,
      0);
  const std::string before = folder.read("b.img");
  ui.expectMessage("b.img.\n\nShall the EMBR of this image follow?", MessageResult::no);
  synchronizeDrives(session, ui);
  EXPECT_TRUE(folder.read("b.img") == before) << "only named, and nobody said yes";
  ui.expectMessage("changed the boot sector", MessageResult::yes);
  ui.expectMessage("found on HD1\nwhich may overlap");
  synchronizeDrives(session, ui);
  synchronizeDrives(session, ui);
  std::unique_ptr<Drive> second;
  ASSERT_EQ(session.openDrive(driveNumberOf(DriveClass::image, 1), second), Error::none);
  EXPECT_EQ(second->partitionCount(), 2U);
}

}  // namespace
}  // namespace tallowin
