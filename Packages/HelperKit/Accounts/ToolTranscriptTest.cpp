#include "HelperKit/Accounts/ToolTranscript.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "Base/Utf8.hpp"

namespace molvane {
namespace {

std::string shown(std::string_view written, const std::vector<std::string_view>& secrets,
                  std::size_t pieceSize = 1) {
  ToolTranscript transcript(1'000);
  for (std::size_t at = 0; at < written.size(); at += pieceSize)
    transcript.add(written.substr(at, pieceSize));
  return transcript.text(secrets);
}

TEST(ToolTranscript, MasksSecretsAndCleansTheText) {
  EXPECT_EQ(shown("\r\n Password:\r\nhunter22 is hunter22\r\n\r\n", {"hunter22"}), "Password:\n••• is •••");
  EXPECT_EQ(shown("abcdef abcd", {"", "abc", "abcdef"}), "••• •••d") << "no end of the longer one is left";
  EXPECT_EQ(shown("before \xFF\xC0 pä", {"pä"}), "before \xEF\xBF\xBD\xEF\xBF\xBD •••");
  EXPECT_EQ(shown("pass\r\nword", {"password"}), "pass\nword");
  EXPECT_EQ(shown(" \r\n\t", {}), "");
  EXPECT_EQ(shown(std::string(2'000, 'x'), {}), std::string(2'000, 'x'));
}

// Wherever the secret stands relative to the cuts, and in whatever pieces it comes.
TEST(ToolTranscript, OfAFloodNoPartOfASecretIsLeft) {
  const std::string secret = "S3kr√t-T€xt";
  for (const std::size_t total : {2'050U, 3'500U, 9'000U}) {
    std::vector<std::size_t> places;  // around both cuts
    for (std::size_t at = 970; at < 1'030; ++at) places.insert(places.end(), {at, total - at});
    for (const std::size_t at : places) {
      std::string written(total, '.');
      written.replace(at, secret.size(), secret);
      const std::string text = shown(written, {secret}, 1 + at % 70);
      EXPECT_TRUE(isValidUtf8(text));
      EXPECT_NE(text.find(" bytes left out]\n"), std::string::npos);
      EXPECT_LT(text.size(), 2'100U);
      const std::string_view rest = std::string_view(text);
      for (const std::string part : {"S", "3", "k", "√", "T", "€"}) {
        ASSERT_EQ(rest.find(part), std::string_view::npos) << total << ' ' << at << ' ' << text;
      }
    }
  }
}

}  // namespace
}  // namespace molvane
