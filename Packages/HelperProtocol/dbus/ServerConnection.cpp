#include "HelperProtocol/dbus/ServerConnection.hpp"

#include <chrono>
#include <utility>

#include "HelperProtocol/dbus/Exporter.hpp"
#include "HelperProtocol/dbus/Sasl.hpp"
#include "Platform/Log.hpp"

namespace molvane::dbus {

namespace {

/// Answers larger than this do not keep their memory.
constexpr std::size_t kKeptAnswer = std::size_t{64} * 1024;

}  // namespace

ServerConnection::ServerConnection(FileDescriptor socket, std::uint32_t peerUID, std::uint64_t number,
                                   const Surroundings& surroundings)
    : socket_(std::move(socket)),
      peerUID_(peerUID),
      number_(number),
      surroundings_(surroundings),
      stream_(socket_, kMaxRequestSize) {}

bool ServerConnection::serve() noexcept {
  try {
    if (object_ && peerIsTrusted()) {
      handshake();
      converse();
    }
  } catch (...) {
    // A peer that breaks the rules, dawdles or vanishes is a peer that leaves: there is nobody to tell, and a
    // line in the log for each would hand the log to whoever can connect. The same goes for a lack of memory.
  }
  return silence_.end();
}

bool ServerConnection::peerIsTrusted() {
  PeerVerdict verdict = requirement_ ? surroundings_.codeSigning.checkPeer(socket_, *requirement_)
                                     : PeerVerdict{{"no requirement was set"}, {}};
  if (!verdict.satisfied()) logLine("MolvaneHelper: refused peer: " + verdict.problem);
  process_ = std::move(verdict.process);
  stream_.endWith(process_);
  return verdict.satisfied();
}

void ServerConnection::handshake() {
  const Deadline deadline = std::chrono::steady_clock::now() + surroundings_.limits.handshake;
  SaslServer server(peerUID_, surroundings_.guid);
  while (true) {
    std::string answer;
    stream_.consume(server.receive(stream_.buffered(), answer));
    stream_.send(asBytes(answer), surroundings_.limits.handshake);
    if (server.done()) return;
    stream_.fetch(deadline);
  }
}

void ServerConnection::converse() {
  Exporter exporter(object_, ":1." + std::to_string(number_));
  try {
    answerCalls(exporter);
  } catch (const OversizedMessage& message) {
    refuse(message.frame, exporter);
  }
}

void ServerConnection::answerCalls(Exporter& exporter) {
  Bytes answer;
  while (const std::optional<Message> message = nextMessage()) {
    if (exporter.handle(*message, answer)) {
      stream_.send(answer, surroundings_.limits.sendStall);
    } else if (hasHungUp(socket_)) {
      // With an answer to send that would have shown. What else the peer left in the queue is not begun.
      return;
    }
    if (answer.capacity() > kKeptAnswer) answer = Bytes();
  }
}

std::optional<Message> ServerConnection::nextMessage() {
  silence_.begin();
  const std::optional<Message> message = stream_.receive(surroundings_.limits.incomingMessage);
  return silence_.end() ? message : std::nullopt;
}

// A client that is still sending would take the end of the connection for the answer.
void ServerConnection::refuse(const Frame& oversized, Exporter& exporter) {
  Bytes answer;
  if (!exporter.refuse(oversized, answer)) return;
  stream_.send(answer, surroundings_.limits.sendStall);
  stream_.discard(oversized, surroundings_.limits.incomingMessage);
}

void ServerConnection::invalidate() noexcept {
  try {
    object_.reset();
    if (invalidated_) std::exchange(invalidated_, nullptr)();
  } catch (...) {
    // The handler has been called; what it makes of it is its own affair, and not a reason to end the helper.
  }
}

bool ServerConnection::makeWay() noexcept {
  if (!silence_.breakOff()) return false;
  shutDown();
  return true;
}

void ServerConnection::shutDown() noexcept { dbus::shutDown(socket_); }

}  // namespace molvane::dbus
