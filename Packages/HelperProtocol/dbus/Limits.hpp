#pragma once

#include <chrono>
#include <cstddef>

namespace molvane::dbus {

/// Largest array on the wire, in bytes of its elements; the protocol's own limit.
inline constexpr std::size_t kMaxArraySize = std::size_t{64} * 1024 * 1024;

/// Largest message on the wire, in bytes; the protocol's own limit and that of what the helper answers.
inline constexpr std::size_t kMaxMessageSize = std::size_t{128} * 1024 * 1024;

/// Largest message that the helper takes from a client, in bytes. The documents that clients send are a few
/// KiB; read into memory, one can take fifty times its size, and every connection may hold one. A larger one
/// is answered with an error and read to its end before the connection ends, up to kMaxMessageSize.
inline constexpr std::size_t kMaxRequestSize = std::size_t{64} * 1024;

/// How deep values may lie in one another, as the protocol has it.
inline constexpr int kMaxDepth = 64;

/// What one end grants the other. The defaults are what the shipped daemon and client use; tests make them
/// tight.
struct Limits {
  using Duration = std::chrono::steady_clock::duration;

  /// From the connection to the end of the handshake.
  Duration handshake = std::chrono::seconds(10);
  /// From a message's first byte to its last.
  Duration incomingMessage = std::chrono::seconds(30);
  /// How long the other end may take nothing of what is being sent to it.
  Duration sendStall = std::chrono::seconds(30);

  /// How long a connection without a call is safe from being ended for the sake of another.
  Duration silence = std::chrono::seconds(10);

  std::size_t connectionsPerUser = 128;
  std::size_t connections = 512;

  /// Stack of a connection's thread in bytes; the service does its work on it, sanitized builds too.
  std::size_t threadStack = std::size_t{1024} * 1024;
};

}  // namespace molvane::dbus
