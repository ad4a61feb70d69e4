#include "Base/Uuid.hpp"

#include <gtest/gtest.h>

#include <set>

namespace molvane {
namespace {

TEST(Uuid, TextReadsBackInEitherCase) {
  const std::string upper = "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0";
  ASSERT_TRUE(Uuid::parse(upper));
  EXPECT_EQ(Uuid::parse(upper)->text(), upper);
  EXPECT_EQ(Uuid::parse("0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0"), Uuid::parse(upper));
}

TEST(Uuid, NothingElseIsRead) {
  const std::string good = "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0";
  std::string cut = good;
  cut[20] = '\0';
  std::string letter = good;
  letter[0] = 'G';
  for (const std::string& bad : {std::string(), good + " ", " " + good, "{" + good + "}", cut, letter}) {
    EXPECT_FALSE(Uuid::parse(bad)) << bad;
  }
}

TEST(Uuid, RandomOnesAreVersion4AndDiffer) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string text = Uuid::random().text();
    ASSERT_EQ(text[14], '4') << text;
    ASSERT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
    ASSERT_TRUE(seen.insert(text).second) << text;
  }
}

}  // namespace
}  // namespace molvane
