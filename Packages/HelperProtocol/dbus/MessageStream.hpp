#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "HelperProtocol/dbus/Limits.hpp"
#include "HelperProtocol/dbus/Message.hpp"
#include "HelperProtocol/dbus/ProtocolError.hpp"
#include "HelperProtocol/dbus/Socket.hpp"

namespace molvane::dbus {

/// The next message is larger than the stream takes. Only its first bytes were looked at.
class OversizedMessage : public ProtocolError {
 public:
  explicit OversizedMessage(const Frame& message)
      : ProtocolError("a message larger than is accepted here"), frame(message) {}

  const Frame frame;
};

/// One end of a connection as a stream of messages. The socket is the caller's and must outlive the stream.
/// One thread at a time may use it.
class MessageStream {
 public:
  using Duration = std::chrono::steady_clock::duration;

  /// `maxIncoming` bounds, in bytes, what a message of the other end may be.
  MessageStream(const FileDescriptor& socket, std::size_t maxIncoming) noexcept
      : socket_(socket), maxIncoming_(maxIncoming) {}

  /// From now on nothing is received once `process` can be read: receive() and fetch() throw ProtocolError,
  /// and so does a receive() that is waiting then, within a tenth of a second. `process` must outlive the
  /// stream. Throws std::system_error.
  void endWith(const FileDescriptor& process);

  /// Waits for the next message, without a limit for its first byte and for no longer than `whole` from there
  /// to its last (no value: without a limit). Nothing at the end of the stream. What is returned lies in the
  /// stream's buffer until the next call.
  ///
  /// Throws OversizedMessage, ProtocolError for what is no message and for an end or a time-out in the middle
  /// of one, and std::system_error when the socket fails.
  [[nodiscard]] std::optional<Message> receive(std::optional<Duration> whole);

  /// After OversizedMessage: reads the message to its end and keeps nothing of it, for no longer than
  /// `whole`. Throws like receive().
  void discard(const Frame& oversized, Duration whole);

  /// Sends all of `bytes`. Throws ProtocolError when the other end takes nothing for the time `stall` (no
  /// value: waits for ever), std::system_error when the socket fails.
  void send(ByteView bytes, std::optional<Duration> stall);

  /// For the handshake, which is no message: what has come and was not consumed yet, ...
  [[nodiscard]] std::string_view buffered() const noexcept;
  /// ... marks `count` bytes of it as consumed, ...
  void consume(std::size_t count) noexcept { begin_ += count; }
  /// ... and more of it: waits until `deadline` at the longest. Throws ProtocolError when that has passed or
  /// the stream has ended.
  void fetch(Deadline deadline);

 private:
  [[nodiscard]] std::size_t available() const noexcept { return end_ - begin_; }
  void makeRoom(std::size_t wanted);
  void releaseExcess();
  bool readSome(std::optional<Deadline> deadline, bool wait);
  void awaitInput(Deadline deadline) const;
  void requireProcess() const;

  const FileDescriptor& socket_;
  std::size_t maxIncoming_;
  const FileDescriptor* process_ = nullptr;
  bool knownAlive_ = false;  ///< the process was, after the last bytes of the next message had come
  Bytes buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::size_t last_ = 0;
};

}  // namespace molvane::dbus
