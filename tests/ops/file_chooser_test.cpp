#include "ops/file_chooser.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "fs/fs_bench.h"
#include "ops/flow_bench.h"
#include "support/table_rows.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

using Outcome = FileChooser::Outcome;

TEST(FileChooserTest, SizesAndDatesAreWrittenAsInTheColumns) {
  EXPECT_EQ(fileSizeText(12345), "12,345  ");
  EXPECT_EQ(fileSizeText(1048575), "1,048,575  ");
  EXPECT_EQ(fileSizeText(1572864), "1.5MB");
  EXPECT_EQ(fileSizeText(u64{5} << 30), "5GB");
  EXPECT_EQ(fileSizeText((u64{1} << 30) + (u64{1} << 30) / 100), "1.01GB");
  EXPECT_EQ(freeSpaceText(1023), "1,023 Free");
  EXPECT_EQ(freeSpaceText((u64{25} << 30) / 2), "12.5GiB Free");

  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(fileDateText(0, false), " 1/01/1970 12:00 am");
  EXPECT_EQ(fileDateText(13 * 3600 + 5 * 60, false), " 1/01/1970  1:05 pm");
  EXPECT_EQ(fileDateText(13 * 3600 + 5 * 60, true), "1970-01-01 13:05");
}

std::string names(const FileChooser& chooser) {
  std::string text;
  for (const FileChooser::Row& row : chooser.rows()) text += row.name + " ";
  return text;
}

TEST(FileChooserTest, ListsDirectoriesFirstAndFilesThatMatch) {
  TempFolder folder;
  for (const char* name : {"Zeta/x.img", "alpha/x.img", "B.img", "a.img", "c.txt", "plain"})
    folder.write(name, "x");
  FileChooser chooser({folder.path(), "*.img", FileChoice::mustExist}, false);
  EXPECT_EQ(names(chooser), ".. alpha Zeta a.img B.img ");

  EXPECT_EQ(chooser.enter("*"), Outcome::listChanged);
  EXPECT_EQ(names(chooser), ".. alpha Zeta a.img B.img c.txt plain ");
  EXPECT_EQ(chooser.enter("Zeta\\*.txt"), Outcome::listChanged);
  EXPECT_EQ(chooser.directory(), folder.file("Zeta"));
  EXPECT_EQ(names(chooser), ".. ");
  EXPECT_EQ(chooser.enter(".."), Outcome::listChanged);
  EXPECT_EQ(chooser.directory(), folder.path());
  EXPECT_EQ(chooser.enter("nowhere/*.img"), Outcome::nothing);
  EXPECT_EQ(chooser.enter("a<b"), Outcome::nothing);
  EXPECT_EQ(chooser.enter(""), Outcome::nothing);
  EXPECT_EQ(chooser.enter("missing.img"), Outcome::notFound);
  EXPECT_EQ(chooser.enter("a.img"), Outcome::chosen);
  EXPECT_EQ(chooser.result(), folder.file("a.img"));
  EXPECT_EQ(chooser.enter("/"), Outcome::listChanged);
  EXPECT_EQ(chooser.locationText(), "/*.txt");
}

TEST(FileChooserTest, AsksBeforeOverwritingAndDeletes) {
  TempFolder folder;
  folder.write("old.img", "x");
  FileChooser chooser({folder.file("old.img"), "*.*", FileChoice::save | FileChoice::askOverwrite},
                      false);
  EXPECT_EQ(chooser.initialName(), "old.img");
  EXPECT_EQ(chooser.enter("new.img"), Outcome::chosen);
  EXPECT_EQ(chooser.enter("old.img"), Outcome::askOverwrite);
  EXPECT_EQ(chooser.remove("old.img"), "");
  EXPECT_FALSE(std::filesystem::exists(folder.file("old.img")));
  EXPECT_EQ(names(chooser), ".. ");
}

class VolumeChooserTest : public FlowTest {
 protected:
  VolumeChooserTest() {
    std::unique_ptr<FileSystem> files;
    EXPECT_EQ(Error::none, openFiles(volume_, kVolume, files));
    for (const char* path : {"/Zeta", "/älter"}) EXPECT_EQ(Error::none, files->makeDirectory(path));
    for (const char* path : {"/README", "/b.txt", "/A.TXT", "/Zeta/Žofie.txt"})
      EXPECT_EQ(Error::none, put(*files, path, "12345"));
    EXPECT_EQ(Error::none, files->sync());
    volume_.setName("/dev/sda");
    drive_ = open(volume_);
    source_.emplace(context_, *drive_, *entriesOf(*drive_).front());
  }
  FileChooser chooser(const std::string& start, u32 flags) {
    return FileChooser({.startPath = start, .flags = flags, .source = &*source_}, true);
  }

  static constexpr FsSample kVolume = {"fat12", "fat12", 0x01, 4000, 512};
  MemoryDisk volume_ = formatted(kVolume);
  std::unique_ptr<Drive> drive_;
  std::optional<VolumeFileSource> source_;
};

TEST_F(VolumeChooserTest, APartitionIsWalkedLikeTheHost) {
  FileChooser open = chooser("/", FileChoice::mustExist);
  EXPECT_EQ(names(open), "Zeta älter A.TXT b.txt README ") << "*.* is every file";
  EXPECT_EQ(open.sizeText(open.rows()[2]), "5  ");
  EXPECT_NE(open.dateText(open.rows()[2]), "");
  EXPECT_EQ(open.freeSpaceText(), "1.92MiB Free");
  EXPECT_EQ(open.enter("zeta\\*.TXT"), Outcome::listChanged);
  EXPECT_EQ(names(open), ".. Žofie.txt ");
  EXPECT_EQ(open.locationText(), "/zeta/*.TXT");
  EXPECT_EQ(open.enter("../../.."), Outcome::listChanged);
  EXPECT_EQ(names(open), "Zeta älter A.TXT b.txt ");
  for (const char* name : {"nowhere/*.txt", "a<b", "b.txt/x*", ""})
    EXPECT_EQ(open.enter(name), Outcome::nothing) << name;
  for (const char* name : {"missing", "a:b", "b.txt/x", "nowhere/x"})
    EXPECT_EQ(open.enter(name), Outcome::notFound) << name;
  EXPECT_EQ(open.enter("/Zeta/žOFIE.TXT"), Outcome::chosen);
  EXPECT_EQ(open.result(), "/Zeta/žOFIE.TXT");

  FileChooser save = chooser("/Zeta/Žofie.txt", FileChoice::save | FileChoice::askOverwrite);
  EXPECT_EQ(save.initialName(), "Žofie.txt");
  EXPECT_EQ(save.enter("Žofie.txt"), Outcome::askOverwrite);
  EXPECT_EQ(save.enter("new"), Outcome::chosen);
  EXPECT_EQ(save.result(), "/Zeta/new");
}

TEST_F(VolumeChooserTest, AFileIsDeletedUnlessThePartitionIsInUse) {
  FileChooser open = chooser("/", FileChoice::mustExist);
  EXPECT_EQ(open.remove("A.TXT"), "");
  EXPECT_EQ(names(open), "Zeta älter b.txt README ");
  EXPECT_EQ(open.enter("A.TXT"), Outcome::notFound);
  ui_.expectMessage("'/missing': There is no such file");
  EXPECT_EQ(open.remove("missing"), "");
  mount(0, kVolume.sectors);
  ui_.expectMessage("mounted in Linux as /mnt/data");
  EXPECT_EQ(open.remove("b.txt"), "");
  EXPECT_EQ(names(open), "Zeta älter b.txt README ");
  EXPECT_EQ(open.enter("b.txt"), Outcome::chosen);
}

}  // namespace
}  // namespace tallowin
