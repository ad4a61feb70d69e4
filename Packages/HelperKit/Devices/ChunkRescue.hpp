#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "Platform/RawDevice.hpp"

namespace molvane {

struct RescueResult {
  std::int64_t badBlocks = 0;
  std::size_t goodEnd = 0;  ///< where the bad blocks begin that reach to the chunk's end, or that end
  /// Why the rescue ended early: how the disk is gone, or ECANCELED when it was given up.
  int error = 0;

  bool operator==(const RescueResult&) const = default;
};

/// Reads what can be read of a chunk that did not read as a whole. Every block of `blockSize` bytes, counted
/// from the chunk's beginning, that cannot be read by itself becomes zeros, and only such a block.
///
/// Healthy stretches are read in larger requests, so that a single bad block costs a handful of failed ones.
/// Ends with a chunk half read as soon as the disk is gone, or `givenUp` says true, which is asked before
/// every request.
[[nodiscard]] RescueResult rescueChunk(RawDevice& device, std::span<std::byte> chunk, std::int64_t offset,
                                       std::size_t blockSize, const std::function<bool()>& givenUp);

}  // namespace molvane
