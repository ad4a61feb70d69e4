#include "HelperProtocol/dbus/Message.hpp"

#include "HelperProtocol/dbus/Limits.hpp"
#include "HelperProtocol/dbus/ProtocolError.hpp"
#include "HelperProtocol/dbus/Syntax.hpp"

namespace molvane::dbus {

namespace {

constexpr std::uint8_t kProtocolVersion = 1;
constexpr std::size_t kBodyLengthAt = 4;
constexpr std::size_t kFieldsAt = 12;

/// A field is a structure in an array, and its value is in a variant.
constexpr int kFieldDepth = 3;

enum Field : std::uint8_t {
  kPath = 1,
  kInterface = 2,
  kMember = 3,
  kErrorName = 4,
  kReplySerial = 5,
  kDestination = 6,
  kSender = 7,
  kSignature = 8,
  kUnixFds = 9,
};

constexpr std::string_view kLocalPath = "/org/freedesktop/DBus/Local";
constexpr std::string_view kLocalInterface = "org.freedesktop.DBus.Local";

void expect(bool holds, const char* otherwise) {
  if (!holds) throw ProtocolError(otherwise);
}

ByteOrder byteOrder(ByteView bytes) {
  expect(bytes[0] == 'l' || bytes[0] == 'B', "a message of no known byte order");
  return static_cast<ByteOrder>(bytes[0]);
}

/// Reads the header's fields into a message.
class FieldReader {
 public:
  FieldReader(Decoder& decoder, Message& message) noexcept : decoder_(decoder), message_(message) {}

  void readAll() {
    const std::size_t end = decoder_.beginArray(8);
    while (decoder_.position() < end) {
      decoder_.align(8);
      readOne();
    }
    decoder_.endArray(end);
  }

 private:
  void readOne() {
    const std::uint8_t code = decoder_.byte();
    expect(code != 0, "a header field of the kind that is none");
    if (code > kUnixFds) {
      decoder_.skipVariant(kFieldDepth);
      return;
    }
    const unsigned bit = 1U << code;
    expect((seen_ & bit) == 0, "a header field that stands twice");
    seen_ |= bit;
    readKnown(static_cast<Field>(code));
  }

  void readKnown(Field field) {
    switch (field) {
      case kPath:
        expectType("o");
        message_.path = decoder_.objectPath();
        return;
      case kInterface:
        message_.interface = name(isInterfaceName, "a malformed interface name");
        return;
      case kMember:
        message_.member = name(isMemberName, "a malformed member name");
        return;
      case kErrorName:
        message_.errorName = name(isInterfaceName, "a malformed error name");
        return;
      case kReplySerial:
        message_.replySerial = number();
        expect(message_.replySerial != 0, "a reply to the serial 0");
        return;
      case kDestination:
        message_.destination = name(isBusName, "a malformed destination");
        return;
      case kSender:
        message_.sender = name(isBusName, "a malformed sender");
        return;
      case kSignature:
        expectType("g");
        message_.signature = decoder_.signature();
        return;
      case kUnixFds:
        expect(number() == 0, "a message with descriptors, which were not agreed on");
        return;
    }
  }

  void expectType(std::string_view type) {
    expect(decoder_.signature() == type, "a header field of another type than its kind has");
  }

  std::uint32_t number() {
    expectType("u");
    return decoder_.uint32();
  }

  std::string_view name(bool (*isWellFormed)(std::string_view) noexcept, const char* otherwise) {
    expectType("s");
    const std::string_view text = decoder_.string();
    expect(isWellFormed(text), otherwise);
    return text;
  }

  Decoder& decoder_;
  Message& message_;
  unsigned seen_ = 0;
};

void expectRequiredFields(const Message& message) {
  switch (message.type) {
    case MessageType::methodCall:
      expect(!message.path.empty() && !message.member.empty(), "a call without a path or a member");
      return;
    case MessageType::methodReturn:
      expect(message.replySerial != 0, "a reply to nothing");
      return;
    case MessageType::error:
      expect(message.replySerial != 0 && !message.errorName.empty(),
             "an error without a name, or to nothing");
      return;
    case MessageType::signal:
      expect(!message.path.empty() && !message.interface.empty() && !message.member.empty(),
             "a signal without a path, an interface or a member");
      return;
  }
}

void encodeField(Encoder& encoder, Field field, std::string_view type, std::string_view value) {
  if (value.empty()) return;
  encoder.align(8);
  encoder.byte(field);
  encoder.signature(type);
  field == kSignature ? encoder.signature(value) : encoder.string(value);
}

void encodeReplySerial(Encoder& encoder, std::uint32_t serial) {
  if (serial == 0) return;
  encoder.align(8);
  encoder.byte(kReplySerial);
  encoder.signature("u");
  encoder.uint32(serial);
}

}  // namespace

Frame frameOf(ByteView first) {
  Decoder decoder(first.first(kFrameSize), byteOrder(first));
  Frame frame;
  decoder.byte();
  frame.type = static_cast<MessageType>(decoder.byte());
  expect(frame.type != MessageType(), "a message of the type that is none");
  frame.flags = decoder.byte();
  expect(decoder.byte() == kProtocolVersion, "a message of another version of the protocol");
  const std::size_t body = decoder.uint32();
  frame.serial = decoder.uint32();
  expect(frame.serial != 0, "a message with the serial 0");
  const std::size_t fields = decoder.uint32();
  expect(fields <= kMaxArraySize && body <= kMaxMessageSize, "a message beyond the protocol's limit");
  const std::size_t fieldsEnd = kFrameSize + fields;
  frame.size = fieldsEnd + paddingTo(8, fieldsEnd) + body;
  expect(frame.size <= kMaxMessageSize, "a message beyond the protocol's limit");
  return frame;
}

Message decodeMessage(ByteView bytes) {
  expect(bytes.size() >= kFrameSize, "a message that is cut short");
  const Frame frame = frameOf(bytes);
  expect(bytes.size() == frame.size, "a message of another size than it says");
  Message message;
  message.type = frame.type;
  message.flags = frame.flags;
  message.serial = frame.serial;
  message.order = byteOrder(bytes);
  Decoder decoder(bytes, message.order);
  for (std::size_t fixed = 0; fixed < kFieldsAt; fixed += sizeof(std::uint32_t)) decoder.uint32();
  FieldReader(decoder, message).readAll();
  decoder.align(8);
  message.body = bytes.subspan(decoder.position());

  expectRequiredFields(message);
  expect(message.path != kLocalPath && message.interface != kLocalInterface,
         "a name that no message may carry");
  expect(!message.signature.empty() || message.body.empty(), "a body without a signature");
  return message;
}

MessageBuilder::MessageBuilder(Bytes& buffer, const Header& header) : buffer_(buffer), encoder_(buffer) {
  buffer_.clear();
  encoder_.byte(static_cast<std::uint8_t>(ByteOrder::little));
  encoder_.byte(static_cast<std::uint8_t>(header.type));
  encoder_.byte(header.flags);
  encoder_.byte(kProtocolVersion);
  encoder_.uint32(0);
  encoder_.uint32(header.serial);
  const Encoder::Array fields = encoder_.beginArray(8);
  encodeField(encoder_, kPath, "o", header.path);
  encodeField(encoder_, kInterface, "s", header.interface);
  encodeField(encoder_, kMember, "s", header.member);
  encodeField(encoder_, kErrorName, "s", header.errorName);
  encodeReplySerial(encoder_, header.replySerial);
  encodeField(encoder_, kDestination, "s", header.destination);
  encodeField(encoder_, kSender, "s", header.sender);
  encodeField(encoder_, kSignature, "g", header.signature);
  encoder_.endArray(fields);
  encoder_.align(8);
  bodyAt_ = buffer_.size();
}

void MessageBuilder::finish() {
  encoder_.patch(kBodyLengthAt, static_cast<std::uint32_t>(buffer_.size() - bodyAt_));
}

}  // namespace molvane::dbus
