#include "Base/Utf8.hpp"

#include <cstdint>
#include <cstring>

namespace molvane {

namespace {

/// What a lead byte promises: how many continuation bytes follow, and between which bounds the first of them
/// must lie. The bounds are what keeps out overlong forms, surrogates and scalars above U+10FFFF (Unicode,
/// table 3-7).
struct Lead {
  unsigned continuations;
  unsigned char low;
  unsigned char high;
};

constexpr Lead leadOf(unsigned char byte) noexcept {
  if (byte >= 0xC2 && byte <= 0xDF) return {1, 0x80, 0xBF};
  if (byte == 0xE0) return {2, 0xA0, 0xBF};
  if (byte == 0xED) return {2, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return {2, 0x80, 0xBF};
  if (byte == 0xF0) return {3, 0x90, 0xBF};
  if (byte >= 0xF1 && byte <= 0xF3) return {3, 0x80, 0xBF};
  if (byte == 0xF4) return {3, 0x80, 0x8F};
  return {0, 0, 0};
}

std::size_t asciiPrefix(std::string_view bytes) noexcept {
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  std::size_t at = 0;
  for (std::uint64_t word = 0; at + sizeof word <= bytes.size(); at += sizeof word) {
    std::memcpy(&word, bytes.data() + at, sizeof word);
    if ((word & kHighBits) != 0) break;
  }
  while (at < bytes.size() && static_cast<unsigned char>(bytes[at]) < 0x80) ++at;
  return at;
}

std::size_t validPrefix(std::string_view bytes) noexcept {
  std::size_t at = asciiPrefix(bytes);
  while (at < bytes.size()) {
    const LeadingScalar scalar = leadingScalar(bytes.substr(at));
    if (!scalar.valid) break;
    at += scalar.length;
    if (scalar.length == 1) at += asciiPrefix(bytes.substr(at));
  }
  return at;
}

}  // namespace

LeadingScalar leadingScalar(std::string_view bytes) noexcept {
  const auto first = static_cast<unsigned char>(bytes.front());
  if (first < 0x80) return {first, 1, true};
  const Lead lead = leadOf(first);
  if (lead.continuations == 0) return {kReplacementScalar, 1, false};

  char32_t value = first & (0x3FU >> lead.continuations);
  unsigned char low = lead.low;
  unsigned char high = lead.high;
  for (std::size_t at = 1; at <= lead.continuations; ++at) {
    if (at >= bytes.size()) return {kReplacementScalar, at, false};
    const auto byte = static_cast<unsigned char>(bytes[at]);
    if (byte < low || byte > high) return {kReplacementScalar, at, false};
    value = (value << 6U) | (byte & 0x3FU);
    low = 0x80;
    high = 0xBF;
  }
  return {value, lead.continuations + 1, true};
}

bool isValidUtf8(std::string_view bytes) noexcept { return validPrefix(bytes) == bytes.size(); }

std::string repairedUtf8(std::string_view bytes) {
  std::size_t valid = validPrefix(bytes);
  if (valid == bytes.size()) return std::string(bytes);
  std::string text;
  text.reserve(bytes.size() + bytes.size() / 8);
  while (true) {
    text.append(bytes.substr(0, valid));
    bytes.remove_prefix(valid);
    if (bytes.empty()) return text;
    appendUtf8(text, kReplacementScalar);
    bytes.remove_prefix(leadingScalar(bytes).length);
    valid = validPrefix(bytes);
  }
}

void appendUtf8(std::string& text, char32_t scalar) {
  if (scalar > 0x10FFFF || (scalar >= 0xD800 && scalar <= 0xDFFF)) scalar = kReplacementScalar;
  const auto continuation = [scalar](unsigned shift) {
    return static_cast<char>(0x80U | ((scalar >> shift) & 0x3FU));
  };
  if (scalar < 0x80) {
    text += static_cast<char>(scalar);
  } else if (scalar < 0x800) {
    text += static_cast<char>(0xC0U | (scalar >> 6U));
    text += continuation(0);
  } else if (scalar < 0x10000) {
    text += static_cast<char>(0xE0U | (scalar >> 12U));
    text += continuation(6);
    text += continuation(0);
  } else {
    text += static_cast<char>(0xF0U | (scalar >> 18U));
    text += continuation(12);
    text += continuation(6);
    text += continuation(0);
  }
}

}  // namespace molvane
