#include <gtest/gtest.h>

#include "Core/PasteGuard.hpp"
#include "GoldenRows.hpp"

namespace molvane::golden {
namespace {

TEST(Golden, Paste) {
  checkRows("paste.jsonl", [](Row& row) {
    const std::string text = row.bytes("text");
    nlohmann::json findings = nlohmann::json::object();
    for (const auto& [finding, count] : PasteGuard::check(text).findings) {
      findings[std::string(PasteGuard::rawValue(finding))] = count;
    }
    row.expect("findings", findings);
    row.expectBytes("oneLine", PasteGuard::oneLine(text));
  });
}

}  // namespace
}  // namespace molvane::golden
