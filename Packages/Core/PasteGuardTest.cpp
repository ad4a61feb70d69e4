#include "Core/PasteGuard.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unicode/uchar.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "Base/Text.hpp"
#include "Base/Utf8.hpp"

namespace molvane::PasteGuard {
namespace {

using Findings = std::map<Finding, std::int64_t>;

struct Case {
  std::string text;
  Findings findings;
};

/// Counts by the rules as they read, scalar by scalar, to hold the fast scan against.
Findings countSlowly(std::string_view text) {
  Findings findings;
  forEachOccurrence(text, [&findings](const Occurrence& occurrence) {
    ++findings[occurrence.finding];
    return true;
  });
  std::int64_t newlines = 0;
  char32_t last = 0;
  for (const char32_t scalar : Utf8Scalars(text)) {
    if (isNewline(scalar) && !(scalar == '\n' && last == '\r')) ++newlines;
    last = scalar;
  }
  if (newlines > 0) findings[Finding::runs] = newlines + (isNewline(last) ? 0 : 1);
  return findings;
}

/// Texts made of the pieces where the rules change their answer, plain stretches longer than any block, and
/// raw bytes.
std::string randomText(std::mt19937& random) {
  static const std::vector<std::string> pieces = {
      "\n",     "\r\n",     "\r",     "\v",       "\f",
      "\t",     " ",        "a",      "Z",        "1",
      "@",      "[",        "\x7F",   "\x1B",     std::string(1, '\0'),
      "\u0080", "\u0084",   "\u0085", "\u0086",   "\u009F",
      "\u00A0", "\u00AD",   "\u00E9", "\u036F",   "\u0370",
      "\u03FF", "\u0400",   "\u0436", "\u04FF",   "\u0500",
      "\u061B", "\u061C",   "\u180E", "\u180F",   "\u200A",
      "\u200B", "\u200E",   "\u2010", "\u2015",   "\u2016",
      "\u2018", "\u201A",   "\u201D", "\u2028",   "\u2029",
      "\u202A", "\u202F",   "\u2060", "\u2065",   "\u2066",
      "\u206A", "\u2212",   "\u4E2D", "\uFEFF",   "\uFF00",
      "\uFF01", "\uFF3F",   "\uFF5E", "\uFF5F",   "\U0001F600",
      "\xE2",   "\xE2\x80", "\xC2",   "\xD0",     "\xEF\xBC",
      "\x85",   "\xA8",     "\xFF",   "\xF0\x9F", "\xED\xA0\x80"};
  std::string text;
  const unsigned length = random() % 40;
  for (unsigned i = 0; i < length; ++i) {
    if (random() % 8 == 0) {
      text += std::string(random() % 300, random() % 2 == 0 ? 'x' : '7');
    } else {
      text += pieces[random() % pieces.size()];
    }
  }
  return text;
}

TEST(PasteGuard, CountsWhatHidesOrDisguises) {
  const std::vector<Case> cases = {
      {"", {}},
      {"echo hi", {}},
      {"a\tb", {}},
      {"pay\u202Etxt.exe", {{Finding::bidi, 1}}},
      {"\u200Bls\u00AD\uFEFF", {{Finding::invisible, 3}}},
      {"\u0440\u0430\u0443\u0440\u0430l", {{Finding::lookalike, 5}}},
      {"l\u0440\u0430", {{Finding::lookalike, 2}}},
      {"\u043F\u0440\u0438\u0432\u0435\u0442", {}},
      {"\u043F\u0440\nls", {{Finding::runs, 2}}},
      {"ls\n\u043F\u0440", {{Finding::runs, 2}}},
      {"\u2018quoted\u2019\u201A", {{Finding::lookalike, 2}}},
      {"\uFF21 \u2212 1", {{Finding::lookalike, 2}}},
      {std::string("\x1B[31m\x7F\u009B") + '\0', {{Finding::control, 4}}},
  };
  for (const Case& each : cases) EXPECT_EQ(check(each.text).findings, each.findings) << each.text;
}

TEST(PasteGuard, CountsTheLinesThatWouldRun) {
  const std::map<std::string, std::int64_t> runs = {
      {"ls", 0},       {"ls\n", 1},       {"a\nb", 2},        {"a\nb\n", 2},      {"\n", 1},
      {"\n\n", 2},     {"a\r\nb", 2},     {"a\r\n", 1},       {"a\r\rb", 3},      {"a\n\rb", 3},
      {"a\u0085b", 2}, {"a\u2028b\v", 2}, {"a\fb\u2029c", 3}, {"a\n\xE2\x80", 2},
  };
  for (const auto& [text, expected] : runs) {
    const Report report = check(text);
    const auto found = report.findings.find(Finding::runs);
    EXPECT_EQ(found == report.findings.end() ? 0 : found->second, expected) << testing::PrintToString(text);
  }
}

TEST(PasteGuard, FastScanAgreesWithTheRulesAsTheyRead) {
  std::mt19937 random(20260101);
  for (int i = 0; i < 30000; ++i) {
    const std::string text = randomText(random);
    ASSERT_EQ(check(text).findings, countSlowly(text)) << testing::PrintToString(text);
  }
}

// Plain stretches are taken in blocks: whatever stands before, at and after the border of one must count the
// same.
TEST(PasteGuard, FastScanAgreesAtEveryDistanceFromABlock) {
  const std::vector<std::string> marks = {"\u00E9\r\n",    "\u010D\n", "\u4E2D\r\n",  "\xFF\r\n",  "\xFF\n",
                                          "\r\n",          "\r",       "\u0436\r\nz", "z\n\u0436", "\x7F\r\n",
                                          "\u0436\n\r\nz", "\t\n"};
  for (const std::string& mark : marks) {
    for (std::size_t distance = 0; distance < 270; ++distance) {
      for (const char filler : {'1', 'x'}) {
        const std::string text = std::string(distance, filler) + mark + std::string(300, filler) + mark + "1";
        ASSERT_EQ(check(text).findings, countSlowly(text)) << distance << ' ' << testing::PrintToString(mark);
      }
    }
  }
}

TEST(PasteGuard, AsksBeforeHiddenCharactersAndBeforeSeveralLines) {
  const auto asks = [](std::string_view text, bool bracketed) {
    return check(text).needsConfirmation(bracketed);
  };
  EXPECT_FALSE(asks("echo hi\n", false));
  EXPECT_TRUE(asks("echo hi\nrm x", false));
  EXPECT_FALSE(asks("echo hi\nrm x", true));
  EXPECT_TRUE(asks("pay\u202Etxt.exe", false));
  EXPECT_TRUE(asks("pay\u202Etxt.exe", true));
  EXPECT_TRUE(check("").isClean());
  EXPECT_FALSE(check("\n").isClean());
}

TEST(PasteGuard, FlattensToOneLine) {
  const std::map<std::string, std::string> lines = {
      {"", ""},
      {" \n ", ""},
      {"  a\t\tb\u200Bc\r\n", "a bc"},
      {"\u202Ea\x1B \u043F\u2018", "a \u043F\u2018"},
      {"a\u2028b\vc\u0085", "a\u2028bc"},
      {"a \u0301b", "a \u0301b"},    // the mark stands on the space: no separator
      {"a  \u0301b", "a  \u0301b"},  // the first space separates
      {"\n\u0301", " \u0301"},
      {"a \u200B\u0301", "a \u0301"},  // what is dropped does not part them
      {"\u0600  b", "\u0600  b"},      // a prepended sign takes the first space along
      {"a\xFF\x80 ", "a\uFFFD\uFFFD"},
  };
  for (const auto& [text, expected] : lines)
    EXPECT_EQ(oneLine(text), expected) << testing::PrintToString(text);
}

TEST(PasteGuard, RevealsWhatIsHiddenAndNothingElse) {
  EXPECT_EQ(revealed("pay\u202Etxt.exe"), "pay⟨U+202E⟩txt.exe");
  EXPECT_EQ(revealed("l\u0430\n\u0430"), "l⟨U+0430⟩⟨U+000A⟩\u0430");
  EXPECT_EQ(revealed("a\r\nb\tc"), "a⟨U+000D⟩⟨U+000A⟩b⟨U+0009⟩c");
  EXPECT_EQ(revealed("⟨U+202E⟩"), "⟨U+27E8⟩U+202E⟩");
  EXPECT_EQ(revealed("\u00A0\u3164\U000E0041\u00E9 \U0001D159"), "⟨U+00A0⟩⟨U+3164⟩⟨U+E0041⟩\u00E9 ⟨U+1D159⟩");
  EXPECT_EQ(revealed("a\x80"), "a\uFFFD");
}

/// Takes the notation back, to show that nothing was lost in it.
std::string unrevealed(std::string_view shown) {
  std::string text;
  while (!shown.empty()) {
    const std::size_t opening = shown.find("⟨U+");
    text += shown.substr(0, opening);
    if (opening == std::string_view::npos) break;
    shown.remove_prefix(opening + std::string_view("⟨U+").size());
    const std::size_t closing = shown.find("⟩");
    appendUtf8(text, static_cast<char32_t>(std::stoul(std::string(shown.substr(0, closing)), nullptr, 16)));
    shown.remove_prefix(closing + std::string_view("⟩").size());
  }
  return text;
}

TEST(PasteGuard, RevealedTextIsInertAndUnambiguous) {
  std::mt19937 random(7);
  for (int i = 0; i < 3000; ++i) {
    const std::string text = randomText(random) + (i % 3 == 0 ? "⟨" : "");
    const std::string shown = revealed(text);
    for (const char32_t scalar : Utf8Scalars(shown)) {
      const auto category = U_MASK(u_charType(static_cast<UChar32>(scalar)));
      ASSERT_EQ(category & (U_GC_C_MASK | U_GC_ZL_MASK | U_GC_ZP_MASK) & ~U_GC_CN_MASK, 0U)
          << testing::PrintToString(text);
    }
    // Greek and Cyrillic that stood alone now stand beside the letters of the notation.
    for (const auto& [finding, count] : check(shown).findings) {
      ASSERT_EQ(finding, Finding::lookalike) << testing::PrintToString(text);
    }
    ASSERT_EQ(unrevealed(shown), repairedUtf8(text));
  }
}

TEST(PasteGuard, SaysWhereEachFindingStands) {
  std::vector<Occurrence> all;
  const std::string text = "ok\u200B\r\n\u043F\u0440\n\u4E2D\xFF\u0440x\u2066";
  forEachOccurrence(text, [&all](const Occurrence& occurrence) {
    all.push_back(occurrence);
    return true;
  });
  EXPECT_THAT(all, testing::ElementsAre(Occurrence{Finding::invisible, 0x200B, 1, 3},
                                        Occurrence{Finding::lookalike, 0x0440, 3, 3},
                                        Occurrence{Finding::bidi, 0x2066, 3, 5}));
  int visited = 0;
  forEachOccurrence(text, [&visited](const Occurrence&) { return ++visited < 2; });
  EXPECT_EQ(visited, 2);
}

TEST(PasteGuard, NamesOfFindingsGoBothWays) {
  for (const Finding finding : allCases) EXPECT_EQ(findingFromRawValue(rawValue(finding)), finding);
  EXPECT_EQ(rawValue(Finding::lookalike), "lookalike");
  EXPECT_EQ(findingFromRawValue("Bidi"), std::nullopt);
}

}  // namespace
}  // namespace molvane::PasteGuard
