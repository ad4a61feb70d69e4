#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>

#include "HelperProtocol/Connection.hpp"
#include "HelperProtocol/dbus/ConnectionCounter.hpp"
#include "HelperProtocol/dbus/Limits.hpp"
#include "HelperProtocol/dbus/ListeningSocket.hpp"
#include "HelperProtocol/dbus/ServerConnection.hpp"
#include "HelperProtocol/dbus/WakeUp.hpp"
#include "Platform/CodeSigning.hpp"
#include "Platform/Thread.hpp"

namespace molvane::dbus {

/// Accepts peers on a Unix socket and serves each on a thread of its own: the messages of one connection run
/// in order, different connections run side by side.
///
/// A peer beyond the limits is closed at once, without the delegate being asked, unless a connection that is
/// logged in and silent stands in its way: one of the same user, or of a user who has more connections than
/// the peer's. Then the one that has been silent longest, of the user who has the most, is ended in its
/// place. Should there be no thread for a connection that was resumed, its invalidation handler runs on the
/// listener's thread.
///
/// The destructor stops to accept, ends all connections and waits for their threads, and so for the calls
/// that are being carried out.
class SocketListener final : public Listener {
 public:
  using PeerUID = std::function<std::uint32_t(const FileDescriptor&)>;

  /// `codeSigning` must outlive the listener. `peerUID` tells a peer's user from its socket; it is there so
  /// that tests can be several users.
  SocketListener(ListeningSocket socket, CodeSigning& codeSigning, Limits limits = {},
                 PeerUID peerUID = peerUserIdentifier);
  ~SocketListener() override;
  SocketListener(const SocketListener&) = delete;
  SocketListener& operator=(const SocketListener&) = delete;

  void setDelegate(ListenerDelegate& delegate) override { delegate_ = &delegate; }

  /// Throws std::system_error when there is no thread to accept on.
  void resume() override;
  void suspend() override;

 private:
  struct Session;

  void acceptPeers() noexcept;
  void acceptOne();
  void offer(FileDescriptor peer);
  std::optional<ConnectionCounter::Slot> placeFor(std::uint32_t uid);
  Session* silentInTheWayOf(std::uint32_t uid);
  void start(std::unique_ptr<Session> session);
  void serve(Session& session) noexcept;
  void reap() noexcept;

  const Limits limits_;
  const PeerUID peerUID_;
  ListeningSocket socket_;
  ServerConnection::Surroundings surroundings_;
  ConnectionCounter counter_;
  WakeUp wakeUp_;
  ListenerDelegate* delegate_ = nullptr;
  std::atomic<bool> stopping_ = false;
  std::uint64_t accepted_ = 0;
  /// Only the accepting thread touches the list, and the destructor when there is none.
  std::list<std::unique_ptr<Session>> sessions_;
  Thread accepting_;
};

}  // namespace molvane::dbus
