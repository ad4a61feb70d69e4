#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "HelperProtocol/dbus/Bytes.hpp"

namespace molvane::dbus {

/// The byte order of a message, as its first byte says it.
enum class ByteOrder : std::uint8_t { little = 'l', big = 'B' };

/// Reads values off marshalled bytes, one after the other.
///
/// Every call throws ProtocolError when the bytes are not what was asked for: too short, padding that is not
/// zero, a length beyond the end, text that is no text. What is returned as a view lies in the bytes that
/// were given; nothing is copied or allocated. Alignment is counted from the beginning of the bytes.
class Decoder {
 public:
  Decoder(ByteView bytes, ByteOrder order) noexcept : bytes_(bytes), order_(order) {}

  std::uint8_t byte();
  bool boolean();
  std::uint32_t uint32();
  std::int64_t int64();
  /// UTF-8 without NUL.
  std::string_view string();
  std::string_view objectPath();
  std::string_view signature();
  /// An array of bytes.
  ByteView byteArray();

  /// Enters an array whose elements are aligned to `elementAlignment`; answers the position at which it ends.
  /// Read elements for as long as position() is before it, then call endArray().
  std::size_t beginArray(std::size_t elementAlignment);
  /// Throws unless the elements ended where the array said.
  void endArray(std::size_t end) const;

  /// Steps over one value of the type at the head of `types`, checking it on the way, and takes that type off
  /// `types`, which must be well-formed. `depth` is how many containers the value lies in.
  void skip(std::string_view& types, int depth);
  /// The same for a variant, whose type stands with it.
  void skipVariant(int depth);

  void align(std::size_t alignment);
  [[nodiscard]] std::size_t position() const noexcept { return position_; }
  /// Throws unless everything was read.
  void expectEnd() const;

 private:
  ByteView take(std::size_t length);
  std::size_t arrayLength();
  void skipArray(std::string_view& types, int depth);

  ByteView bytes_;
  ByteOrder order_;
  std::size_t position_ = 0;
};

}  // namespace molvane::dbus
