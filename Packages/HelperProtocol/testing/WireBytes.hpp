#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "HelperProtocol/dbus/Bytes.hpp"

namespace molvane::testing {

/// Lays out bytes on the wire by hand, in either order, well-formed or not. Independent of the encoder under
/// test.
class WireBytes {
 public:
  explicit WireBytes(char order = 'l') : order_(order) {}

  WireBytes& raw(std::string_view bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }
  WireBytes& byte(unsigned value) {
    bytes_.push_back(static_cast<std::uint8_t>(value));
    return *this;
  }
  WireBytes& align(std::size_t alignment) {
    while (bytes_.size() % alignment != 0) byte(0);
    return *this;
  }
  WireBytes& u32(std::uint32_t value) { return align(4).integer(value, 4); }
  WireBytes& u64(std::uint64_t value) { return align(8).integer(value, 8); }
  WireBytes& string(std::string_view text) {
    return u32(static_cast<std::uint32_t>(text.size())).raw(text).byte(0);
  }
  WireBytes& signature(std::string_view text) {
    return byte(static_cast<unsigned>(text.size())).raw(text).byte(0);
  }
  WireBytes& variant(std::string_view type, std::string_view text) {
    signature(type);
    return type == "g" ? signature(text) : string(text);
  }

  [[nodiscard]] char order() const { return order_; }
  [[nodiscard]] const dbus::Bytes& bytes() const { return bytes_; }

 private:
  WireBytes& integer(std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) {
      const int place = order_ == 'l' ? i : size - 1 - i;
      byte(static_cast<unsigned>(value >> (8 * place)) & 0xFFU);
    }
    return *this;
  }

  char order_;
  dbus::Bytes bytes_;
};

/// One message, field by field; what is empty is left out.
struct WireMessage {
  char order = 'l';
  unsigned type = 1;
  unsigned flags = 0;
  unsigned version = 1;
  std::uint32_t serial = 1;
  std::string path = "/com/molvane/helper";
  std::string interface = "com.molvane.helper";
  std::string member = "Ping";
  std::string errorName = {};
  std::uint32_t replySerial = 0;
  std::string destination = {};
  std::string sender = {};
  std::string signature = {};
  dbus::Bytes extraFields = {};  ///< laid out to begin at a multiple of eight
  dbus::Bytes body = {};

  [[nodiscard]] dbus::Bytes bytes() const;
};

}  // namespace molvane::testing
