#include "HelperProtocol/dbus/Answer.hpp"

#include "HelperProtocol/dbus/ErrorNames.hpp"

namespace molvane::dbus {

namespace {

/// The arguments of an error whose name does not tell domain and code: description, domain, code.
constexpr std::string_view kOtherErrorSignature = "ssx";

}  // namespace

Header Answer::header(MessageType type, std::string_view errorName,
                      std::string_view signature) const noexcept {
  Header header;
  header.type = type;
  header.flags = kNoReplyExpected;
  header.serial = serial_;
  header.replySerial = call_.serial;
  header.errorName = errorName;
  header.signature = signature;
  if (client_.hasSaidHello) {
    header.sender = senderOfAnswerTo(call_);
    header.destination = client_.uniqueName;
  }
  return header;
}

void Answer::error(std::string_view name, std::string_view description) {
  MessageBuilder message(buffer_, header(MessageType::error, name, "s"));
  message.body().text(description);
  message.finish();
}

void Answer::error(const NSError& error) {
  const std::string name = errorName(error.domain, error.code);
  if (name != kOtherErrorName) {
    this->error(name, error.localizedDescription);
    return;
  }
  MessageBuilder message(buffer_, header(MessageType::error, name, kOtherErrorSignature));
  message.body().text(error.localizedDescription);
  message.body().text(error.domain);
  message.body().int64(error.code);
  message.finish();
}

NSError errorOf(const Message& message) {
  NSError error{std::string(message.errorName), 0, {}};
  Decoder arguments = message.arguments();
  if (message.signature.starts_with('s')) error.localizedDescription = arguments.string();
  if (const auto identity = errorIdentity(message.errorName)) {
    error.domain = identity->domain;
    error.code = identity->code;
  } else if (message.errorName == kOtherErrorName && message.signature == kOtherErrorSignature) {
    error.domain = arguments.string();
    error.code = arguments.int64();
  }
  return error;
}

}  // namespace molvane::dbus
