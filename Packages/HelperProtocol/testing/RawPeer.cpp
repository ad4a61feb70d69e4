#include "HelperProtocol/testing/RawPeer.hpp"

#include <array>
#include <chrono>
#include <system_error>
#include <utility>

#include "HelperProtocol/dbus/ProtocolError.hpp"
#include "HelperProtocol/dbus/Sasl.hpp"

namespace molvane::testing {

namespace {

constexpr std::chrono::seconds kPatience{60};

dbus::Deadline fromNow() { return std::chrono::steady_clock::now() + kPatience; }

}  // namespace

RawPeer::RawPeer(const std::string& socketPath) : RawPeer(dbus::connectTo(socketPath, kPatience)) {}
RawPeer::RawPeer(FileDescriptor socket) : socket_(std::move(socket)) {}

bool RawPeer::send(dbus::ByteView bytes) {
  try {
    stream_.send(bytes, kPatience);
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

bool RawPeer::shakeHands() {
  dbus::SaslClient client;
  try {
    stream_.send(dbus::asBytes(dbus::SaslClient::greeting()), kPatience);
    while (!client.done()) {
      stream_.fetch(fromNow());
      stream_.consume(client.receive(stream_.buffered()));
    }
    return true;
  } catch (const dbus::ProtocolError&) {
    return false;
  } catch (const std::system_error&) {
    return false;
  }
}

bool RawPeer::waitForInput() { return dbus::waitReadable(socket_, fromNow()); }

std::optional<dbus::Message> RawPeer::receive() {
  try {
    if (stream_.buffered().empty() && !waitForInput()) return std::nullopt;
    return stream_.receive(kPatience);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

bool RawPeer::isLeft() {
  std::array<std::uint8_t, 4096> dropped{};
  while (waitForInput()) {
    try {
      if (dbus::receiveSome(socket_, dropped.data(), dropped.size(), false) == 0U) return true;
    } catch (const std::system_error&) {
      return true;
    }
  }
  return false;
}

}  // namespace molvane::testing
