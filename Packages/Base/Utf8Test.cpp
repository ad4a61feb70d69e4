#include "Base/Utf8.hpp"

#include <gtest/gtest.h>

namespace molvane {
namespace {

TEST(Utf8, EveryScalarSurvivesARoundTrip) {
  for (char32_t scalar = 0; scalar <= 0x10FFFF; ++scalar) {
    if (scalar == 0xD800) scalar = 0xE000;
    std::string text;
    appendUtf8(text, scalar);
    const LeadingScalar read = leadingScalar(text);
    ASSERT_TRUE(read.valid && isValidUtf8(text)) << std::hex << static_cast<unsigned>(scalar);
    ASSERT_EQ(read.value, scalar);
    ASSERT_EQ(read.length, text.size());
  }
}

TEST(Utf8, WhatIsNoScalarIsAppendedAsTheReplacement) {
  for (const char32_t bad : {char32_t{0xD800}, char32_t{0xDFFF}, char32_t{0x110000}, char32_t{0xFFFFFFFF}}) {
    std::string text;
    appendUtf8(text, bad);
    EXPECT_EQ(text, "\uFFFD");
  }
}

TEST(Utf8, EveryInvalidByteIsFoundWhereverItStands) {
  for (std::size_t length = 1; length <= 40; ++length) {
    for (std::size_t at = 0; at < length; ++at) {
      std::string bytes(length, 'a');
      bytes[at] = '\xFF';
      std::string expected(length, 'a');
      expected.replace(at, 1, "\uFFFD");
      ASSERT_FALSE(isValidUtf8(bytes));
      ASSERT_EQ(repairedUtf8(bytes), expected) << length << " bytes, bad at " << at;
    }
  }
}

TEST(Utf8, RepairingOnceIsEnoughForAllStartsOfSequences) {
  for (unsigned bits = 0; bits < 0x1000000; bits += 0x1F) {
    const std::string bytes = {static_cast<char>(bits >> 16U), static_cast<char>(bits >> 8U),
                               static_cast<char>(bits)};
    const std::string repaired = repairedUtf8(bytes);
    ASSERT_TRUE(isValidUtf8(repaired)) << std::hex << bits;
    ASSERT_EQ(repaired == bytes, isValidUtf8(bytes)) << std::hex << bits;
  }
}

TEST(Utf8, ScalarsAreReadInOrderWithTheirBytes) {
  const std::string text = "a\xC3\xA9\xF0\x9F\x98(\xE2\x82\xAC";  // a, é, a cut-off emoji, (, €
  std::u32string scalars;
  std::string bytes;
  const Utf8Scalars range(text);
  for (auto scalar = range.begin(); scalar != range.end(); ++scalar) {
    scalars += *scalar;
    bytes += scalar.bytes();
  }
  EXPECT_EQ(scalars, U"aé\uFFFD(€");
  EXPECT_EQ(bytes, text);
}

}  // namespace
}  // namespace molvane
