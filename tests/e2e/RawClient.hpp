#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Harness.hpp"

namespace molvane::e2e {

/// A client that is bound by no library: it sends the bytes it is told to. This test program is signed like
/// the client, so what it sends reaches the helper's dispatcher.
class RawClient {
 public:
  /// Connects; throws std::system_error when the kernel refuses. Nothing is waited for longer than
  /// `patience`.
  explicit RawClient(std::chrono::seconds patience = kPatience);

  /// The handshake that every D-Bus client makes; throws std::runtime_error when the helper does not go
  /// along.
  void authenticate();

  /// Sends all of it; false when the helper has closed the connection.
  bool send(std::string_view bytes);

  struct Reply {
    bool error;        ///< an error reply; `body` then begins with its message
    std::uint32_t to;  ///< serial of the call that it answers
    std::string body;  ///< marshalled, little-endian
  };

  /// The next reply; nothing when the helper closed the connection. Throws std::runtime_error when neither
  /// comes in time.
  std::optional<Reply> receive();

  /// Sends one call and returns its reply; throws std::runtime_error when the connection ends instead.
  Reply call(std::string_view member, std::string_view signature = {}, std::string_view body = {});

  /// The helper's process has ended the connection: true when seen in time.
  bool seesEnd();

 private:
  /// Reads until `buffer_` holds `size` bytes; false at the end of the connection.
  bool fill(std::size_t size);

  std::chrono::milliseconds patience_;
  FileDescriptor socket_;
  std::string buffer_;
  std::uint32_t serial_ = 0;
};

/// One method call to the helper's object, marshalled.
std::string methodCall(std::uint32_t serial, std::string_view member, std::string_view signature = {},
                       std::string_view body = {});

/// A marshalled string: length, bytes, NUL.
std::string marshalled(std::string_view text);

/// The string that stands at `offset` of a marshalled body; throws std::out_of_range when there is none.
std::string stringAt(const std::string& body, std::size_t offset);

/// The answer of RemoveAllowedItemAtPath or RunMaintenanceTask: a marshalled boolean at the front.
bool booleanAt(const std::string& body, std::size_t offset);

}  // namespace molvane::e2e
