#include "HelperKit/Accounts/PromptLine.hpp"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "Base/Characters.hpp"
#include "Base/Text.hpp"
#include "Base/Utf8.hpp"

namespace molvane {
namespace {

bool isPrompt(const std::string& text) {
  PromptLine line;
  line.add(text);
  return line.asking().has_value();
}

TEST(PromptLine, KnowsAPromptFromOtherText) {
  for (const std::string prompt :
       {"Password:", "Password: ", "New PASSWORD for bob :\t ", "first\r\nRetype password:",
        "Password:\r\n\n", "pass\xFFword password:", "Password:\xC2\xA0", "done\xE2\x80\xA8password:"}) {
    EXPECT_TRUE(isPrompt(prompt)) << prompt;
  }
  for (const std::string other :
       {"", "\n\n", "Enter the password", "Passwort:", "Password:\nok", "Pass\nword:", "Password: ****",
        "Password:\xE2\x80", "Password:\xFF", "Password:\xC2\x85x"}) {
    EXPECT_FALSE(isPrompt(other)) << other;
  }
  EXPECT_FALSE(isPrompt(std::string(PromptLine::kLongest, 'x') + "password:"));
  EXPECT_TRUE(isPrompt(std::string(PromptLine::kLongest, 'x') + "\npassword:"));
}

// What the line is by definition, of all that was written.
std::optional<std::string> definition(const std::string& written) {
  const std::vector<std::string> all = lines(repairedUtf8(written));
  if (all.empty()) return std::nullopt;
  const std::string lower = lowercased(all.back());
  const bool asks =
      lower.find("password") != std::string::npos && trimmingWhitespace(all.back()).ends_with(":");
  return asks ? std::optional(repairedUtf8(lower)) : std::nullopt;
}

TEST(PromptLine, IsTheSameHoweverTheTextIsCutIntoPieces) {
  const std::array<std::string, 14> parts = {"PassWord",     ":",   " ",    "\r\n", "\n",   "\xC2\x85",
                                             "\xE2\x80\xA9", "é",   "\xFF", "\xE2", "\x80", "x",
                                             "\xF0\x9F",     "word"};
  std::mt19937 random(7);
  std::size_t prompts = 0;
  for (int round = 0; round < 3'000; ++round) {
    PromptLine line;
    std::string written;
    for (int piece = 0; piece < 12; ++piece) {
      std::string part;
      for (auto count = 1 + random() % 3; count > 0; --count) part += parts[random() % parts.size()];
      line.add(part);
      written += part;
      const std::optional<std::string> asking = line.asking();
      ASSERT_EQ(asking ? std::optional(repairedUtf8(*asking)) : std::nullopt, definition(written)) << written;
      prompts += asking ? 1U : 0U;
      if (random() % 8 == 0) {
        line.forget();
        written.clear();
      }
    }
  }
  EXPECT_GT(prompts, 300U);
}

}  // namespace
}  // namespace molvane
