#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>

// A look at a block of text that is plain ASCII, as most text is. Inside the paste guard only.

namespace molvane::PasteGuard {

inline constexpr std::ptrdiff_t kBlock = 128;

struct BlockSummary {
  bool plain;    ///< nothing but printable ASCII, tabs and LF
  int newlines;  ///< the LF, if it is plain
};

// Sixteen bytes at once, by an extension of the language that GCC and clang share. What a comparison says of
// a byte is 0 or -1 in its place.
using Bytes16 = signed char __attribute__((vector_size(16)));

inline BlockSummary plainBlockSummary(const unsigned char* block) noexcept {
  Bytes16 other{};
  Bytes16 newlines{};
  for (std::ptrdiff_t at = 0; at < kBlock; at += sizeof(Bytes16)) {
    Bytes16 bytes;
    std::memcpy(&bytes, block + at, sizeof bytes);
    const Bytes16 isLF = bytes == '\n';
    newlines -= isLF;
    // As signed numbers the bytes above ASCII lie below the space too.
    other |= ((bytes < ' ') & ~(isLF | (bytes == '\t'))) | (bytes == 0x7F);
  }
  const auto words = std::bit_cast<std::array<std::uint64_t, 2>>(other);
  const auto counts = std::bit_cast<std::array<std::uint8_t, 16>>(newlines);
  return {(words[0] | words[1]) == 0, std::accumulate(counts.begin(), counts.end(), 0)};
}

}  // namespace molvane::PasteGuard
