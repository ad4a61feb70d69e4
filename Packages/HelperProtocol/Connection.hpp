#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "HelperProtocol/HelperXPCProtocol.hpp"

namespace molvane {

/// The connection was lost, refused or could not be made. On the client's side only.
class ConnectionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The helper answered with an error to a method whose reply has no place for one. On the client's side only.
class RemoteError : public std::runtime_error {
 public:
  explicit RemoteError(NSError error)
      : std::runtime_error(error.localizedDescription), error_(std::move(error)) {}

  [[nodiscard]] const NSError& error() const noexcept { return error_; }

 private:
  NSError error_;
};

/// The helper's end of one connection, as the listener hands it to its delegate.
///
/// Configure it inside shouldAcceptNewConnection, on the listener's thread, then resume() it. The listener
/// owns the object; it lives until its invalidation handler has returned.
class PeerConnection {
 public:
  virtual ~PeerConnection() = default;

  /// The peer's effective user identifier as the kernel gave it when the connection was made.
  [[nodiscard]] virtual std::uint32_t effectiveUserIdentifier() const = 0;

  /// The requirement that the peer's code must satisfy. No message of the peer is dispatched before the check
  /// has passed, or after the process that was checked has ended; a peer that fails it is disconnected and
  /// the invalidation handler runs.
  virtual void setCodeSigningRequirement(std::string requirement) = 0;

  /// The object that answers the peer's calls, one call at a time and in order.
  virtual void setExportedObject(std::shared_ptr<MolvaneHelperXPCProtocol> object) = 0;

  /// Called once, on a thread of the connection's own, when the connection has ended for whatever reason.
  virtual void setInvalidationHandler(std::function<void()> handler) = 0;

  /// Starts the connection. Nothing of the connection may be set afterwards.
  virtual void resume() = 0;
};

/// Decides which peers may connect.
class ListenerDelegate {
 public:
  virtual ~ListenerDelegate() = default;

  /// True after having resumed `connection`; false to refuse it, and then it is closed without having been
  /// resumed. Called on the listener's thread.
  virtual bool shouldAcceptNewConnection(PeerConnection& connection) = 0;
};

/// Waits for peers on the helper's service and offers each to the delegate.
class Listener {
 public:
  virtual ~Listener() = default;

  /// The delegate must outlive the listener. Set it before resume().
  virtual void setDelegate(ListenerDelegate& delegate) = 0;

  /// Starts to accept, on a thread of the listener's own, and returns.
  virtual void resume() = 0;

  /// Stops to accept. On return no further peer will be offered until resume(); connections that were
  /// accepted live on, and peers that come now wait. Not from within the delegate.
  virtual void suspend() = 0;
};

}  // namespace molvane
