#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// A look at a block of text that is plain ASCII, as most text is. Inside the paste guard only.

namespace molvane::PasteGuard {

inline constexpr std::ptrdiff_t kBlock = 64;

struct BlockSummary {
  bool plain;             ///< nothing but printable ASCII, tabs and LF
  std::uint8_t newlines;  ///< the LF, if it is plain
};

constexpr std::uint64_t everyByte(std::uint64_t byte) noexcept { return byte * 0x0101010101010101U; }

inline constexpr std::uint64_t kHighBits = everyByte(0x80);

// Eight bytes at a time and free of branches: what each sum says of a byte stands in the byte's high bit. A
// byte above ASCII can carry over into its neighbour's sum, but by itself it has marked the block as not
// plain.
inline BlockSummary plainBlockSummary(const unsigned char* block) noexcept {
  std::uint64_t other = 0;
  std::uint64_t newlines = 0;
  for (std::size_t at = 0; at < kBlock; at += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, block + at, sizeof word);
    const std::uint64_t notLF = (word ^ everyByte('\n')) + everyByte(0x7F);
    const std::uint64_t notTab = (word ^ everyByte('\t')) + everyByte(0x7F);
    const std::uint64_t notBelow20 = word + everyByte(0x80 - 0x20);
    const std::uint64_t del = word + everyByte(0x80 - 0x7F);
    other |= word | del | (~notBelow20 & notLF & notTab);
    newlines += (~notLF & kHighBits) >> 7U;
  }
  constexpr unsigned kTopByte = 56;
  return {(other & kHighBits) == 0, static_cast<std::uint8_t>((newlines * everyByte(1)) >> kTopByte)};
}

}  // namespace molvane::PasteGuard
