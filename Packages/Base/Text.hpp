#pragma once

#include <string>
#include <string_view>
#include <vector>

// Text rules that need no Unicode database. Texts are UTF-8; bytes that are no UTF-8 are neither white space
// nor a newline and stay as they are. What depends on grapheme clusters, case or normalisation stands in
// Characters.hpp.

namespace molvane {

/// Whether the scalar ends a line: LF, VT, FF, CR, NEL (U+0085), U+2028 or U+2029.
[[nodiscard]] bool isNewline(char32_t scalar) noexcept;

/// Whether the scalar is white space within a line: a tab, a space separator (category Zs) or U+200B.
[[nodiscard]] bool isWhitespace(char32_t scalar) noexcept;

/// Whether a newline stands anywhere in `text`.
[[nodiscard]] bool containsNewline(std::string_view text) noexcept;

/// The lines of `text` without their newlines; empty lines are left out.
[[nodiscard]] std::vector<std::string> lines(std::string_view text);

/// `text` without the white space at both ends. Newlines stay, and what lies behind them.
[[nodiscard]] std::string trimmingWhitespace(std::string_view text);

/// `text` without the white space and newlines at both ends.
[[nodiscard]] std::string trimmingWhitespaceAndNewlines(std::string_view text);

}  // namespace molvane
