#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Base/Text.hpp"
#include "Base/Utf8.hpp"
#include "Core/PasteGuard.hpp"

// Any text: the fast count must agree with a walk along the scalars, and what is made of the text must be
// inert.

namespace {

using namespace molvane;

void require(bool holds) {
  if (!holds) std::abort();
}

PasteGuard::Report countedSlowly(std::string_view text) {
  PasteGuard::Report report;
  PasteGuard::forEachOccurrence(text, [&](const PasteGuard::Occurrence& occurrence) {
    ++report.findings[occurrence.finding];
    return true;
  });
  std::int64_t newlines = 0;
  char32_t last = 0;
  for (const char32_t scalar : Utf8Scalars(text)) {
    if (isNewline(scalar) && !(scalar == '\n' && last == '\r')) ++newlines;
    last = scalar;
  }
  if (newlines > 0) report.findings[PasteGuard::Finding::runs] = newlines + (isNewline(last) ? 0 : 1);
  return report;
}

/// Nothing but letters that look like others: no newline, and nothing hidden.
void requireInert(const std::string& text) {
  require(isValidUtf8(text));
  for (const auto& [finding, count] : PasteGuard::check(text).findings) {
    require(finding == PasteGuard::Finding::lookalike);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  require(PasteGuard::check(text) == countedSlowly(text));

  const std::string revealed = PasteGuard::revealed(text);
  requireInert(revealed);
  require(revealed.find('\t') == std::string::npos);

  const std::string line = PasteGuard::oneLine(text);
  require(PasteGuard::oneLine(line) == line);
  return 0;
}
