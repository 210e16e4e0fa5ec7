// Tables and file systems made by tallowinctl, judged by other programs.
#include <gtest/gtest.h>

#include "cli/ctl.h"

namespace tallowin {
namespace {

constexpr const char* kStart = "label: dos\nlabel-id: 0x12345678\n";

class ChangeTest : public testing::Test {
 protected:
  std::string newDisk(const std::string& name, u64 bytes, const std::string& script = kStart) {
    std::string path = folder_.sparse(name, bytes);
    EXPECT_EQ(runProgram({"sfdisk", "-q", path}, script).status, 0);
    return path;
  }
  // Sound for the other program, and the same to both.
  void expectSound(const std::string& path) {
    const SfdiskTable table = readTable(path);
    EXPECT_EQ(table.problems, "");
    EXPECT_EQ(rowsByCtl(ctl_, path), table.rows);
  }
  void expectFat(const std::string& path, u32 number) {
    const SfdiskRow row = sfdiskRow(path, number);
    const std::string part = folder_.file("part.img");
    ASSERT_EQ(runProgram({"dd", "if=" + path, "of=" + part, "bs=512", "conv=sparse",
                          "skip=" + std::to_string(row.start), "count=" + std::to_string(row.size)})
                  .status,
              0);
    const ProgramResult checked = runProgram({"fsck.fat", "-n", part});
    EXPECT_EQ(checked.status, 0) << checked.output;
  }

  TempFolder folder_;
  Ctl ctl_;
};

TEST_F(ChangeTest, PrimariesExtendedAndVolumes) {
  const std::string path = newDisk("disk.img", 600 * kMiB);
  ctl_.expectDone({"create", path, "--type", "fat16", "--size", "50", "--format"});
  ctl_.expectDone({"create", path, "--type", "0x83", "--size", "20MiB", "--after", "0"});
  ctl_.expectDone({"create", path, "--type", "extended", "--size", "450", "--before", "10"});
  ctl_.expectDone({"create", path, "--type", "fat32", "--size", "100", "--name", "LETTERS",
                   "--format", "--cluster", "2KiB"});
  ctl_.expectDone({"create", path, "--type", "swap", "--size", "30", "--name", "SWAP"});
  ctl_.expectDone(
      {"create", path, "--type", "ntfs", "--size", "40", "--name", "WIN", "--before", "20"});
  expectSound(path);
  ASSERT_EQ(readTable(path).rows.size(), 6u);
  EXPECT_EQ(sfdiskRow(path, 1).type, 0x06u);
  EXPECT_EQ(sfdiskRow(path, 5).type, 0x0Bu);
  expectFat(path, 1);
  expectFat(path, 5);

  ctl_.expectDone({"delete", path, "--part", "6", "--yes"});
  expectSound(path);
  EXPECT_EQ(readTable(path).rows.size(), 5u);
  ctl_.expectDone({"delete", path, "--part", "3", "--yes"});
  expectSound(path);
  EXPECT_EQ(readTable(path).rows.size(), 2u) << "the volumes go with the extended partition";
}

// Never less than asked: to the sector where the alignment allows it, else up to the next boundary.
TEST_F(ChangeTest, TheSizeIsAPromise) {
  struct Case {
    const char* settings;  // null: nobody has been here yet
    const char* sectorSize;
    const char* size;
    u64 start;
    u64 sectors;
  };
  const Case cases[] = {
      {nullptr, "512", "100", 2048, 204800},
      {nullptr, "512", "5", 2048, 10240},
      {nullptr, "512", "10241s", 2048, 12288},
      {nullptr, "512", "5000001B", 2048, 10240},
      {nullptr, "4096", "100", 256, 25600},
      {"[OPTIONS]\n", "512", "100", 63, 16065 * 13 - 63},
      {"[OPTIONS]\n", "512", "5", 63, 16065 - 63},
      {"[OPTIONS]\n", "4096", "100", 63, 2 * 16065 - 63},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.settings) + " " + c.sectorSize + " " + c.size);
    Ctl ctl;
    if (c.settings) ctl.home().write("STRANDEL.INI", c.settings);
    const std::string path = newDisk("promise.img", 8 * kGiB);
    ctl.expectDone(
        {"create", path, "--type", "fat32", "--size", c.size, "--sector-size", c.sectorSize});
    const Ctl::Answer list = ctl.json({"list", path, "--sector-size", c.sectorSize});
    ASSERT_EQ(list.status, 0);
    const std::vector<SfdiskRow> rows = rowsOf(list.json);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].start, c.start);
    EXPECT_EQ(rows[0].size, c.sectors);
  }
}

TEST_F(ChangeTest, NamesAreKeptAsTheyAreOrRefused) {
  const std::string tooLong(37, 'x');
  struct Case {
    const char* table;
    std::vector<std::string> words;
    const char* name;   // null: refused, naming the option
    const char* label;  // of the file system; null: there is none
  };
  const Case cases[] = {
      {"label: gpt\n", {"--type", "linux", "--name", "Größe 😀"}, "Größe 😀", nullptr},
      {"label: gpt\n", {"--type", "fat16", "--format", "--name", "DATA"}, "DATA", "DATA"},
      {"label: gpt\n", {"--type", "fat16", "--format"}, "", ""},
      {"label: gpt\n", {"--type", "linux", "--name", tooLong}, nullptr, nullptr},
      {"label: gpt\n", {"--type", "65537"}, nullptr, nullptr},
      {"label: dos\n", {"--type", "linux", "--name", "DATA"}, nullptr, nullptr},
      {"label: dos\n", {"--type", "fat16", "--format", "--name", "DATA"}, "MBR 0", "DATA"},
      {"label: dos\n", {"--type", "fat16", "--format"}, "MBR 0", ""},
      {"label: dos\nstart=2048,size=100M,type=5\n",
       {"--free", "1", "--type", "linux", "--name", "VOLUME"},
       "VOLUME",
       nullptr},
      {"label: dos\nstart=2048,size=100M,type=5\n",
       {"--free", "1", "--type", "linux", "--name", "NINEBYTES"},
       nullptr,
       nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.table + testing::PrintToString(c.words));
    const std::string path = newDisk("names.img", 200 * kMiB, c.table);
    const std::string before = fileHash(path);
    std::vector<std::string> words = {"create", path, "--size", "20", "--yes"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    const Ctl::Answer answer = ctl_.json(words);
    ASSERT_EQ(answer.status, c.name ? 0 : 1);
    if (!c.name) {
      EXPECT_EQ(std::string(answer.json["error"]["message"].GetString()).find("--"), 0u);
      EXPECT_EQ(fileHash(path), before);
      continue;
    }
    EXPECT_STREQ(answer.json["partition"]["name"].GetString(), c.name);
    const std::string listed = c.label && *c.label ? c.label : c.name;
    EXPECT_NE(ctl_.run({"list", path}).output.find(listed), std::string::npos);
    if (std::string(c.table) == "label: gpt\n") {
      EXPECT_EQ(readGpt(path)[0].name, c.name);
    }
    if (!c.label) continue;
    const std::string number = std::to_string(answer.json["partition"]["number"].GetUint());
    EXPECT_STREQ(
        ctl_.json({"info", path, "--part", number}).json["file_system"]["label"].GetString(),
        c.label);
  }
}

TEST_F(ChangeTest, TheOldTableIsKeptWhereItIsAskedFor) {
  const std::string path = newDisk("disk.img", 100 * kMiB, "label: dos\nsize=10M,type=83\n");
  const std::string copies = folder_.file("copies");
  const auto count = [](const std::string& folder) {
    return runProgram({"sh", "-c", "ls $1 2>/dev/null | wc -l", "sh", folder}).output;
  };
  ctl_.home().write("backup", "a file, where the folder belongs");
  const std::string before = fileHash(path);
  const ProgramResult refused = ctl_.run({"delete", path, "--part", "1", "--yes"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("--no-keep-table"), std::string::npos) << refused.output;
  EXPECT_NE(refused.output.find(ctl_.home().file("backup")), std::string::npos) << refused.output;
  EXPECT_EQ(fileHash(path), before);

  ctl_.expectDone({"set", path, "--part", "1", "--active", "--keep-table", copies});
  EXPECT_EQ(count(copies), "1\n");
  ctl_.expectDone({"delete", path, "--part", "1", "--no-keep-table"});
  EXPECT_EQ(count(copies), "1\n");
  EXPECT_EQ(ctl_.home().read("backup"), "a file, where the folder belongs");
}

// The change is made to the byte, whatever becomes of what is said about it.
TEST_F(ChangeTest, AnOutputThatFailsDoesNotUndoWhatIsDone) {
  const std::string path = newDisk("disk.img", 100 * kMiB, "label: dos\nsize=10M,type=83\n");
  const std::string twin = folder_.file("twin.img");
  ASSERT_EQ(runProgram({"cp", "--sparse=always", path, twin}).status, 0);
  ctl_.expectDone({"delete", twin, "--part", "1"});
  const auto redirected = [&](const std::vector<std::string>& words, const std::string& where) {
    std::vector<std::string> command = ctl_.command(words);
    command.insert(command.begin(), {"sh", "-c", "\"$@\" " + where, "sh"});
    return runProgram(command);
  };
  for (const std::string where : {">/dev/full", ">&-"}) {
    SCOPED_TRACE(where);
    const std::string copy = folder_.file("copy.img");
    ASSERT_EQ(runProgram({"cp", "--sparse=always", path, copy}).status, 0);
    const ProgramResult done = redirected({"delete", copy, "--part", "1", "--yes"}, where);
    EXPECT_EQ(done.status, 0);
    EXPECT_NE(done.output.find("The change was made"), std::string::npos) << done.output;
    EXPECT_EQ(runProgram({"cmp", copy, twin}).output, "");
  }
  EXPECT_EQ(redirected({"list", path}, ">/dev/full").status, 1);
}

TEST_F(ChangeTest, AFullTableIsRefusedAndADeletedSlotIsUsedAgain) {
  const std::string path = newDisk("disk.img", 100 * kMiB);
  for (int i = 0; i < 4; ++i) ctl_.expectDone({"create", path, "--type", "linux", "--size", "10"});
  const std::string full = fileHash(path);
  const ProgramResult fifth = ctl_.run({"create", path, "--type", "linux", "--size", "10"});
  EXPECT_EQ(fifth.status, 1) << fifth.output;
  EXPECT_EQ(fileHash(path), full);
  ctl_.expectDone({"delete", path, "--part", "2", "--yes"});
  ctl_.expectDone({"create", path, "--type", "swap", "--size", "8", "--free", "1"});
  expectSound(path);
  EXPECT_EQ(sfdiskRow(path, 2).type, 0x82u);
}

TEST_F(ChangeTest, FormatChangesTheTypeAndKeepsTheRest) {
  const std::string path = newDisk("disk.img", 300 * kMiB,
                                   std::string(kStart) + "size=100M,type=83\nsize=100M,type=6\n");
  const SfdiskRow first = sfdiskRow(path, 1);
  const SfdiskRow second = sfdiskRow(path, 2);
  ctl_.expectDone(
      {"format", path, "--part", "1", "--fs", "fat32", "--label", "DATA", "--scan", "--yes"});
  EXPECT_EQ(sfdiskRow(path, 2), second);
  EXPECT_EQ(sfdiskRow(path, 1).start, first.start);
  EXPECT_EQ(sfdiskRow(path, 1).type, 0x0Bu);
  expectFat(path, 1);

  const Ctl::Answer info = ctl_.json({"info", path, "--part", "1"});
  ASSERT_EQ(info.status, 0);
  const auto& fat = info.json["file_system"];
  EXPECT_STREQ(fat["kind"].GetString(), "FAT32");
  EXPECT_STREQ(fat["label"].GetString(), "DATA");
  EXPECT_EQ(fat["clusters"].GetUint(), fat["free_clusters"].GetUint() + 1) << "the root directory";
}

TEST_F(ChangeTest, AWholeDiskVolumeBecomesAnotherKindWithoutALabel) {
  const std::string path = folder_.sparse("disk.img", 64 * kMiB);
  ASSERT_EQ(runProgram({"mkfs.fat", "-F", "12", path}).status, 0);
  for (const std::string kind : {"fat32", "fat16"}) {
    const Ctl::Answer answer = ctl_.json({"format", path, "--part", "0", "--fs", kind, "--yes"});
    ASSERT_EQ(answer.status, 0);
    EXPECT_EQ(answer.json["partition"]["fs"].GetString(), kind);
    EXPECT_STREQ(answer.json["file_system"]["label"].GetString(), "");
    EXPECT_EQ(runProgram({"fsck.fat", "-n", path}).status, 0);
  }
}

TEST_F(ChangeTest, ASizeThatItsTypeCannotHaveIsSaidBeforeAnythingIsWritten) {
  const std::string path = newDisk("disk.img", 100 * kMiB);
  const std::string before = folder_.read("disk.img");
  const ProgramResult result =
      ctl_.run({"create", path, "--type", "fat32", "--size", "25", "--format", "--yes"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("at least 66727 sectors"), std::string::npos) << result.output;
  EXPECT_EQ(folder_.read("disk.img"), before);
}

TEST_F(ChangeTest, ABlankImageBecomesAVolumeWithoutATable) {
  const std::string path = folder_.sparse("floppy.img", 2880 * 512);
  EXPECT_EQ(ctl_.run({"format", path, "--whole", "--yes"}).status, 1) << "nothing says the kind";
  const Ctl::Answer answer =
      ctl_.json({"format", path, "--whole", "--fs", "fat12", "--label", "a long label!", "--yes"});
  ASSERT_EQ(answer.status, 0);
  EXPECT_STREQ(answer.json["file_system"]["kind"].GetString(), "FAT12");
  EXPECT_EQ(answer.json["partition"]["number"].GetUint(), 0u);
  EXPECT_STREQ(answer.json["partition"]["name"].GetString(), "A LONG LABE");
  ASSERT_EQ(answer.json["notes"].Size(), 1u);
  EXPECT_EQ(runProgram({"fsck.fat", "-n", path}).status, 0);
  EXPECT_EQ(runProgram({"mdir", "-i", path, "::"}).status, 0);
  EXPECT_EQ(runProgram({"blkid", "-p", path}).output.find(" PTTYPE="), std::string::npos);
  EXPECT_EQ(ctl_.run({"format", path, "--whole", "--yes"}).status, 0) << "it is one already";

  const std::string disk = newDisk("disk.img", 64 * kMiB);
  ctl_.expectDone({"create", disk, "--type", "fat16", "--size", "20"});
  const std::string before = folder_.read("disk.img");
  EXPECT_EQ(ctl_.run({"format", disk, "--whole", "--fs", "fat16", "--yes"}).status, 1);
  EXPECT_EQ(folder_.read("disk.img"), before);
}

// One disk in every container: what is done to it is done to the same bytes.
TEST_F(ChangeTest, ImagesChangeLikeTheirRawTwin) {
  const std::string raw = newDisk("twin.img", 128 * kMiB);
  struct Container {
    const char* format;
    std::vector<std::string> options;
  };
  const Container containers[] = {{"vpc", {"-o", "subformat=dynamic,force_size=on"}},
                                  {"vpc", {"-o", "subformat=fixed,force_size=on"}},
                                  {"vmdk", {"-o", "subformat=monolithicSparse"}}};
  std::vector<std::string> images;
  for (const Container& container : containers) {
    images.push_back(
        folder_.file("image" + std::to_string(images.size()) + "." + container.format));
    std::vector<std::string> convert = {"qemu-img", "convert", "-f", "raw", "-O", container.format};
    convert.insert(convert.end(), container.options.begin(), container.options.end());
    convert.insert(convert.end(), {raw, images.back()});
    ASSERT_EQ(runProgram(convert).status, 0);
  }
  images.insert(images.begin(), raw);
  for (const std::string& image : images) {
    SCOPED_TRACE(image);
    ctl_.expectDone({"create", image, "--type", "fat16", "--size", "40"});
    ctl_.expectDone({"create", image, "--type", "extended", "--size", "60"});
    ctl_.expectDone({"create", image, "--type", "linux", "--size", "20", "--name", "WORK"});
    ctl_.expectDone({"create", image, "--type", "linux", "--size", "10", "--name", "MORE"});
    ctl_.expectDone({"delete", image, "--part", "6", "--wipe", "--yes"});
  }
  expectSound(raw);
  for (std::size_t i = 1; i < images.size(); ++i) {
    SCOPED_TRACE(images[i]);
    const std::string format = containers[i - 1].format;
    if (format == "vmdk") {
      EXPECT_EQ(runProgram({"qemu-img", "check", images[i]}).status, 0);
      EXPECT_EQ(rowsByCtl(ctl_, images[i]), rowsByCtl(ctl_, raw)) << "its geometry is its own";
    } else {
      const ProgramResult same =
          runProgram({"qemu-img", "compare", "-f", "raw", "-F", format, raw, images[i]});
      EXPECT_EQ(same.status, 0) << same.output;
    }

    // A file system carries the time of its making, so its twin is judged apart.
    ctl_.expectDone({"format", images[i], "--part", "1", "--yes"});
    const std::string back = folder_.file("back.img");
    ASSERT_EQ(
        runProgram({"qemu-img", "convert", "-f", format, "-O", "raw", images[i], back}).status, 0);
    expectFat(back, 1);
  }
}

TEST_F(ChangeTest, AKeptTableIsPutBackToTheByte) {
  const std::string path =
      newDisk("disk.img", 100 * kMiB,
              std::string(kStart) + "size=10M,type=83\ntype=5\nv5: size=10M\nv6: size=10M\n");
  const std::string kept = folder_.file("kept.tbk");
  ctl_.expectDone({"table", "backup", path, kept});
  const std::string before = fileHash(path);
  ctl_.expectDone({"delete", path, "--part", "2", "--yes"});
  ASSERT_NE(fileHash(path), before);
  ctl_.expectDone({"table", "restore", path, kept, "--yes"});
  EXPECT_EQ(fileHash(path), before);

  const ProgramResult again = ctl_.run({"table", "backup", path, kept});
  EXPECT_EQ(again.status, 1) << "an existing file is not replaced unasked";
  const std::string other = newDisk("other.img", 100 * kMiB, "label: dos\nlabel-id: 0x9\n");
  const std::string untouched = fileHash(other);
  EXPECT_EQ(ctl_.run({"table", "restore", other, kept, "--yes"}).status, 1);
  EXPECT_EQ(fileHash(other), untouched);
}

TEST_F(ChangeTest, DeleteClearsWhatItIsAskedToClear) {
  const std::string path = newDisk("disk.img", 64 * kMiB,
                                   std::string(kStart) +
                                       "start=2048,size=4096,type=83\n"
                                       "start=8192,size=4096,type=83\n");
  ASSERT_EQ(runProgram({"sh", "-c",
                        "tr '\\0' x </dev/zero | dd of=\"$1\" bs=512 seek=2048 count=20000 "
                        "conv=notrunc iflag=fullblock",
                        "sh", path})
                .status,
            0);
  const auto sectorIsZero = [&](u64 sector) {
    return runProgram({"sh", "-c",
                       "dd if=\"$1\" bs=512 skip=$2 count=1 2>/dev/null | tr -d '\\0' | wc -c",
                       "sh", path, std::to_string(sector)})
               .output == "0\n";
  };
  ctl_.expectDone({"delete", path, "--part", "1", "--wipe", "zero", "--yes"});
  ctl_.expectDone({"delete", path, "--part", "2", "--clear-boot", "--yes"});
  for (const u64 sector : {2048U, 6143U, 8192U, 8192U + 128})
    EXPECT_TRUE(sectorIsZero(sector)) << sector;
  for (const u64 sector : {6144U, 8191U, 8192U + 129}) EXPECT_FALSE(sectorIsZero(sector)) << sector;
}

}  // namespace
}  // namespace tallowin
