#include "Platform/linux/SignedCode.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace molvane {
namespace {

const std::string kDigest = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

std::string content(const std::string& identifier, const std::string& digest) {
  return R"({"identifier": ")" + identifier + R"(", "sha256": ")" + digest + R"("})";
}

TEST(SignedCodeTest, ReadsBothMembersInAnyOrder) {
  const SignedCode expected{"com.molvane.app", kDigest};
  EXPECT_EQ(parseSignedCode(content("com.molvane.app", kDigest)), expected);
  EXPECT_EQ(parseSignedCode("\n{\"sha256\":\"" + kDigest + "\",\"identifier\":\"com.molvane\\u002eapp\"}\n"),
            expected);
  EXPECT_EQ(parseSignedCode(content(std::string(255, 'x'), kDigest)).identifier.size(), 255U);
}

TEST(SignedCodeTest, RefusesEverythingElse) {
  const std::string good = content("com.molvane.app", kDigest);
  const std::string identifier = R"("identifier": "com.molvane.app")";
  const std::string digest = R"("sha256": ")" + kDigest + "\"";
  const std::vector<std::string> texts = {
      "",
      "{}",
      "null",
      "[]",
      "\"identifier\"",
      good + good,
      good + ",",
      "[" + good + "]",
      "\xEF\xBB\xBF" + good,
      "{" + identifier + "}",
      "{" + digest + "}",
      good.substr(0, good.size() - 1),
      "{" + identifier + ", " + digest + ", " + identifier + "}",
      "{" + identifier + ", " + digest + R"(, "sha256": "x"})",
      R"({"identifier": "com.other", )" + identifier + ", " + digest + "}",
      "{" + identifier + ", " + digest + R"(, "version": 1})",
      "{" + identifier + ", " + digest + R"(, "x": {}})",
      "{" + identifier + ", " + digest + ",}",
      R"({"Identifier": "com.molvane.app", )" + digest + "}",
      R"({"identifier": 1, )" + digest + "}",
      R"({"identifier": null, )" + digest + "}",
      R"({"identifier": ["com.molvane.app"], )" + digest + "}",
      R"({"identifier": {"identifier": "a"}, )" + digest + "}",
      content("", kDigest),
      content(std::string(256, 'x'), kDigest),
      content("\xFF", kDigest),
      content("\\ud800", kDigest),
      content("com.molvane.app", kDigest.substr(1)),
      content("com.molvane.app", kDigest + "0"),
      content("com.molvane.app", "E" + kDigest.substr(1)),
      content("com.molvane.app", "g" + kDigest.substr(1)),
      good + std::string(1024, ' '),
      "/* c */" + good};
  for (const std::string& text : texts) EXPECT_THROW((void)parseSignedCode(text), CmsError) << text;
}

}  // namespace
}  // namespace molvane
