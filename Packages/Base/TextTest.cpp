#include "Base/Text.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/Characters.hpp"

// What the golden rows, which are valid texts of people, do not hold.

namespace molvane {
namespace {

using testing::ElementsAre;

TEST(Text, InvalidBytesAndNulsAreCharactersLikeOthers) {
  EXPECT_THAT(lines("a\nlast line\xC2"), ElementsAre("a", "last line\xC2"));
  EXPECT_EQ(trimmingWhitespace(" \xFFx\xFF "), "\xFFx\xFF");
  EXPECT_EQ(characterCount(std::string("a\0b\xFF", 4)), 4U);
  EXPECT_FALSE(canonicallyEqual("a", std::string_view("a\0", 2)));
}

TEST(Characters, LowerCaseAndFoldingKnowNoContext) {
  EXPECT_EQ(lowercased("ΟΔΟΣ"), "οδοσ") << "no final sigma";
  EXPECT_EQ(foldingCaseAndDiacritics("Straße ŉ ǰ Å"), "strasse \u02BCn j a");
}

}  // namespace
}  // namespace molvane
