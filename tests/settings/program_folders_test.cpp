#include "settings/program_folders.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

EnvironmentLookup madeUp(std::map<std::string, std::string> variables) {
  return [variables](const char* name) -> std::optional<std::string> {
    const auto found = variables.find(name);
    if (found == variables.end()) return std::nullopt;
    return found->second;
  };
}

TEST(ProgramFolders, AreBesideTheProgramWhenThatCanBeWritten) {
  const TempFolder folder;
  const auto folders =
      ProgramFolders::find(folder.file("sub/../tallowin"), madeUp({{"HOME", "/home/me"}}));
  EXPECT_EQ(folder.path(), folders.program);
  EXPECT_EQ(folder.path() + "/STRANDEL.INI", folders.settingsFile());
  EXPECT_EQ(folder.path() + "/Debug.txt", folders.traceFile());
}

TEST(ProgramFolders, OneVariableMovesThemAllAndTheHelpStays) {
  const TempFolder folder;
  const auto folders =
      ProgramFolders::find("/usr/bin/tallowin", madeUp({{"TALLOWIN_HOME", folder.path()}}));
  EXPECT_EQ(folder.path() + "/STRANDEL.INI", folders.settingsFile());
  EXPECT_EQ(folder.path() + "/backup", folders.backupFolder());
  EXPECT_EQ("/usr/bin/tallowin.hlp", folders.helpFile());
}

// Root may write everywhere but below /proc, so the program stands there.
TEST(ProgramFolders, AreTheUsersOwnWhenTheProgramsFolderCannotBeWritten) {
  const std::string program = "/proc/self/tallowin";
  auto folders = ProgramFolders::find(program, madeUp({{"HOME", "/home/me"}}));
  EXPECT_EQ("/home/me/.config/tallowin/STRANDEL.INI", folders.settingsFile());
  EXPECT_EQ("/home/me/.local/state/tallowin/backup", folders.backupFolder());

  folders = ProgramFolders::find(program, madeUp({{"HOME", "/home/me"},
                                                  {"XDG_CONFIG_HOME", "/etc/me"},
                                                  {"XDG_STATE_HOME", "relative"}}));
  EXPECT_EQ("/etc/me/tallowin", folders.settings);
  EXPECT_EQ("/home/me/.local/state/tallowin", folders.state);

  EXPECT_EQ("/proc/self", ProgramFolders::find(program, madeUp({})).settings);
}

// A normal user asks in a process of its own; /proc has no such file beside its programs.
TEST(ProgramFolders, AFileBesideTheProgramWinsAlsoWhenItsFolderCannotBeWritten) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs the rights to become somebody else";
  constexpr uid_t kNobody = 65534;
  const TempFolder folder;
  folder.write("STRANDEL.INI", "[OPTIONS]\nTimeOut=7\n");
  folder.write("without/tallowin", "");
  for (const char* name : {"", "/without"})
    ASSERT_EQ(::chmod((folder.path() + name).c_str(), 0755), 0);
  ASSERT_EQ(::chmod(folder.file("STRANDEL.INI").c_str(), 0644), 0);
  // access(2), which the search asks with, answers for the real user.
  ASSERT_EQ(::setreuid(kNobody, 0), 0);
  const auto home = madeUp({{"HOME", "/home/me"}});
  const auto beside = ProgramFolders::find(folder.file("tallowin"), home);
  const auto elsewhere = ProgramFolders::find(folder.file("without/tallowin"), home);
  ASSERT_EQ(::setreuid(0, 0), 0);

  EXPECT_EQ(folder.file("STRANDEL.INI"), beside.settingsFile());
  EXPECT_EQ("/home/me/.local/state/tallowin/backup", beside.backupFolder());
  EXPECT_EQ("/home/me/.config/tallowin/STRANDEL.INI", elsewhere.settingsFile());
  EXPECT_EQ("/home/me/.local/state/tallowin/Debug.txt", elsewhere.traceFile());
}

TEST(ProgramFolders, MakingThemSaysWhenThatIsNotPossible) {
  const TempFolder folder;
  EXPECT_EQ(makeFolders(folder.file("a/b/c")), Error::none);
  EXPECT_EQ(makeFolders(folder.file("a/b/c")), Error::none);
  folder.write("file", "x");
  EXPECT_EQ(makeFolders(folder.file("file/d")).systemError, ENOTDIR);
}

}  // namespace
}  // namespace tallowin
