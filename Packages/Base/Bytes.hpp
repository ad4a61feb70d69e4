#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace molvane {

using ByteView = std::span<const std::uint8_t>;

/// The same bytes as text; nothing is copied.
[[nodiscard]] inline std::string_view asText(ByteView bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// The same text as bytes; nothing is copied.
[[nodiscard]] inline ByteView asBytes(std::string_view text) noexcept {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace molvane
