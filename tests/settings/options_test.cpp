#include "settings/options.h"

#include <gtest/gtest.h>

#include <set>

#include "settings/password_code.h"

namespace tallowin {
namespace {

std::string commandLine(Options& options, std::vector<std::string> arguments) {
  return applyCommandLine(options, arguments);
}

TEST(Switches, AreMatchedByWholeNameInAnyCaseWithEitherSign) {
  struct Case {
    std::vector<std::string> arguments;
    bool verbose;
    std::string message;
  };
  const Case cases[] = {
      {{"-vs:0"}, false, ""},
      {{"+VS:0"}, false, ""},
      {{"-vs:0", "-vs"}, true, ""},
      {{"-vs:7"}, true, ""},
      {{"-vs:x"}, false, ""},
      {{"-vsx"}, true, "Invalid parameter -vsx"},
      {{"-vs:"}, true, "Invalid parameter -vs:"},
      {{"-vs:0", "-vs", "0"}, true, "Invalid parameter 0"},
      {{"-verbose:0"}, true, "Invalid parameter -verbose:0"},
      {{"-"}, true, "Invalid parameter -"},
      {{"-:0"}, true, "Invalid parameter -:0"},
      {{""}, true, "Invalid parameter "},
  };
  for (const Case& c : cases) {
    Options options;
    EXPECT_EQ(c.message, commandLine(options, c.arguments)) << c.arguments.front();
    EXPECT_EQ(c.verbose, options.verbose) << c.arguments.front();
  }
}

TEST(Switches, MaskBitsAreSetOneByOne) {
  Options options;
  EXPECT_EQ("", commandLine(options, {"-s", "-v"}));
  EXPECT_EQ(3U, options.displayMode);
  EXPECT_EQ("", commandLine(options, {"-s:0"}));
  EXPECT_EQ(1U, options.displayMode);
}

TEST(Switches, ImagesTakeTheirPathBehindAColonOrFromTheNextArgument) {
  Options options;
  EXPECT_EQ("", commandLine(options, {"-img:/a:b.img", "-nd", "-img", "c.vhd"}));
  EXPECT_EQ((std::vector<std::string>{"/a:b.img", "c.vhd"}), options.images);
  EXPECT_TRUE(options.noDevices);

  EXPECT_EQ("", commandLine(options, {"-nd:0"}));
  EXPECT_FALSE(options.noDevices);
  EXPECT_EQ("Invalid parameter -img", commandLine(options, {"-img"}));
  EXPECT_EQ("Invalid parameter -img", commandLine(options, {"-img", "-nd"}));
  EXPECT_EQ(2U, options.images.size());
  EXPECT_EQ("", applyCommandLine(options, std::vector<std::string>(kMaxImages - 2, "-img:a.img")));
  EXPECT_EQ("Too many values for -img: at most 10 are possible",
            commandLine(options, {"-img:b.img"}));
}

TEST(Environment, IsAppliedFromItsLastItemAndSkipsWhatIsUnknown) {
  Options options;
  applyEnvironment(options, "vs:0;vs:1");
  EXPECT_FALSE(options.verbose);
  applyEnvironment(options, ";:1;nonsense; -vs:1 ;img");
  EXPECT_TRUE(options.verbose);
  EXPECT_TRUE(options.images.empty());
}

TEST(OptionTable, NoTwoRowsShareANameOrAMember) {
  std::set<std::string_view> names;
  std::set<std::string_view> keys;
  for (const OptionRow<Options>& row : optionTable()) {
    EXPECT_TRUE(row.switchName.empty() || names.insert(row.switchName).second) << row.switchName;
    EXPECT_TRUE(row.key.empty() || keys.insert(row.key).second) << row.key;
    EXPECT_TRUE(row.key.size() || row.switchName.size());
  }
  EXPECT_EQ(46U, keys.size());

  // Setting one option changes nothing that another row stores.
  for (const OptionRow<Options>& row : optionTable()) {
    if (row.key.empty()) continue;
    Options options;
    setOption(row, options, storedOption(row, options) ? "0" : "41");
    if (!storedOption(row, options)) setOption(row, options, "0");
    for (const OptionRow<Options>& other : optionTable())
      EXPECT_EQ(row.key == other.key, storedOption(other, options).has_value())
          << row.key << " " << other.key;
  }
}

TEST(PasswordCode, EveryTextComesBackAndNothingElseIsAccepted) {
  std::string all;
  for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  for (const std::string& password : {std::string(), std::string("secret"), std::string(40, 'a'),
                                      std::string("gr\xC3\xBC\xC3\x9F"), all})
    EXPECT_EQ(password, decodePassword(encodePassword(password)));
  EXPECT_EQ(std::string::npos, encodePassword(std::string(40, 'a')).find("aa"));
  EXPECT_NE(encodePassword("ab").substr(0, 2), encodePassword("ba").substr(0, 2));
  EXPECT_FALSE(decodePassword("ABC"));
  EXPECT_FALSE(decodePassword("secret"));
}

}  // namespace
}  // namespace tallowin
