#include "HelperProtocol/dbus/Channel.hpp"

#include <cerrno>
#include <chrono>
#include <exception>
#include <system_error>

#include "HelperProtocol/dbus/Sasl.hpp"
#include "HelperProtocol/dbus/Socket.hpp"

namespace molvane::dbus {

namespace {

constexpr std::chrono::seconds kConnectTimeout{10};

FileDescriptor connected(const std::string& socketPath) {
  try {
    return connectTo(socketPath, kConnectTimeout);
  } catch (const std::system_error& error) {
    std::throw_with_nested(ConnectionError(std::string("The helper cannot be reached: ") + error.what()));
  }
}

[[noreturn]] void throwNotAnswering() {
  try {
    throw std::system_error(ETIMEDOUT, std::generic_category());
  } catch (const std::system_error&) {
    std::throw_with_nested(ConnectionError("The helper does not answer"));
  }
}

}  // namespace

Channel::Channel(const std::string& socketPath)
    : socket_(connected(socketPath)), stream_(socket_, kMaxMessageSize) {
  guarded([this] { shakeHands(std::chrono::steady_clock::now() + kConnectTimeout); });
}

void Channel::shakeHands(Deadline deadline) {
  stream_.send(asBytes(SaslClient::greeting()), kConnectTimeout);
  SaslClient client;
  while (!client.done()) {
    if (!waitReadable(socket_, deadline)) throwNotAnswering();
    stream_.fetch(deadline);
    stream_.consume(client.receive(stream_.buffered()));
  }
}

Header Channel::header(const Method& method) {
  Header header;
  header.type = MessageType::methodCall;
  if (++serial_ == 0) ++serial_;
  header.serial = serial_;
  header.path = kHelperPath;
  header.interface = kHelperInterface;
  header.member = method.member;
  header.signature = method.in;
  return header;
}

NSError Channel::tooLarge() {
  return {std::string(kPOSIXErrorDomain), EMSGSIZE, posixErrorDescription(EMSGSIZE)};
}

Message Channel::exchange() {
  stream_.send(request_, std::nullopt);
  while (const std::optional<Message> message = stream_.receive(std::nullopt)) {
    const bool isAnswer = message->type == MessageType::methodReturn || message->type == MessageType::error;
    if (isAnswer && message->replySerial == serial_) return *message;
  }
  throw ProtocolError("the helper has left");
}

void Channel::expectTypes(const Message& answer, const Method& method) {
  if (answer.signature != method.out)
    throw ProtocolError("the helper answered with other types than agreed on");
}

void Channel::fail(const std::string& why) {
  failure_ = "The connection to the helper was lost: " + why;
  shutDown(socket_);
  throw ConnectionError(failure_);
}

}  // namespace molvane::dbus
