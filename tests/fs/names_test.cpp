#include "fs/names.h"

#include <gtest/gtest.h>

namespace tallowin {
namespace {

constexpr NameRules kDos{.hasShortNames = true};
constexpr NameRules kPosix{.isPosix = true};

TEST(NamesTest, NoNameIsChangedOnItsWayThere) {
  const std::u16string lonely{u'a', 0xD83D, u'b', 0xDE00};
  for (const std::u16string& units :
       {std::u16string(u"plain.txt"), std::u16string(u"Grüße Ελλ Жук 日本"),
        std::u16string(u"\U0001F600\U0010FFFF"), std::u16string(u"\uFFFD"), lonely}) {
    const std::string text = utf8Of(units);
    EXPECT_EQ(utf16Of(text), std::optional(units)) << text;
  }
  for (const char* bad : {"\xFF", "a\xC3", "\xC0\x80", "\xF5\x80\x80\x80", "\xED\xA0"})
    EXPECT_EQ(utf16Of(bad), std::nullopt) << bad;
}

TEST(NamesTest, CaseIsThatOfTheAlphabet) {
  const NameRules& rules = kDos;
  for (const auto& [a, b] :
       std::initializer_list<std::pair<const char*, const char*>>{{"ReadMe.TXT", "README.txt"},
                                                                  {"straße", "STRAßE"},
                                                                  {"éÿ", "ÉŸ"},
                                                                  {"ąž", "ĄŽ"},
                                                                  {"ωέ", "ΩΈ"},
                                                                  {"жѓ", "ЖЃ"}})
    EXPECT_TRUE(isSameName(a, b, rules) && !isSameName(a, b, kPosix)) << a;
  for (const auto& [a, b] : std::initializer_list<std::pair<const char*, const char*>>{
           {"a", "b"}, {"÷", "×"}, {"e", "é"}, {"[", "{"}})
    EXPECT_FALSE(isSameName(a, b, rules)) << a;
  for (char16_t c = 0; c < 0x2000; ++c) {
    const char16_t upper = upperCase(c);
    EXPECT_TRUE(upper == c || lowerCase(upper) == c) << static_cast<int>(c);
  }
}

TEST(NamesTest, WhatANewFileMayBeCalled) {
  struct Case {
    std::string name;
    Error dos;
    Error posix;
  };
  std::string longest, tooLong;
  for (int i = 0; i < 255; ++i) longest += "é";
  tooLong = longest + "x";
  for (const auto& [name, dos, posix] :
       std::initializer_list<Case>{{"a.b", Error::none, Error::none},
                                   {"", Error::invalidName, Error::invalidName},
                                   {"a.", Error::invalidName, Error::none},
                                   {".", Error::invalidName, Error::invalidName},
                                   {"..", Error::invalidName, Error::invalidName},
                                   {".a", Error::none, Error::none},
                                   {"a:b", Error::invalidName, Error::none},
                                   {"a*b", Error::invalidName, Error::invalidName},
                                   {"a/b", Error::invalidName, Error::invalidName},
                                   {"a\tb", Error::invalidName, Error::invalidName},
                                   {"a\xFF", Error::invalidName, Error::none},
                                   {longest, Error::none, Error::nameTooLong},
                                   {tooLong, Error::nameTooLong, Error::nameTooLong}}) {
    EXPECT_EQ(checkName(name, kDos), dos) << name;
    EXPECT_EQ(checkName(name, kPosix), posix) << name;
  }
}

TEST(NamesTest, Patterns) {
  struct Case {
    const char* pattern;
    const char* name;
    bool dos;
    bool posix;
  };
  for (const auto& [pattern, name, dos, posix] :
       std::initializer_list<Case>{{"*", "", true, true},
                                   {"*.*", "noext", true, false},
                                   {"*.*", "a.b", true, true},
                                   {"a.", "a", true, false},
                                   {"a.*", "a", true, false},
                                   {"*.", "a", true, false},
                                   {"*.", "a.b", false, false},
                                   {"a.*x", "a", false, false},
                                   {"?", "é", true, true},
                                   {"a?b", "a.b", false, true},
                                   {"*a*b", "xaxxab", true, true},
                                   {"*a*b", "xaxxaby", false, false},
                                   {"*?", "a", true, true},
                                   {"*??", "a", false, false},
                                   {"ABC*", "abcdef", true, false},
                                   {"", "a", false, false},
                                   {"*.txt", "a.b.txt", true, true}}) {
    EXPECT_EQ(matchesPattern(pattern, name, kDos), dos) << pattern << " on " << name;
    EXPECT_EQ(matchesPattern(pattern, name, kPosix), posix) << pattern << " on " << name;
  }
}

}  // namespace
}  // namespace tallowin
