#include "molvanectl/TerminalText.hpp"

#include <gtest/gtest.h>

#include <string>

#include "Base/Utf8.hpp"
#include "molvanectl/TextLayout.hpp"

namespace molvane::ctl {
namespace {

TEST(VisibleText, KeepsTextAndShowsWhatCommandsOrDisguises) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain\ttext\nof lines\r\n", "plain\ttext\nof lines\r\n"},
      {"Grüße › 日本 👍🏽", "Grüße › 日本 👍🏽"},
      {"\x1b[2J", "\\x1b[2J"},
      {"over\rwritten\b\x7f", "over\\x0dwritten\\x08\\x7f"},
      {std::string("a\0b", 3), "a\\x00b"},
      {"\xc2\x9b"
       "31m",
       "\\x9b31m"},  // the one-scalar form of ESC [
      {"a\xe2\x80\xae"
       "txt.exe",
       "a\\u{202e}txt.exe"},  // right-to-left override
      {"a\xe2\x80\x8b"
       "b\xef\xbb\xbf",
       "a\\u{200b}b\\u{feff}"},
      {"\xf3\xa0\x81\x81", "\\u{e0041}"},  // a tag letter
      {"\xff\xe2\x80", "\\xff\\xe2\\x80"},
      {"\xc0\x9b", "\\xc0\\x9b"},  // an overlong ESC
  };
  for (const auto& [text, shown] : cases) EXPECT_EQ(visibleText(text), shown);
}

TEST(VisibleText, NoControlCharacterComesThroughInAnyForm) {
  for (unsigned scalar = 0; scalar < 0xA0; ++scalar) {
    std::string text = "x";
    appendUtf8(text, scalar);
    for (const unsigned char byte : visibleText(text + "y")) {
      EXPECT_TRUE((byte >= 0x20 && byte < 0x7F) || (byte == scalar && (byte == '\n' || byte == '\t')))
          << scalar;
    }
  }
}

TEST(TextLayout, BreaksAtBlanksWithinEightyColumns) {
  const std::string word(30, 'w');
  EXPECT_EQ(wrapped(word + " " + word + "  " + word), word + " " + word + "\n" + word + "\n");
  EXPECT_EQ(wrapped(word + " " + word, 20),
            std::string(20, ' ') + word + "\n" + std::string(20, ' ') + word + "\n");
  const std::string endless(100, 'w');
  EXPECT_EQ(wrapped("a " + endless + " b"), "a\n" + endless + "\nb\n");
  EXPECT_EQ(wrapped(" "), "");

  // A scalar is one column, however many bytes it has.
  std::string wide;
  for (int i = 0; i < 39; ++i) wide += "é";
  EXPECT_EQ(wrapped(wide + " " + wide + " b"), wide + " " + wide + "\nb\n");

  EXPECT_EQ(twoColumns("left", "right", 8), "left    right\n");
  EXPECT_EQ(twoColumns("leftish", "right", 8), "leftish\n        right\n");
}

}  // namespace
}  // namespace molvane::ctl
