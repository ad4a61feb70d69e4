#include "HelperProtocol/dbus/SocketListener.hpp"

#include <chrono>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "Base/Ascii.hpp"
#include "Base/Uuid.hpp"
#include "Platform/Log.hpp"

namespace molvane::dbus {

namespace {

/// How long to leave the queue alone when the system has no descriptor or memory for a peer.
constexpr std::chrono::milliseconds kExhaustionPause{100};

/// The server's name in the handshake: 32 hexadecimal digits.
std::string newGUID() {
  std::string guid;
  for (const char c : asciiLowercased(Uuid::random().text())) {
    if (c != '-') guid += c;
  }
  return guid;
}

}  // namespace

/// A connection and all that goes with it. The thread comes last: it is joined before the rest goes.
struct SocketListener::Session {
  Session(FileDescriptor socket, std::uint32_t uid, std::uint64_t number,
          const ServerConnection::Surroundings& surroundings, ConnectionCounter::Slot counted)
      : connection(std::move(socket), uid, number, surroundings), slot(std::move(counted)) {}

  ServerConnection connection;
  std::optional<ConnectionCounter::Slot> slot;
  std::atomic<bool> ended = false;
  Thread thread;
};

SocketListener::SocketListener(ListeningSocket socket, CodeSigning& codeSigning, Limits limits,
                               PeerUID peerUID)
    : limits_(limits),
      peerUID_(std::move(peerUID)),
      socket_(std::move(socket)),
      surroundings_{codeSigning, limits_, newGUID()},
      counter_(limits_.connectionsPerUser, limits_.connections) {
  setNonBlocking(socket_.descriptor());
}

SocketListener::~SocketListener() {
  suspend();
  for (const auto& session : sessions_) session->connection.shutDown();
}

void SocketListener::resume() {
  if (delegate_ == nullptr) throw std::logic_error("a listener without a delegate");
  stopping_ = false;
  accepting_ = Thread([this] { acceptPeers(); });
}

void SocketListener::suspend() {
  stopping_ = true;
  wakeUp_.signal();
  accepting_.join();
}

void SocketListener::acceptPeers() noexcept {
  while (!stopping_) {
    try {
      waitForEither(wakeUp_.descriptor(), socket_.descriptor());
      wakeUp_.clear();
      reap();
      acceptOne();
    } catch (...) {
      // Out of descriptors, threads or memory. The queue keeps whoever comes; asking again at once would only
      // spin.
      std::this_thread::sleep_for(kExhaustionPause);
    }
  }
}

void SocketListener::acceptOne() {
  if (auto peer = acceptPeer(socket_.descriptor())) offer(std::move(*peer));
}

void SocketListener::offer(FileDescriptor peer) {
  const std::uint32_t uid = peerUID_(peer);
  auto slot = placeFor(uid);
  if (!slot) return;
  auto session =
      std::make_unique<Session>(std::move(peer), uid, ++accepted_, surroundings_, std::move(*slot));
  ServerConnection& connection = session->connection;
  bool accepted = false;
  try {
    accepted = delegate_->shouldAcceptNewConnection(connection);
  } catch (...) {
    if (connection.resumed()) connection.invalidate();
    throw;
  }
  if (!connection.resumed()) return;
  accepted ? start(std::move(session)) : connection.invalidate();
}

std::optional<ConnectionCounter::Slot> SocketListener::placeFor(std::uint32_t uid) {
  if (auto slot = counter_.take(uid)) return slot;
  Session* silent = silentInTheWayOf(uid);
  // A call may come before it is ended.
  if (silent == nullptr || !silent->connection.makeWay()) return std::nullopt;
  logLine("MolvaneHelper: ended a silent connection of user " +
          std::to_string(silent->connection.effectiveUserIdentifier()));
  silent->slot->passTo(uid);
  return std::exchange(silent->slot, std::nullopt);
}

SocketListener::Session* SocketListener::silentInTheWayOf(std::uint32_t uid) {
  const auto latest = Silence::Clock::now() - limits_.silence;
  const std::size_t own = counter_.count(uid);
  Session* found = nullptr;
  std::pair<std::size_t, Silence::Clock::duration> most;
  for (const auto& session : sessions_) {
    const auto since = session->connection.silentSince();
    if (!since || *since > latest) continue;
    const std::uint32_t other = session->connection.effectiveUserIdentifier();
    const std::size_t held = counter_.count(other);
    if (other != uid && held <= own + 1) continue;
    const std::pair standing(held, latest - *since);
    if (found != nullptr && standing <= most) continue;
    found = session.get();
    most = standing;
  }
  return found;
}

void SocketListener::start(std::unique_ptr<Session> session) {
  ServerConnection& connection = session->connection;
  std::list<std::unique_ptr<Session>> started;
  try {
    Session& served = *started.emplace_back(std::move(session));
    served.thread = Thread([this, &served] { serve(served); }, limits_.threadStack);
  } catch (...) {
    connection.invalidate();
    throw;
  }
  sessions_.splice(sessions_.end(), started);
}

void SocketListener::serve(Session& session) noexcept {
  const bool hasPlace = session.connection.serve();
  session.connection.invalidate();
  // Whoever sees the end of the connection may connect anew. A place that went to another is no longer here.
  if (hasPlace) session.slot.reset();
  session.connection.shutDown();
  session.ended = true;
  wakeUp_.signal();
}

void SocketListener::reap() noexcept {
  sessions_.remove_if([](const std::unique_ptr<Session>& session) { return session->ended.load(); });
}

}  // namespace molvane::dbus
