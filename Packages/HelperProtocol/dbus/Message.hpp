#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "HelperProtocol/dbus/Bytes.hpp"
#include "HelperProtocol/dbus/Decoder.hpp"
#include "HelperProtocol/dbus/Encoder.hpp"

namespace molvane::dbus {

enum class MessageType : std::uint8_t { methodCall = 1, methodReturn = 2, error = 3, signal = 4 };

inline constexpr std::uint8_t kNoReplyExpected = 0x1;

/// The first bytes of a message, after which its size is known.
inline constexpr std::size_t kFrameSize = 16;

/// What a message says about itself. A text that is not there is empty; so is a number 0.
struct Header {
  MessageType type = MessageType::methodCall;
  std::uint8_t flags = 0;
  std::uint32_t serial = 0;
  std::uint32_t replySerial = 0;
  std::string_view path;
  std::string_view interface;
  std::string_view member;
  std::string_view errorName;
  std::string_view destination;
  std::string_view sender;
  std::string_view signature;
};

/// A message that was received. Its texts and its body lie in the bytes that it was decoded from.
struct Message : Header {
  ByteView body;
  ByteOrder order = ByteOrder::little;

  /// Reads the body; let it end with expectEnd().
  [[nodiscard]] Decoder arguments() const noexcept { return {body, order}; }
};

/// What a message's first bytes tell of it.
struct Frame {
  MessageType type = MessageType::methodCall;
  std::uint8_t flags = 0;
  std::uint32_t serial = 0;
  std::size_t size = 0;  ///< of the whole message, in bytes
};

/// The frame of the message that begins with `first`, of which there must be kFrameSize bytes or more. Throws
/// ProtocolError when no message begins like this, or one of more than kMaxMessageSize.
[[nodiscard]] Frame frameOf(ByteView first);

/// The message that fills `bytes` exactly; its frame must have told their number. The header is checked
/// throughout; the body is not looked at. A message of a type that the protocol does not know yet comes back
/// with that type and is to be ignored. Throws ProtocolError for anything that is malformed.
[[nodiscard]] Message decodeMessage(ByteView bytes);

/// Writes one message: the header first, then the body through body(), then finish().
///
/// Throws MessageTooLarge like its encoder. The buffer is emptied at the beginning and is a whole message
/// after finish(). The header's names must be well-formed; they are not checked.
class MessageBuilder {
 public:
  MessageBuilder(Bytes& buffer, const Header& header);

  [[nodiscard]] Encoder& body() noexcept { return encoder_; }
  void finish();

 private:
  Bytes& buffer_;
  Encoder encoder_;
  std::size_t bodyAt_ = 0;
};

}  // namespace molvane::dbus
