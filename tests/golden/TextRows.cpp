#include <gtest/gtest.h>

#include "Base/Characters.hpp"
#include "Base/Text.hpp"
#include "GoldenRows.hpp"

namespace molvane::golden {
namespace {

TEST(Golden, Text) {
  checkRows("text.jsonl", [](Row& row) {
    const std::string text = row.bytes("s");
    row.expect("count", characterCount(text));
    row.expect("containsNewline", containsNewline(text));
    row.expectBytes("trimWS", trimmingWhitespace(text));
    row.expectBytes("trimWSNL", trimmingWhitespaceAndNewlines(text));
    row.expectBytes("lower", lowercased(text));

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
  });
}

}  // namespace
}  // namespace molvane::golden
