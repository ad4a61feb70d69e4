#include "Core/PasteGuard.hpp"

#include <unicode/uchar.h>

#include <algorithm>

#include "Base/Utf8.hpp"
#include "Core/PasteGuardKind.hpp"

namespace molvane::PasteGuard {

namespace {

constexpr std::array<std::string_view, allCases.size()> kRawValues = {"bidi", "invisible", "lookalike",
                                                                      "control", "runs"};

int graphemeBreak(char32_t scalar) {
  return u_getIntPropertyValue(static_cast<UChar32>(scalar), UCHAR_GRAPHEME_CLUSTER_BREAK);
}

/// Whether a space before `scalar` is one character together with it.
bool joinsSpaceBefore(char32_t scalar) {
  if (scalar < 0x80) return false;
  const int property = graphemeBreak(scalar);
  return property == U_GCB_EXTEND || property == U_GCB_SPACING_MARK;
}

/// Whether a space after `scalar` is one character together with it.
bool joinsSpaceAfter(char32_t scalar) { return scalar >= 0x80 && graphemeBreak(scalar) == U_GCB_PREPEND; }

bool isDropped(char32_t scalar) { return isBidi(scalar) || isInvisible(scalar) || isControl(scalar); }

/// Builds the line out of what is kept. A space waits until it is known whether it stands alone.
class LineBuilder {
 public:
  explicit LineBuilder(std::size_t capacity) { line_.reserve(capacity); }

  void addSpace() {
    settle(false);
    spaceWaits_ = true;
  }

  void add(char32_t scalar) {
    settle(joinsSpaceBefore(scalar));
    separate();
    appendUtf8(line_, scalar);
    last_ = scalar;
  }

  std::string finish() {
    settle(false);
    return std::move(line_);
  }

 private:
  void settle(bool joinsNext) {
    if (!spaceWaits_) return;
    spaceWaits_ = false;
    const bool joinsLast = !separatorWaits_ && joinsSpaceAfter(last_);
    if (!joinsNext && !joinsLast) {
      separatorWaits_ = true;
      return;
    }
    separate();
    line_ += ' ';
    last_ = ' ';
  }

  void separate() {
    if (separatorWaits_ && !line_.empty()) line_ += ' ';
    separatorWaits_ = false;
  }

  std::string line_;
  char32_t last_ = 0;
  bool spaceWaits_ = false;
  bool separatorWaits_ = false;
};

}  // namespace

std::string_view rawValue(Finding finding) noexcept { return kRawValues[static_cast<std::size_t>(finding)]; }

std::optional<Finding> findingFromRawValue(std::string_view rawValue) noexcept {
  const auto* const found = std::find(kRawValues.begin(), kRawValues.end(), rawValue);
  if (found == kRawValues.end()) return std::nullopt;
  return allCases[static_cast<std::size_t>(found - kRawValues.begin())];
}

bool Report::needsConfirmation(bool bracketed) const noexcept {
  return std::any_of(findings.begin(), findings.end(), [bracketed](const auto& entry) {
    const auto& [finding, count] = entry;
    return finding != Finding::runs || (!bracketed && count >= 2);
  });
}

std::string oneLine(std::string_view text) {
  LineBuilder line(text.size());
  for (const char32_t scalar : Utf8Scalars(text)) {
    if (scalar == ' ' || scalar == '\t' || scalar == '\n' || scalar == '\r') {
      line.addSpace();
    } else if (!isDropped(scalar)) {
      line.add(scalar);
    }
  }
  return line.finish();
}

}  // namespace molvane::PasteGuard
