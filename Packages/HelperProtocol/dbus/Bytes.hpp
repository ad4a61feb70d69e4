#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Base/Bytes.hpp"

namespace molvane::dbus {

using Bytes = std::vector<std::uint8_t>;
using molvane::asBytes;
using molvane::asText;
using molvane::ByteView;

/// How far it is from `position` to the next multiple of `alignment`, which is a power of two.
[[nodiscard]] constexpr std::size_t paddingTo(std::size_t alignment, std::size_t position) noexcept {
  return (0 - position) & (alignment - 1);
}

}  // namespace molvane::dbus
