// Files in and out of partitions, by the command line, and judged by other programs.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

#include "cli/ctl.h"

namespace tallowin {
namespace {

class FilesTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!hasProgram("mcopy") || !hasProgram("fsck.fat")) GTEST_SKIP() << "needs mtools, dosfstools";
    ctl_.expectDone({"format", path_, "--whole", "--fs", "fat16", "--label", "BEFORE"});
  }

  std::vector<std::string> words(const std::string& verb, std::vector<std::string> rest) const {
    rest.insert(rest.begin(), {"files", path_, "--part", "0", verb});
    return rest;
  }
  ProgramResult files(const std::string& verb, std::vector<std::string> rest) {
    return ctl_.run(words(verb, std::move(rest)));
  }
  void expectSame(const std::string& a, const std::string& b) {
    const ProgramResult result = runProgram({"diff", "-r", a, b});
    EXPECT_EQ(0, result.status) << result.output;
  }
  void expectSound() {
    const ProgramResult result = runProgram({"fsck.fat", "-n", path_});
    EXPECT_EQ(0, result.status) << result.output;
  }
  ProgramResult mtools(std::vector<std::string> command) {
    command.insert(command.begin(), {"env", "LC_ALL=C.UTF-8", "MTOOLS_SKIP_CHECK=1"});
    return runProgram(command);
  }
  // Names of all scripts and lengths, folders in folders, sizes around those of clusters.
  void makeTree(const std::string& top, u32 seed);

  TempFolder folder_;
  Ctl ctl_;
  std::string path_ = folder_.sparse("disk.img", 60 * kMiB);
};

void FilesTest::makeTree(const std::string& top, u32 seed) {
  std::mt19937 random(seed);
  const std::vector<std::string> stems = {
      "a",       "readme",   "Grüße",
      "日本語",  "two.dots", "a rather long name that takes several entries",
      "[x]+=,;", "UPPER",    ".hidden",
      "Ελληνικά"};
  std::vector<std::string> folders = {top};
  std::filesystem::create_directories(top);
  for (u32 i = 0; i < 120; ++i) {
    const std::string name = folders[random() % folders.size()] + "/" +
                             stems[random() % stems.size()] + " " + std::to_string(i);
    if (random() % 5 == 0) {
      std::filesystem::create_directory(name);
      folders.push_back(name);
      continue;
    }
    std::string content(random() % 4 == 0 ? random() % 300'000 : random() % 5 * 512, '\0');
    for (char& byte : content) byte = static_cast<char>(random());
    std::ofstream(name, std::ios::binary) << content;
  }
  std::ofstream(top + "/large", std::ios::binary) << std::string(5 * kMiB + 77, 'L');
}

TEST_F(FilesTest, TreesGoInAndOutAndOthersReadThem) {
  const std::string ours = folder_.file("ours"), theirs = folder_.file("theirs");
  makeTree(ours, 1);
  makeTree(theirs, 2);
  const ProgramResult put = files("put", {"/", ours});
  ASSERT_EQ(0, put.status) << put.output;
  const ProgramResult copied = mtools({"mcopy", "-s", "-Q", "-m", "-i", path_, theirs, "::/"});
  ASSERT_EQ(0, copied.status) << copied.output;
  expectSound();

  for (const char* out : {"byThem", "byUs"}) std::filesystem::create_directory(folder_.file(out));
  EXPECT_EQ(0,
            mtools({"mcopy", "-s", "-Q", "-i", path_, "::/ours", folder_.file("byThem")}).status);
  EXPECT_EQ(0, files("get", {"/", folder_.file("byUs")}).status);
  expectSame(ours, folder_.file("byThem/ours"));
  expectSame(ours, folder_.file("byUs/ours"));
  expectSame(theirs, folder_.file("byUs/theirs"));
  // FAT keeps two seconds.
  const auto age = std::filesystem::last_write_time(ours + "/large") -
                   std::filesystem::last_write_time(folder_.file("byUs/ours/large"));
  EXPECT_LT(std::chrono::abs(age), std::chrono::seconds(2));

  // What a manifest says is what other programs say.
  const ProgramResult manifest = files("manifest", {});
  EXPECT_EQ(0, manifest.status);
  folder_.write("manifest", manifest.output);
  if (hasProgram("xxhsum")) {
    const std::string line = runProgram({"xxhsum", "-H2", ours + "/large"}).output;
    const std::string hash = line.substr(line.find("  /") - 32, 32);
    EXPECT_NE(std::string::npos, manifest.output.find(hash)) << line;
  }
  ProgramResult compared = files("manifest", {"/", folder_.file("manifest")});
  EXPECT_EQ(0, compared.status) << compared.output;
  EXPECT_NE(std::string::npos, compared.output.find(" identical")) << compared.output;

  EXPECT_EQ(1U, ctl_.json(words("ls", {"/ours/lar*"})).json["files"].Size());

  // And changes are seen.
  folder_.write("other", "other");
  EXPECT_EQ(0, files("put", {"/ours/large", folder_.file("other"), "--overwrite"}).status);
  EXPECT_EQ(0, files("mv", {"/theirs/large", "renamed"}).status);
  EXPECT_EQ(0, files("mkdir", {"/new"}).status);
  EXPECT_EQ(0, files("mv", {"/theirs/renamed", "/new"}).status);
  EXPECT_EQ("other", files("cat", {"/ours/large"}).output);
  compared = files("manifest", {"/", folder_.file("manifest")});
  EXPECT_EQ(1, compared.status);
  for (const char* line : {"changed  /ours/large\n", "missing  /theirs/large\n", "added    /new/\n",
                           "added    /new/renamed\n"})
    EXPECT_NE(std::string::npos, compared.output.find(line)) << line << compared.output;

  EXPECT_EQ(0, files("rm", {"-r", "/ours", "--yes"}).status);
  EXPECT_EQ(0, files("rm", {"-r", "/theirs", "--yes"}).status);
  EXPECT_EQ(0, files("rm", {"/new/renamed", "--yes"}).status);
  EXPECT_EQ(0, files("rmdir", {"/new"}).status);
  const Ctl::Answer listed = ctl_.json(words("ls", {"-R"}));
  EXPECT_EQ(0U, listed.json["files"].Size());
  const Ctl::Answer info = ctl_.json({"info", path_, "--part", "0"});
  EXPECT_EQ(0U, info.json["file_system"]["used_bytes"].GetUint64());
  expectSound();
}

TEST_F(FilesTest, WhatIsNotPossibleChangesNothingAndSaysWhy) {
  const std::string good = folder_.file("good"), bad = folder_.file("bad");
  folder_.write("good", "good");
  for (const auto& [name, file] : std::initializer_list<std::pair<const char*, const char*>>{
           {"colon", "a:b"}, {"dot", "ends."}, {"latin", "\xE4"}, {"case", "A"}, {"case", "a"}})
    folder_.write("bad/" + std::string(name) + "/" + file, "x");
  folder_.write("bad/link/file", "x");
  std::filesystem::create_symlink("file", bad + "/link/to");
  folder_.sparse("huge", 70 * kMiB);
  ASSERT_EQ(0, files("put", {"/", good}).status);
  ASSERT_EQ(0, files("mkdir", {"/dir"}).status);
  ASSERT_EQ(0, files("put", {"/dir", good}).status);
  struct Case {
    const char* verb;
    std::vector<std::string> rest;
    const char* says;
  };
  const std::vector<Case> cases = {
      {"put", {"/", folder_.file("absent")}, "no such file"},
      {"put", {"/", good}, "already"},
      {"rm", {"/dir/..", "-r"}, "its own path"},
      {"rm", {"/dir/./", "-r"}, "its own path"},
      {"put", {"/good/x", good}, "no such file"},
      {"put", {"/absent/x", good}, "no such file"},
      {"put", {"/a*b", good}, "not valid"},
      {"put", {"/", bad + "/colon"}, "not valid"},
      {"put", {"/", bad + "/dot"}, "not valid"},
      {"put", {"/", bad + "/latin"}, "UTF-8"},
      {"put", {"/", bad + "/case"}, "same name"},
      {"put", {"/", bad + "/link"}, "--skip-special"},
      {"put", {"/", folder_.file("huge")}, "are free"},
      {"put", {"/good", bad, "--overwrite"}, "already"},
      {"get", {"/absent", folder_.file("out")}, "no such file"},
      {"get", {"/good", good}, "already"},
      {"get", {"/good", folder_.file("absent/out")}, "could not be created"},
      {"rm", {"/good"}, "--yes"},
      {"rm", {"/dir", "--yes"}, "is a directory"},
      {"rm", {"/absent", "--yes"}, "no such file"},
      {"rmdir", {"/dir"}, "not empty"},
      {"rmdir", {"/good"}, "not possible"},
      {"mkdir", {"/good"}, "already"},
      {"mv", {"/good", "dir"}, "already"},
      {"mv", {"/dir", "/dir/below"}, "not valid"},
      {"mv", {"/good", "a:b"}, "not valid"},
      {"cat", {"/dir"}, "not possible"},
      {"stat", {"/absent"}, "no such file"},
      {"manifest", {"/", path_}, "no manifest"},
  };
  const std::string before = fileHash(path_);
  for (const Case& c : cases) {
    const ProgramResult result = files(c.verb, c.rest);
    EXPECT_EQ(1, result.status) << testing::PrintToString(c.rest) << result.output;
    EXPECT_NE(std::string::npos, result.output.find(c.says))
        << c.verb << testing::PrintToString(c.rest) << result.output;
    EXPECT_EQ(before, fileHash(path_)) << c.verb << testing::PrintToString(c.rest);
  }
  for (const auto& rest : std::vector<std::vector<std::string>>{{"/"}, {}, {"/", good, "x"}})
    EXPECT_EQ(2, files("put", rest).status);
  EXPECT_EQ("good", folder_.read("good"));
  EXPECT_FALSE(std::filesystem::exists(folder_.file("out")));
  EXPECT_EQ(3, files("put", {"/", bad + "/link", "--skip-special"}).status);
  expectSound();
}

// A driver that lays out volumes by itself, in clusters that it hands out as it likes.
TEST_F(FilesTest, VolumesOfAnotherDriverAreReadIdentical) {
  if (!hasProgram("qemu-img")) GTEST_SKIP() << "needs qemu-img";
  const std::string tree = folder_.file("tree"), image = folder_.file("other.img");
  makeTree(tree, 3);
  for (const char* kind : {"12", "16"}) {
    const ProgramResult made = runProgram({"qemu-img", "convert", "-f", "vvfat", "-O", "raw",
                                           "fat:" + std::string(kind) + ":" + tree, image});
    ASSERT_EQ(0, made.status) << made.output;
    const Ctl::Answer checked = ctl_.json({"check", image, "--part", "1"});
    EXPECT_EQ(0, checked.status) << kind;
    const std::string files = runProgram({"sh", "-c", "find \"$0\" -type f | wc -l", tree}).output;
    EXPECT_EQ(files, std::to_string(checked.json["files"].GetUint()) + "\n");
    const std::string out = folder_.file("out" + std::string(kind));
    EXPECT_EQ(0, ctl_.run({"files", image, "--part", "1", "get", "/", out}).status);
    expectSame(tree, out);
  }
}

// What a medium says its files are called leads nowhere but into the folder, and no byte of it
// reaches the terminal; what is damaged costs nothing but itself.
TEST_F(FilesTest, HostileNamesAreToldAndLeftOut) {
  const std::pair<std::string, std::string> kNames[] = {
      {"H1         ", "../OUT     "},
      {"H2         ", "        .  "},
      {"H3         ", "\x1B[2JEVIL   "},
      {"H4         ", "A\\B        "},
      {"H5         ", "/ETC       "},
      {"H6         ", "..         "},
      {"H7         ", "           "},
      {"TWIN1      ", "TWIN2      "},
      {std::string("n\0a\0m\0e\0", 8), std::string(".\0.\0/\0x\0", 8)}};
  for (const char* name : {"H1", "H2", "H3", "H4", "H6", "H7", "TWIN1", "TWIN2", "GOOD", ".dot",
                           "H5/BELOW", "LAST/BROKEN", "LAST/name of a file"})
    folder_.write("in/tree/" + std::string(name), name);
  ASSERT_EQ(0, files("put", {"/", folder_.file("in/tree")}).status);
  std::string image = folder_.read("disk.img");
  for (const auto& [good, bad] : kNames) image.replace(image.find(good), good.size(), bad);
  // It begins behind the end of the volume.
  image.replace(image.find("BROKEN     ") + 26, 2, "\xF0\xFE");
  folder_.write("disk.img", image);

  std::filesystem::create_directories(folder_.file("out/deep"));
  const ProgramResult got = files("get", {"/tree", folder_.file("out/deep")});
  EXPECT_EQ(3, got.status) << got.output;
  EXPECT_EQ(std::string::npos, got.output.find('\x1B'));
  for (const char* told : {"'/tree/../OUT'", "[2JEVIL'", "'/tree/A\\B'", "'/tree//ETC'",
                           "'/tree/LAST/BROKEN'", "'/tree/TWIN2'"})
    EXPECT_NE(std::string::npos, got.output.find(told)) << told << got.output;
  const ProgramResult copied = runProgram({"find", folder_.file("out"), "-type", "f"});
  for (const char* name : {"GOOD", ".dot", "TWIN2", "LAST/NAMEOF~1"})
    EXPECT_NE(std::string::npos, copied.output.find("/out/deep/tree/" + std::string(name)))
        << name << copied.output;
  EXPECT_EQ(4, std::ranges::count(copied.output, '\n')) << copied.output;

  const ProgramResult listed = files("ls", {"-R"});
  EXPECT_EQ(3, listed.status);
  EXPECT_EQ(std::string::npos, listed.output.find('\x1B'));
  EXPECT_NE(std::string::npos, listed.output.find("/tree/LAST/BROKEN\n")) << listed.output;
  EXPECT_EQ(1, files("get", {"/tree/LAST/BROKEN", folder_.file("out")}).status);
  EXPECT_EQ(1, files("rm", {"-r", "/tree", "--yes"}).status) << "it is not known what is in it";
}

// An older program's lock, and a disk that nobody may write to, are no hindrance to reading.
TEST_F(FilesTest, ReadingTakesNoLockAndRehearsingWritesNothing) {
  folder_.write("file", "content");
  ASSERT_EQ(0, files("put", {"/", folder_.file("file")}).status);
  const std::string before = fileHash(path_);
  const ProgramResult rehearsed = files("rm", {"/file", "--rehearse"});
  EXPECT_EQ(0, rehearsed.status) << rehearsed.output;
  EXPECT_NE(std::string::npos, rehearsed.output.find("Rehearsed"));
  const int other = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(0, ::flock(other, LOCK_EX));
  EXPECT_EQ("content", files("cat", {"/file"}).output);
  EXPECT_EQ(0, files("ls", {}).status);
  const ProgramResult locked = files("put", {"/x", folder_.file("file")});
  EXPECT_EQ(1, locked.status);
  EXPECT_NE(std::string::npos, locked.output.find("Another program")) << locked.output;
  ::close(other);
  EXPECT_EQ(before, fileHash(path_));
}

TEST_F(FilesTest, LabelsAreThoseThatOthersRead) {
  const auto label = [&](std::vector<std::string> rest) {
    rest.insert(rest.begin(), {"label", path_, "--part", "0"});
    return ctl_.run(rest);
  };
  EXPECT_EQ("BEFORE\n", label({}).output);
  EXPECT_EQ(0, label({"Größe 1"}).status);
  EXPECT_EQ("GRÖßE 1\n", label({}).output);
  EXPECT_STREQ("GRÖßE 1", ctl_.json({"list", path_}).json["rows"][0]["name"].GetString());
  EXPECT_STREQ("GRÖßE 1",
               ctl_.json({"info", path_, "--part", "0"}).json["file_system"]["label"].GetString());
  ctl_.expectDone({"settings", "CodePage850=1"});
  EXPECT_EQ(0, label({"Bõ"}).status);  // not in 437
  EXPECT_EQ("BÕ\n", label({}).output);
  for (const std::string wrong : {"a*b", "twelve chars", "日本"})
    EXPECT_NE(std::string::npos, label({wrong}).output.find("not valid")) << wrong;
  EXPECT_EQ("BÕ\n", label({}).output);
  EXPECT_EQ(0, label({"AFTER"}).status);
  EXPECT_NE(std::string::npos, mtools({"mlabel", "-s", "-i", path_, "::"}).output.find("AFTER"));
  EXPECT_EQ(0, label({"--clear"}).status);
  EXPECT_EQ("(no label)\n", label({}).output);
  EXPECT_EQ(2, label({"X", "--clear"}).status);
  expectSound();
}

}  // namespace
}  // namespace tallowin
