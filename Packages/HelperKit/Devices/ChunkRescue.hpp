#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "Platform/RawDevice.hpp"

namespace molvane {

/// Reads what can be read of a chunk that did not read as a whole. Every block of `blockSize` bytes, counted
/// from the chunk's beginning, that cannot be read by itself becomes zeros, and only such a block.
///
/// Healthy stretches are read in larger requests, so that a single bad block costs a handful of failed ones.
/// Returns the number of bad blocks; nothing, and a chunk half read, once `givenUp` says true, which is asked
/// before every request.
[[nodiscard]] std::optional<std::int64_t> rescueChunk(RawDevice& device, std::span<std::byte> chunk,
                                                      std::int64_t offset, std::size_t blockSize,
                                                      const std::function<bool()>& givenUp);

}  // namespace molvane
