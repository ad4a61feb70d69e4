#pragma once

#include <cstdint>

// Division that rounds down, for any dividend and a positive divisor. Inside Scheduling only.

namespace molvane {

[[nodiscard]] constexpr std::int64_t floorDivision(std::int64_t dividend, std::int64_t divisor) noexcept {
  return dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
}

[[nodiscard]] constexpr std::int64_t floorModulo(std::int64_t dividend, std::int64_t divisor) noexcept {
  const std::int64_t remainder = dividend % divisor;
  return remainder < 0 ? remainder + divisor : remainder;
}

}  // namespace molvane
