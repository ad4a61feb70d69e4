#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace molvane::dbus {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

/// How far it is from `position` to the next multiple of `alignment`, which is a power of two.
[[nodiscard]] constexpr std::size_t paddingTo(std::size_t alignment, std::size_t position) noexcept {
  return (0 - position) & (alignment - 1);
}

/// The same bytes as text; nothing is copied.
[[nodiscard]] inline std::string_view asText(ByteView bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

[[nodiscard]] inline ByteView asBytes(std::string_view text) noexcept {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace molvane::dbus
