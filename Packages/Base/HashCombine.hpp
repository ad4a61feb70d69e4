#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>

namespace molvane {

template <typename T>
[[nodiscard]] std::size_t hashOf(const T& value) {
  return std::hash<T>()(value);
}

/// One hash out of several; their order counts.
[[nodiscard]] inline std::size_t hashCombined(std::initializer_list<std::size_t> hashes) noexcept {
  constexpr std::size_t kOddFactor = 0x9E3779B97F4A7C15U;
  std::size_t combined = 0;
  for (const std::size_t hash : hashes) combined = (combined ^ hash) * kOddFactor + 1;
  return combined;
}

}  // namespace molvane
