#include "ops/file_chooser.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

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

}  // namespace
}  // namespace tallowin
