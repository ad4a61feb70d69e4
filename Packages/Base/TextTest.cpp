#include "Base/Text.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/Characters.hpp"

namespace molvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Text, LinesEndAtEveryNewlineAndEmptyOnesAreDropped) {
  EXPECT_THAT(lines("a\r\nb\n\nc\u2028d\u0085e"), ElementsAre("a", "b", "c", "d", "e"));
  EXPECT_THAT(lines("\n\r\n"), IsEmpty());
  EXPECT_THAT(lines("last line\xC2"), ElementsAre("last line\xC2")) << "invalid bytes stay as they are";
}

TEST(Text, TrimmingStopsAtTheFirstThingThatIsNoWhitespace) {
  EXPECT_EQ(trimmingWhitespace(" \t\u00A0x y \u3000"), "x y");
  EXPECT_EQ(trimmingWhitespace(" \n x \n "), "\n x \n");
  EXPECT_EQ(trimmingWhitespaceAndNewlines(" \n x \n "), "x");
  EXPECT_EQ(trimmingWhitespaceAndNewlines(" \r\n\t "), "");
  EXPECT_EQ(trimmingWhitespace(" \xFFx\xFF "), "\xFFx\xFF");
}

TEST(Characters, AreCountedAsAPersonSeesThem) {
  EXPECT_EQ(characterCount("a\r\nb\r\r\n"), 5U);
  EXPECT_EQ(characterCount("\U0001F469\u200D\U0001F467 e\u0301"), 3U);
  EXPECT_EQ(characterCount(std::string("a\0b\xFF", 4)), 4U) << "NUL and invalid bytes are characters too";
  EXPECT_THAT(characters("e\u0301x\r\n"), ElementsAre("e\u0301", "x", "\r\n"));
  EXPECT_THAT(characters(""), IsEmpty());
}

TEST(Characters, LowerCaseKnowsNoLanguageAndNoContext) {
  EXPECT_EQ(lowercased("ÀI\u0130"), "ài\u0069\u0307");
  EXPECT_EQ(lowercased("ΟΔΟΣ"), "οδοσ") << "no final sigma";
}

TEST(Characters, FoldingTakesCaseAndAccentsAway) {
  EXPECT_EQ(foldingCaseAndDiacritics("José MARÍA"), "jose maria");
  EXPECT_EQ(foldingCaseAndDiacritics("Straße ŉ ǰ Å"), "strasse \u02BCn j a");
  EXPECT_EQ(foldingCaseAndDiacritics("Øł"), "øł");
}

TEST(Characters, AccentsMayBeComposedOrNot) {
  EXPECT_TRUE(canonicallyEqual("\u00E9", "e\u0301"));
  EXPECT_TRUE(canonicallyEqual("\uAC01", "\u1100\u1161\u11A8"));
  EXPECT_FALSE(canonicallyEqual("\u00E9", "e"));
  EXPECT_FALSE(canonicallyEqual("\uFB01", "fi")) << "compatibility is not equality";
  EXPECT_FALSE(canonicallyEqual("a", std::string_view("a\0", 2)));
}

}  // namespace
}  // namespace molvane
