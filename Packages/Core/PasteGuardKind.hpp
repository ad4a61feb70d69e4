#pragma once

#include <optional>

#include "Core/PasteGuard.hpp"

// Which scalar is which finding. Inside the paste guard only.

namespace molvane::PasteGuard {

[[nodiscard]] constexpr bool isGreekOrCyrillic(char32_t scalar) noexcept {
  return scalar >= 0x0370 && scalar <= 0x04FF;
}

[[nodiscard]] constexpr bool isBidi(char32_t s) noexcept {
  return (s >= 0x2066 && s <= 0x2069) || s == 0x200E || s == 0x200F || (s >= 0x202A && s <= 0x202E) ||
         s == 0x061C;
}

[[nodiscard]] constexpr bool isInvisible(char32_t s) noexcept {
  return (s >= 0x2060 && s <= 0x2064) || (s >= 0x200B && s <= 0x200D) || s == 0x00AD || s == 0x180E ||
         s == 0xFEFF;
}

[[nodiscard]] constexpr bool isControl(char32_t s) noexcept { return s <= 0x1F || (s >= 0x7F && s <= 0x9F); }

[[nodiscard]] constexpr bool isLookalike(char32_t s) noexcept {
  return isGreekOrCyrillic(s) || (s >= 0xFF01 && s <= 0xFF5E) || (s >= 0x2010 && s <= 0x2015) ||
         s == 0x2018 || s == 0x2019 || s == 0x201C || s == 0x201D || s == 0x2212;
}

/// The finding of one scalar on a mixed-script line.
[[nodiscard]] constexpr std::optional<Finding> kind(char32_t scalar) noexcept {
  if (scalar == '\t' || scalar == '\n' || scalar == '\r') return std::nullopt;
  if (isBidi(scalar)) return Finding::bidi;
  if (isInvisible(scalar)) return Finding::invisible;
  if (isControl(scalar)) return Finding::control;
  if (isLookalike(scalar)) return Finding::lookalike;
  return std::nullopt;
}

}  // namespace molvane::PasteGuard
