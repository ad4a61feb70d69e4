#include <gtest/gtest.h>

#include "Base/Utf8.hpp"
#include "GoldenRows.hpp"

namespace molvane::golden {
namespace {

TEST(Golden, Utf8) {
  checkRows("utf8.jsonl", [](Row& row) {
    const std::string bytes = row.bytes("bytes");
    row.expectBytes("text", repairedUtf8(bytes));
    if (isValidUtf8(bytes) != (row.bytes("text") == bytes)) row.fail("validity is wrong");

    std::string fromScalars;
    for (const char32_t scalar : Utf8Scalars(bytes)) appendUtf8(fromScalars, scalar);
    row.expectBytes("text", fromScalars);
  });
}

}  // namespace
}  // namespace molvane::golden
