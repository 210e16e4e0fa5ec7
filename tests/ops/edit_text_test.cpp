#include "ops/edit_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace tallowin {
namespace {

EditText loaded(const std::string& bytes) {
  EditText text;
  text.load(bytes, 850);
  return text;
}

TEST(EditTextTest, WhatNobodyChangedComesBackByteForByte) {
  const char* const samples[] = {"",
                                 "no end",
                                 "\r",
                                 "\n\r\n\r\r\n\n",
                                 "a\r\nb\nc\rd",
                                 "\xEF\xBB\xBF"
                                 "marked ü\r\n",
                                 "\xEF\xBB\xBF"
                                 "marked \x81\r\n",
                                 "Gr\x81\xE1"
                                 "e \x80\xFF\n",
                                 "\x01\x1B[1m\x7F\x1A",
                                 "\xED\xA0\x80 half a pair"};
  for (const std::string sample : samples) EXPECT_EQ(sample, loaded(sample).bytes());
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    std::string bytes;
    for (auto i = random() % 200; i > 0; --i)
      bytes += static_cast<char>(random() % 3 == 0 ? "\r\n"[random() % 2] : 1 + random() % 255);
    EXPECT_EQ(bytes, loaded(bytes).bytes());
  }
}

TEST(EditTextTest, ALineKeepsItsEndAndANewOneTakesThatOfItsOrigin) {
  EditText text = loaded("one\r\ntwo\nthree\rfour");
  EXPECT_EQ("one\ntwo\nthree\nfour", text.text());
  text.change(5, 1, "W");                        // in "two"
  text.change(9, 0, "h\n");                      // in "three"
  text.change(text.text().size(), 0, "\nlast");  // behind all
  EXPECT_EQ("one\r\ntWo\nth\rhree\rfour\rlast", text.bytes());
  text.change(3, 1, "");  // joins the first two
  EXPECT_EQ("onetWo\nth\rhree\rfour\rlast", text.bytes());
  EditText dos = loaded("");
  dos.change(0, 0, "a\nb\n");
  EXPECT_EQ("a\r\nb\r\n", dos.bytes());
  EXPECT_EQ("ASCII, CR LF", dos.formText());
  EXPECT_EQ("a\nb\nc", pastedText(std::string("a\r\nb\rc\0", 7)));
  EXPECT_EQ("\uFFFDx", pastedText("\xFFx"));
}

// Whatever is done is taken back, with the ends of lines that were deleted.
TEST(EditTextTest, EachChangeIsTakenBackAndMadeAgain) {
  std::mt19937 random(3);
  const std::string start = "one\r\ntwo\nthree\rfour ü\r\n";
  EditText text = loaded(start);
  for (int i = 0; i < 400; ++i) {
    const std::size_t at = random() % (text.text().size() + 1);
    const std::size_t removed = random() % (std::min<std::size_t>(text.text().size() - at, 4) + 1);
    const char* const inserts[] = {"", "x", "\n", "yz\n\n", " "};
    const std::string editor = text.text();
    text.change(at, removed, inserts[random() % 5]);
    const std::string again = loaded(text.bytes()).text();
    EXPECT_EQ(std::count(again.begin(), again.end(), '\n'),
              std::count(text.text().begin(), text.text().end(), '\n'))
        << "no two line ends became one";
    if (random() % 4 != 0) continue;
    const std::string bytes = text.bytes();
    auto back = text.undo();
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(text.text().substr(0, back->position), editor.substr(0, back->position));
    ASSERT_TRUE(text.redo().has_value());
    EXPECT_EQ(bytes, text.bytes());
  }
  const std::string end = text.bytes();
  while (text.undo()) continue;
  EXPECT_EQ(start, text.bytes());
  EXPECT_FALSE(text.isChanged());
  while (text.redo()) continue;
  EXPECT_EQ(end, text.bytes());
}

TEST(EditTextTest, AWordThatWasTypedIsTakenBackAtOnce) {
  EditText text = loaded("");
  std::size_t at = 0;
  for (const char c : std::string("two words")) text.change(at++, 0, std::string(1, c));
  text.change(8, 1, "");
  text.change(7, 1, "");
  ASSERT_TRUE(text.undo().has_value());
  EXPECT_EQ("two words", text.text());
  ASSERT_TRUE(text.undo().has_value());
  EXPECT_EQ("two ", text.text());
  text.change(4, 0, "x");
  EXPECT_FALSE(text.redo().has_value());
  ASSERT_TRUE(text.undo().has_value());
  ASSERT_TRUE(text.undo().has_value());
  EXPECT_FALSE(text.undo().has_value());
}

}  // namespace
}  // namespace tallowin
