#include "HelperProtocol/dbus/Encoder.hpp"

#include <array>

#include "Base/Utf8.hpp"
#include "HelperProtocol/dbus/Limits.hpp"
#include "HelperProtocol/dbus/ProtocolError.hpp"
#include "HelperProtocol/dbus/Syntax.hpp"

namespace molvane::dbus {

namespace {

template <std::size_t size>
std::array<std::uint8_t, size> littleEndian(std::uint64_t value) noexcept {
  std::array<std::uint8_t, size> bytes{};
  for (std::size_t i = 0; i < size; ++i) bytes.at(i) = static_cast<std::uint8_t>(value >> (8 * i));
  return bytes;
}

}  // namespace

std::string wireText(std::string_view text) {
  const std::string valid = repairedUtf8(text);
  std::string result;
  result.reserve(valid.size());
  for (const char c : valid) {
    if (c == '\0') {
      appendUtf8(result, kReplacementScalar);
    } else {
      result += c;
    }
  }
  return result;
}

void Encoder::willGrowBy(std::size_t count) const {
  if (count > kMaxMessageSize - buffer_.size())
    throw MessageTooLarge("a message beyond the protocol's limit");
}

void Encoder::append(ByteView bytes) {
  willGrowBy(bytes.size());
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

void Encoder::align(std::size_t alignment) {
  const std::size_t padding = paddingTo(alignment, buffer_.size());
  if (padding == 0) return;
  willGrowBy(padding);
  buffer_.resize(buffer_.size() + padding);
}

void Encoder::byte(std::uint8_t value) {
  willGrowBy(1);
  buffer_.push_back(value);
}

void Encoder::uint32(std::uint32_t value) {
  align(4);
  append(littleEndian<4>(value));
}

void Encoder::int64(std::int64_t value) {
  align(8);
  append(littleEndian<8>(static_cast<std::uint64_t>(value)));
}

void Encoder::string(std::string_view text) {
  willGrowBy(text.size());
  uint32(static_cast<std::uint32_t>(text.size()));
  append(asBytes(text));
  byte(0);
}

void Encoder::text(std::string_view text) { isText(text) ? string(text) : string(wireText(text)); }

void Encoder::signature(std::string_view signature) {
  byte(static_cast<std::uint8_t>(signature.size()));
  append(asBytes(signature));
  byte(0);
}

void Encoder::byteArray(ByteView bytes) {
  if (bytes.size() > kMaxArraySize) throw MessageTooLarge("an array beyond the protocol's limit");
  uint32(static_cast<std::uint32_t>(bytes.size()));
  append(bytes);
}

Encoder::Array Encoder::beginArray(std::size_t elementAlignment) {
  uint32(0);
  const std::size_t lengthAt = buffer_.size() - 4;
  align(elementAlignment);
  return {lengthAt, buffer_.size()};
}

void Encoder::endArray(Array array) {
  const std::size_t length = buffer_.size() - array.elementsAt;
  if (length > kMaxArraySize) throw MessageTooLarge("an array beyond the protocol's limit");
  patch(array.lengthAt, static_cast<std::uint32_t>(length));
}

void Encoder::patch(std::size_t position, std::uint32_t value) noexcept {
  for (std::size_t i = 0; i < 4; ++i) buffer_[position + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

}  // namespace molvane::dbus
