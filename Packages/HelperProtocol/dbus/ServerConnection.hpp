#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "HelperProtocol/Connection.hpp"
#include "HelperProtocol/dbus/Limits.hpp"
#include "HelperProtocol/dbus/MessageStream.hpp"
#include "HelperProtocol/dbus/Silence.hpp"
#include "Platform/CodeSigning.hpp"
#include "Platform/FileDescriptor.hpp"

namespace molvane::dbus {

class Exporter;

/// The helper's end of one connection over a Unix socket.
///
/// The listener makes it, offers it to its delegate, and lends it a thread once it has been resumed.
class ServerConnection final : public PeerConnection {
 public:
  /// What all connections of a listener share. Both references must outlive them.
  struct Surroundings {
    CodeSigning& codeSigning;
    const Limits& limits;
    std::string guid;
  };

  /// `peerUID` is the peer's user as the kernel gave it; `number` tells the connection from the listener's
  /// others.
  ServerConnection(FileDescriptor socket, std::uint32_t peerUID, std::uint64_t number,
                   const Surroundings& surroundings);

  [[nodiscard]] std::uint32_t effectiveUserIdentifier() const override { return peerUID_; }
  void setCodeSigningRequirement(std::string requirement) override { requirement_ = std::move(requirement); }
  void setExportedObject(std::shared_ptr<MolvaneHelperXPCProtocol> object) override {
    object_ = std::move(object);
  }
  void setInvalidationHandler(std::function<void()> handler) override { invalidated_ = std::move(handler); }
  void resume() override { resumed_ = true; }

  [[nodiscard]] bool resumed() const noexcept { return resumed_; }

  /// Serves the peer until the connection ends: checks its code, shakes hands, answers its calls. A peer for
  /// which no requirement or no object was set is turned away. The connection ends with the process that was
  /// checked, whoever else holds the peer's socket; each call is answered only if that process still lives.
  /// False when makeWay() has ended it.
  bool serve() noexcept;

  /// Lets go of the exported object and calls the invalidation handler. Call it once, after serve() or in its
  /// place.
  void invalidate() noexcept;

  /// When the connection began to wait for a call; nothing before its handshake is over, during a call, and
  /// once makeWay() has ended it. Any thread.
  [[nodiscard]] std::optional<Silence::Clock::time_point> silentSince() const { return silence_.since(); }

  /// Ends the connection if it waits for a call; false when it does not. Any thread.
  [[nodiscard]] bool makeWay() noexcept;

  /// Ends both directions, so that serve() comes to its end and the peer learns of it. Any thread, any time.
  void shutDown() noexcept;

 private:
  [[nodiscard]] bool peerIsTrusted();
  void handshake();
  void converse();
  void answerCalls(Exporter& exporter);
  std::optional<Message> nextMessage();
  void refuse(const Frame& oversized, Exporter& exporter);

  FileDescriptor socket_;
  FileDescriptor process_;  // readable once the process that was checked has ended
  const std::uint32_t peerUID_;
  const std::uint64_t number_;
  const Surroundings& surroundings_;
  MessageStream stream_;
  Silence silence_;
  std::optional<std::string> requirement_;
  std::shared_ptr<MolvaneHelperXPCProtocol> object_;
  std::function<void()> invalidated_;
  bool resumed_ = false;
};

}  // namespace molvane::dbus
