#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace molvane::dbus {

/// The server's side of the handshake that comes before the first message.
///
/// One mechanism is offered, EXTERNAL, and descriptor passing is not. Who the peer is was settled by the
/// kernel before: the identity that the peer may claim here adds nothing, but a claim to be anybody else is
/// rejected. No claim is as good as the right one.
class SaslServer {
 public:
  /// `peerUID` is what the kernel says; `guid` names the server, 32 hexadecimal digits.
  SaslServer(std::uint32_t peerUID, std::string guid);

  /// Takes what it can of `input`, the bytes received and not yet taken, and appends what is to be sent to
  /// `answer`. Answers how many bytes it took; what follows them, once done() is true, belongs to the first
  /// message. Throws ProtocolError when the peer does not speak the handshake, or tries for too long.
  std::size_t receive(std::string_view input, std::string& answer);

  [[nodiscard]] bool done() const noexcept { return state_ == State::done; }

 private:
  enum class State { nul, auth, data, begin, done };

  void take(std::string_view line, std::string& answer);
  void takeAuth(std::string_view mechanism, std::string_view claim, bool claims, std::string& answer);
  void takeClaim(std::string_view hex, std::string& answer);
  void reject(std::string& answer);

  std::uint32_t peerUID_;
  std::string guid_;
  State state_ = State::nul;
  int lines_ = 0;
};

/// The client's side of it: everything is said at once, without a claim, and the answers are read afterwards.
class SaslClient {
 public:
  /// What to send first. Messages may be sent right behind it.
  [[nodiscard]] static std::string_view greeting() noexcept;

  /// Takes what it can of `input` and answers how many bytes that was. Throws ProtocolError when the server
  /// did not let the client in.
  std::size_t receive(std::string_view input);

  [[nodiscard]] bool done() const noexcept { return state_ == State::done; }

 private:
  enum class State { data, ok, done };

  void take(std::string_view line);

  State state_ = State::data;
};

}  // namespace molvane::dbus
