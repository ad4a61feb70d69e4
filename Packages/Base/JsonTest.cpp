#include "Base/Json.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace molvane {
namespace {

using namespace std::string_literals;

constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kGreatest = std::numeric_limits<std::int64_t>::max();

TEST(Json, WhatIsReadIsWrittenAgain) {
  for (const char* document : {"null", "true", "-12", "1.5", "1e+300", "18446744073709551615",
                               R"("é\n\u0000\"\\😀")", R"({"b":[1,[],{}],"a":{"b":false},"":null})"}) {
    EXPECT_EQ(jsonText(parseJson(document)), document);
  }
  EXPECT_EQ(jsonText(parseJson(" [ 1 , \"\\ud83d\\ude00\\/\" ]\r\n")), R"([1,"😀/"])");
}

TEST(Json, WholeNumbersAreWholeHoweverTheyAreWritten) {
  for (const char* literal : {"501", "501.0", "5.01e2", "50100E-2", "0.0501e+4", "501.000e0"}) {
    EXPECT_EQ(parseJson(literal), JsonValue(std::int64_t{501})) << literal;
  }
  for (const char* literal :
       {"0", "-0", "0.0", "-0.0", "0e999999999999999999999", "0e-99999999999999999999"}) {
    EXPECT_EQ(parseJson(literal), JsonValue(std::int64_t{0})) << literal;
  }
  EXPECT_EQ(parseJson("-9223372036854775808"), JsonValue(kLeast));
  EXPECT_EQ(parseJson("-9223372036854775808.0"), JsonValue(kLeast));
  EXPECT_EQ(parseJson("9.223372036854775807e18"), JsonValue(kGreatest));
  EXPECT_EQ(parseJson("9223372036854775808.0"), JsonValue(static_cast<std::uint64_t>(kGreatest) + 1));
  EXPECT_EQ(parseJson("1844674407370955161.5e1"), JsonValue(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(parseJson("9007199254740993.0"), JsonValue(std::int64_t{9007199254740993}))
      << "no double holds it";
}

TEST(Json, OtherNumbersAreDoubles) {
  EXPECT_EQ(parseJson("1.5"), JsonValue(1.5));
  EXPECT_EQ(parseJson("1e-400"), JsonValue(0.0));
  EXPECT_EQ(parseJson("5e-1"), JsonValue(0.5));
  EXPECT_EQ(parseJson("18446744073709551616"), JsonValue(18446744073709551616.0));
  EXPECT_EQ(parseJson("-9223372036854775809"), JsonValue(-9223372036854775808.0));
  EXPECT_EQ(parseJson("1" + std::string(300, '0')), JsonValue(1e300));
}

TEST(Json, WhatIsNoJsonIsRefused) {
  for (const std::string& bad : {""s,
                                 " "s,
                                 "{"s,
                                 "[1,]"s,
                                 "{\"a\":1,}"s,
                                 "{,}"s,
                                 "//c\n1"s,
                                 "/**/1"s,
                                 "1 2"s,
                                 "01"s,
                                 "+1"s,
                                 ".5"s,
                                 "1."s,
                                 "0x10"s,
                                 "NaN"s,
                                 "Infinity"s,
                                 "1e400"s,
                                 "-1e400"s,
                                 "tru"s,
                                 "'a'"s,
                                 "\"\t\""s,
                                 "\"\\x\""s,
                                 "\"\\ud800\""s,
                                 "\"\\udc00\\ud800\""s,
                                 "\"\xFF\""s,
                                 "\"\xED\xA0\x80\""s,
                                 "\xEF\xBB\xBF{}"s,
                                 "{}\0"s,
                                 "{}\0garbage"s,
                                 "[\0]"s,
                                 "{1:2}"s,
                                 "{\"a\" 1}"s,
                                 "[1}"s,
                                 "\"a"s}) {
    try {
      (void)parseJson(bad);
      ADD_FAILURE() << "accepted: " << bad;
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.which(), DecodingFailure::dataCorrupted);
      EXPECT_EQ(error.payload().debugDescription, "The given data was not valid JSON.");
    }
  }
}

TEST(Json, DepthAndSizeAreBounded) {
  const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  EXPECT_NO_THROW((void)parseJson(nested(kMaximumJsonDepth)));
  EXPECT_THROW((void)parseJson(nested(kMaximumJsonDepth + 1)), DecodingError);
  EXPECT_THROW((void)parseJson(std::string(kMaximumJsonSize, '[')), DecodingError);
  EXPECT_NO_THROW((void)parseJson("1" + std::string(kMaximumJsonSize - 1, ' ')));
  EXPECT_THROW((void)parseJson("1" + std::string(kMaximumJsonSize, ' ')), DecodingError);
}

// Deeper than any stack is.
TEST(Json, NoDepthIsTooMuchForTheStack) {
  constexpr std::size_t kLevels = 100'000;
  const auto nested = [](std::int64_t innermost) {
    JsonValue value(innermost);
    for (std::size_t level = 0; level < kLevels; level += 2) {
      JsonValue::Array array;
      array.push_back(JsonValue("x"s));
      array.push_back(std::move(value));
      array.emplace_back();
      JsonValue::Object object;
      object.push_back({"k", JsonValue(std::move(array))});
      value = JsonValue(std::move(object));
    }
    return value;
  };
  const JsonValue value = nested(1);
  JsonValue copy = value;
  EXPECT_TRUE(copy == value);
  EXPECT_FALSE(nested(2) == value);
  const std::string text = jsonText(copy);
  EXPECT_TRUE(text.starts_with(R"({"k":["x",{"k":["x",{"k")"));
  EXPECT_NE(text.find(R"({"k":["x",1,null]},null]})"), std::string::npos);
  copy = JsonValue();
  EXPECT_EQ(jsonText(copy), "null");
}

TEST(Json, OfARepeatedKeyTheFirstCounts) {
  const JsonValue json = parseJson(R"({"a":1,"b":2,"a":3})");
  EXPECT_EQ(*json.find("a"), JsonValue(std::int64_t{1}));
  EXPECT_EQ(json.find("c"), nullptr);
  EXPECT_EQ(parseJson("[1]").find("a"), nullptr);
}

TEST(Json, OnlyWhatJsonCanSayIsWritten) {
  EXPECT_EQ(jsonText(JsonValue("a\xFFz"s)), "\"a\uFFFDz\"");
  EXPECT_THROW((void)jsonText(JsonValue(std::numeric_limits<double>::infinity())), std::invalid_argument);
  EXPECT_THROW((void)jsonText(JsonValue(std::numeric_limits<double>::quiet_NaN())), std::invalid_argument);
}

}  // namespace
}  // namespace molvane
