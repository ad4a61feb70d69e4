#pragma once

#include <algorithm>
#include <string>
#include <string_view>

// The character classes of formats that are written in ASCII, in no locale. They take bytes and Unicode
// scalars alike: a byte above ASCII belongs to none of them, whichever its sign.

namespace molvane {

[[nodiscard]] constexpr bool isAsciiDigit(char32_t c) noexcept { return c >= '0' && c <= '9'; }

[[nodiscard]] constexpr bool isAsciiUppercase(char32_t c) noexcept { return c >= 'A' && c <= 'Z'; }

[[nodiscard]] constexpr bool isAsciiLowercase(char32_t c) noexcept { return c >= 'a' && c <= 'z'; }

[[nodiscard]] constexpr bool isAsciiLetter(char32_t c) noexcept {
  return isAsciiUppercase(c) || isAsciiLowercase(c);
}

/// As digests and identifiers are written here, without capital letters.
[[nodiscard]] constexpr bool isLowercaseHexDigit(char32_t c) noexcept {
  return isAsciiDigit(c) || (c >= 'a' && c <= 'f');
}

/// `text` with the capital letters of ASCII small. Nothing else changes.
[[nodiscard]] inline std::string asciiLowercased(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return isAsciiUppercase(c) ? static_cast<char>(c - 'A' + 'a') : c; });
  return lower;
}

}  // namespace molvane
