#pragma once

#include <optional>
#include <string>

#include "HelperProtocol/dbus/Message.hpp"
#include "HelperProtocol/dbus/MessageStream.hpp"
#include "Platform/FileDescriptor.hpp"

namespace molvane::testing {

/// A client that does nothing by itself and may say anything. It gives up waiting after an absurdly long
/// time.
class RawPeer {
 public:
  /// Connects; throws std::system_error when nobody listens.
  explicit RawPeer(const std::string& socketPath);
  /// Speaks on a socket that is connected.
  explicit RawPeer(FileDescriptor socket);

  [[nodiscard]] const FileDescriptor& socket() const { return socket_; }

  /// Sends everything; false when the other end did not take it all before it went.
  bool send(dbus::ByteView bytes);
  bool send(std::string_view text) { return send(dbus::asBytes(text)); }

  /// The client's half of the handshake and the server's answer to it; false when the server has gone
  /// instead.
  [[nodiscard]] bool shakeHands();

  /// The next message; nothing when the server has gone.
  [[nodiscard]] std::optional<dbus::Message> receive();

  /// Waits for the other end to go, dropping what it still says.
  [[nodiscard]] bool isLeft();

  void leave() { socket_.reset(); }

 private:
  [[nodiscard]] bool waitForInput();

  FileDescriptor socket_;
  dbus::MessageStream stream_{socket_, dbus::kMaxMessageSize};
};

}  // namespace molvane::testing
