#include "Base/Characters.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace molvane {
namespace {

bool unicodeLibraryIsLoaded() { return dlopen(MOLVANE_ICU_LIBRARY, RTLD_NOW | RTLD_NOLOAD) != nullptr; }

/// Exits with the number of the first expectation that does not hold.
[[noreturn]] void useAsciiThenMore() {
  if (unicodeLibraryIsLoaded()) std::exit(1);
  const bool right = characterCount("a\r\nb") == 3 && lowercased("ABC") == "abc" &&
                     !canonicallyEqual("ann", "bob") && canonicallyEqual("é", "é") &&
                     canonicalForm("ann") == "ann";
  if (!right) std::exit(2);
  if (unicodeLibraryIsLoaded()) std::exit(3);
  if (characterCount("e\u0301") != 1) std::exit(4);
  std::exit(unicodeLibraryIsLoaded() ? 0 : 5);
}

TEST(Characters, TheUnicodeLibraryIsLoadedByTheFirstTextThatNeedsIt) {
  // A fresh process, in which no other test has loaded it.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(useAsciiThenMore(), testing::ExitedWithCode(0), "");
}

TEST(Characters, CanonicalFormsAreEqualExactlyWhenTheTextsAre) {
  EXPECT_EQ(canonicalForm("Am\u00E9lie"), canonicalForm("Ame\u0301lie"));
  EXPECT_EQ(canonicalForm("\u212A"), "K") << "a singleton that stands for ASCII";
  EXPECT_EQ(canonicalForm("a\u0323\u0307"), canonicalForm("a\u0307\u0323")) << "the order of marks";
  EXPECT_NE(canonicalForm("\uFB01"), canonicalForm("fi")) << "compatibility is not equality";
  EXPECT_EQ(canonicalForm("\U0001F469\xFF"), "\U0001F469\uFFFD");
}

}  // namespace
}  // namespace molvane
