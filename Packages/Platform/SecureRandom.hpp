#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace molvane {

/// `count` bytes from the system's cryptographically secure random source. Throws std::system_error when it
/// gives none. Any thread.
[[nodiscard]] std::vector<std::uint8_t> secureRandomBytes(std::size_t count);

}  // namespace molvane
