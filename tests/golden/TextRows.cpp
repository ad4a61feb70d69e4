#include <gtest/gtest.h>

#include "Base/Characters.hpp"
#include "Base/Text.hpp"
#include "Core/LocalAccountPolicy.hpp"
#include "GoldenRows.hpp"

namespace molvane::golden {
namespace {

LocalAccount accountNamed(const std::string& name) {
  LocalAccount account;
  account.name = name;
  return account;
}

TEST(Golden, Text) {
  checkRows("text.jsonl", [](Row& row) {
    const std::string text = row.bytes("s");
    row.expect("count", characterCount(text));
    row.expect("containsNewline", containsNewline(text));
    row.expectBytes("trimWS", trimmingWhitespace(text));
    row.expectBytes("trimWSNL", trimmingWhitespaceAndNewlines(text));
    row.expectBytes("lower", lowercased(text));

    row.expect("validName", LocalAccountPolicy::isValidName(text));
    row.expect("validPassword", LocalAccountPolicy::isValidPassword(text));
    row.expect("validFullName", LocalAccountPolicy::isValidFullName(text));
    if (row.has("suggestedName")) row.expect("suggestedName", LocalAccountPolicy::suggestedName(text));

    std::vector<std::string> expected;
    for (const auto& line : row.fields().at("lines")) expected.push_back(bytesOf(line));
    if (lines(text) != expected) row.fail("lines: got " + testing::PrintToString(lines(text)));
    if (characters(text).size() != characterCount(text)) row.fail("characters and their count differ");
  });
}

TEST(Golden, Equality) {
  checkRows("equality.jsonl", [](Row& row) {
    row.expect("equal", canonicallyEqual(row.bytes("a"), row.bytes("b")));
    row.expect("equal", canonicallyEqual(row.bytes("b"), row.bytes("a")));
    row.expect("equal", canonicalForm(row.bytes("a")) == canonicalForm(row.bytes("b")));
    row.expect("equal", accountNamed(row.bytes("a")) == accountNamed(row.bytes("b")));
  });
}

}  // namespace
}  // namespace molvane::golden
