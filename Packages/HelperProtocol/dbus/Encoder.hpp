#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "HelperProtocol/dbus/Bytes.hpp"

namespace molvane::dbus {

/// `text` as a string on the wire can hold it: U+FFFD stands for each NUL and for what is no UTF-8.
[[nodiscard]] std::string wireText(std::string_view text);

/// Writes values behind one another, in little-endian order, with alignment counted from the buffer's
/// beginning.
///
/// The buffer is the caller's and must outlive the encoder. Every call throws MessageTooLarge when the buffer
/// would grow beyond kMaxMessageSize or an array beyond kMaxArraySize, before anything is allocated for it.
class Encoder {
 public:
  explicit Encoder(Bytes& buffer) noexcept : buffer_(buffer) {}

  void byte(std::uint8_t value);
  void boolean(bool value) { uint32(value ? 1 : 0); }
  void uint32(std::uint32_t value);
  void int64(std::int64_t value);
  /// A name, path or other text that is known to be UTF-8 without NUL.
  void string(std::string_view text);
  /// Any text, as wireText has it.
  void text(std::string_view text);
  void signature(std::string_view signature);
  void byteArray(ByteView bytes);

  /// Begins an array whose elements are aligned to `elementAlignment`; hand what it answers to endArray.
  struct Array {
    std::size_t lengthAt;
    std::size_t elementsAt;
  };
  [[nodiscard]] Array beginArray(std::size_t elementAlignment);
  void endArray(Array array);

  void align(std::size_t alignment);
  /// Overwrites four bytes that were written before.
  void patch(std::size_t position, std::uint32_t value) noexcept;

 private:
  void append(ByteView bytes);
  void willGrowBy(std::size_t count) const;

  Bytes& buffer_;
};

}  // namespace molvane::dbus
