#include "HelperProtocol/testing/WireBytes.hpp"

namespace molvane::testing {

dbus::Bytes WireMessage::bytes() const {
  WireBytes fields(order);
  const auto field = [&fields](unsigned code, std::string_view type, const std::string& text) {
    if (!text.empty()) fields.align(8).byte(code).variant(type, text);
  };
  field(1, "o", path);
  field(2, "s", interface);
  field(3, "s", member);
  field(4, "s", errorName);
  if (replySerial != 0) fields.align(8).byte(5).signature("u").u32(replySerial);
  field(6, "s", destination);
  field(7, "s", sender);
  field(8, "g", signature);
  if (!extraFields.empty()) fields.align(8).raw(dbus::asText(extraFields));

  WireBytes message(order);
  message.byte(static_cast<unsigned char>(order)).byte(type).byte(flags).byte(version);
  message.u32(static_cast<std::uint32_t>(body.size())).u32(serial);
  message.u32(static_cast<std::uint32_t>(fields.bytes().size())).raw(dbus::asText(fields.bytes())).align(8);
  return message.raw(dbus::asText(body)).bytes();
}

}  // namespace molvane::testing
